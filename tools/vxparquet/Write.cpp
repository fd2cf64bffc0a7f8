// vxparquet write: writes a CSV or Parquet file's table through the library's ParquetWriter, as
// the host would write one of its tables, or through its dataset writer into a folder of
// partitions.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <arrow/csv/api.h>
#include <arrow/io/file.h>
#include <arrow/table.h>
#include <arrow/type.h>
#include <arrow/util/compression.h>
#include <arrow/util/thread_pool.h>
#include <parquet/arrow/schema.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include <parquet/schema.h>

#include "Cli.hpp"
#include "host/services/Services.hpp"
#include "host/services/Threads.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetWriter.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace vxparquet {
namespace {

// The writer's codec names and Arrow's codecs; lzo has a name in Parquet but no codec in Arrow.
const std::vector<std::pair<std::string, ::arrow::Compression::type>>& compressionNames() {
  static const std::vector<std::pair<std::string, ::arrow::Compression::type>> names = {
      {"uncompressed", ::arrow::Compression::UNCOMPRESSED},
      {"snappy", ::arrow::Compression::SNAPPY},
      {"gzip", ::arrow::Compression::GZIP},
      {"brotli", ::arrow::Compression::BROTLI},
      {"lz4", ::arrow::Compression::LZ4},
      {"lzo", ::arrow::Compression::LZO},
      {"zstd", ::arrow::Compression::ZSTD},
  };
  return names;
}

std::optional<::arrow::Compression::type> codecNamed(const std::string& name) {
  for (const auto& [known, codec] : compressionNames()) {
    if (known == name) return codec;
  }
  return std::nullopt;
}

// Refuses a level outside what every codec asked for takes, before the writer meets it
// (zlib's own refusal says only "deflateInit failed").
void checkCompressionLevel(int level, const std::vector<std::string>& codecs) {
  for (const auto& codec : codecs) {
    const auto range = compressionLevelRange(codec);
    if (!range) {
      failWith("InvalidCompressionLevel", "--compression-level " + std::to_string(level) + ": " +
                                              codec + " takes no compression level.");
    }
    if (level < range->first || level > range->second) {
      failWith("InvalidCompressionLevel", "--compression-level " + std::to_string(level) +
                                              " is outside " + codec + "'s levels " +
                                              std::to_string(range->first) + ".." +
                                              std::to_string(range->second) + ".");
    }
  }
}

constexpr int64_t kDefaultMaxRowGroupLength = 1048576;

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::write::ParquetWriter;

// Arrow failures outside the library (reading the CSV input) are the program's own errors.
template <class T>
T valueOrFail(::arrow::Result<T> result, const std::string& key, const std::string& what) {
  if (!result.ok()) failWith(key, what + ": " + result.status().message());
  return std::move(result).ValueUnsafe();
}

enum class InputFormat { kParquet, kCsv, kTsv };

// How to read a CSV or TSV input.
struct CsvSettings {
  char delimiter = ',';
  bool header = true;
  std::optional<std::vector<std::string>> nullValues;
  std::vector<std::pair<std::string, std::shared_ptr<::arrow::DataType>>> types;
};

std::string lowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The first bytes of the input, to tell its format by content.
std::string leadingBytes(const std::string& path, size_t count) {
  std::ifstream input(path, std::ios::binary);
  if (!input) failWith("CannotOpenInput", "Unable to open '" + path + "'.");
  std::string bytes(count, '\0');
  input.read(bytes.data(), static_cast<std::streamsize>(count));
  bytes.resize(static_cast<size_t>(input.gcount()));
  return bytes;
}

// Parquet by its magic bytes; otherwise CSV or TSV only when the name or --from-format says
// so, and never for content that is plainly not text (gzip, other binary data).
InputFormat decideFormat(const std::string& path, const std::optional<std::string>& given) {
  const std::string head = leadingBytes(path, 4096);
  std::optional<InputFormat> format;
  if (given) {
    const std::string name = matchChoice(*given, {"parquet", "csv", "tsv"}, "--from-format");
    format = name == "parquet" ? InputFormat::kParquet
                               : (name == "csv" ? InputFormat::kCsv : InputFormat::kTsv);
  } else if (head.rfind("PAR1", 0) == 0) {
    format = InputFormat::kParquet;
  } else if (endsWith(lowerCase(path), ".csv")) {
    format = InputFormat::kCsv;
  } else if (endsWith(lowerCase(path), ".tsv")) {
    format = InputFormat::kTsv;
  }
  if (!format) {
    failWith("UnknownInputFormat", "'" + path +
                                       "' is neither a Parquet file nor named *.csv or *.tsv; give "
                                       "--from-format csv to read it as CSV.");
  }
  if (*format == InputFormat::kParquet && head.rfind("PAR1", 0) != 0) {
    failWith("UnknownInputFormat", "'" + path + "' is not a Parquet file (no PAR1 magic bytes).");
  }
  if (*format != InputFormat::kParquet &&
      (head.rfind("\x1f\x8b", 0) == 0 || head.find('\0') != std::string::npos)) {
    failWith("UnknownInputFormat", "'" + path +
                                       "' is not text: compressed or binary data cannot "
                                       "be read as CSV.");
  }
  return *format;
}

// "decimal(12,2)": exact decimals of that precision and scale, 128 or 256 bits wide.
std::shared_ptr<::arrow::DataType> decimalNamed(const std::string& name) {
  int precision = 0, scale = 0;
  char end = 0;
  if (std::sscanf(lowerCase(name).c_str(), "decimal(%d,%d%c", &precision, &scale, &end) != 3 ||
      end != ')') {
    return nullptr;
  }
  auto type = precision <= 38 ? ::arrow::Decimal128Type::Make(precision, scale)
                              : ::arrow::Decimal256Type::Make(precision, scale);
  if (!type.ok()) throw UsageError{"--types: " + type.status().message()};
  return *type;
}

std::shared_ptr<::arrow::DataType> typeNamed(const std::string& name, const std::string& option) {
  static const std::vector<std::pair<std::string, std::shared_ptr<::arrow::DataType>>> types = {
      {"int8", ::arrow::int8()},
      {"int16", ::arrow::int16()},
      {"int32", ::arrow::int32()},
      {"int64", ::arrow::int64()},
      {"uint8", ::arrow::uint8()},
      {"uint16", ::arrow::uint16()},
      {"uint32", ::arrow::uint32()},
      {"uint64", ::arrow::uint64()},
      {"single", ::arrow::float32()},
      {"double", ::arrow::float64()},
      {"float32", ::arrow::float32()},
      {"float64", ::arrow::float64()},
      {"logical", ::arrow::boolean()},
      {"boolean", ::arrow::boolean()},
      {"string", ::arrow::utf8()},
      {"binary", ::arrow::binary()},
      {"date", ::arrow::date32()},
      {"timestamp", ::arrow::timestamp(::arrow::TimeUnit::MICRO)},
      {"timestamp[s]", ::arrow::timestamp(::arrow::TimeUnit::SECOND)},
      {"timestamp[ms]", ::arrow::timestamp(::arrow::TimeUnit::MILLI)},
      {"timestamp[us]", ::arrow::timestamp(::arrow::TimeUnit::MICRO)},
      {"timestamp[ns]", ::arrow::timestamp(::arrow::TimeUnit::NANO)},
      {"timestamptz", ::arrow::timestamp(::arrow::TimeUnit::MICRO, "UTC")},
  };
  if (const auto decimal = decimalNamed(name)) return decimal;
  std::vector<std::string> names;
  for (const auto& entry : types) names.push_back(entry.first);
  names.push_back("decimal(P,S)");
  const std::string valid = matchChoice(name, names, option);
  for (const auto& entry : types) {
    if (entry.first == valid) return entry.second;
  }
  return nullptr;
}

// "a=int64,b=decimal(10,2)" -> {"a=int64", "b=decimal(10,2)"}: commas inside parentheses
// belong to the type.
std::vector<std::string> splitOutsideParentheses(const std::string& text) {
  std::vector<std::string> parts(1);
  int depth = 0;
  for (const char c : text) {
    if (c == ',' && depth == 0) {
      parts.emplace_back();
      continue;
    }
    depth += c == '(' ? 1 : (c == ')' ? -1 : 0);
    parts.back().push_back(c);
  }
  return parts;
}

CsvSettings csvSettings(const Arguments& args, InputFormat format) {
  CsvSettings settings;
  if (format == InputFormat::kTsv) settings.delimiter = '\t';
  if (const auto delimiter = args.value("--delimiter")) {
    const std::string text =
        *delimiter == "\\t" || lowerCase(*delimiter) == "tab" ? "\t" : *delimiter;
    if (text.size() != 1) throw UsageError{"--delimiter takes one character (or 'tab')"};
    settings.delimiter = text[0];
  }
  settings.header = !args.flag("--no-header");
  if (const auto nulls = args.value("--null-values")) settings.nullValues = splitList(*nulls);
  if (const auto types = args.value("--types")) {
    for (const auto& pair : splitOutsideParentheses(*types)) {
      const size_t equals = pair.rfind('=');
      if (equals == std::string::npos) throw UsageError{"--types: '" + pair + "' is not name=type"};
      settings.types.emplace_back(pair.substr(0, equals),
                                  typeNamed(pair.substr(equals + 1), "--types"));
    }
  }
  return settings;
}

std::shared_ptr<::arrow::Table> readCsv(const std::string& path, const CsvSettings& settings) {
  auto input = valueOrFail(::arrow::io::ReadableFile::Open(path), "CannotOpenInput",
                           "Unable to open '" + path + "'");
  auto readOptions = ::arrow::csv::ReadOptions::Defaults();
  readOptions.autogenerate_column_names = !settings.header;
  // Arrow's pools wait for ever for a thread they could not start: the CSV reader's input
  // always needs one thread of the I/O pool, its parsing the CPU pool's threads when they start
  // now; with none to spare, the input is refused rather than left hanging.
  const int64_t startable = foundation::services::countStartableThreads(
      foundation::services::getNumComputationalThreads() + 2);
  if (startable < 2) {
    failWith("ThreadsUnavailable", "Unable to read '" + path +
                                       "' as CSV: the process may not start the thread that "
                                       "reading it needs.");
  }
  const int64_t workers = startable - 2;  // beside this thread and the I/O thread
  foundation::services::setLastStartableThreads(std::max<int64_t>(workers, 1));
  readOptions.use_threads =
      workers > 1 && ::arrow::SetCpuThreadPoolCapacity(static_cast<int>(workers)).ok();
  auto parseOptions = ::arrow::csv::ParseOptions::Defaults();
  parseOptions.delimiter = settings.delimiter;
  auto convertOptions = ::arrow::csv::ConvertOptions::Defaults();
  if (settings.nullValues) {
    convertOptions.null_values = *settings.nullValues;
    convertOptions.strings_can_be_null = true;
  }
  for (const auto& [name, type] : settings.types) convertOptions.column_types[name] = type;
  auto reader =
      valueOrFail(::arrow::csv::TableReader::Make(::arrow::io::default_io_context(), input,
                                                  readOptions, parseOptions, convertOptions),
                  "InvalidCsv", "Unable to read '" + path + "' as CSV");
  auto table = valueOrFail(reader->Read(), "InvalidCsv", "Unable to read '" + path + "' as CSV");
  for (const auto& [name, type] : settings.types) {
    if (table->schema()->GetFieldIndex(name) < 0) {
      failWith("UnknownVariable",
               "--types names '" + name + "', which is no column of '" + path + "'.");
    }
  }
  return table;
}

// A Parquet input goes through the library's own reader, a CSV input through Arrow's; either
// stays in Arrow's values, so that the output keeps every type, null and NaN.
std::shared_ptr<::arrow::Table> readInput(const std::string& path, InputFormat format,
                                          const CsvSettings& settings) {
  if (format == InputFormat::kParquet) {
    return vantro::io::parquet::core::read::RowGroupParquetReader(utf8_to_ustring(path), {})
        .readArrowFullFile();
  }
  return readCsv(path, settings);
}

// Standard input copied into a temporary file of our own (the readers need a file), removed
// when done.
class StdinCopy {
 public:
  StdinCopy() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/vxparquet-stdin-XXXXXX";
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) failWith("CannotOpenInput", "Unable to keep standard input in a temporary file.");
    mPath = pattern;
    char buffer[1 << 16];
    while (true) {
      checkInterrupt();
      const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
      if (got == 0) break;
      if (got < 0 || ::write(fd, buffer, static_cast<size_t>(got)) != got) {
        ::close(fd);
        failWith("CannotOpenInput", "Unable to read standard input.");
      }
    }
    ::close(fd);
  }
  ~StdinCopy() {
    if (!mPath.empty()) ::unlink(mPath.c_str());
  }
  const std::string& path() const { return mPath; }

 private:
  std::string mPath;
};

