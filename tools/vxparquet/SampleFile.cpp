#include "SampleFile.hpp"

#include <cstdlib>
#include <stdexcept>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <parquet/arrow/writer.h>

namespace vxparquet {
namespace {

std::shared_ptr<arrow::Table> sampleTable() {
  const char* cities[] = {"Lisbon", "Oslo", "Zürich", "Kyoto", "Lima"};
  arrow::Int32Builder day;
  arrow::StringBuilder city;
  arrow::DoubleBuilder temperature;
  for (int i = 0; i < 30; ++i) {
    ARROW_UNUSED(day.Append(i + 1));
    ARROW_UNUSED(city.Append(cities[i % 5]));
    if (i % 7 == 6) {
      ARROW_UNUSED(temperature.AppendNull());
    } else {
      ARROW_UNUSED(temperature.Append(10.0 + (i * 37 % 23) / 2.0));
    }
  }
  auto schema =
      arrow::schema({arrow::field("Day", arrow::int32()), arrow::field("City", arrow::utf8()),
                     arrow::field("Temperature", arrow::float64())});
  return arrow::Table::Make(schema, {day.Finish().ValueOrDie(), city.Finish().ValueOrDie(),
                                     temperature.Finish().ValueOrDie()});
}

}  // namespace

std::string writeSampleFile() {
  const char* tmp = std::getenv("TMPDIR");
  const std::string path = std::string(tmp && *tmp ? tmp : "/tmp") + "/vxparquet-sample.parquet";
  auto sink = arrow::io::FileOutputStream::Open(path);
  if (!sink.ok()) throw std::runtime_error("cannot write the sample: " + sink.status().ToString());
  const auto status = parquet::arrow::WriteTable(*sampleTable(), arrow::default_memory_pool(),
                                                 *sink, /*chunk_size=*/10);
  if (!status.ok()) throw std::runtime_error("cannot write the sample: " + status.ToString());
  ARROW_UNUSED((*sink)->Close());
  return path;
}

}  // namespace vxparquet
