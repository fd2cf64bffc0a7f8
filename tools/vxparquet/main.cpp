// vxparquet: the host's Parquet functions from the command line.
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <arrow/config.h>

#include "Cli.hpp"
#include "host/except/Exception.hpp"
#include "host/services/Interrupts.hpp"
#include "host/services/Services.hpp"
#include "host/services/Threads.hpp"
#include "host/vfs/LocalOutput.hpp"

namespace {

const char* kVersion = "0.2.0";

const char* kUsage =
    "usage: vxparquet <command> [arguments]\n"
    "\n"
    "commands:\n"
    "  count FILE...      row groups and rows of each file, and their total\n"
    "  info FILE          the file's metadata summary (--row-groups, --schema for more)\n"
    "  read FILE...       the files' rows, optionally filtered (--where), as a table, JSON,\n"
    "                     JSON lines or CSV\n"
    "  head FILE          the first rows of a file (-n N, default 10)\n"
    "  stats FILE         per-row-group statistics of each variable\n"
    "  write OUT --from IN  writes a Parquet, CSV or TSV input as Parquet\n"
    "  plan FILE... -n N  splits the files' row groups into N tasks (JSON lines) for job arrays\n"
    "                     and MPI launches\n"
    "  help [COMMAND]     this text, or every option of one command\n"
    "\n"
    "options for every command: --help, --threads N (threads to use; default: the CPUs the\n"
    "process may run on); the program: --version.\n"
    "Set VXPARQUET_LOG=<mask>[:<file>] (mask 'all' or a number) to trace the library.\n"
    "Exit status: 0 success, 1 error, 2 command-line mistake, 130 interrupted.\n";

// Arrow's jemalloc reads its settings once, as the library loads, before main; Arrow's own
// settings start background purging threads, which under a tight process limit fail and report
// it on every new arena (thousands of lines). Where the limit is tight, the program starts itself
// again with them turned off; elsewhere the restart would only cost start-up time. A setting the
// user made is left as it is; root is not held to the limit.
constexpr rlim_t kFewProcesses = 4096;

void restartWithoutAllocatorThreads(char** argv) {
  namespace services = foundation::services;
  if (::getenv(services::kArrowJemallocConfVariable) != nullptr || ::geteuid() == 0) return;
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_NPROC, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
      limit.rlim_cur > kFewProcesses) {
    return;
  }
  if (::setenv(services::kArrowJemallocConfVariable, services::kArrowJemallocConf, 1) != 0) return;
  ::execv("/proc/self/exe", argv);
  // No restart (no /proc): the allocator keeps its threads, the command runs all the same.
}

// Ctrl-C: the commands poll the host's interrupt state between pieces of work; a piece that
// runs on (one large row group, a blocked read of a FIFO) is cut short here so that the
// program always ends within a second.
std::atomic<bool> gInterrupted{false};
std::atomic<bool> gFinished{false};

extern "C" void onInterrupt(int) {
  gInterrupted.store(true);
  utInterruptState::Raise();
}

void printInterrupted() {
  const std::string line = "vxparquet " + vxparquet::currentCommand() + ": interrupted\n";
  // write(2): safe whatever state stdio is in.
  ssize_t ignored = ::write(STDERR_FILENO, line.data(), line.size());
  (void)ignored;
}