// The leaf columns of each variable, named as Parquet's per-column settings name them (the
// dot-joined column path, e.g. "a.list.element"), grouped by variable.
struct LeafPaths {
  std::vector<uint64_t> offsets;
  std::vector<std::u16string> paths;
};

LeafPaths leafPathsOf(const ::arrow::Schema& schema, bool compliantNestedTypes) {
  ::parquet::ArrowWriterProperties::Builder arrowProperties;
  if (compliantNestedTypes) arrowProperties.enable_compliant_nested_types();
  std::shared_ptr<::parquet::SchemaDescriptor> descriptor;
  const auto status = ::parquet::arrow::ToParquetSchema(
      &schema, *::parquet::default_writer_properties(), *arrowProperties.build(), &descriptor);
  if (!status.ok()) failWith("InvalidInput", "Unable to map the schema: " + status.message());

  LeafPaths leaves;
  leaves.offsets.assign(schema.num_fields() + 1, 0);
  for (int i = 0; i < descriptor->num_columns(); ++i) {
    const int variable = descriptor->group_node()->FieldIndex(*descriptor->GetColumnRoot(i));
    ++leaves.offsets[variable + 1];
    leaves.paths.push_back(utf8_to_ustring(descriptor->Column(i)->path()->ToDotString()));
  }
  for (size_t i = 1; i < leaves.offsets.size(); ++i) leaves.offsets[i] += leaves.offsets[i - 1];
  return leaves;
}

