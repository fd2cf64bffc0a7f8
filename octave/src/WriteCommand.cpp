// pq_write: an Octave table (1x1 struct of columns) through the library's ParquetWriter, or
// through its dataset writer into a folder of partitions.
#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <vector>

#include <arrow/table.h>
#include <parquet/arrow/schema.h>
#include <parquet/schema.h>

#include "Commands.hpp"
#include "MexArguments.hpp"
#include "OctaveValues.hpp"
#include "host/converter/Converter.hpp"
#include "host/services/Interrupts.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetWriter.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace vantro::octave {

namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::common::throwException;
using vantro::io::parquet::core::write::ParquetWriter;
namespace msg = VANTRO::parquetio::write;
namespace ds = vantro::io::parquet::core::dataset;

[[noreturn]] void invalid(const std::string& message) {
  throw TranslationError{"VANTRO:octave:InvalidArgument", message};
}

// The leaf columns of each variable, named as Parquet's per-column settings name them, so that
// one compression or encoding per variable reaches every column of a nested variable.
void setLeafPaths(ParquetWriter& writer, const ::arrow::Schema& schema) {
  ::parquet::ArrowWriterProperties::Builder arrowProperties;
  if (writer.getUseCompliantNestedTypes()) arrowProperties.enable_compliant_nested_types();
  std::shared_ptr<::parquet::SchemaDescriptor> descriptor;
  const auto status = ::parquet::arrow::ToParquetSchema(
      &schema, *::parquet::default_writer_properties(), *arrowProperties.build(), &descriptor);
  if (!status.ok()) invalid("cannot map the table to a Parquet schema: " + status.ToString());
  std::vector<uint64_t> offsets(schema.num_fields() + 1, 0);
  std::vector<std::u16string> paths;
  for (int i = 0; i < descriptor->num_columns(); ++i) {
    const int variable = descriptor->group_node()->FieldIndex(*descriptor->GetColumnRoot(i));
    ++offsets[variable + 1];
    paths.push_back(utf8_to_ustring(descriptor->Column(i)->path()->ToDotString()));
  }
  for (size_t i = 1; i < offsets.size(); ++i) offsets[i] += offsets[i - 1];
  writer.setLeafColumnPaths(std::move(offsets), std::move(paths));
}

std::string lowercase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// One setting for every variable, or one per variable, in any case. The writer would name its
// own property in its error ("VariableCompression"); checked here, the error names the option
// the user gave, with the writer's identifiers.
std::vector<std::string> perVariable(const mxArray* value, size_t variables, const char* option,
                                     const std::vector<std::string>& choices) {
  std::vector<std::string> settings = textListOf(value, option);
  if (mxIsChar(value)) settings.assign(variables, settings.empty() ? "" : settings[0]);
  if (settings.size() != variables) throwException<msg::WrongOptionNumel>(option, variables);
  for (auto& setting : settings) {
    const std::string given = setting;
    setting = lowercase(given);
    if (std::find(choices.begin(), choices.end(), setting) == choices.end()) {
      throwException<msg::InvalidOption>(option, given);
    }
  }
  return settings;
}

// Heights that do not add up to the table's rows would write a different table.
void checkHeights(const std::vector<double>& heights, int64_t rows) {
  double sum = 0;
  for (double height : heights) {
    if (!(height >= 0) || height != static_cast<double>(static_cast<int64_t>(height))) {
      invalid("RowGroupHeights must be whole numbers of rows");
    }
    sum += height;
  }
  if (sum != static_cast<double>(rows)) {
    invalid("RowGroupHeights add up to " + std::to_string(static_cast<int64_t>(sum)) +
            " rows but the table has " + std::to_string(rows));
  }
}

// The writer settings of the options, checked once and given to every file written. Per
// variable settings are kept by the table's variables and handed to each file for its own.
struct WriterSettings {
  std::vector<std::string> tableNames;
  std::optional<std::string> version;
  std::optional<int64_t> maxRowGroupLength;
  std::optional<std::vector<std::string>> compressions;
  std::optional<std::vector<std::string>> encodings;
};

WriterSettings settingsOf(const mxArray* options, std::vector<std::string> tableNames) {
  WriterSettings settings;
  settings.tableNames = std::move(tableNames);
  if (const auto version = optionOf(options, "Version")) {
    settings.version = textOf(*version, "Version");
  }
  if (const auto length = optionOf(options, "MaxRowGroupLength")) {
    const auto numbers = numbersOf(*length, "MaxRowGroupLength");
    if (numbers.size() != 1 || !(numbers[0] >= 1) || numbers[0] > 9.2e18) {
      invalid("MaxRowGroupLength must be one positive number");
    }
    settings.maxRowGroupLength = static_cast<int64_t>(numbers[0]);
  }
  const size_t variables = settings.tableNames.size();
  if (const auto compression = optionOf(options, "Compression")) {
    settings.compressions =
        perVariable(*compression, variables, "Compression",
                    {"snappy", "gzip", "brotli", "zstd", "lz4", "uncompressed"});
  }
  if (const auto encoding = optionOf(options, "Encoding")) {
    settings.encodings = perVariable(*encoding, variables, "Encoding", {"dictionary", "plain"});
  }
  return settings;
}

// The settings of the variables a file holds: some of the table's, in the table's order.
std::vector<std::string> forFileVariables(const std::vector<std::string>& values,
                                          const std::vector<std::string>& tableNames,
                                          const ::arrow::Schema& fileSchema) {
  std::vector<std::string> picked;
  size_t next = 0;
  for (const auto& name : fileSchema.field_names()) {
    while (next < tableNames.size() && tableNames[next] != name) ++next;
    picked.push_back(next < tableNames.size() ? values[next++] : values.front());
  }
  return picked;
}

