#include "toolbox/vantro/io/parquet/core/read/ParquetReader.hpp"

#include <algorithm>
#include <atomic>
#include <deque>
#include <exception>
#include <new>
#include <numeric>
#include <optional>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>

#include <arrow/memory_pool.h>
#include <arrow/table.h>
#include <arrow/type.h>
#include <arrow/util/thread_pool.h>
#include <parquet/exception.h>
#include <parquet/file_reader.h>
#include <parquet/schema.h>

#include "host/converter/Converter.hpp"
#include "host/converter/HostValues.hpp"
#include "host/converter/ParallelFor.hpp"
#include "host/services/Services.hpp"
#include "host/services/Threads.hpp"
#include "host/unicode/ustring.hpp"
#include "host/vfs/AbsoluteIRI.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/EncryptedFiles.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/common/SchemaLeafIndex.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupGeometry.hpp"
#include "toolbox/vantro/io/parquet/core/info/TypeDescriptions.hpp"
#include "toolbox/vantro/io/parquet/core/read/DeclaredSizes.hpp"

namespace vantro::io::parquet::core::read {

namespace msg = VANTRO::parquetio::read;
namespace severity = foundation::log::severity;
using common::getLogger;
using common::throwReadExceptIfNotOk;
using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;

namespace {

// Hadoop's client cannot serve concurrent column reads of one file. The scheme is compared
// exactly: other spellings go through their provider like any other scheme.
bool isHadoopIRI(const std::u16string& filename) {
  try {
    return vfs::AbsoluteIRI(filename).getScheme() == u"hdfs";
  } catch (const std::exception& e) {
    getLogger().log(severity::kError, "Exception caught: ", e.what());
  } catch (...) {
    getLogger().log(severity::kError, "Exception caught: unknown exception");
  }
  return false;
}

const ::parquet::schema::GroupNode& rootNode(const ::parquet::arrow::SchemaManifest& manifest) {
  return *manifest.descr->group_node();
}

bool isNestedTypeId(::arrow::Type::type id) {
  switch (id) {
    case ::arrow::Type::LIST:
    case ::arrow::Type::STRUCT:
    case ::arrow::Type::SPARSE_UNION:
    case ::arrow::Type::DENSE_UNION:
    case ::arrow::Type::MAP:
    case ::arrow::Type::FIXED_SIZE_LIST:
    case ::arrow::Type::LARGE_LIST:
      return true;
    default:
      return false;
  }
}

std::atomic<bool> gReadVariableByVariable{true};

// Opens Parquet's Arrow reader over file, without pre-buffering: variables are read by
// concurrent read calls, and pre-buffering keeps one cache of byte ranges per file that such
// calls race on (newer releases turn it on by default).
::arrow::Status openFileReader(std::shared_ptr<::arrow::io::RandomAccessFile> file,
                               std::unique_ptr<::parquet::arrow::FileReader>* reader) {
  ::parquet::arrow::FileReaderBuilder builder;
  ARROW_RETURN_NOT_OK(builder.Open(std::move(file)));
  ::parquet::ArrowReaderProperties properties;
  properties.set_pre_buffer(false);
  return builder.memory_pool(foundation::services::getArrowReadPool())
      ->properties(properties)
      ->Build(reader);
}

// Raises a failed conversion as the host sees it: a type the host cannot hold names its
// variable, anything else is a read error of the file.
[[noreturn]] void throwConversionFailure(const ::arrow::Status& status,
                                         const std::u16string& filename) {
  if (status.code() == ::arrow::StatusCode::TypeError) {
    const auto* detail = dynamic_cast<const ::vantro::io::arrow::core::TableErrorStatusDetail*>(
        status.detail().get());
    if (detail != nullptr)
      common::throwInternalUnsupportedParquetTypeException(detail->column_name());
  }
  throwReadExceptIfNotOk(status, filename);
  common::throwInvalidRead(filename, u"The conversion failed without a reason");
}

// The one column of a converted one-variable host table, taken out of it.
matrix::unique_array takeOnlyColumn(matrix::unique_array table) {
  vxArray* columns = vxGetField(table.get(), 0, ::vantro::io::arrow::core::host::kColumns);
  matrix::unique_array column(vxGetCell(columns, 0));
  vxSetCell(columns, 0, nullptr);
  return column;
}

uint64_t declaredBytes(const ::parquet::FileMetaData& metadata, const std::vector<int>& rowGroups,
                       const std::vector<int>& leaves) {
  uint64_t bytes = 0;
  for (int rowGroup : rowGroups) {
    if (rowGroup < 0 || rowGroup >= metadata.num_row_groups()) continue;
    const auto group = metadata.RowGroup(rowGroup);
    for (int leaf : leaves) {
      if (leaf < group->num_columns()) {
        bytes += static_cast<uint64_t>(
            std::max<int64_t>(0, group->ColumnChunk(leaf)->total_uncompressed_size()));
      }
    }
  }
  return bytes;
}

// What reading and converting one variable gave.
struct VariableRead {
  std::exception_ptr exception;  // thrown while reading
  ::arrow::Status readStatus;
  std::optional<int64_t> rows;  // read, when they differ from the footer's
  ::arrow::Status conversionStatus;
  matrix::unique_array column;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// SelectedVariables

::arrow::Status ParquetReader::SelectedVariables::setArrowFieldIndices(
    const std::vector<std::u16string>& names) {
  // A queue per name, so that a name asked twice takes the file's next field of that name.
  const auto& root = rootNode(*manifest);
  std::unordered_map<std::string, std::deque<int32_t>> fieldsByName;
  for (int i = 0; i < root.field_count(); ++i) {
    fieldsByName[root.field(i)->name()].push_back(i);
  }

  std::vector<int32_t> selected;
  selected.reserve(names.size());
  for (const auto& name : names) {
    auto found = fieldsByName.find(ustring_to_utf8(name));
    if (found == fieldsByName.end() || found->second.empty()) continue;
    selected.push_back(found->second.front());
    found->second.pop_front();
  }
  arrowFieldIndices = std::move(selected);
  return ::arrow::Status::OK();
}

::arrow::Status ParquetReader::SelectedVariables::setParquetColumnIndices() {
  std::vector<int32_t> columns;
  for (int32_t field : arrowFieldIndices) {
    auto leaves = common::schema_field_to_all_leaf_indices(manifest->schema_fields[field]);
    if (!leaves) return ::arrow::Status::Invalid("Corrupt SchemaManifest");
    columns.insert(columns.end(), leaves->begin(), leaves->end());
  }
  parquetColumnIndices = std::move(columns);
  return ::arrow::Status::OK();
}

std::vector<std::u16string> ParquetReader::SelectedVariables::getSelectedVariableNames() const {
  std::vector<std::u16string> names;
  names.reserve(arrowFieldIndices.size());
  for (int32_t field : arrowFieldIndices) {
    names.push_back(utf8_to_ustring(rootNode(*manifest).field(field)->name()));
  }
  return names;
}

// ---------------------------------------------------------------------------------------------
// ParquetReader

ParquetReader::ParquetReader() { VANTRO_PARQUET_TRACE(); }

ParquetReader::ParquetReader(const std::u16string& filename) {
  VANTRO_PARQUET_TRACE();
  getLogger().log(severity::kFile, " filename=", filename);
  init(filename);
}

ParquetReader::~ParquetReader() { VANTRO_PARQUET_TRACE(); }

// The manifest lives inside the Arrow reader on the heap, so its address survives the move.
ParquetReader::ParquetReader(ParquetReader&& other) noexcept
    : mFilename(std::move(other.mFilename)),
      mFile(std::move(other.mFile)),
      mFileReader(std::move(other.mFileReader)),
      mSelectedVariables(std::move(other.mSelectedVariables)) {
  VANTRO_PARQUET_TRACE();
  other.mSelectedVariables = SelectedVariables{};
}

ParquetReader& ParquetReader::operator=(ParquetReader&& other) noexcept {
  VANTRO_PARQUET_TRACE();
  if (this != &other) {
    mFilename = std::move(other.mFilename);
    mFile = std::move(other.mFile);
    mFileReader = std::move(other.mFileReader);
    mSelectedVariables = std::move(other.mSelectedVariables);
    other.mSelectedVariables = SelectedVariables{};
  }
  return *this;
}

void ParquetReader::init(const std::u16string& filename) {
  VANTRO_PARQUET_TRACE();
  getLogger().log(severity::kFile, " filename=", filename);
  auto file = common::makeReadableFilePtr(filename);
  mFilename = file->GetFilename();
  mFile = file;

  const ::arrow::Status opened = guarded([&] { return openFileReader(file, &mFileReader); });
  common::throwIfEncrypted(opened, *file, mFileReader.get(), mFilename);
  throwReadExceptIfNotOk(opened, mFilename);

  // Every variable is selected until the host narrows the selection.
  mSelectedVariables.manifest = &mFileReader->manifest();
  mSelectedVariables.arrowFieldIndices.resize(mSelectedVariables.manifest->schema_fields.size());
  std::iota(mSelectedVariables.arrowFieldIndices.begin(),
            mSelectedVariables.arrowFieldIndices.end(), 0);
  throwReadExceptIfNotOk(mSelectedVariables.setParquetColumnIndices(), mFilename);
}

matrix::unique_array ParquetReader::read() {
  VANTRO_PARQUET_TRACE();
  if (!hasdata()) common::throwInvalidRead(mFilename, u"No more data");
  setupArrowThreadPool();
  return toHostTable(readNext());
}

void ParquetReader::setSelectedVariableNames(const std::vector<std::u16string>& names) {
  VANTRO_PARQUET_TRACE();
  if (!mFileReader) return;
  ::arrow::Status status = mSelectedVariables.setArrowFieldIndices(names);
  if (status.ok()) status = mSelectedVariables.setParquetColumnIndices();
  throwReadExceptIfNotOk(status, mFilename);
}

std::vector<std::u16string> ParquetReader::getSelectedVariableNames() const {
  VANTRO_PARQUET_TRACE();
  return mSelectedVariables.getSelectedVariableNames();
}

const std::u16string& ParquetReader::getFilename() const {
  VANTRO_PARQUET_TRACE();
  return mFilename;
}

double ParquetReader::getTotalNumRowGroups() const {
  VANTRO_PARQUET_TRACE();
  return static_cast<double>(getMetadata().num_row_groups());
}

std::vector<std::u16string> ParquetReader::getVariableNames() const {
  VANTRO_PARQUET_TRACE();
  return info::getVariableNames(getSchema());
}

std::vector<std::string> ParquetReader::getVariableTypes() const {
  VANTRO_PARQUET_TRACE();
  return info::getVariableTypes(getSchema());
}

const std::vector<uint64_t> ParquetReader::getRowGroupHeights() const {
  VANTRO_PARQUET_TRACE();
  return info::getRowGroupHeights(getMetadata());
}

const std::vector<uint64_t> ParquetReader::getRowGroupOffsets() const {
  VANTRO_PARQUET_TRACE();
  return info::getRowGroupOffsets(getMetadata());
}

Statistics ParquetReader::getStatistics(const std::vector<int>& variableIndices) {
  VANTRO_PARQUET_TRACE();
  requireFile();
  return read_statistics(mFileReader->parquet_reader()->metadata(), getSchema(),
                         *mSelectedVariables.manifest, variableIndices);
}

const ::parquet::FileMetaData& ParquetReader::getMetadata() const {
  VANTRO_PARQUET_TRACE();
  requireFile();
  return *mFileReader->parquet_reader()->metadata();
}

std::shared_ptr<::arrow::Schema> ParquetReader::getSchema() const {
  requireFile();
  std::shared_ptr<::arrow::Schema> schema;
  throwReadExceptIfNotOk(mFileReader->GetSchema(&schema), mFilename);
  return schema;
}

void ParquetReader::setupArrowThreadPool() {
  VANTRO_PARQUET_TRACE();
  if (isHadoopIRI(mFilename)) {
    getLogger().log(severity::kConfig,
                    "Disabling Arrow thread pool since multi-threaded column reads are not "
                    "currently supported for Hadoop IRIs");
    mArrowThreads = false;
    if (mFileReader) mFileReader->set_use_threads(false);
    return;
  }
  const int64_t numThreads = foundation::services::getNumComputationalThreads();
  getLogger().log(severity::kConfig, "numThreads = ", numThreads);
  const int wanted = static_cast<int>(std::clamp<int64_t>(numThreads, 1, 4096));
  // A thread that fails to start inside Arrow's pool leaves the pool waiting for it for ever
  // (a hang at exit), so the threads are tried first, before every read since limits change.
  // A read with n threads needs n pool workers, n - 1 workers for the conversion and one I/O
  // thread; fewer to be had: n shrinks to fit, and at 1 the read runs on this thread alone.
  const int64_t extra = foundation::services::countStartableThreads(2 * int64_t{wanted} + 1) - 1;
  const int startable = static_cast<int>(std::clamp<int64_t>(extra / 2, 1, wanted));
  foundation::services::setLastStartableThreads(startable < wanted ? startable : 0);
  if (startable < wanted) {
    getLogger().log(severity::kConfig, "only ", startable, " of ", wanted, " threads can start");
  }
  mArrowThreads = startable > 1;
  if (!mArrowThreads) {
    if (mFileReader) mFileReader->set_use_threads(false);
    return;
  }
  throwReadExceptIfNotOk(::arrow::SetCpuThreadPoolCapacity(startable), mFilename);
  if (mFileReader) mFileReader->set_use_threads(true);
}

void ParquetReader::checkForRowGroupedNestedDictionary() const {
  VANTRO_PARQUET_TRACE();
  if (getMetadata().num_row_groups() <= 1) return;
  const auto schema = getSchema();
  for (int32_t index : mSelectedVariables.arrowFieldIndices) {
    const auto& field = schema->field(index);
    throwIfNestedDictionary(field, 0, field->name(), index);
  }
}

void ParquetReader::throwIfNestedDictionary(const std::shared_ptr<::arrow::Field>& field,
                                            uint64_t depth, const std::string& variableName,
                                            int variableIndex) const {
  VANTRO_PARQUET_TRACE();
  const auto& type = field->type();
  if (depth != 0 && type->id() == ::arrow::Type::DICTIONARY) {
    common::throwException<msg::DictionaryInNestedStructure>(variableName);
  }
  if (isNestedTypeId(type->id()) && !common::isSupportedNestedType(type)) {
    common::throwInternalUnsupportedParquetTypeException(variableName);
  }
  for (const auto& child : type->fields()) {
    throwIfNestedDictionary(child, depth + 1, variableName, variableIndex);
  }
}

void ParquetReader::requireFile() const {
  if (!mFileReader) {
    common::throwInvalidRead(mFilename,
                             u"No file is open: the reader was never initialised, or "
                             u"restoring its saved state failed");
  }
}

void ParquetReader::checkDeclaredSizes(const std::vector<int>& rowGroups) const {
  // The chunk metadata is decoded here for the first time: an encrypted or damaged one makes
  // Parquet throw.
  throwReadExceptIfNotOk(guarded([&] {
                           return checkDeclaredChunkSizes(
                               getMetadata(), rowGroups, mSelectedVariables.parquetColumnIndices,
                               foundation::services::getMaxColumnChunkBytes());
                         }),
                         mFilename);
  throwReadExceptIfNotOk(guarded([&] {
                           return checkNestedChunkSizes(getMetadata(), *mSelectedVariables.manifest,
                                                        mSelectedVariables.arrowFieldIndices,
                                                        rowGroups);
                         }),
                         mFilename);
  if (mFile) {
    throwReadExceptIfNotOk(guarded([&] {
                             return checkPageSizes(*mFile, getMetadata(), rowGroups,
                                                   mSelectedVariables.parquetColumnIndices);
                           }),
                           mFilename);
  }
}

int64_t ParquetReader::footerRows(const std::vector<int>& rowGroups) const {
  const auto& metadata = getMetadata();
  int64_t rows = 0;
  for (const int rowGroup : rowGroups) {
    if (rowGroup >= 0 && rowGroup < metadata.num_row_groups()) {
      rows += metadata.RowGroup(rowGroup)->num_rows();
    }
  }
  return rows;
}

void ParquetReader::checkRowCount(const std::shared_ptr<::arrow::Table>& table,
                                  int64_t footerRows) const {
  // Some corrupt pages make Arrow return fewer rows than the footer promises, without an error.
  // A table without columns carries no rows of its own to compare.
  if (table && table->num_columns() > 0 && table->num_rows() != footerRows) {
    common::throwInvalidRead(
        mFilename, utf8_to_ustring("The data holds " + std::to_string(table->num_rows()) +
                                   " rows where the footer declares " + std::to_string(footerRows) +
                                   "; the file is corrupt"));
  }
}

matrix::unique_array ParquetReader::toHostTable(std::shared_ptr<::arrow::Table>&& table) const {
  // The table is handed over: each column is freed once converted, and fixed-width columns
  // lend their buffers to the host table instead of being copied. Arrow's parallel read may
  // still hold its finished column list for a moment; nobody reads it again, hence from_read.
  auto result = ::vantro::io::arrow::core::to_vantro_from_read(std::move(table));
  if (!result.ok()) throwConversionFailure(result.status(), mFilename);
  return std::move(result).ValueOrDie();
}

void ParquetReader::setReadVariableByVariable(bool enabled) { gReadVariableByVariable = enabled; }

bool ParquetReader::getReadVariableByVariable() { return gReadVariableByVariable; }

matrix::unique_array ParquetReader::readSelected(const std::vector<int>* rowGroups,
                                                 int64_t footerRows) {
  // Hadoop's client cannot serve concurrent reads of one file; a selection without variables
  // has no variable to go by.
  if (!gReadVariableByVariable || mSelectedVariables.arrowFieldIndices.empty() ||
      isHadoopIRI(mFilename)) {
    return readTableThenConvert(rowGroups, footerRows);
  }
  return readVariableByVariable(rowGroups, footerRows);
}

matrix::unique_array ParquetReader::readTableThenConvert(const std::vector<int>* rowGroups,
                                                         int64_t footerRows) {
  const auto& columns = mSelectedVariables.parquetColumnIndices;
  std::shared_ptr<::arrow::Table> table;
  throwReadExceptIfNotOk(
      guarded([&] {
        return rowGroups ? common::compat::ReadRowGroups(*mFileReader, *rowGroups, columns, &table)
                         : common::compat::ReadTable(*mFileReader, columns, &table);
      }),
      mFilename);
  checkRowCount(table, footerRows);
  return toHostTable(std::move(table));
}

// Each of the host's threads takes a variable, largest first, decodes it and converts it at
// once, then takes the next: decoding and conversion overlap, and Arrow holds at most one
// variable per thread while the host table fills. Failures are raised as a read of the whole
// table raises them: read errors before row counts before conversions, the first variable's
// first.
matrix::unique_array ParquetReader::readVariableByVariable(const std::vector<int>* rowGroups,
                                                           int64_t footerRows) {
  const auto schema = getSchema();
  const auto& fields = mSelectedVariables.arrowFieldIndices;
  std::vector<std::string> names;
  std::vector<std::vector<int>> leaves;
  std::vector<uint64_t> bytes;
  std::vector<int> everyRowGroup(getMetadata().num_row_groups());
  std::iota(everyRowGroup.begin(), everyRowGroup.end(), 0);
  for (int32_t field : fields) {
    const auto& arrowField = schema->field(field);
    if (!::vantro::io::arrow::core::to_vantro_datatype(arrowField->type())) {
      common::throwInternalUnsupportedParquetTypeException(arrowField->name());
    }
    names.push_back(arrowField->name());
    auto fieldLeaves =
        common::schema_field_to_all_leaf_indices(mSelectedVariables.manifest->schema_fields[field]);
    if (!fieldLeaves)
      throwReadExceptIfNotOk(::arrow::Status::Invalid("Corrupt SchemaManifest"), mFilename);
    leaves.emplace_back(fieldLeaves->begin(), fieldLeaves->end());
    bytes.push_back(
        declaredBytes(getMetadata(), rowGroups ? *rowGroups : everyRowGroup, leaves.back()));
  }
  std::vector<size_t> order(fields.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return bytes[a] > bytes[b]; });

