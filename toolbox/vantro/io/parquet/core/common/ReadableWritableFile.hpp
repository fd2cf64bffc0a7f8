#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <arrow/io/interfaces.h>
#include <arrow/result.h>
#include <arrow/status.h>

#include "host/vfs/BinaryStream.hpp"

namespace vantro::io::parquet::core::common {

// Lets Arrow and Parquet read and write through one host binary stream, so that local paths
// and IRIs of any registered scheme are handled alike. Position is the host stream's own; the
// adapter keeps none and takes no lock of its own (ReadAt is serialised by Arrow's base class).
class ReadableWritableFile : public ::arrow::io::ReadWriteFileInterface {
 public:
  // Opens the stream; whatever the host throws while opening propagates unchanged.
  ReadableWritableFile(const std::u16string& filename, const virtualiostream::open_mode& mode,
                       const virtualiostream::CleanupPolicy& policy, bool readFlag);
  ~ReadableWritableFile() override;

  ReadableWritableFile(const ReadableWritableFile&) = delete;
  ReadableWritableFile& operator=(const ReadableWritableFile&) = delete;

  ::arrow::Status Close() override;
  bool closed() const override;
  ::arrow::Result<int64_t> Tell() const override;

  // Throws virtualiostream::ReadFailure when the host stream goes bad. ReadAt, which Parquet
  // calls from Arrow's pool threads, returns that failure as an IOError status instead.
  ::arrow::Result<int64_t> Read(int64_t nbytes, void* out) override;
  ::arrow::Result<std::shared_ptr<::arrow::Buffer>> Read(int64_t nbytes) override;
  ::arrow::Result<int64_t> ReadAt(int64_t position, int64_t nbytes, void* out) override;
  ::arrow::Result<std::shared_ptr<::arrow::Buffer>> ReadAt(int64_t position,
                                                           int64_t nbytes) override;
  bool supports_zero_copy() const override;

  ::arrow::Status Seek(int64_t position) override;
  // The size at open; writing does not change it.
  ::arrow::Result<int64_t> GetSize() override;

  ::arrow::Status Write(const void* data, int64_t nbytes) override;
  ::arrow::Status Write(const std::shared_ptr<::arrow::Buffer>& data) override;
  ::arrow::Status WriteAt(int64_t position, const void* data, int64_t nbytes) override;

  // Applies the clean-up policy given at construction (deletes an unfinished output).
  void Cleanup();
  // Makes a finished output the file at its name (outputs are written beside the file they
  // replace); called once, after Close. A failure is an IOError naming the host's identifier.
  ::arrow::Status Commit();
  // The local path for "file" IRIs (any letter case of the scheme), else the IRI text.
  std::u16string GetFilename();

 private:
  bool isReadMode() const;

  std::unique_ptr<virtualiostream::CleanupFile> mCleanup;
  std::unique_ptr<virtualiostream::binary_stream> mStream;
  int64_t mSize = 0;
};

std::shared_ptr<ReadableWritableFile> makeReadableFilePtr(const std::u16string& filename);
std::shared_ptr<ReadableWritableFile> makeWritableFilePtr(
    const std::u16string& filename, const virtualiostream::CleanupPolicy& policy);

}  // namespace vantro::io::parquet::core::common
