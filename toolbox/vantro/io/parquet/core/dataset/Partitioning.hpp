#pragma once

// Hive partitions: "key=value" folders between a dataset's root and its files become variables
// of every row of those files.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <arrow/type_fwd.h>

#include "toolbox/vantro/io/parquet/core/dataset/Sources.hpp"

namespace vantro::io::parquet::core::dataset {

struct PartitionOptions {
  bool hive = true;  // false: folder names mean nothing
  // Types of partition variables by name: "int64", "double", "date", "timestamp" or "string".
  // Variables not named get theirs inferred from all their values.
  std::vector<std::pair<std::string, std::string>> types;
};

// The partition variables of a dataset, each with one value per file (null where the folder
// says __HIVE_DEFAULT_PARTITION__).
struct Partitions {
  std::vector<std::string> names;
  std::vector<std::shared_ptr<::arrow::Array>> values;  // names.size() arrays of one per file
};

// Reads the partition folders of each file's path below its root. Every file must name the
// same keys in the same order (throws InconsistentPartitions naming two paths that differ);
// values are URL-decoded. Inferred types, over the whole dataset: integer (int64), double,
// date, timestamp (with an offset in every value: UTC; in none: no zone), otherwise text.
// Throws InvalidPartitionValue for a value its given type cannot hold and InvalidOption for
// an unknown type name.
Partitions readPartitions(const std::vector<SourceFile>& files, const PartitionOptions& options);

// "%41b%2F" -> "Ab/"; a '%' without two hex digits stays as it is.
std::string urlDecode(const std::string& text);
// The reverse, for folder names: escapes what a path or a Hive reader would misread.
std::string urlEncode(const std::string& text);

// The text that stands for a missing partition value.
inline constexpr const char* kHiveDefaultPartition = "__HIVE_DEFAULT_PARTITION__";

}  // namespace vantro::io::parquet::core::dataset
