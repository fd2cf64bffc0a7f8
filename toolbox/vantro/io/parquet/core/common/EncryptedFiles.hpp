#pragma once

#include <string>

#include <arrow/io/interfaces.h>
#include <arrow/status.h>
#include <parquet/arrow/reader.h>

namespace vantro::io::parquet::core::common {

// Parquet's modular encryption: an encrypted footer ends the file with "PARE" instead of "PAR1";
// a plaintext footer may still describe encrypted columns. Neither can be read without keys,
// which the host has no way to give, so both are refused by name instead of with Parquet's
// "Cannot decrypt ..." from deep inside a read.

// Throws EncryptedFile when an open of file that ended in openStatus failed because the footer
// is encrypted, or when reader (the open's result, may be null) has a footer that says that
// columns are encrypted. Returns otherwise: the caller reports any other failure of the open.
void throwIfEncrypted(const ::arrow::Status& openStatus, ::arrow::io::RandomAccessFile& file,
                      const ::parquet::arrow::FileReader* reader, const std::u16string& filename);

// Whether file ends with the encrypted footer's magic.
bool hasEncryptedFooter(::arrow::io::RandomAccessFile& file);
// Whether the footer declares an encryption algorithm (plaintext footer, encrypted columns).
bool hasEncryptedColumns(const ::parquet::FileMetaData& metadata);

}  // namespace vantro::io::parquet::core::common
