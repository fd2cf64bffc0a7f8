#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

#include "host/unicode/ustring.hpp"

namespace vantro::io::parquet::core::common {

using foundation::unicode::to_ustring;
using foundation::unicode::utf8_to_ustring;

foundation::log::diagnostic_logger& getLogger() {
  static foundation::log::diagnostic_logger logger("vnio::parquet");
  return logger;
}

template <class Tag, class Arg>
void throwIfNotOk(const ::arrow::Status& status, Arg context) {
  VANTRO_PARQUET_TRACE();
  if (status.ok()) return;
  throwException<Tag>(std::move(context), utf8_to_ustring(status.ToString()));
}

template void throwIfNotOk<VANTRO::parquetio::read::InternalInvalidRead, std::u16string>(
    const ::arrow::Status&, std::u16string);
template void throwIfNotOk<VANTRO::parquetio::write::InvalidWrite, std::u16string>(
    const ::arrow::Status&, std::u16string);

void throwReadExceptIfNotOk(const ::arrow::Status& status, const std::u16string& context) {
  VANTRO_PARQUET_TRACE();
  throwIfNotOk<VANTRO::parquetio::read::InternalInvalidRead, std::u16string>(status, context);
}

void throwWriteExceptIfNotOk(const ::arrow::Status& status, const std::u16string& context) {
  VANTRO_PARQUET_TRACE();
  throwIfNotOk<VANTRO::parquetio::write::InvalidWrite, std::u16string>(status, context);
}

void throwInvalidRead(const std::u16string& a, const std::u16string& b) {
  VANTRO_PARQUET_TRACE();
  throwException<VANTRO::parquetio::read::InternalInvalidRead>(a, b);
}

void throwReaderLoadException(const std::string& a, const std::string& b) {
  VANTRO_PARQUET_TRACE();
  throwException<VANTRO::parquetio::read::ReaderLoadFailed>(a, b);
}

void throwInternalUnsupportedParquetTypeException(const std::string& text) {
  VANTRO_PARQUET_TRACE();
  throwException<VANTRO::parquetio::read::InternalUnsupportedParquetType>(to_ustring(text.c_str()));
}

}  // namespace vantro::io::parquet::core::common