void startInterruptWatch() {
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: a blocked read returns, the command then stops
  sigaction(SIGINT, &action, nullptr);
  std::thread watchdog = foundation::services::tryStartThread([] {
    while (!gInterrupted.load()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(800);
    while (std::chrono::steady_clock::now() < deadline) {
      if (gFinished.load()) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (gFinished.load()) return;
    // The write in progress never reaches its next check: its temporary file goes here.
    virtualiostream::discardUnfinishedOutputs();
    printInterrupted();
    std::_Exit(130);
  });
  // No thread to spare (a process limit): Ctrl-C is still noticed between row groups.
  if (watchdog.joinable()) watchdog.detach();
}

bool isHelp(const std::string& word) { return word == "--help" || word == "-h"; }

int printHelp(const std::string& command) {
  if (command.empty()) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  const std::string text = vxparquet::commandHelp(command);
  if (text.empty()) {
    std::fprintf(stderr, "vxparquet: unknown command '%s' (see 'vxparquet --help')\n",
                 command.c_str());
    return 2;
  }
  std::fputs(text.c_str(), stdout);
  return 0;
}

int dispatch(const std::string& command, const std::vector<std::string>& words) {
  if (command == "count") return vxparquet::runCount(words);
  if (command == "info") return vxparquet::runInfo(words);
  if (command == "read") return vxparquet::runRead(words);
  if (command == "head") return vxparquet::runHead(words);
  if (command == "stats") return vxparquet::runStats(words);
  if (command == "write") return vxparquet::runWrite(words);
  if (command == "plan") return vxparquet::runPlan(words);
  throw vxparquet::UsageError{"unknown command '" + command + "'"};
}

void printError(const std::string& identifier, const std::string& message) {
  vxparquet::reportError(identifier, message);
}

// The exit status once the command returned: an interrupted output (a write cut short by
// Ctrl-C) or one that could not be written is not a success.
int finish(int status) {
  const bool flushed = std::fflush(stdout) == 0 && !std::ferror(stdout);
  if (gInterrupted.load()) {
    gFinished.store(true);
    printInterrupted();
    return 130;
  }
  gFinished.store(true);
  if (!flushed && status == 0) {
    printError("vxparquet:" + vxparquet::currentCommand() + ":OutputFailed",
               "Unable to write the output to standard output.");
    return 1;
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  restartWithoutAllocatorThreads(argv);
  // Freed pages stay with Arrow's allocator for a while, so a second read reuses them.
  foundation::services::setArrowMemoryDecayMs(foundation::services::kProgramArrowMemoryDecayMs);
  foundation::host::initialize();
  startInterruptWatch();
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    std::fputs("vxparquet: a command is needed (see 'vxparquet --help')\n", stderr);
    return 2;
  }
  if (isHelp(args[0])) return printHelp("");
  if (args[0] == "--version") {
    std::printf("vxparquet %s (Apache Arrow and Parquet C++ %s)\n", kVersion, ARROW_VERSION_STRING);
    return 0;
  }
  if (args[0] == "help") return printHelp(args.size() > 1 ? args[1] : "");
  vxparquet::setCurrentCommand(args[0]);
  std::vector<std::string> words(args.begin() + 1, args.end());
  for (const auto& word : words) {
    if (word == "--") break;
    if (isHelp(word) && !vxparquet::commandHelp(args[0]).empty()) return printHelp(args[0]);
  }
  try {
    vxparquet::takeThreadsOption(words);
    return finish(dispatch(args[0], words));
  } catch (const vxparquet::UsageError& e) {
    const std::string help = vxparquet::commandHelp(args[0]).empty()
                                 ? "vxparquet --help"
                                 : "vxparquet " + args[0] + " --help";
    std::fprintf(stderr, "vxparquet %s: %s (see '%s')\n", args[0].c_str(), e.message.c_str(),
                 help.c_str());
    return finish(2);
  } catch (const foundation::core::except::InterruptException&) {
    gInterrupted.store(true);
    return finish(130);
  } catch (const foundation::core::except::IMsgIDException& e) {
    // A read cut short by Ctrl-C (EINTR from a blocked FIFO, say) is the interrupt itself.
    if (!gInterrupted.load()) printError(e.identifier(), e.message());
    return finish(1);
  } catch (const vxparquet::ProgramError& e) {
    if (!gInterrupted.load()) printError(e.identifier, e.message);
    return finish(1);
  } catch (const std::exception& e) {
    if (!gInterrupted.load()) printError("vxparquet:" + args[0] + ":Failed", e.what());
    return finish(1);
  }
}
