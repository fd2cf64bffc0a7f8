#include "host/vfs/MemoryProvider.hpp"

#include <algorithm>
#include <cstring>
#include <streambuf>

#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"

namespace virtualiostream {
namespace {

namespace except = foundation::core::except;

// A stream buffer over one in-memory file. Reads and writes go straight to the file's bytes;
// there is no buffering of its own, so every call is where faults are injected.
class MemoryBuffer : public std::streambuf {
 public:
  MemoryBuffer(std::shared_ptr<std::string> bytes, std::u16string name,
               MemoryProvider::Faults faults)
      : mBytes(std::move(bytes)), mName(std::move(name)), mFaults(faults) {}

 protected:
  int_type underflow() override {
    char c;
    if (readInto(&c, 1) != 1) return traits_type::eof();
    --mPosition;  // peek only
    return traits_type::to_int_type(c);
  }

  int_type uflow() override {
    char c;
    return readInto(&c, 1) == 1 ? traits_type::to_int_type(c) : traits_type::eof();
  }

  std::streamsize xsgetn(char* out, std::streamsize count) override {
    std::streamsize total = 0;
    while (total < count) {
      const std::streamsize got = readInto(out + total, count - total);
      if (got == 0) break;
      total += got;
    }
    return total;
  }

  std::streamsize showmanyc() override {
    return mPosition < static_cast<int64_t>(mBytes->size()) ? 1 : -1;
  }

  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char byte = traits_type::to_char_type(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
  }

  std::streamsize xsputn(const char* data, std::streamsize count) override {
    if (mFaults.writeQuota >= 0 && mWritten + count > mFaults.writeQuota) {
      throw except::Exception<except::host::WriteFailure>(except::kVfsComponent, "WriteFailure",
                                                          {mName});
    }
    const size_t end = static_cast<size_t>(mPosition + count);
    if (end > mBytes->size()) mBytes->resize(end);
    std::memcpy(mBytes->data() + mPosition, data, static_cast<size_t>(count));
    mPosition += count;
    mWritten += count;
    return count;
  }

  pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode) override {
    const int64_t base = way == std::ios_base::beg   ? 0
                         : way == std::ios_base::cur ? mPosition
                                                     : static_cast<int64_t>(mBytes->size());
    const int64_t target = base + offset;
    if (target < 0) return pos_type(off_type(-1));
    mPosition = target;
    return pos_type(target);
  }

  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    return seekoff(off_type(position), std::ios_base::beg, which);
  }

 private:
  // Copies up to count bytes from the current position; applies the read faults.
  std::streamsize readInto(char* out, std::streamsize count) {
    if (mFaults.failReadAfter >= 0 && mRead >= mFaults.failReadAfter) {
      // Thrown inside the stream's read: the stream catches it and turns bad.
      throw std::runtime_error("injected read failure");
    }
    const int64_t available = static_cast<int64_t>(mBytes->size()) - mPosition;
    int64_t n = std::min<int64_t>(count, std::max<int64_t>(available, 0));
    if (mFaults.maxReadChunk > 0) n = std::min(n, mFaults.maxReadChunk);
    if (n <= 0) return 0;
    std::memcpy(out, mBytes->data() + mPosition, static_cast<size_t>(n));
    mPosition += n;
    mRead += n;
    return n;
  }

  std::shared_ptr<std::string> mBytes;
  std::u16string mName;
  MemoryProvider::Faults mFaults;
  int64_t mPosition = 0;
  int64_t mRead = 0;
  int64_t mWritten = 0;
};

std::string keyOf(const vfs::AbsoluteIRI& iri) {
  return foundation::unicode::ustring_to_utf8(iri.path());
}

}  // namespace

// An output's bytes, entered under their key on commit. Holds the file table itself, so that it
// may outlive the provider.
class MemoryProvider::PendingFile : public PendingOutput {
 public:
  PendingFile(std::shared_ptr<Files> files, std::string key, std::shared_ptr<std::string> bytes)
      : mFiles(std::move(files)), mKey(std::move(key)), mBytes(std::move(bytes)) {}

  void commit() override {
    std::lock_guard<std::mutex> guard(mFiles->lock);
    mFiles->byKey[mKey] = mBytes;
  }
  void discard() noexcept override { mBytes.reset(); }

 private:
  std::shared_ptr<Files> mFiles;
  std::string mKey;
  std::shared_ptr<std::string> mBytes;
};

void MemoryProvider::put(const std::string& key, std::string bytes) {
  std::lock_guard<std::mutex> guard(mFiles->lock);
  mFiles->byKey[key] = std::make_shared<std::string>(std::move(bytes));
}

std::shared_ptr<const std::string> MemoryProvider::get(const std::string& key) const {
  std::lock_guard<std::mutex> guard(mFiles->lock);
  const auto it = mFiles->byKey.find(key);
  return it == mFiles->byKey.end() ? nullptr : it->second;
}

bool MemoryProvider::contains(const std::string& key) const { return get(key) != nullptr; }

void MemoryProvider::setFaults(const Faults& faults) {
  std::lock_guard<std::mutex> guard(mFiles->lock);
  mFaults = faults;
}

StreamProvider::Opened MemoryProvider::open(const vfs::AbsoluteIRI& iri, open_mode mode) {
  std::lock_guard<std::mutex> guard(mFiles->lock);
  const std::string key = keyOf(iri);
  std::shared_ptr<std::string> bytes;
  Opened opened;
  if (isReadMode(mode)) {
    const auto it = mFiles->byKey.find(key);
    if (it == mFiles->byKey.end()) {
      throw except::Exception<except::host::FileNotFound>(except::kVfsComponent, "FileNotFound",
                                                          {iri.toString()});
    }
    bytes = it->second;
  } else {
    // Readers that hold the old bytes keep them, and so does the key until commit.
    bytes = std::make_shared<std::string>();
    opened.pending = std::make_unique<PendingFile>(mFiles, key, bytes);
  }
  opened.size = static_cast<int64_t>(bytes->size());
  opened.buffer = std::make_unique<MemoryBuffer>(bytes, iri.toString(), mFaults);
  return opened;
}

}  // namespace virtualiostream
