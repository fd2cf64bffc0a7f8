#include "host/vfs/BinaryStream.hpp"

namespace vfs {

fstream::fstream(std::unique_ptr<std::streambuf> buffer, bool output)
    : std::iostream(buffer.get()), mBuffer(std::move(buffer)) {
  if (output) exceptions(std::ios::badbit);
}

fstream::~fstream() {
  try {
    close();
  } catch (...) {
    // A destructor cannot report a failed final flush; close() is where callers see it.
  }
}

void fstream::close() {
  if (!mBuffer) return;
  // Detach first: whatever the final flush raises, the stream ends closed.
  std::unique_ptr<std::streambuf> buffer = std::move(mBuffer);
  exceptions(std::ios::goodbit);  // a stream without a buffer is bad by definition
  rdbuf(nullptr);
  buffer->pubsync();
}

}  // namespace vfs

namespace virtualiostream {

void CleanupFile::attach(std::unique_ptr<PendingOutput> pending) {
  mPending = std::move(pending);
  // An output kept whatever happens takes its name at once, as a file written in place would.
  if (mPending && mPolicy == CleanupPolicy::keep) mPending->commit();
}

void CleanupFile::commit() {
  if (mPending) mPending->commit();
}

void CleanupFile::cleanup() noexcept {
  if (mPolicy != CleanupPolicy::removeUnfinished || isReadMode(mMode) || !mPending) return;
  mPending->discard();
}

binary_stream::binary_stream(vfs::AbsoluteIRI iri, open_mode mode, StreamProvider::Opened opened)
    : mIRI(std::move(iri)),
      mMode(mode),
      mSize(opened.size),
      mStream(std::make_unique<vfs::fstream>(std::move(opened.buffer), !isReadMode(mode))) {}

std::unique_ptr<binary_stream> create_binary_stream(const std::u16string& name,
                                                    CleanupFile& cleanup, const open_mode& mode,
                                                    bool /*readFlag: every read mode needs an
                                                           existing file here*/) {
  const bool toStandardOutput = name == u"-" && !isReadMode(mode);
  vfs::AbsoluteIRI iri(toStandardOutput ? std::u16string(u"/dev/stdout") : name);
  auto opened = providerFor(iri)->open(iri, mode);
  cleanup.attach(std::move(opened.pending));
  return std::make_unique<binary_stream>(std::move(iri), mode, std::move(opened));
}

}  // namespace virtualiostream
