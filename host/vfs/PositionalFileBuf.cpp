#include "host/vfs/PositionalFileBuf.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "host/services/IdleMemoryReleaser.hpp"
#include "host/vfs/Interrupted.hpp"

namespace virtualiostream {

bool PositionalFileBuf::open(const std::string& path) {
  mFd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (mFd < 0) return false;
  struct stat info {};
  if (::fstat(mFd, &info) != 0) {
    const int error = errno;
    ::close(mFd);
    mFd = -1;
    errno = error;
    return false;
  }
  mSize = static_cast<int64_t>(info.st_size);
  return true;
}

PositionalFileBuf::~PositionalFileBuf() {
  if (mFd >= 0) ::close(mFd);
}

std::streamsize PositionalFileBuf::readAt(char* out, std::streamsize count) {
  throwIfInterrupted();
  foundation::services::IdleMemoryReleaser::noteActivity();
  std::streamsize total = 0;
  while (total < count) {
    const ssize_t got = ::pread(mFd, out + total, static_cast<size_t>(count - total), mPosition);
    if (got < 0) {
      if (errno == EINTR) continue;
      // Thrown inside the stream's read: the stream catches it and turns bad.
      throw std::runtime_error(std::string("pread failed: ") + std::strerror(errno));
    }
    if (got == 0) break;
    total += got;
    mPosition += got;
  }
  return total;
}

PositionalFileBuf::int_type PositionalFileBuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  // At the known end there is nothing to ask the system for.
  if (mPosition >= mSize || readAt(&mPeek, 1) != 1) return traits_type::eof();
  setg(&mPeek, &mPeek, &mPeek + 1);
  return traits_type::to_int_type(mPeek);
}

std::streamsize PositionalFileBuf::xsgetn(char* out, std::streamsize count) {
  std::streamsize copied = 0;
  if (gptr() < egptr() && count > 0) {  // the peeked byte comes first
    *out = *gptr();
    gbump(1);
    copied = 1;
  }
  return copied + readAt(out + copied, count - copied);
}

std::streamsize PositionalFileBuf::showmanyc() {
  const int64_t left = mSize - logicalPosition();
  return left > 0 ? static_cast<std::streamsize>(left) : -1;
}

PositionalFileBuf::pos_type PositionalFileBuf::seekoff(off_type offset, std::ios_base::seekdir way,
                                                       std::ios_base::openmode) {
  const int64_t base = way == std::ios_base::beg   ? 0
                       : way == std::ios_base::cur ? logicalPosition()
                                                   : mSize;
  const int64_t target = base + offset;
  if (target < 0) return pos_type(off_type(-1));
  setg(nullptr, nullptr, nullptr);  // drop the look-ahead
  mPosition = target;
  return pos_type(target);
}

PositionalFileBuf::pos_type PositionalFileBuf::seekpos(pos_type position,
                                                       std::ios_base::openmode which) {
  return seekoff(off_type(position), std::ios_base::beg, which);
}

}  // namespace virtualiostream