// One value per variable: `single` for all, or "name=value" pairs over `fallback`.
std::vector<std::string> perVariable(const std::vector<std::string>& names,
                                     const std::optional<std::string>& single,
                                     const std::optional<std::string>& pairs,
                                     const std::string& fallback, const std::string& option) {
  std::vector<std::string> values(names.size(), single.value_or(fallback));
  if (!pairs) return values;
  for (const auto& pair : splitList(*pairs)) {
    const size_t equals = pair.rfind('=');
    if (equals == std::string::npos) {
      throw UsageError{option + ": '" + pair + "' is not name=value"};
    }
    const std::string name = pair.substr(0, equals);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) throw UsageError{option + ": no variable named '" + name + "'"};
    values[found - names.begin()] = pair.substr(equals + 1);
  }
  return values;
}

void requireAtMostOne(const Arguments& args, const std::string& a, const std::string& b) {
  if (args.value(a) && args.value(b)) throw UsageError{a + " and " + b + " exclude each other"};
}

struct Summary {
  int64_t rows = 0;
  int rowGroups = 0;
};

Summary summarize(const std::string& path) {
  namespace common = vantro::io::parquet::core::common;
  auto file = common::makeReadableFilePtr(utf8_to_ustring(path));
  const auto metadata = ::parquet::ParquetFileReader::Open(file)->metadata();
  return {metadata->num_rows(), metadata->num_row_groups()};
}

