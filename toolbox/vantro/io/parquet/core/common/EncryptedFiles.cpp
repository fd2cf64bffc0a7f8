#include "toolbox/vantro/io/parquet/core/common/EncryptedFiles.hpp"

#include <parquet/file_reader.h>
#include <parquet/metadata.h>

#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::common {

namespace msg = VANTRO::parquetio::read;

bool hasEncryptedFooter(::arrow::io::RandomAccessFile& file) {
  const ::arrow::Result<int64_t> size = file.GetSize();
  if (!size.ok() || *size < 8) return false;
  char magic[4] = {};
  const ::arrow::Result<int64_t> read = file.ReadAt(*size - 4, 4, magic);
  return read.ok() && *read == 4 && std::string(magic, 4) == "PARE";
}

bool hasEncryptedColumns(const ::parquet::FileMetaData& metadata) {
  return metadata.is_encryption_algorithm_set();
}

void throwIfEncrypted(const ::arrow::Status& openStatus, ::arrow::io::RandomAccessFile& file,
                      const ::parquet::arrow::FileReader* reader, const std::u16string& filename) {
  if (!openStatus.ok()) {
    if (hasEncryptedFooter(file)) throwException<msg::EncryptedFile>(filename, "its footer");
    return;
  }
  if (reader != nullptr && hasEncryptedColumns(*reader->parquet_reader()->metadata())) {
    throwException<msg::EncryptedFile>(filename, "its columns");
  }
}

}  // namespace vantro::io::parquet::core::common
