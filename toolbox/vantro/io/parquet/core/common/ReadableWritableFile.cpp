#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"

#include <arrow/buffer.h>
#include <arrow/memory_pool.h>

#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::common {

namespace vis = ::virtualiostream;

ReadableWritableFile::ReadableWritableFile(const std::u16string& filename,
                                           const vis::open_mode& mode,
                                           const vis::CleanupPolicy& policy, bool readFlag)
    : mCleanup(std::make_unique<vis::CleanupFile>(mode, policy)),
      mStream(vis::create_binary_stream(filename, *mCleanup, mode, readFlag)),
      mSize(mStream->size()) {}

ReadableWritableFile::~ReadableWritableFile() = default;

bool ReadableWritableFile::isReadMode() const { return vis::isReadMode(mStream->mode()); }

// Arrow may still hold the adapter after the library closed it (a writer being torn down after a
// failure, say): such calls get a status instead of touching a stream that no longer exists.
#define VANTRO_RETURN_IF_CLOSED()     \
  if (closed())                       \
  return ::arrow::Status::Invalid(    \
      "operation on a closed file: ", \
      ::foundation::unicode::ustring_to_utf8(mStream->absoluteIRI().toString()))

// An output stream whose write failed stays bad, and every later call on it would throw
// std::ios_base::failure (it raises on badbit) right through Parquet, which then calls Tell and
// Write again while it closes after the failure. Those calls get the write failure as a status.
#define VANTRO_RETURN_IF_WRITE_FAILED()                     \
  if (!isReadMode() && mStream->fileStream()->bad())        \
  return ::arrow::Status::IOError(                          \
      "VANTRO:vfs:WriteFailure: an earlier write failed: ", \
      ::foundation::unicode::ustring_to_utf8(mStream->absoluteIRI().toString()))

::arrow::Status ReadableWritableFile::Close() {
  if (closed()) return ::arrow::Status::OK();
  mStream->fileStream()->close();
  mStream->fileStream().reset();
  return ::arrow::Status::OK();
}

bool ReadableWritableFile::closed() const { return mStream->fileStream() == nullptr; }

::arrow::Result<int64_t> ReadableWritableFile::Tell() const {
  VANTRO_RETURN_IF_CLOSED();
  VANTRO_RETURN_IF_WRITE_FAILED();
  auto& stream = *mStream->fileStream();
  return static_cast<int64_t>(isReadMode() ? stream.tellg() : stream.tellp());
}

::arrow::Result<int64_t> ReadableWritableFile::Read(int64_t nbytes, void* out) {
  VANTRO_RETURN_IF_CLOSED();
  auto& stream = *mStream->fileStream();
  stream.read(static_cast<char*>(out), nbytes);
  if (stream.bad()) throw vis::ReadFailure(GetFilename());
  const int64_t count = stream.gcount();
  if (isReadMode()) {
    // Leave a stream that reached the end usable for later Tell, Seek and Read calls.
    stream.peek();
    const bool atEnd = stream.eof();
    if (!stream.good()) stream.clear();
    if (atEnd) {
      stream.seekg(0, std::ios::end);
      stream.clear();
    }
  }
  return count;
}

::arrow::Result<std::shared_ptr<::arrow::Buffer>> ReadableWritableFile::Read(int64_t nbytes) {
  ARROW_ASSIGN_OR_RAISE(auto buffer,
                        ::arrow::AllocateResizableBuffer(nbytes, ::arrow::default_memory_pool()));
  ARROW_ASSIGN_OR_RAISE(const int64_t count, Read(nbytes, buffer->mutable_data()));
  if (count < nbytes) {
    ARROW_RETURN_NOT_OK(buffer->Resize(count));
  }
  return std::shared_ptr<::arrow::Buffer>(std::move(buffer));
}

namespace {

// Parquet reads column chunks through ReadAt from Arrow's pool threads, where an exception would
// end the process, and writes through Write, where one would break its writer. A host failure
// there travels as an IOError that keeps its identifier.
template <class Result, class Call>
Result withoutThrowing(Call&& call) {
  try {
    return call();
  } catch (const ::foundation::core::except::IMsgIDException& e) {
    return ::arrow::Status::IOError(e.identifier(), ": ", e.message());
  }
}

}  // namespace