// What every output file is written with; per-variable settings are kept by the input's
// variables, in order, and handed to each file for the variables it holds.
struct WriterSettings {
  std::vector<std::string> inputNames;
  std::optional<std::string> version;
  std::optional<int64_t> maxRowGroupLength;
  std::optional<std::vector<std::string>> compressions;
  std::optional<std::vector<std::string>> encodings;
  std::optional<int> compressionLevel;
};

// The values of the file's variables out of per-input-variable values: the file holds some of
// the input's variables, in the input's order.
std::vector<std::string> forFileVariables(const std::vector<std::string>& values,
                                          const std::vector<std::string>& inputNames,
                                          const ::arrow::Schema& fileSchema) {
  std::vector<std::string> picked;
  size_t next = 0;
  for (const auto& name : fileSchema.field_names()) {
    while (next < inputNames.size() && inputNames[next] != name) ++next;
    picked.push_back(next < inputNames.size() ? values[next++] : values.front());
  }
  return picked;
}

void configureWriter(ParquetWriter& writer, const ::arrow::Schema& fileSchema,
                     const WriterSettings& settings) {
  if (settings.version) writer.setVersion(*settings.version);
  if (settings.maxRowGroupLength) writer.setMaxRowGroupLength(*settings.maxRowGroupLength);
  // Per-variable settings reach a variable's columns through its leaf paths.
  if (settings.compressions || settings.encodings) {
    LeafPaths leaves = leafPathsOf(fileSchema, writer.getUseCompliantNestedTypes());
    writer.setLeafColumnPaths(std::move(leaves.offsets), std::move(leaves.paths));
  }
  if (settings.compressions) {
    writer.setVariableCompression(
        forFileVariables(*settings.compressions, settings.inputNames, fileSchema));
  }
  if (settings.encodings) {
    writer.setVariableEncoding(
        forFileVariables(*settings.encodings, settings.inputNames, fileSchema));
  }
  if (settings.compressionLevel) writer.setCompressionLevel(*settings.compressionLevel);
}

