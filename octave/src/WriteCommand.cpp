// pq_write: an Octave table (1x1 struct of columns) through the library's ParquetWriter.
#include <algorithm>
#include <cctype>
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
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace vantro::octave {

namespace {

using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::common::throwException;
using vantro::io::parquet::core::write::ParquetWriter;
namespace msg = VANTRO::parquetio::write;

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

}  // namespace

void writeCommand(int, mxArray*[], int count, const mxArray* args[]) {
  if (count < 2) invalid("pq_write needs a file name and a table");
  const mxArray* options = count > 2 ? args[2] : nullptr;
  if (!mxIsStruct(args[1]) || mxGetNumberOfElements(args[1]) != 1) {
    invalid("the table must be a 1x1 struct with one field per variable");
  }
  const std::u16string file = fileNameOf(args[0]);
  const matrix::unique_array table = toHost(args[1]);

  ParquetWriter writer(file);
  std::vector<std::u16string> names;
  for (int f = 0; f < mxGetNumberOfFields(args[1]); ++f) {
    names.push_back(utf8_to_ustring(mxGetFieldNameByNumber(args[1], f)));
  }
  writer.setVariableNames(names);
  if (const auto version = optionOf(options, "Version")) {
    writer.setVersion(textOf(*version, "Version"));
  }
  if (const auto length = optionOf(options, "MaxRowGroupLength")) {
    const auto numbers = numbersOf(*length, "MaxRowGroupLength");
    if (numbers.size() != 1 || !(numbers[0] >= 1) || numbers[0] > 9.2e18) {
      invalid("MaxRowGroupLength must be one positive number");
    }
    writer.setMaxRowGroupLength(static_cast<int64_t>(numbers[0]));
  }
  const auto compression = optionOf(options, "Compression");
  const auto encoding = optionOf(options, "Encoding");
  const auto heights = optionOf(options, "RowGroupHeights");
  if (compression || encoding || heights) {
    // The schema and the height alone: a view of the table costs no copy of its values. A
    // table the view refuses is left to the writer, which says what is wrong with it.
    auto view = vantro::io::arrow::core::to_arrow_table_view(table.get());
    if (view.ok() && (compression || encoding)) setLeafPaths(writer, *(*view)->schema());
    if (view.ok() && heights)
      checkHeights(numbersOf(*heights, "RowGroupHeights"), (*view)->num_rows());
  }
  if (compression) {
    writer.setVariableCompression(
        perVariable(*compression, names.size(), "Compression",
                    {"snappy", "gzip", "brotli", "zstd", "lz4", "uncompressed"}));
  }
  if (encoding) {
    writer.setVariableEncoding(
        perVariable(*encoding, names.size(), "Encoding", {"dictionary", "plain"}));
  }

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
}

}  // namespace vantro::octave
