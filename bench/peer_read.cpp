// The C++ side of bench/peers: times the library and Arrow of this build, in this process, on
// command from the script, so that the script can alternate them with Python readers.
//
//   peer_read --threads N               reads commands "<kind> <path>" from standard input and
//                                       answers each with one line: its seconds, or "error ..."
//   peer_read --threads N --once KIND PATH
//                                       runs one command and exits (for peak memory)
//
// Kinds: "library" (RowGroupParquetReader::readFullFile into host values), "library-table" (the
// same read through one whole Arrow table first, as before reads went variable by variable),
// "arrow" (Arrow's local file class and FileReader::ReadTable into an Arrow table), "write" (the
// host values of PATH, read once and kept, written with ParquetWriter to a temporary file; only the
// write is timed), "arrow-version" (prints Arrow's version instead of seconds), "dataset" (PATH a
// folder, pattern or file read as one dataset: DatasetReader::readall into host values, with the
// filter of "--where TEXT" if given; answers "<seconds> <rows>").
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <arrow/util/config.h>
#include <arrow/util/thread_pool.h>
#include <parquet/arrow/reader.h>

#include "BenchUtil.hpp"
#include "host/converter/Converter.hpp"
#include "host/converter/HostValues.hpp"
#include "host/except/Exception.hpp"
#include "host/services/LargeBlockPool.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vantro::io::parquet::core::write::ParquetWriter;

arrow::Status arrowReadTable(const std::string& path) {
  ARROW_ASSIGN_OR_RAISE(auto file, arrow::io::ReadableFile::Open(path));
  std::unique_ptr<parquet::arrow::FileReader> reader;
  ARROW_RETURN_NOT_OK(vantro::io::parquet::core::common::compat::OpenFile(
      file, arrow::default_memory_pool(), &reader));
  reader->set_use_threads(true);
  std::shared_ptr<arrow::Table> table;
  return vantro::io::parquet::core::common::compat::ReadTable(*reader, &table);
}

// Host tables of the files written so far, read once each.
class HostTables {
 public:
  const vxArray_tag* of(const std::string& path) {
    auto& table = mTables[path];
    if (table == nullptr) {
      table = RowGroupParquetReader(foundation::unicode::utf8_to_ustring(path), {}).readFullFile();
    }
    return table.get();
  }

 private:
  std::map<std::string, matrix::unique_array> mTables;
};

void writeHost(const vxArray_tag* table, const std::string& out) {
  ParquetWriter writer(foundation::unicode::utf8_to_ustring(out));
  const vxArray_tag* names = vxGetField(table, 0, "Names");
  std::vector<std::u16string> variableNames;
  for (size_t i = 0; i < vxGetNumberOfElements(names); ++i) {
    variableNames.push_back(foundation::unicode::utf8_to_ustring(
        vantro::io::arrow::core::host::TextOf(vxGetCell(names, i))));
  }
  writer.setVariableNames(variableNames);
  writer.write(table);
  writer.close();
}

// The rows of a dataset read whole into host values.
size_t readDataset(const std::string& sources, const std::string& where) {
  namespace dataset = vantro::io::parquet::core::dataset;
  auto files = std::make_shared<const dataset::Dataset>(std::vector<std::string>{sources},
                                                        dataset::DatasetOptions{});
  dataset::DatasetReader reader(files, {}, where);
  const auto table = reader.readall();
  // The benchmark's datasets start with a plain numeric column: its height is the table's.
  const vxArray_tag* columns = vxGetField(table.get(), 0, "Columns");
  return vxGetNumberOfElements(columns) == 0 ? 0 : vxGetM(vxGetCell(columns, 0));
}

// Runs one command; returns its seconds, or an error text.
std::string run(const std::string& kind, const std::string& path, HostTables& tables,
                const std::string& scratch, const std::string& where = "") {
  if (kind == "arrow-version") return ARROW_VERSION_STRING;
  const vxArray_tag* toWrite = kind == "write" ? tables.of(path) : nullptr;
  const auto start = std::chrono::steady_clock::now();
  if (kind == "library" || kind == "library-table") {
    vantro::io::parquet::core::read::ParquetReader::setReadVariableByVariable(kind == "library");
    RowGroupParquetReader(foundation::unicode::utf8_to_ustring(path), {}).readFullFile();
  } else if (kind == "arrow") {
    const arrow::Status status = arrowReadTable(path);
    if (!status.ok()) return "error " + status.ToString();
  } else if (kind == "write") {
    writeHost(toWrite, scratch + "/out.parquet");
  } else if (kind == "dataset") {
    const size_t rows = readDataset(path, where);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return std::to_string(seconds) + " " + std::to_string(rows);
  } else {
    return "error unknown kind " + kind;
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return std::to_string(seconds);
}

std::string runCaught(const std::string& kind, const std::string& path, HostTables& tables,
                      const std::string& scratch, const std::string& where = "") {
  try {
    return run(kind, path, tables, scratch, where);
  } catch (const foundation::core::except::IMsgIDException& e) {
    return "error " + std::string(e.identifier()) + ": " + e.message();
  } catch (const std::exception& e) {
    return std::string("error ") + e.what();
  }
}

std::string argumentAfter(int argc, char** argv, const std::string& name) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (argv[i] == name) return argv[i + 1];
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  // As a host program starts: its memory setting, then its thread count for Arrow and the host.
  foundation::services::setArrowMemoryDecayMs(foundation::services::kProgramArrowMemoryDecayMs);
  // Whole files read once, as the Octave package reads them: columns decode into blocks that
  // grow in place instead of being copied at each step.
  foundation::services::useLargeBlockPoolForReads(/*keepFreedPages=*/false);
  const int threads = static_cast<int>(vxbench::intArgument(argc, argv, "--threads", 2));
  foundation::services::setNumComputationalThreads(threads);
  if (!arrow::SetCpuThreadPoolCapacity(threads).ok()) return 2;

  const std::string scratch = vxbench::makeTempFolder("peer_read");
  HostTables tables;
  const std::string once = argumentAfter(argc, argv, "--once");
  int failed = 0;
  if (!once.empty()) {
    const std::string answer =
        runCaught(once, argv[argc - 1], tables, scratch, argumentAfter(argc, argv, "--where"));
    std::cout << answer << std::endl;
    failed = answer.rfind("error", 0) == 0;
  } else {
    std::string kind, path;
    while (std::cin >> kind >> path) {
      std::cout << runCaught(kind, path, tables, scratch) << std::endl;
    }
  }
  vxbench::removeFolder(scratch);
  return failed;
}