// One write per row group, so that Ctrl-C is noticed between row groups and the unfinished
// file is discarded by the writer rather than cut off.
void writeInRowGroups(ParquetWriter& writer, const std::shared_ptr<::arrow::Table>& table,
                      int64_t maxLength) {
  const int64_t rows = table->num_rows();
  if (rows <= maxLength) {
    writer.writeArrow(table);
    return;
  }
  for (int64_t start = 0; start < rows; start += maxLength) {
    checkInterrupt();
    writer.writeArrow(table->Slice(start, maxLength));
  }
}

// How a folder of partitions is written: --partition-by, --max-rows-per-file, --existing.
struct FolderRequest {
  std::vector<std::string> partitionBy;
  uint64_t maxRowsPerFile = 0;
  vantro::io::parquet::core::dataset::ExistingFiles existing =
      vantro::io::parquet::core::dataset::ExistingFiles::kRefuse;
};

std::optional<FolderRequest> folderRequestOf(const Arguments& args) {
  namespace ds = vantro::io::parquet::core::dataset;
  const auto partitionBy = args.value("--partition-by");
  const auto maxRows = args.value("--max-rows-per-file");
  const auto existing = args.value("--existing");
  if (!partitionBy && !maxRows && !existing) return std::nullopt;
  FolderRequest request;
  if (partitionBy) request.partitionBy = splitNames(*partitionBy, "--partition-by");
  if (maxRows) {
    request.maxRowsPerFile = parseCount(*maxRows, "--max-rows-per-file", /*allowZero=*/true);
  }
  if (existing) {
    const std::string mode = matchChoice(*existing, {"error", "add", "replace"}, "--existing");
    request.existing = mode == "error" ? ds::ExistingFiles::kRefuse
                       : mode == "add" ? ds::ExistingFiles::kAdd
                                       : ds::ExistingFiles::kReplacePartitions;
  }
  return request;
}

