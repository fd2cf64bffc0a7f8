#include "toolbox/vantro/io/parquet/core/dataset/DatasetWriter.hpp"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <random>
#include <set>
#include <system_error>
#include <unordered_map>

#include <arrow/array.h>
#include <arrow/buffer.h>
#include <arrow/compute/api_vector.h>
#include <arrow/datum.h>
#include <arrow/table.h>
#include <arrow/type.h>

#include "host/converter/Converter.hpp"
#include "host/converter/Display.hpp"
#include "host/services/Interrupts.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Errors.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Partitioning.hpp"

namespace vantro::io::parquet::core::dataset {

namespace {

namespace fs = std::filesystem;
using foundation::unicode::utf8_to_ustring;
using Text = std::optional<std::string>;  // nothing: missing

// The longest file or folder name the local file systems take, in bytes.
constexpr size_t kMaxNameBytes = 255;
// Doubles hold every integer up to 2^53 exactly; beyond, a whole value may not be the one meant.
constexpr double kLargestExactDouble = 9007199254740992.0;

void pollInterrupt() {
  if (utIsSignalThread() != 0) utInterruptState::ThrowIfInterruptPending();
}

bool isHidden(const std::string& name) {
  return !name.empty() && (name[0] == '_' || name[0] == '.');
}

bool isIRI(const std::string& text) {
  return text.find("://") != std::string::npos || text.rfind("file:", 0) == 0;
}

std::string nameList(const std::vector<std::string>& names) {
  std::string text;
  for (const auto& name : names) text += (text.empty() ? "'" : ", '") + name + "'";
  return text.empty() ? "no variable" : text;
}

// ---- Partition values as folder text

// Types whose values have a folder text that reads back as the same value.
bool hasFolderText(const ::arrow::DataType& type) {
  switch (type.id()) {
    case ::arrow::Type::INT8:
    case ::arrow::Type::INT16:
    case ::arrow::Type::INT32:
    case ::arrow::Type::INT64:
    case ::arrow::Type::UINT8:
    case ::arrow::Type::UINT16:
    case ::arrow::Type::UINT32:
    case ::arrow::Type::UINT64:
    case ::arrow::Type::FLOAT:
    case ::arrow::Type::DOUBLE:
    case ::arrow::Type::BOOL:
    case ::arrow::Type::STRING:
    case ::arrow::Type::LARGE_STRING:
    case ::arrow::Type::DATE32:
      return true;
    case ::arrow::Type::DICTIONARY:
      return hasFolderText(*static_cast<const ::arrow::DictionaryType&>(type).value_type());
    default:
      return false;
  }
}

[[noreturn]] void unwritable(const std::string& name, const std::string& value,
                             const std::string& reason) {
  common::throwException<msg::UnwritablePartitionValue>(name, value, reason);
}

std::string wholeNumberText(double value, const std::string& name) {
  if (std::isnan(value)) unwritable(name, "NaN", "only missing values and whole numbers do");
  if (value != std::trunc(value) || std::fabs(value) > kLargestExactDouble) {
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    unwritable(name, text, "floating-point values are written only as whole numbers up to 2^53");
  }
  return std::to_string(static_cast<int64_t>(value));
}

// "YYYY-MM-DD" (proleptic Gregorian), the form a reader takes for a date.
std::string dateText(int32_t days, const std::string& name) {
  int64_t year = 0;
  unsigned month = 0, day = 0;
  ::vantro::io::arrow::core::display::CivilFromDays(days, year, month, day);
  char text[80];
  std::snprintf(text, sizeof text, "%04lld-%02u-%02u", static_cast<long long>(year), month, day);
  if (year < 0 || year > 9999) {
    unwritable(name, text, "dates are read back from folder names in years 0000 to 9999 only");
  }
  return text;
}

std::string plainText(std::string text, const std::string& name) {
  if (text == kHiveDefaultPartition) {
    unwritable(name, "the text " + text, "it is the folder name of missing values");
  }
  return text;
}

template <class ArrayType>
auto valueOf(const ::arrow::Array& array, int64_t row) {
  return static_cast<const ArrayType&>(array).Value(row);
}

// The folder text of one value (its type checked by hasFolderText); nothing when missing.
Text textOf(const ::arrow::Array& array, int64_t row, const std::string& name) {
  if (array.IsNull(row)) return std::nullopt;
  switch (array.type_id()) {
    case ::arrow::Type::INT8:
      return std::to_string(valueOf<::arrow::Int8Array>(array, row));
    case ::arrow::Type::INT16:
      return std::to_string(valueOf<::arrow::Int16Array>(array, row));
    case ::arrow::Type::INT32:
      return std::to_string(valueOf<::arrow::Int32Array>(array, row));
    case ::arrow::Type::INT64:
      return std::to_string(valueOf<::arrow::Int64Array>(array, row));
    case ::arrow::Type::UINT8:
      return std::to_string(valueOf<::arrow::UInt8Array>(array, row));
    case ::arrow::Type::UINT16:
      return std::to_string(valueOf<::arrow::UInt16Array>(array, row));
    case ::arrow::Type::UINT32:
      return std::to_string(valueOf<::arrow::UInt32Array>(array, row));
    case ::arrow::Type::UINT64: {
      const uint64_t value = valueOf<::arrow::UInt64Array>(array, row);
      if (value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        unwritable(name, std::to_string(value),
                   "partition folders read back as 64-bit signed integers");
      }
      return std::to_string(value);
    }
    case ::arrow::Type::FLOAT:
      return wholeNumberText(valueOf<::arrow::FloatArray>(array, row), name);
    case ::arrow::Type::DOUBLE:
      return wholeNumberText(valueOf<::arrow::DoubleArray>(array, row), name);
    case ::arrow::Type::BOOL:
      return valueOf<::arrow::BooleanArray>(array, row) ? "true" : "false";
    case ::arrow::Type::STRING:
      return plainText(static_cast<const ::arrow::StringArray&>(array).GetString(row), name);
    case ::arrow::Type::LARGE_STRING:
      return plainText(static_cast<const ::arrow::LargeStringArray&>(array).GetString(row), name);
    case ::arrow::Type::DATE32:
      return dateText(valueOf<::arrow::Date32Array>(array, row), name);
    case ::arrow::Type::DICTIONARY: {
      const auto& dictionary = static_cast<const ::arrow::DictionaryArray&>(array);
      return textOf(*dictionary.dictionary(), dictionary.GetValueIndex(row), name);
    }
    default:
      common::throwException<msg::InvalidPartitionVariable>(
          name, array.type()->ToString(), "its values have no exact text for a folder name");
  }
}

// "key=value" for one partition variable, both URL-encoded; a missing value takes Hive's name.
std::string folderName(const std::string& name, const Text& value) {
  std::string folder = urlEncode(name) + "=" + (value ? urlEncode(*value) : kHiveDefaultPartition);
  if (folder.size() > kMaxNameBytes) {
    unwritable(name, value ? "'" + *value + "'" : "a missing value",
               "its folder name would be longer than " + std::to_string(kMaxNameBytes) + " bytes");
  }
  return folder;
}

// ---- Rows grouped by partition

// Each row's partition variable as a number: the index of its folder name among the distinct
// ones, in the order first met.
struct VariableCodes {
  std::vector<uint32_t> ofRow;
  std::vector<std::string> folders;
};

VariableCodes codesOf(const ::arrow::ChunkedArray& column, const std::string& name) {
  VariableCodes codes;
  codes.ofRow.reserve(static_cast<size_t>(column.length()));
  std::unordered_map<std::string, uint32_t> seen;
  for (const auto& chunk : column.chunks()) {
    for (int64_t row = 0; row < chunk->length(); ++row) {
      std::string folder = folderName(name, textOf(*chunk, row, name));
      const auto [it, added] = seen.emplace(std::move(folder), codes.folders.size());
      if (added) codes.folders.push_back(it->first);
      codes.ofRow.push_back(it->second);
    }
  }
  return codes;
}

struct Partition {
  std::string folder;         // relative to the target: "a=1/b=x"; empty without partitioning
  std::vector<int64_t> rows;  // ascending
  bool allRows = false;       // every row of the table (rows left empty)
};

std::vector<Partition> groupRows(const ::arrow::Table& table,
                                 const std::vector<std::string>& partitionBy) {
  if (partitionBy.empty()) return {Partition{"", {}, true}};
  std::vector<VariableCodes> codes;
  for (const auto& name : partitionBy) {
    pollInterrupt();
    codes.push_back(codesOf(*table.GetColumnByName(name), name));
  }
  std::vector<Partition> partitions;
  std::unordered_map<std::string, size_t> index;  // the codes of the row's variables, as bytes
  std::string key(codes.size() * sizeof(uint32_t), '\0');
  for (int64_t row = 0; row < table.num_rows(); ++row) {
    for (size_t v = 0; v < codes.size(); ++v) {
      std::memcpy(&key[v * sizeof(uint32_t)], &codes[v].ofRow[row], sizeof(uint32_t));
    }
    const auto [it, added] = index.emplace(key, partitions.size());
    if (added) {
      std::string folder;
      for (const auto& variable : codes) {
        folder += (folder.empty() ? "" : "/") + variable.folders[variable.ofRow[row]];
      }
      partitions.push_back(Partition{std::move(folder), {}, false});
    }
    partitions[it->second].rows.push_back(row);
  }
  return partitions;
}

// Rows [begin, end) of a partition as a table: a slice where they follow one another.
std::shared_ptr<::arrow::Table> rowsOf(const std::shared_ptr<::arrow::Table>& table,
                                       const Partition& partition, int64_t begin, int64_t end,
                                       const std::u16string& context) {
  if (partition.allRows) return table->Slice(begin, end - begin);
  const int64_t* rows = partition.rows.data() + begin;
  const int64_t count = end - begin;
  if (count == 0 || rows[count - 1] - rows[0] == count - 1) {
    return table->Slice(count == 0 ? 0 : rows[0], count);
  }
  auto positions = std::make_shared<::arrow::Int64Array>(
      count, ::arrow::Buffer::Wrap(rows, static_cast<size_t>(count)));
  auto taken = ::arrow::compute::Take(::arrow::Datum(table), ::arrow::Datum(positions));
  common::throwWriteExceptIfNotOk(taken.status(), context);
  return taken->table();
}

// ---- Files already in the target folder

// The visible files below folder (names without a leading '_' or '.', and not inside folders
// so named), sorted; stops after the first when firstOnly.
std::vector<fs::path> visibleFiles(const fs::path& folder, bool firstOnly) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error)) {
    std::error_code ignored;
    if (isHidden(it->path().filename().string())) {
      if (it->is_directory(ignored)) it.disable_recursion_pending();
      continue;
    }
    if (it->is_directory(ignored)) continue;
    files.push_back(it->path());
    if (firstOnly) break;
  }
  if (error) common::throwException<msg::UnreadableFile>(folder.string(), error.message());
  std::sort(files.begin(), files.end());
  return files;
}

