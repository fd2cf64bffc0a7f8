#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

#include <algorithm>
#include <cmath>
#include <exception>

#include <arrow/memory_pool.h>
#include <arrow/table.h>
#include <arrow/type.h>

#include "host/converter/Converter.hpp"
#include "host/converter/DictionaryChoice.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/SchemaLeafIndex.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::write {

namespace msg = VANTRO::parquetio::write;
namespace severity = foundation::log::severity;
using common::getLogger;
using common::throwException;
using common::throwWriteExceptIfNotOk;

namespace {

// Element count of a field of a host structure; a missing field counts as empty.
size_t fieldElementCount(const vxArray_tag* table, const char* name) {
  const vxArray_tag* field = vxGetField(table, 0, name);
  return field == nullptr ? 0 : vxGetNumberOfElements(field);
}

// A host row count: truncated toward zero; NaN counts as no rows.
int64_t toRowCount(double height) {
  if (std::isnan(height)) return 0;
  constexpr double kLimit = 9.2e18;
  return static_cast<int64_t>(std::clamp(height, -kLimit, kLimit));
}

template <class Tag>
void warn(const std::string& variableName) {
  const std::string identifier = common::messageIdentifier<Tag>();
  const char* arguments[] = {variableName.c_str()};
  vxWarningMsgId(identifier.c_str(), 1, arguments);
}

// Warns about a dictionary found below a nested top-level variable: at depth 1 it is the
// direct child (a list of dictionaries), deeper it sits inside further nesting.
void visitNestedField(const std::shared_ptr<::arrow::Field>& field, int depth,
                      const std::string& variableName) {
  const auto& type = field->type();
  if (depth >= 1 && type->id() == ::arrow::Type::DICTIONARY) {
    if (depth == 1) {
      warn<msg::RowGroupedListOfDictionaries>(variableName);
    } else {
      warn<msg::NestedRowGroupedListOfDictionaries>(variableName);
    }
    return;
  }
  if (common::isSupportedNestedType(type)) {
    for (const auto& child : type->fields()) visitNestedField(child, depth + 1, variableName);
  }
}

}  // namespace

ParquetWriter::ParquetWriter(const std::u16string& filename) {
  VANTRO_PARQUET_TRACE();
  mFile = common::makeWritableFilePtr(filename, virtualiostream::CleanupPolicy::removeUnfinished);
  getLogger().log(severity::kFile, " filename=", filename);
  mFilename = mFile->GetFilename();
}

ParquetWriter::~ParquetWriter() {
  VANTRO_PARQUET_TRACE();
  // Destroyed while an exception leaves the host's write (an interrupt, a failed conversion of
  // a later table): the rows so far are not the file the host asked for, so they are discarded
  // instead of finished into one.
  release(/*finish=*/std::uncaught_exceptions() <= mUncaughtExceptions);
}

ParquetWriter::ParquetWriter(ParquetWriter&& other) noexcept
    : mFilename(std::move(other.mFilename)),
      mOptions(std::move(other.mOptions)),
      mVersionSet(other.mVersionSet),
      mFile(std::move(other.mFile)),
      mSchema(std::move(other.mSchema)),
      mFileWriter(std::move(other.mFileWriter)),
      mUncaughtExceptions(other.mUncaughtExceptions) {
  VANTRO_PARQUET_TRACE();
}

ParquetWriter& ParquetWriter::operator=(ParquetWriter&& other) noexcept {
  VANTRO_PARQUET_TRACE();
  if (this != &other) {
    // The output being replaced is finished or removed, as if this writer were destroyed.
    release(/*finish=*/true);
    mFilename = std::move(other.mFilename);
    mOptions = std::move(other.mOptions);
    mVersionSet = other.mVersionSet;
    mFile = std::move(other.mFile);
    mSchema = std::move(other.mSchema);
    mFileWriter = std::move(other.mFileWriter);
    mUncaughtExceptions = other.mUncaughtExceptions;
  }
  return *this;
}

