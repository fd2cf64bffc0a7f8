#include "host/vfs/BinaryStream.hpp"

namespace vfs {

fstream::fstream(std::unique_ptr<std::streambuf> buffer)
    : std::iostream(buffer.get()), mBuffer(std::move(buffer)) {}

fstream::~fstream() { close(); }

void fstream::close() {
  if (!mBuffer) return;
  mBuffer->pubsync();
  rdbuf(nullptr);
  mBuffer.reset();  // a filebuf closes its file here
}

}  // namespace vfs

namespace virtualiostream {

void CleanupFile::attach(std::shared_ptr<StreamProvider> provider, const vfs::AbsoluteIRI& iri) {
  mProvider = std::move(provider);
  mIRI = std::make_unique<vfs::AbsoluteIRI>(iri);
}

void CleanupFile::cleanup() noexcept {
  if (mPolicy != CleanupPolicy::removeUnfinished || isReadMode(mMode) || !mProvider) return;
  mProvider->remove(*mIRI);
  mProvider.reset();
}

binary_stream::binary_stream(vfs::AbsoluteIRI iri, open_mode mode, StreamProvider::Opened opened)
    : mIRI(std::move(iri)),
      mMode(mode),
      mSize(opened.size),
      mStream(std::make_unique<vfs::fstream>(std::move(opened.buffer))) {}

std::unique_ptr<binary_stream> create_binary_stream(const std::u16string& name,
                                                    CleanupFile& cleanup, const open_mode& mode,
                                                    bool /*readFlag: every read mode needs an
                                                           existing file here*/) {
  vfs::AbsoluteIRI iri(name);
  auto provider = providerFor(iri);
  auto opened = provider->open(iri, mode);
  cleanup.attach(std::move(provider), iri);
  return std::make_unique<binary_stream>(std::move(iri), mode, std::move(opened));
}

}  // namespace virtualiostream