// A regular file (not a link) that starts, and with atEnd ends, with Parquet's magic bytes.
bool isParquetFile(const fs::path& path, bool atEnd) {
  std::error_code error;
  if (!fs::is_regular_file(fs::symlink_status(path, error))) return false;
  std::ifstream input(path, std::ios::binary);
  char head[4] = {}, tail[4] = {};
  if (!input.read(head, 4) || std::memcmp(head, "PAR1", 4) != 0) return false;
  if (!atEnd) return true;
  input.seekg(-4, std::ios::end);
  return input.read(tail, 4) && std::memcmp(tail, "PAR1", 4) == 0;
}

// The partition keys of a file's folders below root, as a reader finds them.
std::vector<std::string> partitionKeysOf(const fs::path& file, const fs::path& root) {
  std::vector<std::string> keys;
  for (const auto& part : file.lexically_relative(root).parent_path()) {
    const std::string text = part.string();
    const size_t equals = text.find('=');
    if (equals != std::string::npos && equals > 0)
      keys.push_back(urlDecode(text.substr(0, equals)));
  }
  return keys;
}

void checkExistingFiles(const std::string& folder, const DatasetWriteOptions& options) {
  std::error_code error;
  if (!fs::is_directory(folder, error)) return;
  if (options.existingFiles == ExistingFiles::kRefuse) {
    const auto files = visibleFiles(folder, /*firstOnly=*/true);
    if (!files.empty()) common::throwException<msg::TargetNotEmpty>(folder, files[0].string());
    return;
  }
  // Files partitioned otherwise next to the new ones would leave a folder no reader takes.
  for (const auto& file : visibleFiles(folder, /*firstOnly=*/false)) {
    if (!isParquetFile(file, /*atEnd=*/false)) continue;
    const auto keys = partitionKeysOf(file, folder);
    if (keys != options.partitionBy) {
      common::throwException<msg::ExistingLayoutMismatch>(folder, file.string(), nameList(keys),
                                                          nameList(options.partitionBy));
    }
  }
}