  std::vector<VariableRead> reads(fields.size());
  // One variable per thread: Arrow's own pool would only add hand-offs.
  mFileReader->set_use_threads(false);
  ::vantro::io::arrow::core::ParallelFor(order.size(), [&](size_t k) {
    VariableRead& read = reads[order[k]];
    const auto& columns = leaves[order[k]];
    std::shared_ptr<::arrow::Table> table;
    try {
      read.readStatus = guarded([&] {
        return rowGroups ? common::compat::ReadRowGroups(*mFileReader, *rowGroups, columns, &table)
                         : common::compat::ReadTable(*mFileReader, columns, &table);
      });
    } catch (...) {
      read.exception = std::current_exception();
      return;
    }
    if (!read.readStatus.ok()) return;
    if (table->num_rows() != footerRows) {
      read.rows = table->num_rows();
      return;
    }
    auto converted = ::vantro::io::arrow::core::to_vantro_from_read(std::move(table));
    if (converted.ok()) {
      read.column = takeOnlyColumn(std::move(converted).ValueUnsafe());
    } else {
      read.conversionStatus = converted.status();
    }
  });
  mFileReader->set_use_threads(mArrowThreads);

  for (auto& read : reads) {
    if (read.exception) std::rethrow_exception(read.exception);
    throwReadExceptIfNotOk(read.readStatus, mFilename);
  }
  for (const auto& read : reads) {
    if (read.rows) {
      common::throwInvalidRead(
          mFilename, utf8_to_ustring("The data holds " + std::to_string(*read.rows) +
                                     " rows where the footer declares " +
                                     std::to_string(footerRows) + "; the file is corrupt"));
    }
  }
  std::vector<matrix::unique_array> columns;
  for (auto& read : reads) {
    if (!read.conversionStatus.ok()) throwConversionFailure(read.conversionStatus, mFilename);
    columns.push_back(std::move(read.column));
  }
  auto table = ::vantro::io::arrow::core::host::MakeTable(names, std::move(columns));
  if (!table.ok()) throwConversionFailure(table.status(), mFilename);
  return std::move(table).ValueUnsafe();
}

::arrow::Status ParquetReader::guarded(const std::function<::arrow::Status()>& call) const {
  try {
    return call();
  } catch (const ::parquet::ParquetException& e) {
    // Parquet reports some footer and page faults by exception rather than by status.
    getLogger().log(severity::kError, "Exception caught: ", e.what());
    common::throwReaderLoadException(ustring_to_utf8(mFilename), e.what());
  } catch (const std::system_error& e) {
    // A thread that Arrow could not start, from inside its pool.
    getLogger().log(severity::kError, "Exception caught: ", e.what());
    common::throwInvalidRead(mFilename, utf8_to_ustring(e.what()));
  } catch (const std::bad_alloc& e) {
    getLogger().log(severity::kError, "Exception caught: ", e.what());
    common::throwInvalidRead(mFilename, u"Out of memory while reading");
  }
}

}  // namespace vantro::io::parquet::core::read
