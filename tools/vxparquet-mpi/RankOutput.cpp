#include "RankOutput.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include <mpi.h>

namespace vxparquet::mpi {
namespace {

constexpr int kOutputTag = 7;
constexpr size_t kChunk = 1 << 20;

bool writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd, data, size);
    if (written < 0) return false;
    data += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

// Writes chunks to standard output, leaving out the first line while skipping.
class LineSkippingWriter {
 public:
  explicit LineSkippingWriter(bool skipFirstLine) : mSkipping(skipFirstLine) {}
  void write(const char* data, size_t size) {
    mAny = mAny || size > 0;
    if (mSkipping) {
      size_t i = 0;
      while (i < size && data[i] != '\n') ++i;
      if (i == size) return;
      mSkipping = false;
      data += i + 1;
      size -= i + 1;
    }
    if (!writeAll(STDOUT_FILENO, data, size)) {
      throw std::runtime_error("Unable to write the output to standard output.");
    }
  }
  bool any() const { return mAny; }

 private:
  bool mSkipping;
  bool mAny = false;
};

}  // namespace

CapturedOutput::CapturedOutput(const std::string& folder) {
  std::fflush(stdout);
  if (folder.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/vxparquet-mpi-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    mFd = ::mkstemp(name.data());
    if (mFd >= 0) ::unlink(name.data());  // gone with the descriptor, whatever happens
  } else {
    mPath = folder + "/.part.partial-XXXXXX";
    std::vector<char> name(mPath.begin(), mPath.end());
    name.push_back('\0');
    mFd = ::mkstemp(name.data());
    mPath.assign(name.data());
  }
  if (mFd < 0) {
    mPath.clear();
    throw std::runtime_error("Unable to make a file for this rank's output" +
                             (folder.empty() ? std::string() : " in '" + folder + "'"));
  }
  mSavedStdout = ::dup(STDOUT_FILENO);
  ::dup2(mFd, STDOUT_FILENO);
}

CapturedOutput::~CapturedOutput() {
  finish();
  if (mFd >= 0) ::close(mFd);
  if (!mPath.empty()) ::unlink(mPath.c_str());  // our own unfinished part file only
}

void CapturedOutput::finish() {
  if (mSavedStdout < 0) return;
  std::fflush(stdout);
  ::dup2(mSavedStdout, STDOUT_FILENO);
  ::close(mSavedStdout);
  mSavedStdout = -1;
  ::lseek(mFd, 0, SEEK_SET);
}

bool CapturedOutput::keepAs(const std::string& path) {
  finish();
  if (mPath.empty() || ::fsync(mFd) != 0 || ::rename(mPath.c_str(), path.c_str()) != 0) {
    return false;
  }
  mPath.clear();
  return true;
}

bool copyToStdout(int fd, bool skipFirstLine) {
  LineSkippingWriter writer(skipFirstLine);
  std::vector<char> buffer(kChunk);
  ssize_t got;
  while ((got = ::read(fd, buffer.data(), buffer.size())) > 0) {
    writer.write(buffer.data(), static_cast<size_t>(got));
  }
  return writer.any();
}

void sendToRoot(int fd) {
  std::vector<char> buffer(kChunk);
  ssize_t got;
  while ((got = ::read(fd, buffer.data(), buffer.size())) > 0) {
    MPI_Send(buffer.data(), static_cast<int>(got), MPI_CHAR, 0, kOutputTag, MPI_COMM_WORLD);
  }
  MPI_Send(buffer.data(), 0, MPI_CHAR, 0, kOutputTag, MPI_COMM_WORLD);
}

bool receiveToStdout(int rank, bool skipFirstLine) {
  LineSkippingWriter writer(skipFirstLine);
  std::vector<char> buffer(kChunk);
  for (;;) {
    MPI_Status status;
    MPI_Recv(buffer.data(), static_cast<int>(buffer.size()), MPI_CHAR, rank, kOutputTag,
             MPI_COMM_WORLD, &status);
    int count = 0;
    MPI_Get_count(&status, MPI_CHAR, &count);
    if (count == 0) break;
    writer.write(buffer.data(), static_cast<size_t>(count));
  }
  return writer.any();
}

}  // namespace vxparquet::mpi