// ---- Checks of the request

void checkTarget(const std::string& folder) {
  if (folder.empty()) common::throwException<msg::TargetNotFolder>(folder, "no folder named");
  if (isIRI(folder)) {
    common::throwException<msg::TargetNotFolder>(folder, "datasets are written to local folders");
  }
  std::error_code error;
  const auto status = fs::status(folder, error);
  if (fs::exists(status) && !fs::is_directory(status)) {
    common::throwException<msg::TargetNotFolder>(folder, "it is a file, not a folder");
  }
}

void checkPartitionVariables(const ::arrow::Schema& schema,
                             const std::vector<std::string>& partitionBy) {
  std::set<std::string> seen;
  for (const auto& name : partitionBy) {
    const auto field = schema.GetFieldByName(name);
    if (!field) {
      std::string names;
      for (const auto& known : schema.field_names()) names += (names.empty() ? "" : ", ") + known;
      common::throwException<msg::UnknownVariable>(name, names);
    }
    // "=value" is no partition folder to a reader: the variable would be lost.
    if (name.empty()) {
      common::throwException<msg::InvalidPartitionVariable>(name, field->type()->ToString(),
                                                            "a folder key cannot be empty");
    }
    if (!seen.insert(name).second) {
      common::throwException<msg::InvalidPartitionVariable>(name, field->type()->ToString(),
                                                            "it is named twice");
    }
    if (!hasFolderText(*field->type())) {
      common::throwException<msg::InvalidPartitionVariable>(
          name, field->type()->ToString(),
          "only integers, text, logical values, dates and whole floating-point numbers have an "
          "exact text for a folder name");
    }
  }
  if (!partitionBy.empty() && seen.size() == static_cast<size_t>(schema.num_fields())) {
    common::throwException<msg::AllVariablesPartitioned>();
  }
}

