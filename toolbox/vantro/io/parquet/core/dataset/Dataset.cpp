#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"

#include <algorithm>
#include <fstream>
#include <mutex>
#include <optional>

#include <arrow/array.h>
#include <arrow/memory_pool.h>
#include <arrow/type.h>
#include <arrow/util/key_value_metadata.h>
#include <parquet/arrow/reader.h>
#include <parquet/arrow/schema.h>
#include <parquet/exception.h>
#include <parquet/file_reader.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include "host/matrix/matrix.h"
#include "host/services/Interrupts.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Errors.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/SchemaUnion.hpp"
#include "toolbox/vantro/io/parquet/core/info/TypeDescriptions.hpp"

namespace vantro::io::parquet::core::dataset {

namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;

// Parquet files begin and end with "PAR1".
bool hasParquetMagic(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  char head[4] = {}, tail[4] = {};
  in.read(head, 4);
  in.seekg(-4, std::ios::end);
  in.read(tail, 4);
  return in.good() && std::string(head, 4) == "PAR1" && std::string(tail, 4) == "PAR1";
}

// What a footer read gives: the file, or why it is left out (skipped files only).
struct FooterResult {
  std::optional<DatasetFile> file;
  std::string skipReason;
};

// The Arrow schema and the schema manifest of a footer. Files of one dataset mostly share one
// schema, and building these (the Parquet schema converted, the stored Arrow schema decoded)
// costs more than reading the footer: they are built once per distinct schema.
class SchemaCache {
 public:
  struct Entry {
    std::shared_ptr<::parquet::FileMetaData> metadata;  // the first file with this schema
    std::shared_ptr<::arrow::Schema> schema;
    std::shared_ptr<::parquet::arrow::SchemaManifest> manifest;
  };

  ::arrow::Result<Entry> of(const std::shared_ptr<::parquet::FileMetaData>& metadata) {
    {
      std::lock_guard<std::mutex> lock(mMutex);
      for (const auto& entry : mEntries) {
        if (sameSchema(*entry.metadata, *metadata)) return entry;
      }
    }
    Entry entry{metadata, nullptr, std::make_shared<::parquet::arrow::SchemaManifest>()};
    const auto properties = ::parquet::default_arrow_reader_properties();
    ARROW_RETURN_NOT_OK(::parquet::arrow::FromParquetSchema(
        metadata->schema(), properties, metadata->key_value_metadata(), &entry.schema));
    ARROW_RETURN_NOT_OK(::parquet::arrow::SchemaManifest::Make(
        metadata->schema(), metadata->key_value_metadata(), properties, entry.manifest.get()));
    std::lock_guard<std::mutex> lock(mMutex);
    mEntries.push_back(entry);
    return entry;
  }

 private:
  static bool sameSchema(const ::parquet::FileMetaData& a, const ::parquet::FileMetaData& b) {
    if (!a.schema()->Equals(*b.schema())) return false;
    const auto& x = a.key_value_metadata();
    const auto& y = b.key_value_metadata();
    if (x == nullptr || y == nullptr) return x == y;
    return x->Equals(*y);
  }

