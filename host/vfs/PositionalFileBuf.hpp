#pragma once

#include <cstdint>
#include <streambuf>
#include <string>

namespace virtualiostream {

// A read-only stream buffer over a local file that reads with pread at a position of its own.
// Seeking costs no system call and one read costs one pread, as with Arrow's own local files;
// a std::filebuf pays an lseek per seek and refills its buffer to answer a peek.
class PositionalFileBuf : public std::streambuf {
 public:
  // Opens path for reading; returns false (errno set) when it cannot.
  bool open(const std::string& path);
  ~PositionalFileBuf() override;

  int64_t size() const { return mSize; }

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* out, std::streamsize count) override;
  std::streamsize showmanyc() override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir way,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

 private:
  // The position of the next byte the stream will hand out.
  int64_t logicalPosition() const { return mPosition - (egptr() - gptr()); }
  // Reads up to count bytes at mPosition; throws on an I/O error, which turns the stream bad.
  std::streamsize readAt(char* out, std::streamsize count);

  int mFd = -1;
  int64_t mSize = 0;
  int64_t mPosition = 0;  // where the next pread starts
  char mPeek = 0;         // one byte of look-ahead for peek()
};

}  // namespace virtualiostream