// ---- The write

std::string randomToken() {
  std::random_device device;
  static constexpr char kHex[] = "0123456789abcdef";
  std::string token;
  for (int word = 0; word < 2; ++word) {
    uint32_t bits = device();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4) token.push_back(kHex[bits & 15]);
  }
  return token;
}

// One call's files and folders, removed again unless the whole write succeeds.
class DatasetWrite {
 public:
  DatasetWrite(std::string root, const DatasetWriteOptions& options,
               std::shared_ptr<::arrow::Schema> fileSchema)
      : mRoot(std::move(root)),
        mOptions(options),
        mFileSchema(std::move(fileSchema)),
        mToken(randomToken()) {
    for (const auto& name : mFileSchema->field_names()) mNames.push_back(utf8_to_ustring(name));
  }

  ~DatasetWrite() {
    if (!mDone) rollBack();
  }

  // Makes folder and its missing parents, remembering each one made.
  void makeFolder(const fs::path& folder) {
    fs::path prefix;
    for (const auto& part : folder) {
      prefix /= part;
      std::error_code error;
      if (fs::is_directory(prefix, error)) continue;
      if (!fs::create_directory(prefix, error) && error) {
        common::throwException<msg::TargetNotFolder>(prefix.string(), error.message());
      }
      if (!fs::is_directory(prefix, error)) {
        common::throwException<msg::TargetNotFolder>(prefix.string(), "it is a file, not a folder");
      }
      mMadeFolders.push_back(prefix);
    }
  }

  void writePartition(const std::shared_ptr<::arrow::Table>& table, const Partition& partition) {
    const fs::path folder = partition.folder.empty() ? fs::path(mRoot) : mRoot / partition.folder;
    makeFolder(folder);
    const int64_t rows =
        partition.allRows ? table->num_rows() : static_cast<int64_t>(partition.rows.size());
    const int64_t perFile =
        mOptions.maxRowsPerFile == 0 ||
                mOptions.maxRowsPerFile > static_cast<uint64_t>(std::max<int64_t>(rows, 1))
            ? std::max<int64_t>(rows, 1)
            : static_cast<int64_t>(mOptions.maxRowsPerFile);
    const std::u16string context = utf8_to_ustring(folder.string());
    int64_t begin = 0;
    do {
      const int64_t end = std::min(rows, begin + perFile);
      writeFile(folder, rowsOf(table, partition, begin, end, context));
      begin = end;
    } while (begin < rows);
    mPartitionFolders.push_back(folder);
  }

  // Removes the old Parquet files of the partition folders written, the new ones kept.
  std::vector<std::string> replaceOldFiles() {
    std::set<std::string> written;
    for (const auto& file : mWritten) written.insert(file.path);
    std::vector<std::string> removed;
    for (const auto& folder : mPartitionFolders) {
      std::vector<fs::path> old;
      std::error_code error;
      for (fs::directory_iterator it(folder, error), end; !error && it != end;
           it.increment(error)) {
        const fs::path& path = it->path();
        if (isHidden(path.filename().string()) || written.count(path.string()) != 0) continue;
        if (isParquetFile(path, /*atEnd=*/true)) old.push_back(path);
      }
      if (error) common::throwException<msg::RemoveFailed>(folder.string(), error.message());
      std::sort(old.begin(), old.end());
      for (const auto& path : old) {
        if (::unlink(path.c_str()) != 0) {
          common::throwException<msg::RemoveFailed>(path.string(), std::strerror(errno));
        }
        removed.push_back(path.string());
      }
    }
    return removed;
  }