void ParquetWriter::release(bool finish) noexcept {
  try {
    if (finish) {
      close();
    } else {
      // Parquet's writer finishes itself on destruction, into the output about to be removed.
      mFileWriter.reset();
    }
  } catch (const std::exception& e) {
    getLogger().log(severity::kError, "Exception caught: ", e.what());
  } catch (...) {
    getLogger().log(severity::kError, "Exception caught: unknown exception");
  }
  // Still open: never written, or closing failed. Either way the output is unfinished.
  try {
    if (mFile) {
      mFile->Cleanup();
      mFile.reset();
    }
  } catch (const std::exception& e) {
    getLogger().log(severity::kError, "Exception caught: ", e.what());
  } catch (...) {
    getLogger().log(severity::kError, "Exception caught: unknown exception");
  }
}

const std::vector<std::u16string>& ParquetWriter::getVariableNames() const {
  VANTRO_PARQUET_TRACE();
  return mOptions.getVariableNames();
}

const std::vector<std::string>& ParquetWriter::getVariableCompression() const {
  VANTRO_PARQUET_TRACE();
  return mOptions.getVariableCompression();
}

const std::vector<std::string>& ParquetWriter::getVariableEncoding() const {
  VANTRO_PARQUET_TRACE();
  return mOptions.getVariableEncoding();
}

const std::string ParquetWriter::getVersion() const {
  VANTRO_PARQUET_TRACE();
  return mOptions.getVersion();
}

bool ParquetWriter::getStoreArrowSchema() const {
  VANTRO_PARQUET_TRACE();
  return mOptions.getStoreArrowSchema();
}

bool ParquetWriter::getUseCompliantNestedTypes() const {
  VANTRO_PARQUET_TRACE();
  return mOptions.getUseCompliantNestedTypes();
}

int64_t ParquetWriter::getMaxRowGroupLength() const {
  VANTRO_PARQUET_TRACE();
  return mOptions.getMaxRowGroupLength();
}

void ParquetWriter::setVariableNames(const std::vector<std::u16string>& names) {
  VANTRO_PARQUET_TRACE();
  require(mOptions.getVariableNames().empty(), "VariableNames cannot be modified.");
  mOptions.setVariableNames(names);
}

void ParquetWriter::setVariableCompression(const std::vector<std::string>& compression) {
  VANTRO_PARQUET_TRACE();
  require(mOptions.getVariableCompression().empty(), "VariableCompression cannot be modified.");
  mOptions.setVariableCompression(compression);
}

void ParquetWriter::setVariableEncoding(const std::vector<std::string>& encoding) {
  VANTRO_PARQUET_TRACE();
  require(mOptions.getVariableEncoding().empty(), "VariableEncoding cannot be modified.");
  mOptions.setVariableEncoding(encoding);
}

void ParquetWriter::setVersion(const std::string& version) {
  VANTRO_PARQUET_TRACE();
  require(!mVersionSet, "Version cannot be modified.");
  // A rejected text leaves the version open for another attempt.
  mOptions.setVersion(version);
  mVersionSet = true;
}

void ParquetWriter::setStoreArrowSchema(bool store) {
  VANTRO_PARQUET_TRACE();
  mOptions.setStoreArrowSchema(store);
}

void ParquetWriter::setUseCompliantNestedTypes(bool compliant) {
  VANTRO_PARQUET_TRACE();
  mOptions.setUseCompliantNestedTypes(compliant);
}

void ParquetWriter::setMaxRowGroupLength(int64_t length) {
  VANTRO_PARQUET_TRACE();
  mOptions.setMaxRowGroupLength(length);
}

void ParquetWriter::setCompressionLevel(int level) {
  VANTRO_PARQUET_TRACE();
  mOptions.setCompressionLevel(level);
}

void ParquetWriter::setLeafColumnPaths(std::vector<uint64_t> offsets,
                                       std::vector<std::u16string> paths) {
  VANTRO_PARQUET_TRACE();
  mOptions.setLeafColumnPaths(makeLeafColumnPaths(std::move(offsets), std::move(paths)));
}

void ParquetWriter::require(bool condition, const std::string& message) const {
  VANTRO_PARQUET_TRACE();
  if (!condition) throwWriteExceptIfNotOk(::arrow::Status::Invalid(message), mFilename);
}

// The Arrow table borrows the host table's fixed-width values: write() and writeRowGroups()
// use it only while the host table they were given is alive, and keep none of it.
std::shared_ptr<::arrow::Table> ParquetWriter::buildArrowTable(const vxArray_tag* table) {
  auto result = vantro::io::arrow::core::to_arrow_table_view(table);
  throwWriteExceptIfNotOk(result.status(), mFilename);
  return std::move(result).ValueUnsafe();
}

