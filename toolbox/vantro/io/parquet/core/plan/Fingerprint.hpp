#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <arrow/buffer.h>
#include <arrow/io/interfaces.h>
#include <arrow/result.h>

namespace vantro::io::parquet::core::plan {

// What tells one version of a Parquet file from another without reading its data: the file's
// size and a hash of its footer. A rewritten file has another footer (offsets, sizes, row
// counts, statistics) even when its size happens to be the same.
struct FileFingerprint {
  uint64_t size = 0;
  uint64_t footerHash = 0;

  bool operator==(const FileFingerprint& other) const {
    return size == other.size && footerHash == other.footerHash;
  }
  bool operator!=(const FileFingerprint& other) const { return !(*this == other); }
};

// A file's serialized footer (Parquet's FileMetaData) and the fingerprint made from it.
struct Footer {
  FileFingerprint fingerprint;
  std::shared_ptr<::arrow::Buffer> bytes;
};

// Reads the footer that the file's last eight bytes locate and hashes it (64-bit FNV-1a, the
// same on every machine). Invalid for a file that is too short, lacks Parquet's closing magic
// bytes or declares a footer longer than itself; an encrypted footer ("PARE") is hashed like
// any other.
::arrow::Result<Footer> readFooter(::arrow::io::RandomAccessFile& file);
::arrow::Result<FileFingerprint> fingerprintFile(::arrow::io::RandomAccessFile& file);

// "fnv1a64:" and 16 lower-case hex digits; parseFooterHash reads it back (false for anything
// else).
std::string footerHashText(uint64_t hash);
bool parseFooterHash(const std::string& text, uint64_t& hash);

}  // namespace vantro::io::parquet::core::plan