  // The write succeeded: what it made stays.
  void keep() { mDone = true; }
  const std::vector<WrittenFile>& written() const { return mWritten; }

 private:
  std::string nextFileName(const fs::path& folder) {
    while (true) {
      char name[64];
      std::snprintf(name, sizeof name, "part-%s-%05zu.parquet", mToken.c_str(), mFileCount++);
      const fs::path path = folder / name;
      std::error_code error;
      // A name taken already (by chance alone) is never written over.
      if (!fs::exists(fs::symlink_status(path, error))) return path.string();
    }
  }

  void writeFile(const fs::path& folder, const std::shared_ptr<::arrow::Table>& rows) {
    pollInterrupt();
    const std::string path = nextFileName(folder);
    write::ParquetWriter writer(utf8_to_ustring(path));
    writer.setVariableNames(mNames);
    if (mOptions.configureFile) mOptions.configureFile(writer, *mFileSchema);
    // One write per row group, so that an interrupt is noticed between them.
    const int64_t step = std::max<int64_t>(1, writer.getMaxRowGroupLength());
    if (rows->num_rows() <= step) {
      writer.writeArrow(rows);
    } else {
      for (int64_t start = 0; start < rows->num_rows(); start += step) {
        pollInterrupt();
        writer.writeArrow(rows->Slice(start, step));
      }
    }
    writer.close();
    mWritten.push_back(WrittenFile{path, rows->num_rows()});
  }

  void rollBack() noexcept {
    for (const auto& file : mWritten) ::unlink(file.path.c_str());
    // Deepest first; a folder that holds anything else is kept.
    for (auto it = mMadeFolders.rbegin(); it != mMadeFolders.rend(); ++it) ::rmdir(it->c_str());
  }

  fs::path mRoot;
  const DatasetWriteOptions& mOptions;
  std::shared_ptr<::arrow::Schema> mFileSchema;
  std::vector<std::u16string> mNames;
  std::string mToken;
  size_t mFileCount = 0;
  std::vector<fs::path> mMadeFolders;
  std::vector<fs::path> mPartitionFolders;
  std::vector<WrittenFile> mWritten;
  bool mDone = false;
};

}  // namespace

DatasetWriteResult writeDataset(const std::string& folder,
                                const std::shared_ptr<::arrow::Table>& table,
                                const DatasetWriteOptions& options) {
  if (!table) common::throwException<msg::InvalidOption>("table", "none");
  checkTarget(folder);
  checkPartitionVariables(*table->schema(), options.partitionBy);
  // Every value is turned into its folder name before anything is written, so that a value
  // without one leaves the target as it was.
  const auto partitions = groupRows(*table, options.partitionBy);
  checkExistingFiles(folder, options);

  std::vector<int> kept;
  for (int i = 0; i < table->num_columns(); ++i) {
    const auto& name = table->schema()->field(i)->name();
    if (std::find(options.partitionBy.begin(), options.partitionBy.end(), name) ==
        options.partitionBy.end()) {
      kept.push_back(i);
    }
  }
  auto selected = table->SelectColumns(kept);
  common::throwWriteExceptIfNotOk(selected.status(), utf8_to_ustring(folder));
  const auto fileTable = *selected;

  DatasetWrite write(folder, options, fileTable->schema());
  write.makeFolder(folder);
  for (const auto& partition : partitions) write.writePartition(fileTable, partition);
  write.keep();
  DatasetWriteResult result;
  result.files = write.written();
  result.partitions = partitions.size();
  // The new files stay even if an old one cannot be removed: they are the data asked for.
  if (options.existingFiles == ExistingFiles::kReplacePartitions) {
    result.removed = write.replaceOldFiles();
  }
  return result;
}

DatasetWriteResult writeDataset(const std::string& folder, const vxArray_tag* table,
                                const DatasetWriteOptions& options) {
  // The view borrows the host table's values; it is used only within this call.
  auto view = ::vantro::io::arrow::core::to_arrow_table_view(table);
  common::throwWriteExceptIfNotOk(view.status(), utf8_to_ustring(folder));
  return writeDataset(folder, *view, options);
}

}  // namespace vantro::io::parquet::core::dataset
