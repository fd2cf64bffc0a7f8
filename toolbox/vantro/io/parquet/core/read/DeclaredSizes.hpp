#pragma once

#include <cstdint>
#include <vector>

#include <arrow/status.h>
#include <parquet/metadata.h>

namespace vantro::io::parquet::core::read {

// Refuses, from the footer alone, column chunks that declare more decoded bytes than maxBytes or
// than their codec could expand their stored bytes to. Parquet trusts these sizes and allocates
// page by page before it finds a forged one out. rowGroups are 0-based; indices outside the file
// are left for Arrow to report. The status names the column and the row group.
::arrow::Status checkDeclaredChunkSizes(const ::parquet::FileMetaData& metadata,
                                        const std::vector<int>& rowGroups,
                                        const std::vector<int>& columns, uint64_t maxBytes);

}  // namespace vantro::io::parquet::core::read
