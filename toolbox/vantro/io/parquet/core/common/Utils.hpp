#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include <arrow/status.h>

#include "host/except/Exception.hpp"
#include "host/log/DiagnosticLogger.hpp"

// Message keys of the library's errors and warnings. Each tag is an empty class named after
// its key; it carries its component and key as compile-time constants.
#define VANTRO_PARQUET_MESSAGE_TAG(side, name)                          \
  struct name {                                                         \
    static constexpr const char* component = "VANTRO:parquetio:" #side; \
    static constexpr const char* key = #name;                           \
  }

namespace VANTRO::parquetio::read {
VANTRO_PARQUET_MESSAGE_TAG(read, InternalInvalidRead);
VANTRO_PARQUET_MESSAGE_TAG(read, ReaderLoadFailed);
VANTRO_PARQUET_MESSAGE_TAG(read, InternalUnsupportedParquetType);
VANTRO_PARQUET_MESSAGE_TAG(read, DictionaryInNestedStructure);
VANTRO_PARQUET_MESSAGE_TAG(read, InternalError);
VANTRO_PARQUET_MESSAGE_TAG(read, UnsupportedRowFilterVariable);
VANTRO_PARQUET_MESSAGE_TAG(read, EncryptedFile);
}  // namespace VANTRO::parquetio::read

namespace VANTRO::parquetio::write {
VANTRO_PARQUET_MESSAGE_TAG(write, InvalidWrite);
VANTRO_PARQUET_MESSAGE_TAG(write, InvalidWriteVars);
VANTRO_PARQUET_MESSAGE_TAG(write, InvalidZeroVars);
VANTRO_PARQUET_MESSAGE_TAG(write, InvalidOption);
VANTRO_PARQUET_MESSAGE_TAG(write, WrongOptionNumel);
VANTRO_PARQUET_MESSAGE_TAG(write, LeafColumnPathsEmpty);
VANTRO_PARQUET_MESSAGE_TAG(write, LeafColumnPathsOffsetsAcending);
VANTRO_PARQUET_MESSAGE_TAG(write, LeafColumnPathsSizeMismatch);
VANTRO_PARQUET_MESSAGE_TAG(write, LeafColumnPathsNumTopLevelCols);
// Warnings: issued through the host, never thrown.
VANTRO_PARQUET_MESSAGE_TAG(write, RowGroupedListOfDictionaries);
VANTRO_PARQUET_MESSAGE_TAG(write, NestedRowGroupedListOfDictionaries);
}  // namespace VANTRO::parquetio::write

namespace VANTRO::parquetio::plan {
VANTRO_PARQUET_MESSAGE_TAG(plan, InvalidTask);
VANTRO_PARQUET_MESSAGE_TAG(plan, FileChanged);
}  // namespace VANTRO::parquetio::plan

#undef VANTRO_PARQUET_MESSAGE_TAG

// Opens a function trace scope named after the enclosing function's full signature.
#define VANTRO_PARQUET_TRACE()                           \
  ::foundation::log::TraceScope vantroParquetTraceScope( \
      ::vantro::io::parquet::core::common::getLogger(), __PRETTY_FUNCTION__, __FILE__, __LINE__)

namespace vantro::io::parquet::core::common {

namespace except = ::foundation::core::except;

// The library's exception for message key Tag.
template <class Tag>
using ParquetException = except::Exception<Tag, std::exception>;

// The full identifier of Tag, "<component>:<key>".
template <class Tag>
std::string messageIdentifier() {
  return std::string(Tag::component) + ":" + Tag::key;
}

namespace detail {
inline except::MessageArgument toArgument(int64_t value) { return value; }
inline except::MessageArgument toArgument(uint64_t value) { return static_cast<int64_t>(value); }
inline except::MessageArgument toArgument(int value) { return static_cast<int64_t>(value); }
inline except::MessageArgument toArgument(std::string value) { return value; }
inline except::MessageArgument toArgument(const char* value) { return std::string(value); }
inline except::MessageArgument toArgument(std::u16string value) { return value; }
}  // namespace detail

// Builds and throws the exception of Tag with the arguments in order. Integers become 64-bit
// integer arguments, narrow texts UTF-8 arguments, UTF-16 texts UTF-16 arguments.
template <class Tag, class... Args>
[[noreturn]] void throwException(Args&&... args) {
  throw ParquetException<Tag>(Tag::component, Tag::key,
                              {detail::toArgument(std::forward<Args>(args))...});
}

// The library's one diagnostic logger, channel "vnio::parquet".
foundation::log::diagnostic_logger& getLogger();

// Throws Tag with (context, the status's full ToString() text as UTF-16) unless status is OK.
template <class Tag, class Arg>
void throwIfNotOk(const ::arrow::Status& status, Arg context);

void throwReadExceptIfNotOk(const ::arrow::Status& status, const std::u16string& context);
void throwWriteExceptIfNotOk(const ::arrow::Status& status, const std::u16string& context);

[[noreturn]] void throwInvalidRead(const std::u16string& a, const std::u16string& b);
[[noreturn]] void throwReaderLoadException(const std::string& a, const std::string& b);
[[noreturn]] void throwInternalUnsupportedParquetTypeException(const std::string& text);

}  // namespace vantro::io::parquet::core::common