void ParquetWriter::validateWriteDimensons(const vxArray_tag* table) {
  const int64_t numNames = static_cast<int64_t>(mOptions.getVariableNames().size());
  const vxClassID classID = vxGetClassID(table);
  if (classID != vxSTRUCT_CLASS && classID != vxOBJECT_CLASS) {
    throwException<msg::InvalidWriteVars>(numNames);
  }
  const size_t numColumns = fieldElementCount(table, "Columns");
  const size_t numTableNames = fieldElementCount(table, "Names");
  if (numColumns == 0) {
    throwException<msg::InvalidZeroVars>();
  }
  if (numTableNames != numColumns || static_cast<int64_t>(numTableNames) != numNames) {
    throwException<msg::InvalidWriteVars>(numNames);
  }
}

namespace {

// Where the host asks for it and names no encodings, the first table written decides which
// columns skip the dictionary that cannot pay for itself.
void chooseDictionaries(ParquetWriterOptions& options, const ::arrow::Table& first) {
  if (!foundation::services::getChooseDictionaryPerColumn()) return;
  if (!options.getVariableEncoding().empty()) return;
  options.setColumnsWithoutDictionary(
      vantro::io::arrow::core::ColumnsWithoutDictionaryProfit(first));
}

}  // namespace

void ParquetWriter::openFileWriter(const std::shared_ptr<::arrow::Schema>& schema) {
  const auto arrowProperties = mOptions.buildArrowWriterProperties();
  const auto properties = mOptions.buildWriterProperties();
  auto opened = ::parquet::arrow::FileWriter::Open(*schema, ::arrow::default_memory_pool(), mFile,
                                                   properties, arrowProperties);
  throwWriteExceptIfNotOk(opened.status(), mFilename);
  mFileWriter = std::move(opened).ValueUnsafe();
}

void ParquetWriter::validateSchema(const std::shared_ptr<::arrow::Schema>& schema,
                                   bool rowGrouped) {
  if (mSchema) {
    require(mSchema->Equals(*schema, /*check_metadata=*/false), "Inconsistent Schema");
    return;
  }
  // Recorded before the file writer is opened: if opening fails, this writer stays finished
  // (a schema but no file writer) and the host discards it.
  mSchema = schema;
  openFileWriter(schema);
  checkForNestedDictionary(rowGrouped);
}

void ParquetWriter::checkForNestedDictionary(bool rowGrouped) const {
  if (!rowGrouped || !mSchema) return;
  for (const auto& variable : mSchema->fields()) {
    if (!common::isSupportedNestedType(variable->type())) continue;
    for (const auto& child : variable->type()->fields()) {
      visitNestedField(child, 1, variable->name());
    }
  }
}

std::shared_ptr<::arrow::Table> ParquetWriter::checkedArrowTable(const vxArray_tag* table) {
  // A schema without a file writer means the first write failed to open the file: that
  // writer is finished, like a closed one.
  require(mFile != nullptr && (mFileWriter != nullptr || mSchema == nullptr),
          "Writer already closed");
  validateWriteDimensons(table);
  return buildArrowTable(table);
}

void ParquetWriter::writeChunk(const ::arrow::Table& table, int64_t chunkSize) {
  const ::arrow::Status status = mFileWriter->WriteTable(table, chunkSize);
  if (!status.ok()) {
    // Parquet's writer has closed itself without a footer, so the output cannot be finished.
    // Release it while the file is still open (its destructor writes to the file); with no
    // file writer left, the output is removed when this writer goes.
    mFileWriter.reset();
  }
  throwWriteExceptIfNotOk(status, mFilename);
}

void ParquetWriter::write(const vxArray_tag* table) {
  VANTRO_PARQUET_TRACE();
  const auto arrowTable = checkedArrowTable(table);
  if (!mSchema) chooseDictionaries(mOptions, *arrowTable);
  validateSchema(arrowTable->schema(), /*rowGrouped=*/false);
  // One chunk of the whole table: Parquet caps row groups at the maximum row-group length.
  writeChunk(*arrowTable, arrowTable->num_rows());
}

