// Writes small Parquet files of every type family the library reads, under a few writer
// settings, into the folder given as the only argument: the read fuzzer's seed corpus.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <arrow/ipc/json_simple.h>
#include <parquet/arrow/writer.h>
#include <parquet/properties.h>

namespace {

struct Column {
  std::string name;
  std::shared_ptr<arrow::DataType> type;
  std::string json;
};

// Five rows each, nulls included, so that every file has def levels and statistics to decode.
std::vector<Column> columns() {
  using namespace arrow;
  return {
      {"b", boolean(), "[true, null, false, true, false]"},
      {"i8", int8(), "[-128, 0, null, 127, 1]"},
      {"u8", uint8(), "[0, 255, null, 1, 2]"},
      {"i16", int16(), "[-32768, 0, null, 32767, 1]"},
      {"u16", uint16(), "[0, 65535, null, 1, 2]"},
      {"i32", int32(), "[-2147483648, 0, null, 2147483647, 1]"},
      {"u32", uint32(), "[0, 4294967295, null, 1, 2]"},
      {"i64", int64(), "[-9223372036854775808, 0, null, 9223372036854775807, 1]"},
      {"u64", uint64(), "[0, 18446744073709551615, null, 1, 2]"},
      {"f32", float32(), "[1.5, -0.0, null, 3.4e38, NaN]"},
      {"f64", float64(), "[1.5, -0.0, null, 1.7e308, Inf]"},
      {"s", utf8(), R"(["a", "", null, "\u00e9t\u00e9", "zz"])"},
      {"ls", large_utf8(), R"(["a", "", null, "b", "c"])"},
      {"bin", binary(), R"(["00", "", null, "ff", "0a"])"},
      {"fsb", fixed_size_binary(2), R"(["ab", "cd", null, "ef", "gh"])"},
      {"d32", date32(), "[0, -1, null, 19000, 1]"},
      {"d64", date64(), "[0, 86400000, null, 1, 2]"},
      {"ts_s", timestamp(TimeUnit::SECOND), "[0, 1, null, 2, 3]"},
      {"ts_ms_tz", timestamp(TimeUnit::MILLI, "UTC"), "[0, 1, null, 2, 3]"},
      {"ts_us", timestamp(TimeUnit::MICRO), "[0, 1, null, 2, 3]"},
      {"ts_ns", timestamp(TimeUnit::NANO, "Europe/Paris"), "[0, 1000, null, 2000, 3000]"},
      {"t32", time32(TimeUnit::MILLI), "[0, 1, null, 86399999, 3]"},
      {"t64", time64(TimeUnit::NANO), "[0, 1000, null, 86399999999000, 3000]"},
      {"dur", duration(TimeUnit::MICRO), "[0, -1, null, 2, 3]"},
      {"dec", decimal128(9, 2), R"(["1.25", "-3.00", null, "0.01", "9999999.99"])"},
      {"dec38", decimal128(38, 0), R"(["1", "-3", null, "0", "12345678901234567890"])"},
      {"dict", dictionary(int32(), utf8()), R"(["x", "y", null, "x", "z"])"},
      {"list", list(int32()), "[[1, 2], [], null, [null], [3]]"},
      {"llist", large_list(utf8()), R"([["a"], [], null, [null, "b"], ["c"]])"},
      {"map", map(utf8(), int64()), R"([[["k", 1]], [], null, [["a", 2], ["b", null]], []])"},
      {"st", struct_({field("x", int32()), field("y", utf8())}),
       R"([{"x": 1, "y": "a"}, null, {"x": null, "y": "b"}, {"x": 3, "y": null}, {"x": 4, "y": "d"}])"},
      {"lst", list(struct_({field("p", float64())})),
       R"([[{"p": 1.0}], [], null, [{"p": null}], [{"p": 2.0}, {"p": 3.0}]])"},
      {"ldict", list(dictionary(int8(), utf8())), R"([["a"], [], null, ["b", "a"], ["c"]])"},
      {"null", null(), "[null, null, null, null, null]"},
  };
}

std::shared_ptr<arrow::Table> tableOf(const std::vector<Column>& chosen) {
  arrow::FieldVector fields;
  arrow::ArrayVector arrays;
  for (const auto& c : chosen) {
    fields.push_back(arrow::field(c.name, c.type));
    arrays.push_back(arrow::ipc::internal::json::ArrayFromJSON(c.type, c.json).ValueOrDie());
  }
  return arrow::Table::Make(arrow::schema(fields), arrays);
}

struct Setting {
  std::string name;
  std::shared_ptr<parquet::WriterProperties> properties;
  int64_t rowGroupSize;
};

std::vector<Setting> settings() {
  using parquet::WriterProperties;
  return {
      {"default", parquet::default_writer_properties(), 2},
      {"v1_plain_gzip",
       WriterProperties::Builder()
           .version(parquet::ParquetVersion::PARQUET_1_0)
           ->disable_dictionary()
           ->compression(arrow::Compression::GZIP)
           ->build(),
       3},
      {"v2_pages_zstd",
       WriterProperties::Builder()
           .data_page_version(parquet::ParquetDataPageVersion::V2)
           ->compression(arrow::Compression::ZSTD)
           ->build(),
       5},
      {"no_stats_snappy",
       WriterProperties::Builder()
           .disable_statistics()
           ->compression(arrow::Compression::SNAPPY)
           ->build(),
       1},
  };
}

arrow::Status writeFile(const std::string& path, const std::shared_ptr<arrow::Table>& table,
                        const Setting& setting) {
  ARROW_ASSIGN_OR_RAISE(auto out, arrow::io::FileOutputStream::Open(path));
  auto arrowProperties = parquet::ArrowWriterProperties::Builder().store_schema()->build();
  ARROW_RETURN_NOT_OK(parquet::arrow::WriteTable(*table, arrow::default_memory_pool(), out,
                                                 setting.rowGroupSize, setting.properties,
                                                 arrowProperties));
  return out->Close();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_seed_corpus FOLDER\n";
    return 2;
  }
  const std::string folder = argv[1];
  const auto all = columns();
  int written = 0;
  for (const auto& setting : settings()) {
    // One small file per column keeps inputs short, which is what the fuzzer mutates best; one
    // file with everything covers the interplay of many columns.
    for (const auto& column : all) {
      const auto path = folder + "/" + setting.name + "_" + column.name + ".parquet";
      const auto status = writeFile(path, tableOf({column}), setting);
      if (!status.ok()) {
        std::cerr << path << ": " << status.ToString() << "\n";
        return 1;
      }
      ++written;
    }
    const auto status =
        writeFile(folder + "/" + setting.name + "_all.parquet", tableOf(all), setting);
    if (!status.ok()) {
      std::cerr << setting.name << "_all: " << status.ToString() << "\n";
      return 1;
    }
    ++written;
  }
  // A file without row groups.
  std::unique_ptr<parquet::arrow::FileWriter> writer;
  auto out = arrow::io::FileOutputStream::Open(folder + "/no_row_groups.parquet").ValueOrDie();
  auto opened = parquet::arrow::FileWriter::Open(*tableOf({all[7]})->schema(),
                                                 arrow::default_memory_pool(), out);
  if (!opened.ok() || !(*opened)->Close().ok() || !out->Close().ok()) return 1;
  std::cout << written + 1 << " seed files in " << folder << "\n";
  return 0;
}
