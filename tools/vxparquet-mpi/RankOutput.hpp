#pragma once

// What one rank of vxparquet-mpi prints: standard output goes to a file of the rank's own
// while its command runs, and is then either sent to rank 0, which prints every rank's part in
// rank order, or kept as the rank's part file.
#include <string>

namespace vxparquet::mpi {

class CapturedOutput {
 public:
  // Standard output goes to a new file in folder (an unnamed one in the temporary folder when
  // folder is empty) until finish().
  explicit CapturedOutput(const std::string& folder = "");
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // Flushes and gives standard output back; the file is then read from its start.
  void finish();
  int fd() const { return mFd; }
  // Moves the file to path (in the same folder), replacing what was there; false on failure.
  bool keepAs(const std::string& path);

 private:
  int mFd = -1;
  int mSavedStdout = -1;
  std::string mPath;  // empty once kept, or for an unnamed file
};

// Rank 0: copies fd to standard output; skipFirstLine leaves out everything up to the first
// newline (another rank's CSV header). Returns whether anything was read.
bool copyToStdout(int fd, bool skipFirstLine);
// Other ranks: sends the file to rank 0 in chunks, an empty chunk last.
void sendToRoot(int fd);
// Rank 0: what sendToRoot of rank sends, to standard output; as copyToStdout.
bool receiveToStdout(int rank, bool skipFirstLine);

}  // namespace vxparquet::mpi