int writeFolder(const std::string& output, const std::shared_ptr<::arrow::Table>& table,
                const FolderRequest& request, const WriterSettings& settings) {
  namespace ds = vantro::io::parquet::core::dataset;
  ds::DatasetWriteOptions options;
  options.partitionBy = request.partitionBy;
  options.maxRowsPerFile = request.maxRowsPerFile;
  options.existingFiles = request.existing;
  options.configureFile = [&settings](ParquetWriter& writer, const ::arrow::Schema& fileSchema) {
    checkInterrupt();
    configureWriter(writer, fileSchema, settings);
  };
  const auto result = ds::writeDataset(output, table, options);
  std::string partitioned;
  for (const auto& name : request.partitionBy) {
    partitioned += (partitioned.empty() ? "" : ", ") + name;
  }
  std::printf("wrote %s: %lld rows in %zu files, %zu partitions%s, %d variables", output.c_str(),
              static_cast<long long>(table->num_rows()), result.files.size(), result.partitions,
              partitioned.empty() ? "" : (" by " + partitioned).c_str(), table->num_columns());
  if (request.existing == ds::ExistingFiles::kReplacePartitions) {
    std::printf(", %zu old files replaced", result.removed.size());
  }
  std::printf("\n");
  return 0;
}

}  // namespace

std::vector<std::string> writableCompressions() {
  std::vector<std::string> names;
  for (const auto& [name, codec] : compressionNames()) {
    if (::arrow::util::Codec::IsAvailable(codec)) names.push_back(name);
  }
  return names;
}

std::optional<std::pair<int, int>> compressionLevelRange(const std::string& name) {
  const auto codec = codecNamed(name);
  if (!codec || !::arrow::util::Codec::SupportsCompressionLevel(*codec)) return std::nullopt;
  const auto lowest = ::arrow::util::Codec::MinimumCompressionLevel(*codec);
  const auto highest = ::arrow::util::Codec::MaximumCompressionLevel(*codec);
  if (!lowest.ok() || !highest.ok()) return std::nullopt;
  return std::make_pair(*lowest, *highest);
}