::arrow::Result<int64_t> ReadableWritableFile::ReadAt(int64_t position, int64_t nbytes, void* out) {
  return withoutThrowing<::arrow::Result<int64_t>>(
      [&] { return RandomAccessFile::ReadAt(position, nbytes, out); });
}

::arrow::Result<std::shared_ptr<::arrow::Buffer>> ReadableWritableFile::ReadAt(int64_t position,
                                                                               int64_t nbytes) {
  return withoutThrowing<::arrow::Result<std::shared_ptr<::arrow::Buffer>>>(
      [&] { return RandomAccessFile::ReadAt(position, nbytes); });
}

bool ReadableWritableFile::supports_zero_copy() const { return false; }

::arrow::Status ReadableWritableFile::Seek(int64_t position) {
  VANTRO_RETURN_IF_CLOSED();
  VANTRO_RETURN_IF_WRITE_FAILED();
  auto& stream = *mStream->fileStream();
  if (isReadMode()) {
    stream.seekg(position, std::ios::beg);
  } else {
    stream.seekp(position, std::ios::beg);
  }
  return ::arrow::Status::OK();
}

::arrow::Result<int64_t> ReadableWritableFile::GetSize() { return mSize; }

::arrow::Status ReadableWritableFile::Write(const void* data, int64_t nbytes) {
  VANTRO_RETURN_IF_CLOSED();
  VANTRO_RETURN_IF_WRITE_FAILED();
  // Parquet's writer is not exception-safe: a host failure thrown through the middle of a row
  // group leaves it broken, and its next call or its close crashes. As a status it takes
  // Parquet's own failure road (close the writer, report) and keeps its identifier.
  return withoutThrowing<::arrow::Status>([&] {
    mStream->fileStream()->write(static_cast<const char*>(data), nbytes);
    return ::arrow::Status::OK();
  });
}

::arrow::Status ReadableWritableFile::Write(const std::shared_ptr<::arrow::Buffer>& data) {
  return Write(data->data(), data->size());
}

::arrow::Status ReadableWritableFile::WriteAt(int64_t position, const void* data, int64_t nbytes) {
  ARROW_RETURN_NOT_OK(Seek(position));
  ARROW_RETURN_NOT_OK(Write(data, nbytes));
  return ::arrow::Status::OK();
}

void ReadableWritableFile::Cleanup() { mCleanup->cleanup(); }

::arrow::Status ReadableWritableFile::Commit() {
  return withoutThrowing<::arrow::Status>([&] {
    mCleanup->commit();
    return ::arrow::Status::OK();
  });
}

std::u16string ReadableWritableFile::GetFilename() {
  const vfs::AbsoluteIRI& iri = mStream->absoluteIRI();
  if (vfs::schemeEquals(iri.getScheme(), u"file")) return vfs::fromAbsoluteIRI(iri);
  return iri.toString();
}

namespace {

std::shared_ptr<ReadableWritableFile> makeFilePtr(const std::u16string& filename,
                                                  vis::open_mode mode, vis::CleanupPolicy policy,
                                                  bool readFlag) {
  getLogger().log(foundation::log::severity::kFile, " filename=", filename);
  return std::make_shared<ReadableWritableFile>(filename, mode, policy, readFlag);
}

}  // namespace

std::shared_ptr<ReadableWritableFile> makeReadableFilePtr(const std::u16string& filename) {
  VANTRO_PARQUET_TRACE();
  return makeFilePtr(filename, vis::open_mode::read, vis::CleanupPolicy::keep, true);
}

std::shared_ptr<ReadableWritableFile> makeWritableFilePtr(const std::u16string& filename,
                                                          const vis::CleanupPolicy& policy) {
  VANTRO_PARQUET_TRACE();
  return makeFilePtr(filename, vis::open_mode::write, policy, false);
}

}  // namespace vantro::io::parquet::core::common
