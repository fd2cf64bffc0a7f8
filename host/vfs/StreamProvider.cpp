#include "host/vfs/StreamProvider.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>

#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"
#include "host/vfs/LocalOutput.hpp"
#include "host/vfs/OutputFileBuf.hpp"
#include "host/vfs/PositionalFileBuf.hpp"

namespace virtualiostream {
namespace {

namespace except = foundation::core::except;
using foundation::unicode::ustring_to_utf8;

std::u16string lowerAscii(std::u16string text) {
  for (auto& c : text) {
    if (c >= u'A' && c <= u'Z') c += u'a' - u'A';
  }
  return text;
}

struct Registry {
  std::mutex lock;
  std::map<std::u16string, std::shared_ptr<StreamProvider>> providers;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

void throwOpenError(const std::u16string& name, int error) {
  if (error == ENOENT || error == ENOTDIR) {
    throw except::Exception<except::host::FileNotFound>(except::kVfsComponent, "FileNotFound",
                                                        {name});
  }
  if (error == EISDIR) {
    throw except::Exception<except::host::IsDirectory>(except::kVfsComponent, "IsDirectory",
                                                       {name});
  }
  throw except::Exception<except::host::OpenFailed>(except::kVfsComponent, "OpenFailed",
                                                    {name, std::string(std::strerror(error))});
}

namespace {

[[noreturn]] void throwNotRandomAccess(const std::u16string& name) {
  throw except::Exception<except::host::OpenFailed>(
      except::kVfsComponent, "OpenFailed",
      {name, std::string("not a regular file; reading Parquet needs random access")});
}

// A file buffer whose failed writes raise the host's WriteFailure instead of silently turning
// the stream bad; used for files opened to read and update in place.
class CheckedFileBuf : public std::filebuf {
 public:
  explicit CheckedFileBuf(std::u16string name) : mName(std::move(name)) {}

 protected:
  int_type overflow(int_type c) override {
    const int_type result = std::filebuf::overflow(c);
    if (traits_type::eq_int_type(result, traits_type::eof()) &&
        !traits_type::eq_int_type(c, traits_type::eof())) {
      fail();
    }
    return result;
  }
  std::streamsize xsputn(const char* data, std::streamsize count) override {
    const std::streamsize written = std::filebuf::xsputn(data, count);
    if (written != count) fail();
    return written;
  }
  int sync() override {
    const int result = std::filebuf::sync();
    if (result != 0) fail();
    return result;
  }

 private:
  [[noreturn]] void fail() const {
    throw except::Exception<except::host::WriteFailure>(except::kVfsComponent, "WriteFailure",
                                                        {mName});
  }
  std::u16string mName;
};

}  // namespace

void registerProvider(const std::u16string& scheme, std::shared_ptr<StreamProvider> provider) {
  Registry& r = registry();
  std::lock_guard<std::mutex> guard(r.lock);
  if (provider) {
    r.providers[lowerAscii(scheme)] = std::move(provider);
  } else {
    r.providers.erase(lowerAscii(scheme));
  }
}

std::shared_ptr<StreamProvider> providerFor(const vfs::AbsoluteIRI& iri) {
  if (iri.isFile()) {
    static const auto local = std::make_shared<LocalFileProvider>();
    return local;
  }
  Registry& r = registry();
  std::lock_guard<std::mutex> guard(r.lock);
  const auto it = r.providers.find(lowerAscii(iri.getScheme()));
  if (it == r.providers.end()) {
    throw except::Exception<except::host::UnknownScheme>(except::kVfsComponent, "UnknownScheme",
                                                         {iri.toString(), iri.getScheme()});
  }
  return it->second;
}

StreamProvider::Opened LocalFileProvider::openPath(const std::u16string& displayName,
                                                   const std::string& path, open_mode mode) {
  Opened opened;
  if (mode == open_mode::read) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) throwOpenError(displayName, errno);
    if (S_ISDIR(info.st_mode)) throwOpenError(displayName, EISDIR);
    // A pipe or a character device has no size and cannot seek, which Parquet's footer needs;
    // opening a FIFO would also wait for a writer that may never come.
    if (!S_ISREG(info.st_mode) && !S_ISBLK(info.st_mode)) throwNotRandomAccess(displayName);
    auto buffer = std::make_unique<PositionalFileBuf>();
    errno = 0;
    if (!buffer->open(path)) throwOpenError(displayName, errno ? errno : EACCES);
    opened.size = buffer->size();
    opened.buffer = std::move(buffer);
  } else if (mode == open_mode::read_update) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) throwOpenError(displayName, errno);
    if (S_ISDIR(info.st_mode)) throwOpenError(displayName, EISDIR);
    auto buffer = std::make_unique<CheckedFileBuf>(displayName);
    errno = 0;
    if (buffer->open(path, std::ios::in | std::ios::out | std::ios::binary) == nullptr) {
      throwOpenError(displayName, errno ? errno : EACCES);
    }
    opened.size = static_cast<int64_t>(info.st_size);
    opened.buffer = std::move(buffer);
  } else if (mode == open_mode::append) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0) throwOpenError(displayName, errno);
    struct stat info {};
    opened.size = ::fstat(fd, &info) == 0 ? static_cast<int64_t>(info.st_size) : 0;
    opened.buffer = std::make_unique<OutputFileBuf>(fd, displayName, /*seekable=*/false);
  } else {
    opened = openLocalOutput(displayName, path);
  }
  return opened;
}

StreamProvider::Opened LocalFileProvider::open(const vfs::AbsoluteIRI& iri, open_mode mode) {
  return openPath(iri.path(), ustring_to_utf8(iri.path()), mode);
}

std::string FolderProvider::localPath(const vfs::AbsoluteIRI& iri) const {
  // Drop "//authority" and keep the path below it.
  std::string rest = ustring_to_utf8(iri.path());
  if (rest.rfind("//", 0) == 0) {
    const size_t slash = rest.find('/', 2);
    rest = slash == std::string::npos ? std::string("/") : rest.substr(slash);
  }
  if (rest.empty() || rest[0] != '/') rest.insert(rest.begin(), '/');
  return mRoot + rest;
}

StreamProvider::Opened FolderProvider::open(const vfs::AbsoluteIRI& iri, open_mode mode) {
  return LocalFileProvider::openPath(iri.toString(), localPath(iri), mode);
}

}  // namespace virtualiostream
