#include "toolbox/vantro/io/parquet/core/plan/SplitPlanner.hpp"

#include <algorithm>
#include <filesystem>
#include <memory>

#include <parquet/exception.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_group.h>

#include "host/services/Interrupts.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::plan {
namespace {

namespace msg = VANTRO::parquetio::plan;
using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;

// Local names become absolute, so that a task names the same file in any working folder; IRIs
// of other schemes are already absolute.
std::u16string absoluteName(const std::u16string& name) {
  if (name.find(u"://") != std::u16string::npos) return name;
  const std::filesystem::path path(ustring_to_utf8(name));
  return utf8_to_ustring(std::filesystem::absolute(path).lexically_normal().string());
}

uint64_t compressedBytes(const ::parquet::RowGroupMetaData& rowGroup) {
  uint64_t bytes = 0;
  for (int c = 0; c < rowGroup.num_columns(); ++c) {
    bytes += static_cast<uint64_t>(
        std::max<int64_t>(0, rowGroup.ColumnChunk(c)->total_compressed_size()));
  }
  return bytes;
}

// One read of the file's tail gives both the fingerprint and the metadata: planning reads
// nothing else, and builds no Arrow reader.
PlanFile describeFile(const std::u16string& file) {
  auto adapter = common::makeReadableFilePtr(file);
  const std::u16string name = adapter->GetFilename();
  auto footer = readFooter(*adapter);
  common::throwReadExceptIfNotOk(footer.status(), name);
  if (utIsSignalThread() != 0) utInterruptState::ThrowIfInterruptPending();

  PlanFile described;
  described.name = absoluteName(name);
  described.fingerprint = footer->fingerprint;
  try {
    const auto metadata =
        common::compat::DecodeFileMetaData(footer->bytes->data(), footer->bytes->size());
    for (int i = 0; i < metadata->num_row_groups(); ++i) {
      const auto rowGroup = metadata->RowGroup(i);
      described.rowGroups.push_back(i);
      described.bytes.push_back(compressedBytes(*rowGroup));
      described.rows.push_back(static_cast<uint64_t>(std::max<int64_t>(0, rowGroup->num_rows())));
    }
  } catch (const ::parquet::ParquetException& e) {
    // A footer that does not decode (damaged, or encrypted with keys we lack).
    common::throwReaderLoadException(ustring_to_utf8(name), e.what());
  }
  return described;
}

}  // namespace

std::vector<PlanFile> describeFiles(const std::vector<std::u16string>& files) {
  std::vector<PlanFile> described(files.size());
  if (files.empty()) return described;
  // The first failure cancels the others and reaches the caller as it was thrown.
  tbb::task_group_context context(tbb::task_group_context::bound,
                                  tbb::task_group_context::default_traits);
  tbb::parallel_for(
      tbb::blocked_range<size_t>(0, files.size(), 1),
      [&](const tbb::blocked_range<size_t>& range) {
        for (size_t i = range.begin(); i != range.end(); ++i) described[i] = describeFile(files[i]);
      },
      tbb::auto_partitioner(), context);
  return described;
}

void keepRowGroups(PlanFile& file, const std::vector<int>& rowGroups) {
  PlanFile kept;
  for (size_t i = 0; i < file.rowGroups.size(); ++i) {
    if (std::find(rowGroups.begin(), rowGroups.end(), file.rowGroups[i]) == rowGroups.end()) {
      continue;
    }
    kept.rowGroups.push_back(file.rowGroups[i]);
    kept.bytes.push_back(file.bytes[i]);
    kept.rows.push_back(file.rows[i]);
  }
  file.rowGroups = std::move(kept.rowGroups);
  file.bytes = std::move(kept.bytes);
  file.rows = std::move(kept.rows);
}

std::vector<Task> planTasks(const std::vector<PlanFile>& files, uint64_t count) {
  if (count == 0)
    common::throwException<msg::InvalidTask>("the number of tasks must be at least 1");
  std::vector<Task> tasks(count);
  for (uint64_t k = 0; k < count; ++k) {
    tasks[k].number = k + 1;
    tasks[k].count = count;
  }
  // A row group without bytes (no columns) still weighs one, so that it has a place.
  auto weight = [](uint64_t bytes) { return std::max<uint64_t>(bytes, 1); };
  unsigned __int128 total = 0;
  for (const auto& file : files) {
    for (uint64_t bytes : file.bytes) total += weight(bytes);
  }
  unsigned __int128 before = 0;
  for (const auto& file : files) {
    for (size_t i = 0; i < file.rowGroups.size(); ++i) {
      const uint64_t w = weight(file.bytes[i]);
      // The task whose share [k*total/count, (k+1)*total/count) holds the middle of this row
      // group: k = floor((2*before + w) * count / (2*total)), in exact integer arithmetic.
      const auto k = static_cast<uint64_t>(
          std::min<unsigned __int128>((2 * before + w) * count / (2 * total), count - 1));
      before += w;
      Task& task = tasks[k];
      if (task.files.empty() || task.files.back().name != file.name) {
        task.files.push_back(TaskFile{file.name, file.fingerprint, {}});
      }
      task.files.back().rowGroups.push_back(file.rowGroups[i]);
      task.bytes += file.bytes[i];
      task.rows += file.rows[i];
    }
  }
  return tasks;
}

}  // namespace vantro::io::parquet::core::plan
