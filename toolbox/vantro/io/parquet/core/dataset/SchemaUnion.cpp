#include "toolbox/vantro/io/parquet/core/dataset/SchemaUnion.hpp"

#include <arrow/type.h>

#include "toolbox/vantro/io/parquet/core/dataset/Errors.hpp"

namespace vantro::io::parquet::core::dataset {

namespace {

using ::arrow::Type;

bool isSigned(Type::type id) {
  return id == Type::INT8 || id == Type::INT16 || id == Type::INT32 || id == Type::INT64;
}
bool isUnsigned(Type::type id) {
  return id == Type::UINT8 || id == Type::UINT16 || id == Type::UINT32 || id == Type::UINT64;
}
int bitWidthOf(const ::arrow::DataType& type) {
  return static_cast<const ::arrow::FixedWidthType&>(type).bit_width();
}

bool isText(Type::type id) { return id == Type::STRING || id == Type::LARGE_STRING; }
bool isBinary(Type::type id) { return id == Type::BINARY || id == Type::LARGE_BINARY; }
bool isList(Type::type id) { return id == Type::LIST || id == Type::LARGE_LIST; }

// A value type that dictionaries decode to.
std::shared_ptr<::arrow::DataType> decoded(const std::shared_ptr<::arrow::DataType>& type) {
  if (type->id() != Type::DICTIONARY) return type;
  return static_cast<const ::arrow::DictionaryType&>(*type).value_type();
}

std::shared_ptr<::arrow::DataType> listElement(const std::shared_ptr<::arrow::DataType>& type) {
  return static_cast<const ::arrow::BaseListType&>(*type).value_type();
}

}  // namespace

std::shared_ptr<::arrow::DataType> commonType(const std::shared_ptr<::arrow::DataType>& a,
                                              const std::shared_ptr<::arrow::DataType>& b) {
  if (a->Equals(*b)) return a;
  if (a->id() == Type::NA) return b;
  if (b->id() == Type::NA) return a;
  if (a->id() == Type::DICTIONARY || b->id() == Type::DICTIONARY) {
    const auto left = decoded(a), right = decoded(b);
    if (left.get() == a.get() && right.get() == b.get()) return nullptr;
    return commonType(left, right);
  }
  const Type::type x = a->id(), y = b->id();
  if ((isSigned(x) && isSigned(y)) || (isUnsigned(x) && isUnsigned(y))) {
    return bitWidthOf(*a) >= bitWidthOf(*b) ? a : b;
  }
  const auto exactInDouble = [](const ::arrow::DataType& type) {
    return type.id() == Type::FLOAT || type.id() == Type::DOUBLE ||
           ((isSigned(type.id()) || isUnsigned(type.id())) && bitWidthOf(type) <= 32);
  };
  const bool floating =
      x == Type::FLOAT || x == Type::DOUBLE || y == Type::FLOAT || y == Type::DOUBLE;
  if (floating && exactInDouble(*a) && exactInDouble(*b)) return ::arrow::float64();
  if (x == Type::TIMESTAMP && y == Type::TIMESTAMP) {
    const auto& left = static_cast<const ::arrow::TimestampType&>(*a);
    const auto& right = static_cast<const ::arrow::TimestampType&>(*b);
    if (left.timezone() != right.timezone()) return nullptr;
    return left.unit() >= right.unit() ? a : b;
  }
  if (isText(x) && isText(y)) return ::arrow::large_utf8();
  if (isBinary(x) && isBinary(y)) return ::arrow::large_binary();
  if (isList(x) && isList(y)) {
    const auto element = commonType(listElement(a), listElement(b));
    if (!element) return nullptr;
    const auto& field = static_cast<const ::arrow::BaseListType&>(*a).value_field();
    auto elementField = field->WithType(element);
    if (x == Type::LIST && y == Type::LIST) return ::arrow::list(elementField);
    return ::arrow::large_list(elementField);
  }
  return nullptr;
}

void SchemaUnion::add(const std::shared_ptr<::arrow::Schema>& schema, const std::string& file) {
  if (mStrict) {
    if (!mFirstSchema) {
      mFirstSchema = schema;
      mFirstSchemaFile = file;
      mFields = schema->fields();
    } else if (!schema->Equals(*mFirstSchema, /*check_metadata=*/false)) {
      common::throwException<msg::SchemaMismatch>(
          mFirstSchemaFile, file, mFirstSchema->ToString() + " against " + schema->ToString());
    }
    return;
  }
  for (const auto& field : schema->fields()) {
    size_t i = 0;
    while (i < mFields.size() && mFields[i]->name() != field->name()) ++i;
    if (i == mFields.size()) {
      mFields.push_back(field->WithMetadata(nullptr));
      mFirstFile.push_back(file);
      continue;
    }
    const auto& known = mFields[i]->type();
    auto common = commonType(known, field->type());
    if (!common) {
      common::throwException<msg::SchemaConflict>(field->name(), mFirstFile[i], known->ToString(),
                                                  file, field->type()->ToString());
    }
    if (!common->Equals(*known)) {
      mFields[i] = mFields[i]->WithType(common);
      mFirstFile[i] = file;
    }
  }
}

std::shared_ptr<::arrow::Schema> SchemaUnion::schema() const {
  std::vector<std::shared_ptr<::arrow::Field>> fields;
  fields.reserve(mFields.size());
  // A variable that some file lacks is missing in that file's rows.
  for (const auto& field : mFields) fields.push_back(field->WithNullable(true));
  return ::arrow::schema(std::move(fields));
}

}  // namespace vantro::io::parquet::core::dataset
