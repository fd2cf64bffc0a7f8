#pragma once

// One schema for files whose schemas differ: their variables by name, each of a type that
// holds every file's values without loss.
#include <memory>
#include <string>
#include <vector>

#include <arrow/type_fwd.h>

namespace vantro::io::parquet::core::dataset {

// The type that holds the values of both a and b exactly, or null when there is none.
// Promotions: narrower integers to wider ones of the same signedness; float to double;
// integers of at most 32 bits (and float) to double; timestamps of one time zone to the finest
// unit; dictionaries of text and text to text (dictionaries of other values likewise to their
// values); large and ordinary text, binary and lists alike (to the large form); lists by their
// elements; the null type to anything. Everything else, structs included unless equal, has none.
std::shared_ptr<::arrow::DataType> commonType(const std::shared_ptr<::arrow::DataType>& a,
                                              const std::shared_ptr<::arrow::DataType>& b);

// Builds the union of the files' schemas: variables in the order first met, each of the common
// type of every file that has it. Throws SchemaConflict (the variable, the two files and their
// types) when a variable has no common type; with strict, throws SchemaMismatch unless every
// schema equals the first.
class SchemaUnion {
 public:
  explicit SchemaUnion(bool strict) : mStrict(strict) {}

  void add(const std::shared_ptr<::arrow::Schema>& schema, const std::string& file);
  std::shared_ptr<::arrow::Schema> schema() const;

 private:
  bool mStrict;
  std::vector<std::shared_ptr<::arrow::Field>> mFields;
  std::vector<std::string> mFirstFile;  // per field: the file that set its type last
  std::shared_ptr<::arrow::Schema> mFirstSchema;
  std::string mFirstSchemaFile;
};

}  // namespace vantro::io::parquet::core::dataset
