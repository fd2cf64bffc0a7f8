#pragma once

#include <arrow/util/config.h>

// Fixtures shared by the test programs.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>
#include <parquet/arrow/writer.h>
#include <parquet/properties.h>
#include <boost/property_tree/ptree.hpp>

#include "host/except/Exception.hpp"
#include "host/log/DiagnosticLogger.hpp"

namespace vxtest {

// A fresh folder under /tmp, removed with everything in it on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return mPath; }
  // path()/name, as UTF-8 and as UTF-16.
  std::string file(const std::string& name) const { return mPath + "/" + name; }
  std::u16string ufile(const std::string& name) const;

 private:
  std::string mPath;
};

// What the build's Arrow writes and reads, where releases differ.
// The created-by text of files Parquet writes.
inline const std::string kCreatedBy =
    std::string("parquet-cpp-arrow version ") + ARROW_VERSION_STRING;
// The name newer releases give the element field of a list read from Parquet ("item" before).
inline const std::string kListElementName = ARROW_VERSION_MAJOR >= 19 ? "element" : "item";
// Parquet 11 writes a distinct count of 0 in every chunk's statistics; newer releases none.
inline constexpr bool kWritesDistinctCount = ARROW_VERSION_MAJOR < 19;

std::u16string u16(const std::string& utf8);
std::string u8(const std::u16string& utf16);

bool fileExists(const std::string& path);
void writeBytes(const std::string& path, const std::string& bytes);
std::string readBytes(const std::string& path);

// Writes table to path with Parquet's Arrow writer; rowGroupSize rows per row group.
void writeParquet(
    const std::string& path, const std::shared_ptr<arrow::Table>& table,
    int64_t rowGroupSize = 1024 * 1024,
    std::shared_ptr<parquet::WriterProperties> properties = parquet::default_writer_properties(),
    std::shared_ptr<parquet::ArrowWriterProperties> arrowProperties =
        parquet::default_arrow_writer_properties());

// Writes a file with the given schema and no row groups at all.
void writeParquetWithoutRowGroups(const std::string& path,
                                  const std::shared_ptr<arrow::Schema>& schema);

// Writes a copy of source without its last `cut` bytes.
void writeTruncatedCopy(const std::string& source, const std::string& target, size_t cut);

// Builds an array of the given type from JSON text, e.g. arrayFromJSON(arrow::int64(), "[1,
// null]").
std::shared_ptr<arrow::Array> arrayFromJSON(const std::shared_ptr<arrow::DataType>& type,
                                            const std::string& json);

// A table with columns "id" (int64 0..rows-1), "x" (double id/2) and "name" (string "r<id>").
std::shared_ptr<arrow::Table> simpleTable(int64_t rows);
// A table of the named columns, each field of its column's type.
std::shared_ptr<arrow::Table> table(const std::vector<std::string>& names,
                                    const std::vector<std::shared_ptr<arrow::Array>>& columns);

// Writes simpleTable(rows) in row groups of rowGroupSize rows; returns the path.
std::string writeSimpleFile(const TempDir& dir, const std::string& name, int64_t rows,
                            int64_t rowGroupSize);

// Records every log record formed while it lives, with the given severity mask enabled.
class LogCapture {
 public:
  struct Record {
    unsigned severity;
    int indent;
    std::string text;
  };
  explicit LogCapture(unsigned mask = foundation::log::severity::kAll);
  ~LogCapture();
  std::vector<Record> records() const;
  // True when some record's text contains needle.
  bool contains(const std::string& needle) const;

 private:
  struct State;
  std::shared_ptr<State> mState;
  unsigned mPreviousMask;
};

// Runs fn, expects a host exception with the given full identifier, and returns its arguments.
// Fails the test (and returns nothing) otherwise.
std::optional<foundation::core::except::MessageArguments> expectHostError(
    const std::function<void()>& fn, const std::string& identifier);

// Runs the built vxparquet program with the given argument text (shell syntax) and returns its
// exit code, standard output and standard error.
struct ProgramResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};
ProgramResult runVxparquet(const std::string& arguments);

// Parses the program's JSON output; throws boost's parser error on invalid JSON.
boost::property_tree::ptree parseJson(const std::string& text);

// The public Parquet test corpus, when ../shared holds it; empty otherwise.
std::string interopDir();
// Every *.parquet file of the corpus, sorted.
std::vector<std::string> interopFiles();

}  // namespace vxtest

// Skips the current test when the interop corpus is missing.
#define VX_REQUIRE_INTEROP()                                                \
  do {                                                                      \
    if (::vxtest::interopDir().empty()) {                                   \
      GTEST_SKIP() << "parquet-testing corpus not found at " VX_INTEROP_DIR \
                   << "; interoperability tests skipped";                   \
    }                                                                       \
  } while (0)