void configure(ParquetWriter& writer, const ::arrow::Schema* fileSchema,
               const WriterSettings& settings) {
  if (settings.version) writer.setVersion(*settings.version);
  if (settings.maxRowGroupLength) writer.setMaxRowGroupLength(*settings.maxRowGroupLength);
  // Without a schema (a table the converter refuses) the writer says what is wrong with it.
  if (fileSchema == nullptr) return;
  if (settings.compressions || settings.encodings) setLeafPaths(writer, *fileSchema);
  if (settings.compressions) {
    writer.setVariableCompression(
        forFileVariables(*settings.compressions, settings.tableNames, *fileSchema));
  }
  if (settings.encodings) {
    writer.setVariableEncoding(
        forFileVariables(*settings.encodings, settings.tableNames, *fileSchema));
  }
}

// "PartitionBy", "MaxRowsPerFile" and "ExistingFiles": any of them writes a folder.
std::optional<ds::DatasetWriteOptions> folderOptionsOf(const mxArray* options) {
  const auto partitionBy = optionOf(options, "PartitionBy");
  const auto maxRows = optionOf(options, "MaxRowsPerFile");
  const auto existing = optionOf(options, "ExistingFiles");
  if (!partitionBy && !maxRows && !existing) return std::nullopt;
  ds::DatasetWriteOptions folder;
  if (partitionBy) folder.partitionBy = textListOf(*partitionBy, "PartitionBy");
  if (maxRows) {
    const auto numbers = numbersOf(*maxRows, "MaxRowsPerFile");
    if (numbers.size() != 1 || !(numbers[0] >= 0) || numbers[0] > 9.2e18 ||
        numbers[0] != static_cast<double>(static_cast<int64_t>(numbers[0]))) {
      invalid("MaxRowsPerFile must be one whole number, 0 for no limit");
    }
    folder.maxRowsPerFile = static_cast<uint64_t>(numbers[0]);
  }
  if (existing) {
    const std::string mode = lowercase(textOf(*existing, "ExistingFiles"));
    if (mode == "error") {
      folder.existingFiles = ds::ExistingFiles::kRefuse;
    } else if (mode == "add") {
      folder.existingFiles = ds::ExistingFiles::kAdd;
    } else if (mode == "replace") {
      folder.existingFiles = ds::ExistingFiles::kReplacePartitions;
    } else {
      invalid("ExistingFiles must be \"error\", \"add\" or \"replace\"");
    }
  }
  return folder;
}

mxArray* cellColumnOf(const std::vector<std::string>& texts) {
  mxArray* cell = mxCreateCellMatrix(texts.size(), 1);
  for (size_t i = 0; i < texts.size(); ++i) mxSetCell(cell, i, textOfUtf8(texts[i]));
  return cell;
}

}  // namespace

void writeCommand(int nout, mxArray* out[], int count, const mxArray* args[]) {
  if (count < 2) invalid("pq_write needs a file name and a table");
  const mxArray* options = count > 2 ? args[2] : nullptr;
  if (!mxIsStruct(args[1]) || mxGetNumberOfElements(args[1]) != 1) {
    invalid("the table must be a 1x1 struct with one field per variable");
  }
  const std::u16string file = fileNameOf(args[0]);
  auto folder = folderOptionsOf(options);
  const auto heights = optionOf(options, "RowGroupHeights");
  if (folder && heights) {
    invalid("RowGroupHeights is for one file; the files of a folder take MaxRowGroupLength");
  }
  const matrix::unique_array table = toHost(args[1]);

  std::vector<std::string> tableNames;
  for (int f = 0; f < mxGetNumberOfFields(args[1]); ++f) {
    tableNames.push_back(mxGetFieldNameByNumber(args[1], f));
  }
  const WriterSettings settings = settingsOf(options, tableNames);

  if (folder) {
    folder->configureFile = [&settings](ParquetWriter& writer, const ::arrow::Schema& schema) {
      configure(writer, &schema, settings);
    };
    // A Ctrl-C during the translation stops here, before anything is written.
    utInterruptState::ThrowIfInterruptPending();
    const auto result = ds::writeDataset(ustring_to_utf8(file), table.get(), *folder);
    if (nout > 0) {
      std::vector<std::string> paths;
      for (const auto& written : result.files) paths.push_back(written.path);
      out[0] = cellColumnOf(paths);
    }
    return;
  }

  ParquetWriter writer(file);
  std::vector<std::u16string> names;
  for (const auto& name : tableNames) names.push_back(utf8_to_ustring(name));
  writer.setVariableNames(names);
  // The schema and the height alone: a view of the table costs no copy of its values. A
  // table the view refuses is left to the writer, which says what is wrong with it.
  std::shared_ptr<::arrow::Table> view;
  if (settings.compressions || settings.encodings || heights) {
    auto made = vantro::io::arrow::core::to_arrow_table_view(table.get());
    if (made.ok()) view = *made;
  }
  configure(writer, view ? view->schema().get() : nullptr, settings);
  if (view && heights) checkHeights(numbersOf(*heights, "RowGroupHeights"), view->num_rows());
  view.reset();

  // A Ctrl-C during the translation stops here, before anything is written.
  utInterruptState::ThrowIfInterruptPending();
  if (heights) {
    const auto values = numbersOf(*heights, "RowGroupHeights");
    matrix::unique_array hostHeights(vxCreateDoubleMatrix(1, values.size(), vxREAL));
    std::copy(values.begin(), values.end(), vxGetPr(hostHeights.get()));
    writer.writeRowGroups(table.get(), hostHeights.get());
  } else {
    writer.write(table.get());
  }
  writer.close();
  if (nout > 0) out[0] = cellColumnOf({ustring_to_utf8(file)});
}

}  // namespace vantro::octave