void ParquetWriter::writeRowGroups(const vxArray_tag* table, const vxArray_tag* rowGroupHeights) {
  VANTRO_PARQUET_TRACE();
  const auto arrowTable = checkedArrowTable(table);
  // Heights of another class would read as no heights at all and silently write nothing.
  require(rowGroupHeights != nullptr && vxGetClassID(rowGroupHeights) == vxDOUBLE_CLASS,
          "RowGroupHeights must be a double array");
  if (!mSchema) chooseDictionaries(mOptions, *arrowTable);
  validateSchema(arrowTable->schema(), /*rowGrouped=*/true);

  const double* heights = vxGetPr(rowGroupHeights);
  const size_t numHeights = heights == nullptr ? 0 : vxGetNumberOfElements(rowGroupHeights);
  std::vector<int64_t> rowCounts(numHeights);
  std::transform(heights, heights + numHeights, rowCounts.begin(), toRowCount);
  writeSlices(arrowTable, rowCounts);
}

void ParquetWriter::writeSlices(const std::shared_ptr<::arrow::Table>& table,
                                const std::vector<int64_t>& rowGroupHeights) {
  const int64_t numRows = table->num_rows();
  int64_t offset = 0;
  for (const int64_t height : rowGroupHeights) {
    // Arrow aborts on a slice that starts outside the table; such a slice is simply empty.
    // Keeping the running offset inside the table also keeps the sum of extreme heights from
    // overflowing.
    const auto slice = table->Slice(offset, height);
    writeChunk(*slice, height);
    offset = std::clamp<int64_t>(offset + height, 0, numRows);
  }
}

std::shared_ptr<::arrow::Table> ParquetWriter::checkedArrowTable(
    const std::shared_ptr<::arrow::Table>& table) {
  require(mFile != nullptr && (mFileWriter != nullptr || mSchema == nullptr),
          "Writer already closed");
  const auto& names = mOptions.getVariableNames();
  if (table == nullptr || table->num_columns() == 0) throwException<msg::InvalidZeroVars>();
  if (static_cast<size_t>(table->num_columns()) != names.size()) {
    throwException<msg::InvalidWriteVars>(static_cast<int64_t>(names.size()));
  }
  std::vector<std::shared_ptr<::arrow::Field>> fields;
  for (int i = 0; i < table->num_columns(); ++i) {
    fields.push_back(table->field(i)->WithName(foundation::unicode::ustring_to_utf8(names[i])));
  }
  return ::arrow::Table::Make(::arrow::schema(std::move(fields), table->schema()->metadata()),
                              table->columns(), table->num_rows());
}

void ParquetWriter::writeArrow(const std::shared_ptr<::arrow::Table>& table) {
  VANTRO_PARQUET_TRACE();
  const auto arrowTable = checkedArrowTable(table);
  if (!mSchema) chooseDictionaries(mOptions, *arrowTable);
  validateSchema(arrowTable->schema(), /*rowGrouped=*/false);
  writeChunk(*arrowTable, std::max<int64_t>(1, arrowTable->num_rows()));
}

void ParquetWriter::writeArrowRowGroups(const std::shared_ptr<::arrow::Table>& table,
                                        const std::vector<int64_t>& rowGroupHeights) {
  VANTRO_PARQUET_TRACE();
  const auto arrowTable = checkedArrowTable(table);
  if (!mSchema) chooseDictionaries(mOptions, *arrowTable);
  validateSchema(arrowTable->schema(), /*rowGrouped=*/true);
  writeSlices(arrowTable, rowGroupHeights);
}

void ParquetWriter::close() {
  VANTRO_PARQUET_TRACE();
  if (!mFile) return;
  // A schema without a file writer: a write failed after the file was begun. Its rows cannot
  // be finished into a file; the output is discarded and whatever was at the name stays.
  require(mFileWriter != nullptr || mSchema == nullptr,
          "File not finished: an earlier write failed, so nothing was written");
  if (!mFileWriter) return;
  // One Close finishes Parquet's writer, failed or not: used again, it would touch row-group
  // writers it has already released. Without it, this writer counts as finished.
  const ::arrow::Status closed = mFileWriter->Close();
  mFileWriter.reset();
  throwWriteExceptIfNotOk(closed, mFilename);
  throwWriteExceptIfNotOk(mFile->Close(), mFilename);
  throwWriteExceptIfNotOk(mFile->Commit(), mFilename);
  mFile.reset();
}

}  // namespace vantro::io::parquet::core::write
