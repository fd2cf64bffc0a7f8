#include "toolbox/vantro/io/parquet/core/info/TypeDescriptions.hpp"

#include <arrow/type.h>

#include "host/converter/Converter.hpp"
#include "host/unicode/ustring.hpp"

namespace vantro::io::parquet::core::info {
namespace {

using foundation::unicode::utf8_to_ustring;

std::u16string number(int value) { return utf8_to_ustring(std::to_string(value)); }

std::u16string unitWord(::arrow::TimeUnit::type unit) {
  switch (unit) {
    case ::arrow::TimeUnit::SECOND:
      return u"seconds";
    case ::arrow::TimeUnit::MILLI:
      return u"milliseconds";
    case ::arrow::TimeUnit::MICRO:
      return u"microseconds";
    case ::arrow::TimeUnit::NANO:
      return u"nanoseconds";
  }
  return u"<Unknown>";
}

std::u16string describeArrowType(std::shared_ptr<::arrow::DataType> type);

std::u16string describeInteger(const ::arrow::DataType& type) {
  const auto& integer = static_cast<const ::arrow::IntegerType&>(type);
  return (integer.is_signed() ? u"Int" : u"UInt") + number(integer.bit_width());
}

std::u16string describeDecimal(const ::arrow::DataType& type) {
  const auto& decimal = static_cast<const ::arrow::DecimalType&>(type);
  return u"Decimal" + number(decimal.bit_width()) + u"[precision=" +
         number(decimal.precision()) + u", scale=" + number(decimal.scale()) + u"]";
}

std::u16string describeTime(const ::arrow::DataType& type) {
  const auto& time = static_cast<const ::arrow::TimeType&>(type);
  return u"Time" + number(time.bit_width()) + u"[unit=" + unitWord(time.unit()) + u"]";
}

std::u16string describeTimestamp(const ::arrow::DataType& type) {
  const auto& timestamp = static_cast<const ::arrow::TimestampType&>(type);
  std::u16string text = u"Timestamp[unit=" + unitWord(timestamp.unit());
  if (!timestamp.timezone().empty()) {
    text += u", timezone=" + utf8_to_ustring(timestamp.timezone());
  }
  return text + u"]";
}

std::u16string describeDictionary(const ::arrow::DataType& type) {
  const auto& dictionary = static_cast<const ::arrow::DictionaryType&>(type);
  return u"Dictionary<index=" + describeArrowType(dictionary.index_type()) +
         u", value=" + describeArrowType(dictionary.value_type()) + u">";
}

std::u16string describeList(const ::arrow::DataType& type) {
  const auto& list = static_cast<const ::arrow::BaseListType&>(type);
  return u"List<" + describeArrowType(list.value_type()) + u">";
}

std::u16string describeMap(const ::arrow::DataType& type) {
  const auto& map = static_cast<const ::arrow::MapType&>(type);
  return u"Map<key=" + describeArrowType(map.key_type()) + u", value=" +
         describeArrowType(map.item_type()) + u">";
}

std::u16string describeStruct(const ::arrow::DataType& type) {
  std::u16string text = u"Struct<";
  for (int i = 0; i < type.num_fields(); ++i) {
    if (i > 0) text += u", ";
    const auto& child = type.field(i);
    text += utf8_to_ustring(child->name()) + u": " + describeArrowType(child->type());
  }
  return text + u">";
}

std::u16string describeArrowType(std::shared_ptr<::arrow::DataType> type) {
  using Id = ::arrow::Type;
  switch (type->id()) {
    case Id::UINT8:
    case Id::INT8:
    case Id::UINT16:
    case Id::INT16:
    case Id::UINT32:
    case Id::INT32:
    case Id::UINT64:
    case Id::INT64:
      return describeInteger(*type);
    case Id::HALF_FLOAT:
    case Id::FLOAT:
    case Id::DOUBLE:
      return u"Float" + number(type->bit_width());
    case Id::DECIMAL128:
    case Id::DECIMAL256:
      return describeDecimal(*type);
    case Id::TIME32:
    case Id::TIME64:
      return describeTime(*type);
    case Id::DATE32:
    case Id::DATE64:
      return u"Date" + number(type->bit_width());
    case Id::TIMESTAMP:
      return describeTimestamp(*type);
    case Id::FIXED_SIZE_BINARY:
      return u"FixedLenByteArray[length=" +
             number(static_cast<const ::arrow::FixedSizeBinaryType&>(*type).byte_width()) + u"]";
    case Id::DICTIONARY:
      return describeDictionary(*type);
    case Id::STRING:
    case Id::LARGE_STRING:
      return u"String";
    case Id::BINARY:
    case Id::LARGE_BINARY:
      return u"ByteArray";
    case Id::BOOL:
      return u"Boolean";
    case Id::NA:
      return u"Null";
    case Id::LIST:
    case Id::LARGE_LIST:
      // A large list reads as a list on the host, so it is described as one.
      return describeList(*type);
    case Id::MAP:
      return describeMap(*type);
    case Id::STRUCT:
      return describeStruct(*type);
    default:
      return u"Unknown";
  }
}

}  // namespace

std::vector<std::u16string> parquet_types(std::shared_ptr<::arrow::Schema> schema) {
  std::vector<std::u16string> descriptions(schema->num_fields());
  for (int i = 0; i < schema->num_fields(); ++i) {
    descriptions[i] = describeArrowType(schema->field(i)->type());
  }
  return descriptions;
}

std::vector<std::u16string> getVariableNames(std::shared_ptr<::arrow::Schema> schema) {
  std::vector<std::u16string> names;
  names.reserve(schema->num_fields());
  for (const auto& field : schema->fields()) names.push_back(utf8_to_ustring(field->name()));
  return names;
}

std::vector<std::string> getVariableTypes(std::shared_ptr<::arrow::Schema> schema) {
  std::vector<std::string> types;
  types.reserve(schema->num_fields());
  for (const auto& field : schema->fields()) {
    types.push_back(::vantro::io::arrow::core::to_vantro_datatype(field->type()).value_or(""));
  }
  return types;
}

}  // namespace vantro::io::parquet::core::info
