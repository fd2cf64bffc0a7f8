#pragma once

// The dataset's errors and warnings, "VANTRO:parquetio:dataset:<Key>" (texts in the host's
// message catalogue).
#include <string>

#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace VANTRO::parquetio::dataset {

#define VANTRO_DATASET_MESSAGE_TAG(name)                                 \
  struct name {                                                          \
    static constexpr const char* component = "VANTRO:parquetio:dataset"; \
    static constexpr const char* key = #name;                            \
  }

// A pattern that matches no file; a folder without Parquet files.
VANTRO_DATASET_MESSAGE_TAG(NoMatch);
VANTRO_DATASET_MESSAGE_TAG(EmptyFolder);
// A file found in a folder or by a pattern that cannot be part of the dataset.
VANTRO_DATASET_MESSAGE_TAG(DanglingLink);
VANTRO_DATASET_MESSAGE_TAG(UnreadableFile);
VANTRO_DATASET_MESSAGE_TAG(NotParquet);
// Partition folders.
VANTRO_DATASET_MESSAGE_TAG(InconsistentPartitions);
VANTRO_DATASET_MESSAGE_TAG(InvalidPartitionValue);
VANTRO_DATASET_MESSAGE_TAG(PartitionVariableClash);
// Schemas of the files.
VANTRO_DATASET_MESSAGE_TAG(SchemaConflict);
VANTRO_DATASET_MESSAGE_TAG(SchemaMismatch);
// Requests.
VANTRO_DATASET_MESSAGE_TAG(UnknownVariable);
VANTRO_DATASET_MESSAGE_TAG(InvalidOption);
VANTRO_DATASET_MESSAGE_TAG(NoMoreData);
// Writing a dataset.
VANTRO_DATASET_MESSAGE_TAG(TargetNotFolder);
VANTRO_DATASET_MESSAGE_TAG(TargetNotEmpty);
VANTRO_DATASET_MESSAGE_TAG(ExistingLayoutMismatch);
VANTRO_DATASET_MESSAGE_TAG(InvalidPartitionVariable);
VANTRO_DATASET_MESSAGE_TAG(AllVariablesPartitioned);
VANTRO_DATASET_MESSAGE_TAG(UnwritablePartitionValue);
VANTRO_DATASET_MESSAGE_TAG(RemoveFailed);
// Warning: a file left out because the options say so.
VANTRO_DATASET_MESSAGE_TAG(SkippedFile);

#undef VANTRO_DATASET_MESSAGE_TAG

}  // namespace VANTRO::parquetio::dataset

namespace vantro::io::parquet::core::dataset {

namespace msg = ::VANTRO::parquetio::dataset;

// Issues the warning of Tag through the host, with text arguments.
void warnSkippedFile(const std::string& file, const std::string& reason);

}  // namespace vantro::io::parquet::core::dataset
