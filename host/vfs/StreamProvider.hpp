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

// An output written beside the resource it replaces, so that the resource changes only when the
// output is complete: a failed or interrupted write leaves whatever was there untouched.
class PendingOutput {
 public:
  virtual ~PendingOutput() = default;
  // Moves the finished output over its target; throws a host exception when it cannot.
  virtual void commit() = 0;
  // Removes the unfinished output and nothing else; never throws.
  virtual void discard() noexcept = 0;
};

// Serves the files of one IRI scheme. Local files ("file" and plain paths) have a built-in
// provider; other schemes need one registered.
class StreamProvider {
 public:
  virtual ~StreamProvider() = default;

  struct Opened {
    std::unique_ptr<std::streambuf> buffer;
    int64_t size = 0;  // bytes at open
    // Set for outputs written beside their target; null for inputs and for outputs written in
    // place (devices, pipes, standard output), which are never removed.
    std::unique_ptr<PendingOutput> pending;
  };
  // Opens the resource; throws a host exception (FileNotFound, IsDirectory, OpenFailed) when it
  // cannot.
  virtual Opened open(const vfs::AbsoluteIRI& iri, open_mode mode) = 0;
};

// Throws the host's error for a failed open of name with errno `error`: FileNotFound,
// IsDirectory or OpenFailed.
[[noreturn]] void throwOpenError(const std::u16string& name, int error);

// Scheme names match without regard to case. Registering replaces an earlier provider of the
// same scheme; a null provider unregisters it.
void registerProvider(const std::u16string& scheme, std::shared_ptr<StreamProvider> provider);
// The provider for iri's scheme; throws the host's UnknownScheme error when there is none.
std::shared_ptr<StreamProvider> providerFor(const vfs::AbsoluteIRI& iri);

// Local files. A regular file is written as a hidden temporary file in its folder
// (".<name>.partial-XXXXXX", see stagingPathFor) that replaces it when committed; character
// devices, FIFOs and standard output ("-", "/dev/stdout") are written in place. Reading needs
// random access: anything but a regular file or a block device is refused.
class LocalFileProvider : public StreamProvider {
 public:
  Opened open(const vfs::AbsoluteIRI& iri, open_mode mode) override;
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
  std::string localPath(const vfs::AbsoluteIRI& iri) const;

 private:
  std::string mRoot;
};

}  // namespace virtualiostream