  std::mutex mMutex;
  std::vector<Entry> mEntries;
};

FooterResult readFooter(const SourceFile& source, bool skipBadFiles, SchemaCache& schemas) {
  if (utIsSignalThread() != 0) utInterruptState::ThrowIfInterruptPending();
  const std::u16string name = utf8_to_ustring(source.path);
  std::shared_ptr<::parquet::FileMetaData> metadata;
  ::arrow::Status status;
  try {
    auto adapter = common::makeReadableFilePtr(name);
    try {
      metadata = ::parquet::ParquetFileReader::Open(adapter)->metadata();
    } catch (const ::parquet::ParquetException& e) {
      status = ::arrow::Status::IOError(e.what());
    }
  } catch (const foundation::core::except::IMsgIDException& e) {
    if (!source.found) throw;
    if (skipBadFiles) return FooterResult{std::nullopt, e.message()};
    throw;
  }
  ::arrow::Result<SchemaCache::Entry> entry =
      status.ok() ? schemas.of(metadata) : ::arrow::Result<SchemaCache::Entry>(status);
  if (!entry.ok()) {
    if (!source.found) common::throwReadExceptIfNotOk(entry.status(), name);
    if (skipBadFiles) return FooterResult{std::nullopt, entry.status().message()};
    if (!hasParquetMagic(source.path)) common::throwException<msg::NotParquet>(source.path);
    common::throwReadExceptIfNotOk(entry.status(), name);
  }
  DatasetFile file;
  file.path = source.path;
  file.name = name;
  file.metadata = std::move(metadata);
  file.schema = entry->schema;
  file.manifest = entry->manifest;
  return FooterResult{std::move(file), {}};
}

// The footers of all files, in order, on the host's threads; the calling thread takes part.
std::vector<FooterResult> readFooters(const std::vector<SourceFile>& sources, bool skipBadFiles) {
  std::vector<FooterResult> results(sources.size());
  if (sources.empty()) return results;
  SchemaCache schemas;
  const int threads = static_cast<int>(
      std::clamp<int64_t>(foundation::services::getNumComputationalThreads(), 1, 256));
  tbb::task_arena arena(threads);
  arena.execute([&] {
    tbb::task_group_context context(tbb::task_group_context::bound,
                                    tbb::task_group_context::default_traits);
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, sources.size(), 1),
        [&](const tbb::blocked_range<size_t>& range) {
          for (size_t i = range.begin(); i != range.end(); ++i) {
            results[i] = readFooter(sources[i], skipBadFiles, schemas);
          }
        },
        tbb::auto_partitioner(), context);
  });
  return results;
}

}  // namespace

void warnSkippedFile(const std::string& file, const std::string& reason) {
  const std::string identifier = common::messageIdentifier<msg::SkippedFile>();
  const char* arguments[] = {file.c_str(), reason.c_str()};
  vxWarningMsgId(identifier.c_str(), 2, arguments);
}

Dataset::Dataset(const std::vector<std::string>& sources, const DatasetOptions& options) {
  const auto listed = listSourceFiles(sources, options.sources);
  auto footers = readFooters(listed, options.sources.skipBadFiles);
  std::vector<SourceFile> kept;
  for (size_t i = 0; i < footers.size(); ++i) {
    if (!footers[i].file) {
      warnSkippedFile(listed[i].path, footers[i].skipReason);
      continue;
    }
    kept.push_back(listed[i]);
    mFiles.push_back(std::move(*footers[i].file));
  }
  if (mFiles.empty()) {
    std::string named;
    for (const auto& source : sources) named += (named.empty() ? "" : ", ") + source;
    common::throwException<msg::EmptyFolder>(named);
  }
  mPartitions = readPartitions(kept, options.partitioning);

  SchemaUnion schemaUnion(options.strict);
  for (const auto& file : mFiles) schemaUnion.add(file.schema, file.path);
  auto fields = schemaUnion.schema()->fields();
  for (size_t p = 0; p < mPartitions.names.size(); ++p) {
    const auto& name = mPartitions.names[p];
    for (const auto& file : mFiles) {
      if (file.schema->GetFieldIndex(name) >= 0) {
        common::throwException<msg::PartitionVariableClash>(name, file.path);
      }
    }
    fields.push_back(::arrow::field(name, mPartitions.values[p]->type()));
  }
  mSchema = ::arrow::schema(std::move(fields));
}

std::vector<std::string> Dataset::variableNames() const { return mSchema->field_names(); }

std::vector<std::string> Dataset::variableTypes() const { return info::getVariableTypes(mSchema); }

size_t Dataset::fileVariableCount() const {
  return static_cast<size_t>(mSchema->num_fields()) - mPartitions.names.size();
}

int Dataset::partitionIndex(const std::string& name) const {
  const auto it = std::find(mPartitions.names.begin(), mPartitions.names.end(), name);
  return it == mPartitions.names.end() ? -1 : static_cast<int>(it - mPartitions.names.begin());
}

uint64_t Dataset::rowCount() const {
  uint64_t rows = 0;
  for (const auto& file : mFiles) rows += static_cast<uint64_t>(file.metadata->num_rows());
  return rows;
}

uint64_t Dataset::rowGroupCount() const {
  uint64_t groups = 0;
  for (const auto& file : mFiles) groups += static_cast<uint64_t>(file.metadata->num_row_groups());
  return groups;
}

}  // namespace vantro::io::parquet::core::dataset
