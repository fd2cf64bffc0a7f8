// Times the converter per column kind against a plain memcpy of the same fixed-width bytes.
//
//   convert_bench [--rows N]     (default 10,000,000)
//
// Nested and nullable columns are timed too (one list row per 10 rows of the flat columns).
//
// Last line: fixed_width_vs_memcpy=<ratio> string_mb_per_s=<UTF-8 MB per second, one thread>
//            list_rows_per_s=<list<int64> rows per second, one thread>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include <arrow/api.h>

#include "bench/BenchUtil.hpp"
#include "host/converter/Converter.hpp"
#include "host/services/Services.hpp"

namespace {

namespace core = vantro::io::arrow::core;
constexpr int kRepetitions = 5;

template <typename Builder, typename Make>
std::shared_ptr<arrow::Array> build(int64_t rows, Make make) {
  Builder builder;
  if (!builder.Reserve(rows).ok()) std::abort();
  for (int64_t i = 0; i < rows; ++i) make(builder, i);
  return builder.Finish().ValueOrDie();
}

std::shared_ptr<arrow::Table> makeTable(int64_t rows) {
  std::mt19937_64 random(42);
  std::uniform_real_distribution<double> uniform(0, 1);
  auto doubles = [&](arrow::DoubleBuilder& b, int64_t) { b.UnsafeAppend(uniform(random)); };
  auto ints = [&](arrow::Int64Builder& b, int64_t i) { b.UnsafeAppend(i * 31 - 7); };
  auto sparse = [&](arrow::DoubleBuilder& b, int64_t) {
    if (uniform(random) < 0.1) {
      b.UnsafeAppendNull();
    } else {
      b.UnsafeAppend(uniform(random));
    }
  };
  arrow::StringBuilder strings;
  if (!strings.Reserve(rows).ok() || !strings.ReserveData(rows * 12).ok()) std::abort();
  char text[16];
  for (int64_t i = 0; i < rows; ++i) {
    std::snprintf(text, sizeof text, "name-%07lld", static_cast<long long>(i % 10000000));
    strings.UnsafeAppend(text, 12);
  }
  auto stamps = build<arrow::Int64Builder>(rows, [](arrow::Int64Builder& b, int64_t i) {
    b.UnsafeAppend(1700000000000000000LL + i * 1000);
  });
  auto timestampType = arrow::timestamp(arrow::TimeUnit::NANO, "UTC");
  auto timestamps = arrow::MakeArray(stamps->data()->Copy());
  timestamps->data()->type = timestampType;
  timestamps = arrow::MakeArray(timestamps->data());

  return arrow::Table::Make(
      arrow::schema({arrow::field("d1", arrow::float64()), arrow::field("d2", arrow::float64()),
                     arrow::field("i1", arrow::int64()), arrow::field("i2", arrow::int64()),
                     arrow::field("sparse", arrow::float64()), arrow::field("name", arrow::utf8()),
                     arrow::field("time", timestampType)}),
      {build<arrow::DoubleBuilder>(rows, doubles), build<arrow::DoubleBuilder>(rows, doubles),
       build<arrow::Int64Builder>(rows, ints), build<arrow::Int64Builder>(rows, ints),
       build<arrow::DoubleBuilder>(rows, sparse), strings.Finish().ValueOrDie(), timestamps});
}

// list<int64> (0-9 elements, every 20th row null), list<double> with null elements and
// map<int32, double>: the nested shapes whose rows each become a host array.
std::shared_ptr<arrow::Table> makeNestedTable(int64_t rows) {
  std::mt19937_64 random(7);
  auto* pool = arrow::default_memory_pool();
  auto ints = std::make_shared<arrow::Int64Builder>(pool);
  arrow::ListBuilder intLists(pool, ints);
  auto doubles = std::make_shared<arrow::DoubleBuilder>(pool);
  arrow::ListBuilder doubleLists(pool, doubles);
  auto keys = std::make_shared<arrow::Int32Builder>(pool);
  auto items = std::make_shared<arrow::DoubleBuilder>(pool);
  arrow::MapBuilder maps(pool, keys, items);
  for (int64_t i = 0; i < rows; ++i) {
    const int count = static_cast<int>(random() % 10);
    if (i % 20 == 0) {
      if (!intLists.AppendNull().ok()) std::abort();
    } else {
      if (!intLists.Append().ok()) std::abort();
      for (int k = 0; k < count; ++k) {
        if (!ints->Append(static_cast<int64_t>(random() % 100000)).ok()) std::abort();
      }
    }
    if (!doubleLists.Append().ok() || !maps.Append().ok()) std::abort();
    for (int k = 0; k < count; ++k) {
      if (!(random() % 5 == 0 ? doubles->AppendNull() : doubles->Append(k * 0.5)).ok() ||
          !keys->Append(k).ok() || !items->Append(k * 1.5).ok()) {
        std::abort();
      }
    }
  }
  return arrow::Table::Make(
      arrow::schema({arrow::field("ints", arrow::list(arrow::int64())),
                     arrow::field("doubles", arrow::list(arrow::float64())),
                     arrow::field("map", arrow::map(arrow::int32(), arrow::float64()))}),
      {intLists.Finish().ValueOrDie(), doubleLists.Finish().ValueOrDie(),
       maps.Finish().ValueOrDie()});
}

// int64 and string columns with 20% nulls: the integers become double with NaN.
std::shared_ptr<arrow::Table> makeNullableTable(int64_t rows) {
  std::mt19937_64 random(11);
  arrow::Int64Builder ints;
  arrow::StringBuilder strings;
  for (int64_t i = 0; i < rows; ++i) {
    const bool null = random() % 5 == 0;
    if (!(null ? ints.AppendNull() : ints.Append(i)).ok()) std::abort();
    if (!(null ? strings.AppendNull() : strings.Append("text-" + std::to_string(i % 1000))).ok()) {
      std::abort();
    }
  }
  return arrow::Table::Make(
      arrow::schema({arrow::field("i", arrow::int64()), arrow::field("s", arrow::utf8())}),
      {ints.Finish().ValueOrDie(), strings.Finish().ValueOrDie()});
}

std::shared_ptr<arrow::Table> select(const std::shared_ptr<arrow::Table>& table,
                                     const std::vector<int>& indices) {
  return table->SelectColumns(indices).ValueOrDie();
}

vxbench::Timing timeToHost(const std::shared_ptr<arrow::Table>& table) {
  return vxbench::measure(
      [&] {
        auto host = core::to_vantro(table);
        if (!host.ok()) std::abort();
      },
      kRepetitions);
}

vxbench::Timing timeToArrow(const std::shared_ptr<arrow::Table>& table) {
  auto host = core::to_vantro(table).ValueOrDie();
  return vxbench::measure(
      [&] {
        auto back = core::to_arrow_table(host.get());
        if (!back.ok()) std::abort();
      },
      kRepetitions);
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t rows = vxbench::intArgument(argc, argv, "--rows", 10000000);
  const auto table = makeTable(rows);
  std::cout << "rows: " << rows << "\n";

  // One thread throughout: the figures compare conversion work, not core counts.
  foundation::services::setNumComputationalThreads(1);
  const auto fixedWidth = select(table, {0, 1, 2, 3});
  const auto withNulls = select(table, {4});
  const auto strings = select(table, {5});
  const auto timestamps = select(table, {6});

  // The memcpy baseline: the same bytes into freshly allocated memory, as the converter does.
  const size_t bytes = static_cast<size_t>(rows) * sizeof(double);
  const auto memcpyTiming = vxbench::measure(
      [&] {
        for (int c = 0; c < 4; ++c) {
          void* target = std::malloc(bytes);
          std::memcpy(target, fixedWidth->column(c)->chunk(0)->data()->buffers[1]->data(), bytes);
          // Keeps the compiler from dropping the copy into memory nobody reads.
          asm volatile("" : : "r"(target) : "memory");
          std::free(target);
        }
      },
      kRepetitions);
  vxbench::report("memcpy fixed-width (4 columns)", memcpyTiming);

  const auto fixedTiming = timeToHost(fixedWidth);
  vxbench::report("to_vantro fixed-width (4 columns)", fixedTiming);
  vxbench::report("to_arrow_table fixed-width (4 columns)", timeToArrow(fixedWidth));
  vxbench::report("to_vantro double with 10% nulls", timeToHost(withNulls));
  vxbench::report("to_arrow_table double with 10% nulls", timeToArrow(withNulls));
  const auto stringTiming = timeToHost(strings);
  vxbench::report("to_vantro string", stringTiming);
  vxbench::report("to_arrow_table string", timeToArrow(strings));
  vxbench::report("to_vantro timestamp", timeToHost(timestamps));
  vxbench::report("to_arrow_table timestamp", timeToArrow(timestamps));

  const int64_t nestedRows = rows / 10;
  const auto nested = makeNestedTable(nestedRows);
  const auto listTiming = timeToHost(select(nested, {0}));
  vxbench::report("to_vantro list<int64>", listTiming);
  vxbench::report("to_vantro list<double> with null elements", timeToHost(select(nested, {1})));
  vxbench::report("to_vantro map<int32, double>", timeToHost(select(nested, {2})));
  const auto nullable = makeNullableTable(rows);
  vxbench::report("to_vantro int64 with 20% nulls", timeToHost(select(nullable, {0})));
  vxbench::report("to_vantro string with 20% nulls", timeToHost(select(nullable, {1})));

  foundation::services::setNumComputationalThreads(0);
  vxbench::report("to_vantro whole table (all threads)", timeToHost(table));
  vxbench::report("to_vantro list<int64> (all threads)", timeToHost(select(nested, {0})));

  const auto& stringArray = static_cast<const arrow::StringArray&>(*strings->column(0)->chunk(0));
  const double stringMB =
      static_cast<double>(stringArray.value_offset(rows) - stringArray.value_offset(0)) / 1e6;
  std::cout << "fixed_width_vs_memcpy=" << fixedTiming.median / memcpyTiming.median
            << " string_mb_per_s=" << stringMB / stringTiming.median
            << " list_rows_per_s=" << nestedRows / listTiming.median << std::endl;
  return 0;
}