int runWrite(const std::vector<std::string>& words) {
  const Arguments args(
      words,
      {"--from", "--from-format", "--delimiter", "--null-values", "--types", "--compression",
       "--compression-per-variable", "--encoding", "--encoding-per-variable", "--version",
       "--row-group-heights", "--max-row-group-length", "--compression-level", "--partition-by",
       "--max-rows-per-file", "--existing"},
      {"--no-header"});
  if (args.positional().size() != 1) throw UsageError{"write needs exactly one output file"};
  const std::optional<FolderRequest> folder = folderRequestOf(args);
  if (folder && args.value("--row-group-heights")) {
    throw UsageError{
        "--row-group-heights is for one file; a folder's files take "
        "--max-row-group-length"};
  }
  if (folder && args.positional()[0] == "-") {
    throw UsageError{"a partitioned write needs an output folder, not '-'"};
  }
  if (!args.value("--from")) throw UsageError{"write needs --from IN"};
  requireAtMostOne(args, "--compression", "--compression-per-variable");
  requireAtMostOne(args, "--encoding", "--encoding-per-variable");
  requireAtMostOne(args, "--row-group-heights", "--max-row-group-length");
  const std::string output = args.positional()[0];
  const bool toStdout = output == "-";
  const std::string from = *args.value("--from");
  if (from == "-" && !args.value("--from-format")) {
    throw UsageError{"--from - needs --from-format parquet, csv or tsv"};
  }

  // Every option is checked before anything is read or written.
  const auto version = args.value("--version");
  const std::string versionName = version ? matchChoice(*version, {"1.0", "2.0"}, "--version") : "";
  std::optional<int64_t> maxLength;
  if (const auto length = args.value("--max-row-group-length")) {
    maxLength = static_cast<int64_t>(parseCount(*length, "--max-row-group-length"));
  }
  std::optional<int> compressionLevel;
  if (const auto level = args.value("--compression-level")) {
    char* end = nullptr;
    errno = 0;
    const long parsed = std::strtol(level->c_str(), &end, 10);
    if (level->empty() || *end != '\0' || errno != 0 || parsed < INT32_MIN || parsed > INT32_MAX) {
      throw UsageError{"--compression-level needs a whole number, not '" + *level + "'"};
    }
    compressionLevel = static_cast<int>(parsed);
  }
  std::optional<std::vector<double>> heights;
  if (const auto list = args.value("--row-group-heights")) {
    heights = parseNumberList(*list, "--row-group-heights");
  }

  std::optional<StdinCopy> stdinCopy;
  if (from == "-") stdinCopy.emplace();
  const std::string inputPath = stdinCopy ? stdinCopy->path() : from;
  const InputFormat format = decideFormat(inputPath, args.value("--from-format"));
  const auto arrowTable = readInput(inputPath, format, csvSettings(args, format));
  checkInterrupt();
  const auto& schema = *arrowTable->schema();
  if (heights) {
    double sum = 0;
    for (double height : *heights) sum += height;
    if (sum != static_cast<double>(arrowTable->num_rows())) {
      failWith("RowGroupHeightsMismatch",
               "--row-group-heights add up to " + std::to_string(static_cast<uint64_t>(sum)) +
                   " rows, but the input has " + std::to_string(arrowTable->num_rows()) + ".");
    }
  }

  // Every option value is checked before the writer opens the output.
  static const std::vector<std::string> kEncodings = {"dictionary", "plain"};
  std::optional<std::vector<std::string>> compressions;
  if (args.value("--compression") || args.value("--compression-per-variable")) {
    compressions = perVariable(schema.field_names(), args.value("--compression"),
                               args.value("--compression-per-variable"), "snappy",
                               "--compression-per-variable");
    const std::vector<std::string> writable = writableCompressions();
    for (auto& value : *compressions) value = matchChoice(value, writable, "--compression");
  }
  // Without a codec asked for, the writer's default, snappy, takes the level.
  if (compressionLevel) {
    checkCompressionLevel(*compressionLevel,
                          compressions ? *compressions : std::vector<std::string>{"snappy"});
  }
  std::optional<std::vector<std::string>> encodings;
  if (args.value("--encoding") || args.value("--encoding-per-variable")) {
    encodings =
        perVariable(schema.field_names(), args.value("--encoding"),
                    args.value("--encoding-per-variable"), "dictionary", "--encoding-per-variable");
    for (auto& value : *encodings) value = matchChoice(value, kEncodings, "--encoding");
  }

  WriterSettings settings;
  settings.inputNames = schema.field_names();
  if (version) settings.version = versionName;
  // Row groups of at most 2^20 rows let statistics skip parts of large files; the library's
  // own default stays as it is for the host.
  if (!heights) settings.maxRowGroupLength = maxLength.value_or(kDefaultMaxRowGroupLength);
  settings.compressions = compressions;
  settings.encodings = encodings;
  settings.compressionLevel = compressionLevel;
  // Without an encoding asked for, columns that a dictionary cannot shrink are written plain.
  foundation::services::setChooseDictionaryPerColumn(!encodings);

  checkInterrupt();
  if (folder) return writeFolder(output, arrowTable, *folder, settings);

  ParquetWriter writer(utf8_to_ustring(toStdout ? "/dev/stdout" : output));
  std::vector<std::u16string> names;
  for (const auto& name : schema.field_names()) names.push_back(utf8_to_ustring(name));
  writer.setVariableNames(names);
  configureWriter(writer, schema, settings);

  checkInterrupt();
  if (heights) {
    std::vector<int64_t> rowCounts;
    for (double height : *heights) rowCounts.push_back(static_cast<int64_t>(height));
    writer.writeArrowRowGroups(arrowTable, rowCounts);
  } else {
    writeInRowGroups(writer, arrowTable, maxLength.value_or(kDefaultMaxRowGroupLength));
  }
  checkInterrupt();
  writer.close();

  if (toStdout) {
    std::fprintf(stderr, "wrote standard output: %lld rows, %zu variables\n",
                 static_cast<long long>(arrowTable->num_rows()), names.size());
    return 0;
  }
  const Summary summary = summarize(output);
  std::printf("wrote %s: %lld rows, %d row groups, %zu variables\n", output.c_str(),
              static_cast<long long>(summary.rows), summary.rowGroups, names.size());
  return 0;
}

}  // namespace vxparquet
