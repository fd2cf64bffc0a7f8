#pragma once

// A dataset: many Parquet files read as one table. Their footers are read once, in parallel,
// and kept; the schema is the union of the files' schemas followed by the partition variables.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <arrow/type_fwd.h>
#include <parquet/arrow/schema.h>
#include <parquet/metadata.h>

#include "toolbox/vantro/io/parquet/core/dataset/Partitioning.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Sources.hpp"

namespace vantro::io::parquet::core::dataset {

struct DatasetOptions {
  SourceOptions sources;
  PartitionOptions partitioning;
  // Every file must have the same variables in the same order with the same types.
  bool strict = false;
};

// One file of the dataset and what its footer says.
struct DatasetFile {
  std::string path;
  std::u16string name;  // as the file adapter reports it
  std::shared_ptr<::parquet::FileMetaData> metadata;
  std::shared_ptr<::arrow::Schema> schema;
  std::shared_ptr<::parquet::arrow::SchemaManifest> manifest;
};

class Dataset {
 public:
  // Lists the sources, reads every footer (on the host's threads; an interrupt ends the call)
  // and builds the schema. Throws the errors of listSourceFiles, readPartitions and
  // SchemaUnion; NotParquet for a file found in a folder or by a pattern that is not Parquet
  // (unless options.sources.skipBadFiles: then it is skipped with a warning, as is any file so
  // found whose footer cannot be read); PartitionVariableClash for a partition variable that
  // a file holds too; the reader's own errors for files named on their own.
  Dataset(const std::vector<std::string>& sources, const DatasetOptions& options);

  size_t fileCount() const { return mFiles.size(); }
  const DatasetFile& file(size_t index) const { return mFiles.at(index); }

  // The files' variables, then the partition variables.
  const std::shared_ptr<::arrow::Schema>& schema() const { return mSchema; }
  std::vector<std::string> variableNames() const;
  // Host type names, as single-file readers give them ("double", "string", ...).
  std::vector<std::string> variableTypes() const;
  size_t fileVariableCount() const;
  const Partitions& partitions() const { return mPartitions; }
  // The index of the partition variable called name, or -1.
  int partitionIndex(const std::string& name) const;

  // Rows and row groups by the footers.
  uint64_t rowCount() const;
  uint64_t rowGroupCount() const;

 private:
  std::vector<DatasetFile> mFiles;
  Partitions mPartitions;
  std::shared_ptr<::arrow::Schema> mSchema;
};

}  // namespace vantro::io::parquet::core::dataset
