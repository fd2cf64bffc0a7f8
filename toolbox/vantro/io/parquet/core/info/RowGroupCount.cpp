#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include <arrow/memory_pool.h>
#include <parquet/arrow/reader.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include "host/services/Interrupts.hpp"
#include "host/services/Services.hpp"
#include "host/services/Threads.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/EncryptedFiles.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::info {
namespace {

// Below this many files per thread, starting a thread costs more than it saves.
constexpr size_t kFilesPerThread = 4;

// Opens the footer of one file and returns its row-group count. The reader and the adapter are
// released on return, closing the file.
uint64_t countRowGroups(const std::u16string& file) {
  auto adapter = common::makeReadableFilePtr(file);
  std::unique_ptr<::parquet::arrow::FileReader> fileReader;
  const ::arrow::Status status =
      common::compat::OpenFile(adapter, ::arrow::default_memory_pool(), &fileReader);
  common::throwIfEncrypted(status, *adapter, fileReader.get(), file);
  common::throwReadExceptIfNotOk(status, file);
  if (utIsSignalThread() != 0) utInterruptState::ThrowIfInterruptPending();
  return static_cast<uint64_t>(fileReader->parquet_reader()->metadata()->num_row_groups());
}

}  // namespace

std::vector<uint64_t> getNumRowGroupsAsync(std::vector<std::u16string> files) {
  std::vector<uint64_t> counts(files.size(), 0);
  // Files are handed out one at a time: a footer costs tens of microseconds, the hand-out one
  // atomic step. A failure stops the hand-out; the earliest failed file's exception is kept.
  std::atomic<size_t> next{0};
  std::atomic<bool> stop{false};
  std::mutex failureMutex;
  size_t failedFile = files.size();
  std::exception_ptr failure;
  const auto work = [&] {
    while (!stop.load(std::memory_order_relaxed)) {
      const size_t i = next.fetch_add(1, std::memory_order_relaxed);
      if (i >= files.size()) return;
      try {
        counts[i] = countRowGroups(files[i]);
      } catch (...) {
        std::lock_guard<std::mutex> lock(failureMutex);
        if (i < failedFile) {
          failedFile = i;
          failure = std::current_exception();
        }
        stop.store(true, std::memory_order_relaxed);
      }
    }
  };
  // Threads of its own rather than a pool's: one that cannot start (a process limit) leaves
  // its share to the others and to the calling thread, which always takes part.
  const auto helpers = std::min<int64_t>(foundation::services::getNumComputationalThreads() - 1,
                                         static_cast<int64_t>(files.size() / kFilesPerThread));
  std::vector<std::thread> threads;
  for (int64_t i = 0; i < helpers; ++i) {
    std::thread thread = foundation::services::tryStartThread(work);
    if (!thread.joinable()) break;
    threads.push_back(std::move(thread));
  }
  work();
  for (auto& thread : threads) thread.join();
  if (failure) std::rethrow_exception(failure);
  // The helpers may have taken every file: the signal thread still answers a pending interrupt.
  if (utIsSignalThread() != 0) utInterruptState::ThrowIfInterruptPending();
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
