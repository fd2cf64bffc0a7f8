#pragma once

#include <cstdint>
#include <streambuf>
#include <string>
#include <vector>

namespace virtualiostream {

// A write-only stream buffer over a file descriptor. It counts the bytes it has written, so
// that Tell works on pipes and devices, where the system has no position to report. Failed
// writes raise the host's WriteFailure (a full disk, a lost mount, a closed pipe).
class OutputFileBuf : public std::streambuf {
 public:
  // Takes ownership of fd. seekable: the descriptor supports lseek (a regular file).
  OutputFileBuf(int fd, std::u16string name, bool seekable);
  ~OutputFileBuf() override;

  OutputFileBuf(const OutputFileBuf&) = delete;
  OutputFileBuf& operator=(const OutputFileBuf&) = delete;

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* data, std::streamsize count) override;
  int sync() override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir way,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

 private:
  void flushBuffer();
  void writeAll(const char* data, size_t count);
  [[noreturn]] void fail() const;

  int mFd;
  std::u16string mName;
  bool mSeekable;
  int64_t mPosition = 0;  // of the first byte in the buffer
  std::vector<char> mBuffer;
};

}  // namespace virtualiostream
