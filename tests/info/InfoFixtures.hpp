#pragma once

// Files for the information tests: Arrow-written files with chosen writer settings, files with
// a schema and no row groups, and footer-only files whose column-chunk metadata Arrow's writer
// would never produce (the information code reads nothing but the footer).
#include <memory>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <parquet/metadata.h>
#include <parquet/properties.h>
#include <parquet/schema.h>

namespace vxtest::info {

// A one-column int64 table "v" with rows values cycling through 0..6 (dictionary friendly).
std::shared_ptr<arrow::Table> repetitiveTable(int64_t rows);

// One column chunk of a footer-only file, as the metadata builder records it.
struct ChunkFooter {
  bool hasDictionary = false;
  bool dictionaryFallback = false;
  // The encoding the writer properties name for the chunk's data pages.
  parquet::Encoding::type encoding = parquet::Encoding::PLAIN;
  arrow::Compression::type compression = arrow::Compression::UNCOMPRESSED;
  // Where the chunk's first page (the dictionary page when there is one) claims to start.
  int64_t firstPageOffset = 4;
};

struct RowGroupFooter {
  int64_t rows = 0;
  std::vector<ChunkFooter> chunks;  // one per leaf, in leaf order
};

// Writes "PAR1", filler bytes and a footer describing the given row groups; no page exists.
void writeFooterOnly(const std::string& path, const std::shared_ptr<parquet::schema::Node>& root,
                     const std::vector<RowGroupFooter>& rowGroups);
// The same with one row group.
void writeFooterOnly(const std::string& path, const std::shared_ptr<parquet::schema::Node>& root,
                     int64_t rows, const std::vector<ChunkFooter>& chunks);

// A required int64 leaf node named name.
std::shared_ptr<parquet::schema::Node> int64Node(const std::string& name);

}  // namespace vxtest::info
