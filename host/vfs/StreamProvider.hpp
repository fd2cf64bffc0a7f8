#pragma once

#include <cstdint>
#include <memory>
#include <streambuf>
#include <string>

#include "host/vfs/AbsoluteIRI.hpp"

namespace virtualiostream {

// How a stream is opened. 0 and 3 read; every other value writes.
enum class open_mode : int { read = 0, append = 1, write = 2, read_update = 3 };

inline bool isReadMode(open_mode mode) {
  return mode == open_mode::read || mode == open_mode::read_update;
}

// Serves the files of one IRI scheme. Local files ("file" and plain paths) have a built-in
// provider; other schemes need one registered.
class StreamProvider {
 public:
  virtual ~StreamProvider() = default;

  struct Opened {
    std::unique_ptr<std::streambuf> buffer;
    int64_t size = 0;  // bytes at open
  };
  // Opens the resource; throws a host exception (FileNotFound, IsDirectory, OpenFailed) when it
  // cannot.
  virtual Opened open(const vfs::AbsoluteIRI& iri, open_mode mode) = 0;
  // Deletes the resource; never throws.
  virtual void remove(const vfs::AbsoluteIRI& iri) noexcept = 0;
};

// Scheme names match without regard to case. Registering replaces an earlier provider of the
// same scheme; a null provider unregisters it.
void registerProvider(const std::u16string& scheme, std::shared_ptr<StreamProvider> provider);
// The provider for iri's scheme; throws the host's UnknownScheme error when there is none.
std::shared_ptr<StreamProvider> providerFor(const vfs::AbsoluteIRI& iri);

// Local files, through std::filebuf.
class LocalFileProvider : public StreamProvider {
 public:
  Opened open(const vfs::AbsoluteIRI& iri, open_mode mode) override;
  void remove(const vfs::AbsoluteIRI& iri) noexcept override;
  // Opens a local path (no IRI parsing); shared with providers that map onto local folders.
  static Opened openPath(const std::u16string& displayName, const std::string& path,
                         open_mode mode);
};

// Maps "<scheme>://<authority>/<path>" onto "<root>/<path>" on the local disk, so that a
// remote scheme's road can be exercised against local files.
class FolderProvider : public StreamProvider {
 public:
  explicit FolderProvider(std::string root) : mRoot(std::move(root)) {}
  Opened open(const vfs::AbsoluteIRI& iri, open_mode mode) override;
  void remove(const vfs::AbsoluteIRI& iri) noexcept override;
  std::string localPath(const vfs::AbsoluteIRI& iri) const;

 private:
  std::string mRoot;
};

}  // namespace virtualiostream
