// __pq_mex__: the one MEX entry point of the Octave package. The package's .m functions call
// __pq_mex__(COMMAND, ...). Library errors become Octave errors with the library's identifier
// and catalogue text; the library's warnings become Octave warnings with theirs.
#include <cstring>
#include <exception>
#include <string>

#include <mex.h>

#include "Commands.hpp"
#include "OctaveInterrupts.hpp"
#include "OctaveValues.hpp"
#include "host/except/Exception.hpp"
#include "host/matrix/Matrix.hpp"
#include "host/services/LargeBlockPool.hpp"
#include "host/services/Services.hpp"
#include "host/vfs/Interrupted.hpp"

namespace {

using namespace vantro::octave;

struct Failure {
  std::string identifier;
  std::string message;
};

Command commandNamed(const std::string& name) {
  if (name == "info") return infoCommand;
  if (name == "count") return countCommand;
  if (name == "read") return readCommand;
  if (name == "rowgroups") return rowGroupsCommand;
  if (name == "next") return nextCommand;
  if (name == "restore") return restoreCommand;
  if (name == "stats") return statsCommand;
  if (name == "write") return writeCommand;
  if (name == "plan") return planCommand;
  if (name == "task") return taskCommand;
  if (name == "fingerprint") return fingerprintCommand;
  if (name == "checkfingerprint") return checkFingerprintCommand;
  if (name == "threads") return threadsCommand;
  if (name == "readdataset") return readDatasetCommand;
  if (name == "plandataset") return planDatasetCommand;
  if (name == "datasetinfo") return datasetInfoCommand;
  if (name == "listfiles") return listFilesCommand;
  if (name == "datasetopen") return datasetOpenCommand;
  if (name == "datasetread") return datasetReadCommand;
  if (name == "datasetreadall") return datasetReadAllCommand;
  if (name == "datasetreset") return datasetResetCommand;
  if (name == "datasethasdata") return datasetHasDataCommand;
  if (name == "datasetclose") return datasetCloseCommand;
  return nullptr;
}

// Runs the command; every C++ exception stops here, so that Octave's own error unwinding never
// crosses the library's frames.
bool run(int nout, mxArray* out[], int count, const mxArray* args[], Failure& failure) {
  try {
    if (count < 1 || !mxIsChar(args[0])) {
      throw TranslationError{"VANTRO:octave:InvalidArgument", "__pq_mex__ needs a command name"};
    }
    const std::string name = textOf(args[0], "the command");
    const Command command = commandNamed(name);
    if (command == nullptr) {
      throw TranslationError{"VANTRO:octave:InvalidArgument", "unknown command '" + name + "'"};
    }
    InterruptBridge bridge;
    command(nout, out, count - 1, args + 1);
    // Ctrl-C after the library's last look at the host state (a write's final rename, the copy
    // of a result into Octave's arrays): left pending, Octave would stop the caller with an
    // interrupt that try/catch cannot see. Reported as the library's interrupt instead; a write
    // has then either replaced the file whole or left it as it was.
    if (InterruptBridge::octaveRequested()) {
      throw foundation::core::except::InterruptException(foundation::core::except::kHostComponent,
                                                         "Interrupted", {});
    }
    return true;
  } catch (const foundation::core::except::InterruptException& e) {
    InterruptBridge::consumeOctaveRequest();
    failure = {e.identifier(), e.message()};
  } catch (const foundation::core::except::IMsgIDException& e) {
    failure = {e.identifier(), e.message()};
    // A read or write that Ctrl-C cut short fails with the library's own error: it is the
    // interrupt that the user sees.
    if (InterruptBridge::octaveRequested()) {
      InterruptBridge::consumeOctaveRequest();
      const foundation::core::except::InterruptException interrupt(
          foundation::core::except::kHostComponent, "Interrupted", {});
      failure = {interrupt.identifier(), interrupt.message()};
    }
  } catch (const TranslationError& e) {
    failure = {e.identifier, e.message};
  } catch (const std::bad_alloc&) {
    failure = {"VANTRO:octave:OutOfMemory", "Out of memory."};
  } catch (const std::exception& e) {
    failure = {"VANTRO:octave:InternalError", e.what()};
  }
  return false;
}

// Warnings the host recorded during the call, as Octave warnings.
void forwardWarnings() {
  for (const auto& warning : matrix::takeWarnings()) {
    mexWarnMsgIdAndTxt(warning.identifier.c_str(), "%s", warning.message.c_str());
  }
}

}  // namespace

extern "C" void mexFunction(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  static bool initialised = false;
  if (!initialised) {
    // Octave shows the warnings; the host's own copy on standard error would repeat them.
    matrix::setPrintWarnings(false);
    // Ctrl-C stops a long read or write at its next block, not only between steps.
    virtualiostream::setStopOnInterrupt(true);
    // Octave reads again and again in one process: freed pages stay for the next read.
    foundation::services::setArrowMemoryDecayMs(foundation::services::kProgramArrowMemoryDecayMs);
    // Octave's arrays come from malloc too: the columns of one read, megabytes each, reuse the
    // pages of the arrays the user cleared instead of faulting fresh ones in, and numeric
    // columns decoded into the pool's blocks become Octave's arrays uncopied.
    foundation::services::useLargeBlockPoolForReads(/*keepFreedPages=*/true);
    initialised = true;
  }
  Failure failure;
  const bool ok = run(nlhs, plhs, nrhs, prhs, failure);
  forwardWarnings();
  if (!ok) {
    for (int i = 0; i < nlhs; ++i) {
      if (plhs[i] != nullptr) mxDestroyArray(plhs[i]);
      plhs[i] = nullptr;
    }
    // error(struct) keeps the message as it is (mexErrMsgIdAndTxt would prefix our name).
    const char* fields[] = {"message", "identifier"};
    mxArray* error = mxCreateStructMatrix(1, 1, 2, fields);
    mxSetField(error, 0, "message", mxCreateString(failure.message.c_str()));
    mxSetField(error, 0, "identifier", mxCreateString(failure.identifier.c_str()));
    failure = {};
    mexCallMATLAB(0, nullptr, 1, &error, "error");
  }
}
