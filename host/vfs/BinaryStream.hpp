#pragma once

#include <cstdint>
#include <iostream>
#include <memory>
#include <string>

#include "host/except/Exception.hpp"
#include "host/vfs/AbsoluteIRI.hpp"
#include "host/vfs/StreamProvider.hpp"

namespace vfs {

// A host file stream: a standard iostream over the buffer a provider opened, which it owns.
// Output streams pass the buffer's exceptions on (a failed write raises the host's
// WriteFailure); input streams turn bad instead, and their readers report it.
class fstream : public std::iostream {
 public:
  fstream(std::unique_ptr<std::streambuf> buffer, bool output);
  ~fstream() override;
  // Flushes and releases the buffer (closing the file); the stream is unusable afterwards.
  void close();

 private:
  std::unique_ptr<std::streambuf> mBuffer;
};

}  // namespace vfs

namespace virtualiostream {

// What happens to an output file that the writer never finished: 0 keeps it (the output is the
// file at its name from the start), 1 deletes it (the output replaces the file at its name only
// when committed).
enum class CleanupPolicy : int { keep = 0, removeUnfinished = 1 };

// Decides the fate of an output: commit() moves a finished output into place, cleanup()
// deletes an unfinished one when its policy asks for it. Only what the writer created is ever
// deleted: a file being replaced stays as it was until commit, and outputs written in place
// (devices, pipes, standard output) are never removed.
class CleanupFile {
 public:
  CleanupFile(const open_mode& mode, const CleanupPolicy& policy) : mMode(mode), mPolicy(policy) {}
  // Binds the handle to the opened output; done by create_binary_stream.
  void attach(std::unique_ptr<PendingOutput> pending);
  // Moves the finished output over its target; throws the host's error when it cannot.
  void commit();
  // Deletes an uncommitted output when the policy is removeUnfinished and the file was opened
  // for writing. Idempotent; never throws.
  void cleanup() noexcept;

 private:
  open_mode mMode;
  CleanupPolicy mPolicy;
  std::unique_ptr<PendingOutput> mPending;
};

class binary_stream {
 public:
  binary_stream(vfs::AbsoluteIRI iri, open_mode mode, StreamProvider::Opened opened);

  // The underlying stream; null once closed.
  std::unique_ptr<vfs::fstream>& fileStream() { return mStream; }
  open_mode mode() const { return mMode; }
  int64_t size() const { return mSize; }
  const vfs::AbsoluteIRI& absoluteIRI() const { return mIRI; }

 private:
  vfs::AbsoluteIRI mIRI;
  open_mode mMode;
  int64_t mSize;
  std::unique_ptr<vfs::fstream> mStream;
};

// Opens name (a local path or an IRI) through its scheme's provider and binds cleanup to it.
// readFlag asks for a file that must already exist; write modes create or replace, and "-"
// writes to standard output.
// Throws the host's file-system errors.
std::unique_ptr<binary_stream> create_binary_stream(const std::u16string& name,
                                                    CleanupFile& cleanup, const open_mode& mode,
                                                    bool readFlag);

struct ReadFailureTag {};
// A read that left the stream in a bad state.
class ReadFailure : public foundation::core::except::Exception<ReadFailureTag> {
 public:
  explicit ReadFailure(const std::u16string& name)
      : Exception(foundation::core::except::kVfsComponent, "ReadFailure", {name}) {}
};

}  // namespace virtualiostream
