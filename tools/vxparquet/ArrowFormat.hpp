#pragma once

// Text of Arrow values for vxparquet's outputs: every value as the file holds it (integers of
// any width, decimals from their unscaled integers, NaN apart from missing), without a
// general-purpose formatter per value.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <arrow/array.h>
#include <arrow/record_batch.h>
#include <arrow/result.h>
#include <arrow/table.h>

namespace vxparquet::format {

// How missing values and fields look in CSV.
struct CsvOptions {
  char delimiter = ',';
  bool header = true;
  // The text of a missing value; an empty text is then printed as "".
  std::string missing;
};

// The values of one array (one chunk of a column) as text. Callers ask for non-null rows only;
// IsNull says which those are.
class ValueFormatter {
 public:
  explicit ValueFormatter(const ::arrow::Array& array) : mArray(array) {}
  virtual ~ValueFormatter() = default;

  bool IsNull(int64_t row) const { return mArray.IsNull(row); }
  // A JSON value: numbers bare, texts and datetimes as strings, nested values as arrays and
  // objects.
  virtual void AppendJson(int64_t row, std::string* out) const = 0;
  // Plain text for CSV and the table view: texts without quotes, everything else as in JSON.
  virtual void AppendText(int64_t row, std::string* out) const { AppendJson(row, out); }
  // Whether the value is a text that CSV and the table view quote.
  virtual bool IsText() const { return false; }
  // Numbers align on the right in the table view.
  virtual bool IsNumber() const { return false; }

 protected:
  const ::arrow::Array& mArray;
};

// The formatter of an array of any type the program reads; the array must outlive it.
::arrow::Result<std::unique_ptr<ValueFormatter>> MakeValueFormatter(const ::arrow::Array& array);

// The value at row as JSON, null when missing.
void AppendJsonValue(const ValueFormatter& values, int64_t row, std::string* out);

// A JSON string literal; control characters escaped.
void AppendJsonString(std::string_view text, std::string* out);
// A CSV field: quoted when it holds the delimiter, a quote or a line end, when it is empty or
// when it reads like the missing text.
void AppendCsvField(std::string_view text, const CsvOptions& options, std::string* out);

// Rows of record batches as lines of text.
class RowFormatter {
 public:
  static ::arrow::Result<RowFormatter> Make(const ::arrow::RecordBatch& batch);

  // {"<name>": value, ...} per row, each ending in a line end.
  void AppendJsonLines(int64_t begin, int64_t end, std::string* out) const;
  // One CSV line per row.
  void AppendCsvLines(int64_t begin, int64_t end, const CsvOptions& options,
                      std::string* out) const;

 private:
  std::vector<std::string> mJsonNames;                   // "\"name\":" ready to print
  std::vector<std::shared_ptr<::arrow::Array>> mArrays;  // what the formatters read
  std::vector<std::unique_ptr<ValueFormatter>> mColumns;
};

// The CSV header line of a schema's field names, with its line end.
std::string CsvHeader(const ::arrow::Schema& schema, const CsvOptions& options);

// The streamed formats.
enum class LineFormat { kJsonLines, kCsv };

// Formats the table's rows on the host's threads, in pieces of rows, and writes them to out in
// order. Memory stays within a few pieces of text beyond the table. Returns the bytes written.
::arrow::Result<uint64_t> WriteLines(const ::arrow::Table& table, LineFormat format,
                                     const CsvOptions& options, std::FILE* out);

// {"variables":[{"name":..,"type":..}],"rows":R,"columns":{"<name>":[..],..}}; types are the
// host type names given, one per column.
::arrow::Result<std::string> JsonDocument(const ::arrow::Table& table,
                                          const std::vector<std::string>& types);

}  // namespace vxparquet::format
