#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include <arrow/table.h>
#include <parquet/file_reader.h>

#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupGeometry.hpp"

namespace vantro::io::parquet::core::read {

namespace severity = foundation::log::severity;
using common::getLogger;
using common::throwReadExceptIfNotOk;

namespace {

// The saved state's row groups; only the real parts of a complex matrix count.
std::vector<double> realValues(const vxArray_tag* array) {
  const size_t count = vxGetNumberOfElements(array);
  const double* data = vxGetPr(array);
  const size_t stride = vxIsComplex(array) ? 2 : 1;
  std::vector<double> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = data[i * stride];
  return values;
}

bool isReaderState(const vxArray_tag* state) {
  if (state == nullptr || vxGetClassID(state) != vxCELL_CLASS ||
      vxGetNumberOfElements(state) != 2) {
    return false;
  }
  const vxArray_tag* name = vxGetCell(state, 0);
  const vxArray_tag* rowGroups = vxGetCell(state, 1);
  return name != nullptr && vxGetClassID(name) == vxCHAR_CLASS && rowGroups != nullptr &&
         vxGetClassID(rowGroups) == vxDOUBLE_CLASS;
}

// A host row-group number made 0-based for Arrow. Numbers in range truncate toward zero; NaN
// and numbers far outside any file become -1, which Arrow refuses as it does 0.
int toArrowIndex(double oneBased, bool truncateFirst) {
  constexpr double kFar = 1e9;
  if (std::isnan(oneBased) || oneBased < -kFar || oneBased > kFar) return -1;
  return truncateFirst ? static_cast<int>(oneBased) - 1 : static_cast<int>(oneBased - 1.0);
}

}  // namespace

RowGroupParquetReader::RowGroupParquetReader() { VANTRO_PARQUET_TRACE(); }

RowGroupParquetReader::RowGroupParquetReader(const std::u16string& filename,
                                             const std::vector<double>& rowGroups)
    : ParquetReader(filename), mRowGroups(rowGroups) {
  VANTRO_PARQUET_TRACE();
  getLogger().log(severity::kFile, " filename=", filename);
}

RowGroupParquetReader::RowGroupParquetReader(const std::u16string& filename, double fileOffset,
                                             double size)
    : ParquetReader(filename) {
  VANTRO_PARQUET_TRACE();
  getLogger().log(severity::kFile, " filename=", filename, " fileOffset=", fileOffset,
                  " size=", size);
  const auto& metadata = getMetadata();
  const int numRowGroups = metadata.num_row_groups();
  getLogger().log(severity::kConfig, "numRowGroups = ", numRowGroups);

  throwReadExceptIfNotOk(guarded([&] {
                           for (int i = 0; i < numRowGroups; ++i) {
                             const int64_t offset = calculateRowGroupOffset(*metadata.RowGroup(i));
                             getLogger().log(severity::kConfig, "offset = ", offset);
                             const double start = static_cast<double>(offset);
                             // Row groups lie in file order: none later starts in the range.
                             if (start >= fileOffset + size) break;
                             if (start >= fileOffset) mRowGroups.push_back(i + 1);
                           }
                           return ::arrow::Status::OK();
                         }),
                         mFilename);
}

RowGroupParquetReader::~RowGroupParquetReader() { VANTRO_PARQUET_TRACE(); }

RowGroupParquetReader::RowGroupParquetReader(RowGroupParquetReader&& other) noexcept
    : ParquetReader(std::move(other)),
      mRowGroups(std::move(other.mRowGroups)),
      mRowGroupIndex(std::exchange(other.mRowGroupIndex, 0)) {
  VANTRO_PARQUET_TRACE();
}

RowGroupParquetReader& RowGroupParquetReader::operator=(RowGroupParquetReader&& other) noexcept {
  VANTRO_PARQUET_TRACE();
  if (this != &other) {
    ParquetReader::operator=(std::move(other));
    mRowGroups = std::move(other.mRowGroups);
    mRowGroupIndex = std::exchange(other.mRowGroupIndex, 0);
  }
  return *this;
}

std::vector<double> RowGroupParquetReader::getRowGroups() const {
  VANTRO_PARQUET_TRACE();
  return mRowGroups;
}

uint64_t RowGroupParquetReader::getRowGroupIndex() const {
  VANTRO_PARQUET_TRACE();
  getLogger().log(severity::kVerbose, " mRowGroupIndex=", mRowGroupIndex);
  return mRowGroupIndex;
}

void RowGroupParquetReader::setRowGroupIndex(uint64_t index) {
  VANTRO_PARQUET_TRACE();
  getLogger().log(severity::kFile, " rowGroupIndex=", index);
  mRowGroupIndex = index;
}

bool RowGroupParquetReader::shouldReadEmptyOnce() const {
  VANTRO_PARQUET_TRACE();
  const bool result = mFileReader && getMetadata().num_row_groups() == 0 && mRowGroupIndex == 0;
  getLogger().log(severity::kVerbose, " result=", result);
  return result;
}

bool RowGroupParquetReader::hasdata() const {
  VANTRO_PARQUET_TRACE();
  const bool result = shouldReadEmptyOnce() || mRowGroupIndex < mRowGroups.size();
  getLogger().log(severity::kVerbose, " result=", result);
  return result;
}

void RowGroupParquetReader::reset() {
  VANTRO_PARQUET_TRACE();
  mRowGroupIndex = 0;
}

std::shared_ptr<::arrow::Table> RowGroupParquetReader::readNext() {
  VANTRO_PARQUET_TRACE();
  std::shared_ptr<::arrow::Table> table;
  if (!mFileReader) return table;
  const auto& columns = mSelectedVariables.parquetColumnIndices;
  ::arrow::Status status;
  int64_t footerRowCount = 0;
  if (shouldReadEmptyOnce()) {
    // No row group to read: the whole-file read yields the variables with no rows.
    status = guarded([&] { return common::compat::ReadTable(*mFileReader, columns, &table); });
  } else {
    // Truncate, then make 0-based: entries below 1 reach Arrow as invalid row groups.
    const int rowGroup = toArrowIndex(mRowGroups[mRowGroupIndex], /*truncateFirst=*/true);
    checkDeclaredSizes({rowGroup});
    footerRowCount = footerRows({rowGroup});
    status = guarded(
        [&] { return common::compat::ReadRowGroup(*mFileReader, rowGroup, columns, &table); });
  }
  throwReadExceptIfNotOk(status, mFilename);
  checkRowCount(table, footerRowCount);
  ++mRowGroupIndex;
  return table;
}

std::shared_ptr<::arrow::Table> RowGroupParquetReader::readCheckedRowGroups(
    const std::vector<int>& indices) {
  checkDeclaredSizes(indices);
  std::shared_ptr<::arrow::Table> table;
  throwReadExceptIfNotOk(guarded([&] {
                           return common::compat::ReadRowGroups(
                               *mFileReader, indices, mSelectedVariables.parquetColumnIndices,
                               &table);
                         }),
                         mFilename);
  checkRowCount(table, footerRows(indices));
  return table;
}

std::vector<int> RowGroupParquetReader::listedIndices(const std::vector<double>& rowGroups) const {
  // Subtract in double, then truncate: unlike readNext, 0.5 becomes row group 0 here.
  std::vector<int> indices(rowGroups.size());
  std::transform(rowGroups.begin(), rowGroups.end(), indices.begin(),
                 [](double rowGroup) { return toArrowIndex(rowGroup, /*truncateFirst=*/false); });
  return indices;
}

matrix::unique_array RowGroupParquetReader::readRowGroups(std::vector<double> rowGroups) {
  VANTRO_PARQUET_TRACE();
  setupArrowThreadPool();
  if (!mFileReader) return toHostTable(nullptr);
  if (rowGroups.size() > 1) checkForRowGroupedNestedDictionary();
  const std::vector<int> indices = listedIndices(rowGroups);
  checkDeclaredSizes(indices);
  return readSelected(&indices, footerRows(indices));
}

std::shared_ptr<::arrow::Table> RowGroupParquetReader::readArrowRowGroups(
    std::vector<double> rowGroups) {
  VANTRO_PARQUET_TRACE();
  requireFile();
  setupArrowThreadPool();
  if (rowGroups.size() > 1) checkForRowGroupedNestedDictionary();
  return readCheckedRowGroups(listedIndices(rowGroups));
}

matrix::unique_array RowGroupParquetReader::readall() {
  VANTRO_PARQUET_TRACE();
  return readRowGroups(mRowGroups);
}

matrix::unique_array RowGroupParquetReader::readFullFile() {
  VANTRO_PARQUET_TRACE();
  setupArrowThreadPool();
  if (!mFileReader) return toHostTable(nullptr);
  checkForRowGroupedNestedDictionary();
  std::vector<int> allRowGroups(getMetadata().num_row_groups());
  std::iota(allRowGroups.begin(), allRowGroups.end(), 0);
  checkDeclaredSizes(allRowGroups);
  return readSelected(nullptr, footerRows(allRowGroups));
}

std::shared_ptr<::arrow::Table> RowGroupParquetReader::readArrowFullFile() {
  VANTRO_PARQUET_TRACE();
  requireFile();
  setupArrowThreadPool();
  checkForRowGroupedNestedDictionary();
  std::vector<int> allRowGroups(getMetadata().num_row_groups());
  std::iota(allRowGroups.begin(), allRowGroups.end(), 0);
  checkDeclaredSizes(allRowGroups);
  std::shared_ptr<::arrow::Table> table;
  throwReadExceptIfNotOk(guarded([&] {
                           return common::compat::ReadTable(
                               *mFileReader, mSelectedVariables.parquetColumnIndices, &table);
                         }),
                         mFilename);
  checkRowCount(table, footerRows(allRowGroups));
  return table;
}

RowGroupParquetReader::Batches RowGroupParquetReader::readArrowBatches(double rowGroup,
                                                                       int64_t batchSize) {
  VANTRO_PARQUET_TRACE();
  requireFile();
  setupArrowThreadPool();
  const int index = toArrowIndex(rowGroup, /*truncateFirst=*/false);
  checkDeclaredSizes({index});
  mFileReader->set_batch_size(std::max<int64_t>(1, batchSize));
  Batches batches;
  batches.mOwner = this;
  throwReadExceptIfNotOk(guarded([&] {
                           return common::compat::GetRecordBatchReader(
                               *mFileReader, {index}, mSelectedVariables.parquetColumnIndices,
                               &batches.mBatches);
                         }),
                         mFilename);
  return batches;
}

std::shared_ptr<::arrow::RecordBatch> RowGroupParquetReader::Batches::next() {
  std::shared_ptr<::arrow::RecordBatch> batch;
  if (!mBatches) return batch;
  throwReadExceptIfNotOk(mOwner->guarded([&] { return mBatches->ReadNext(&batch); }),
                         mOwner->mFilename);
  if (!batch) mBatches.reset();
  return batch;
}

matrix::unique_array RowGroupParquetReader::serialize() const {
  VANTRO_PARQUET_TRACE();
  matrix::unique_array state(vxCreateCellMatrix(1, 2));
  const size_t start = std::min<uint64_t>(mRowGroupIndex, mRowGroups.size());
  matrix::unique_array unread(vxCreateDoubleMatrix(mRowGroups.size() - start, 1, vxREAL));
  std::copy(mRowGroups.begin() + start, mRowGroups.end(), vxGetPr(unread.get()));
  vxReplaceCell(state.get(), 0, matrix::fromUString(mFilename).release());
  vxReplaceCell(state.get(), 1, unread.release());
  return state;
}

void RowGroupParquetReader::deserialize(const matrix::unique_array& state) {
  VANTRO_PARQUET_TRACE();
  if (!isReaderState(state.get())) {
    common::throwInvalidRead(mFilename,
                             u"The saved reader state must be a 1x2 cell holding a file name and "
                             u"a double matrix of row groups");
  }
  init(matrix::toUString(vxGetCell(state.get(), 0)));
  mRowGroups = realValues(vxGetCell(state.get(), 1));
}

}  // namespace vantro::io::parquet::core::read
