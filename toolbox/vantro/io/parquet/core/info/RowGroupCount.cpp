#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"

#include <memory>

#include <arrow/memory_pool.h>
#include <parquet/arrow/reader.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_group.h>

#include "host/services/Interrupts.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::info {
namespace {

// Opens the footer of one file and returns its row-group count. The reader and the adapter are
// released on return, closing the file.
uint64_t countRowGroups(const std::u16string& file) {
  auto adapter = common::makeReadableFilePtr(file);
  std::unique_ptr<::parquet::arrow::FileReader> fileReader;
  const ::arrow::Status status =
      common::compat::OpenFile(adapter, ::arrow::default_memory_pool(), &fileReader);
  common::throwReadExceptIfNotOk(status, file);
  if (utIsSignalThread() != 0) utInterruptState::ThrowIfInterruptPending();
  return static_cast<uint64_t>(fileReader->parquet_reader()->metadata()->num_row_groups());
}

}  // namespace

std::vector<uint64_t> getNumRowGroupsAsync(std::vector<std::u16string> files) {
  std::vector<uint64_t> counts(files.size(), 0);
  if (!files.empty()) {
    // Exact exception propagation: the first failure cancels the group and reaches the caller
    // as it was thrown.
    tbb::task_group_context context(tbb::task_group_context::bound,
                                    tbb::task_group_context::default_traits);
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, files.size(), 1),
        [&](const tbb::blocked_range<size_t>& range) {
          for (size_t i = range.begin(); i != range.end(); ++i) {
            counts[i] = countRowGroups(files[i]);
          }
        },
        tbb::auto_partitioner(), context);
  }
  std::vector<std::u16string>().swap(files);
  return counts;
}

std::vector<uint64_t> getNumRowGroupsSync(std::vector<std::u16string> files) {
  std::vector<uint64_t> counts;
  counts.reserve(files.size());
  for (const auto& file : files) counts.push_back(countRowGroups(file));
  std::vector<std::u16string>().swap(files);
  return counts;
}

}  // namespace vantro::io::parquet::core::info
