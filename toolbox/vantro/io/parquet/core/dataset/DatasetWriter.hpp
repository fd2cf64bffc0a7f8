#pragma once

// Writes a table as a Hive-partitioned dataset: one folder level per partition variable
// ("key=value", values URL-encoded, missing values as __HIVE_DEFAULT_PARTITION__), the rows of
// each partition in one or more Parquet files without the partition variables. Every file is
// written through ParquetWriter, so each one appears whole or not at all; a write that fails
// removes the files and folders it made.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <arrow/type_fwd.h>

#include "host/matrix/matrix.h"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace vantro::io::parquet::core::dataset {

// What to do with files already in the target folder.
enum class ExistingFiles {
  // Refuse (TargetNotEmpty) when the folder holds any visible file, at any depth.
  kRefuse,
  // Write the new files beside the old ones.
  kAdd,
  // Once every new file is written, remove the old Parquet files (regular files, not links)
  // that sit directly in the partition folders this write produced. Other partitions,
  // non-Parquet files, hidden files and subfolders are left alone.
  kReplacePartitions,
};

struct DatasetWriteOptions {
  // The partition variables, outermost folder level first. Their types: integers, text,
  // logical, date, dictionaries of these, and floating point holding whole numbers only (each
  // value must have a folder text that reads back as the same value).
  std::vector<std::string> partitionBy;
  // At most this many rows in one file (0: no limit); a partition takes as many files as needed.
  uint64_t maxRowsPerFile = 0;
  ExistingFiles existingFiles = ExistingFiles::kRefuse;
  // Sets up each file's writer (compression, encoding, version, row-group length, ...) after
  // its variable names are set. fileSchema holds the variables the files get: the table's
  // without the partition variables. Called once per file, before anything is written to it.
  std::function<void(write::ParquetWriter& writer, const ::arrow::Schema& fileSchema)>
      configureFile;
};

struct WrittenFile {
  std::string path;  // the folder given, then the partition folders and the file name
  int64_t rows = 0;
};

struct DatasetWriteResult {
  std::vector<WrittenFile> files;    // in the order written
  size_t partitions = 0;             // partition folders written to (1 without partitioning)
  std::vector<std::string> removed;  // old files that the new ones replaced
};

// Writes table into folder, which is made (with missing parents) when it does not exist.
// Partitions come in the order their first row appears, and rows keep their order within one;
// the files of a partition are named part-<16 hex digits, random per call>-<n>.parquet, n
// counting from 00000 over the whole call, so that concurrent writers never pick the same name
// and a partition's files sort in the order their rows came.
//
// Reading the folder back as a dataset gives the same rows with the partition variables last,
// typed by what the folder names look like unless the reader is told their types: integers
// (and whole floating-point values) read as int64, dates as dates, logicals as the text
// "true"/"false", and text as text only where some value does not look like a number or date.
//
// Throws: TargetNotFolder (folder is a file, an IRI, or cannot be made), UnknownVariable,
// InvalidPartitionVariable (a name given twice, an empty name, or a type without an exact
// folder text), AllVariablesPartitioned, UnwritablePartitionValue (a value without an exact
// folder text: a fraction, NaN, an unsigned integer beyond int64, a date outside years
// 0-9999, the text __HIVE_DEFAULT_PARTITION__, a folder name over 255 bytes), TargetNotEmpty
// (kRefuse),
// ExistingLayoutMismatch (kAdd and kReplacePartitions: old Parquet files in other partition
// folders than this write's), RemoveFailed (an old file could not be removed; the new files
// stay), and whatever the writer throws (after removing what this call wrote).
DatasetWriteResult writeDataset(const std::string& folder,
                                const std::shared_ptr<::arrow::Table>& table,
                                const DatasetWriteOptions& options);

// The same for a host table (a structure or table object with Names and Columns).
DatasetWriteResult writeDataset(const std::string& folder, const vxArray_tag* table,
                                const DatasetWriteOptions& options);

}  // namespace vantro::io::parquet::core::dataset
