#include "host/vfs/OutputFileBuf.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/except/Exception.hpp"
#include "host/services/IdleMemoryReleaser.hpp"
#include "host/vfs/Interrupted.hpp"

namespace virtualiostream {

namespace except = foundation::core::except;

namespace {
constexpr size_t kBufferSize = 1 << 20;
}

OutputFileBuf::OutputFileBuf(int fd, std::u16string name, bool seekable)
    : mFd(fd), mName(std::move(name)), mSeekable(seekable), mBuffer(kBufferSize) {
  setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
}

OutputFileBuf::~OutputFileBuf() {
  try {
    flushBuffer();
  } catch (...) {
    // The owner flushes through sync() first and sees failures there.
  }
  ::close(mFd);
}

void OutputFileBuf::fail() const {
  throw except::Exception<except::host::WriteFailure>(except::kVfsComponent, "WriteFailure",
                                                      {mName});
}

void OutputFileBuf::writeAll(const char* data, size_t count) {
  throwIfInterrupted();
  foundation::services::IdleMemoryReleaser::noteActivity();
  while (count > 0) {
    const ssize_t written = ::write(mFd, data, count);
    if (written < 0) {
      if (errno == EINTR) continue;
      fail();
    }
    data += written;
    count -= static_cast<size_t>(written);
    mPosition += written;
  }
}

void OutputFileBuf::flushBuffer() {
  const size_t pending = static_cast<size_t>(pptr() - pbase());
  // Reset first: a failed write must not be retried by a later flush.
  setp(mBuffer.data(), mBuffer.data() + mBuffer.size());
  writeAll(mBuffer.data(), pending);
}

OutputFileBuf::int_type OutputFileBuf::overflow(int_type c) {
  flushBuffer();
  if (!traits_type::eq_int_type(c, traits_type::eof())) {
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
  }
  return traits_type::not_eof(c);
}

std::streamsize OutputFileBuf::xsputn(const char* data, std::streamsize count) {
  const auto room = static_cast<std::streamsize>(epptr() - pptr());
  if (count <= room) {
    std::memcpy(pptr(), data, static_cast<size_t>(count));
    pbump(static_cast<int>(count));
    return count;
  }
  flushBuffer();
  if (count < static_cast<std::streamsize>(mBuffer.size())) {
    std::memcpy(pptr(), data, static_cast<size_t>(count));
    pbump(static_cast<int>(count));
  } else {
    writeAll(data, static_cast<size_t>(count));
  }
  return count;
}

int OutputFileBuf::sync() {
  flushBuffer();
  return 0;
}

OutputFileBuf::pos_type OutputFileBuf::seekoff(off_type offset, std::ios_base::seekdir way,
                                               std::ios_base::openmode /*which*/) {
  const int64_t current = mPosition + (pptr() - pbase());
  if (way == std::ios_base::cur && offset == 0) return pos_type(current);
  const int64_t target = way == std::ios_base::beg   ? offset
                         : way == std::ios_base::cur ? current + offset
                                                     : -1;
  if (target == current) return pos_type(current);
  if (!mSeekable || target < 0) return pos_type(off_type(-1));
  flushBuffer();
  if (::lseek(mFd, target, SEEK_SET) < 0) return pos_type(off_type(-1));
  mPosition = target;
  return pos_type(target);
}

OutputFileBuf::pos_type OutputFileBuf::seekpos(pos_type position, std::ios_base::openmode which) {
  if (off_type(position) == mPosition + (pptr() - pbase())) return position;
  return seekoff(off_type(position), std::ios_base::beg, which);
}

}  // namespace virtualiostream
