#include "toolbox/vantro/io/parquet/core/write/ParquetWriterOptions.hpp"

#include <functional>

#include <gtest/gtest.h>
#include <parquet/schema.h>

#include "host/except/Exception.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"

namespace {

using namespace vantro::io::parquet::core::write;

using vxtest::expectHostError;
using MessageArguments = foundation::core::except::MessageArguments;

constexpr const char* kInvalidOption = "VANTRO:parquetio:write:InvalidOption";
constexpr const char* kWrongOptionNumel = "VANTRO:parquetio:write:WrongOptionNumel";
constexpr const char* kNumTopLevelCols = "VANTRO:parquetio:write:LeafColumnPathsNumTopLevelCols";

std::shared_ptr<::parquet::schema::ColumnPath> column(const std::string& dotPath) {
  return ::parquet::schema::ColumnPath::FromDotString(dotPath);
}

// Two variables: "a" a list with one leaf, "s" a struct with two.
ParquetWriterOptions twoVariableOptions() {
  ParquetWriterOptions options;
  options.setVariableNames({u"a", u"s"});
  options.setLeafColumnPaths(makeLeafColumnPaths({0, 1, 3}, {u"a.list.element", u"s.x", u"s.y"}));
  return options;
}

TEST(ParquetWriterOptions, Defaults) {
  const ParquetWriterOptions options;
  EXPECT_TRUE(options.getVariableNames().empty());
  EXPECT_TRUE(options.getVariableEncoding().empty());
  EXPECT_TRUE(options.getVariableCompression().empty());
  EXPECT_EQ(options.getVersion(), "2.0");
  EXPECT_TRUE(options.getStoreArrowSchema());
  EXPECT_TRUE(options.getUseCompliantNestedTypes());
  EXPECT_EQ(options.getMaxRowGroupLength(), 67108864);

  const auto properties = options.buildWriterProperties();
  EXPECT_EQ(properties->version(), vantro::io::parquet::core::common::compat::kParquetVersion2);
  EXPECT_EQ(properties->compression(column("any")), ::arrow::Compression::SNAPPY);
  EXPECT_TRUE(properties->dictionary_enabled(column("any")));
  EXPECT_EQ(properties->max_row_group_length(), 67108864);
  EXPECT_EQ(properties->created_by(), vxtest::kCreatedBy);

  const auto arrowProperties = options.buildArrowWriterProperties();
  EXPECT_TRUE(arrowProperties->store_schema());
  EXPECT_TRUE(arrowProperties->compliant_nested_types());
  EXPECT_FALSE(arrowProperties->support_deprecated_int96_timestamps());
  EXPECT_FALSE(arrowProperties->coerce_timestamps_enabled());
  EXPECT_EQ(arrowProperties->coerce_timestamps_unit(), ::arrow::TimeUnit::SECOND);
  EXPECT_FALSE(arrowProperties->truncated_timestamps_allowed());
  EXPECT_EQ(arrowProperties->engine_version(), ::parquet::ArrowWriterProperties::V2);
}

TEST(ParquetWriterOptions, VersionAcceptsExactlyTwoTexts) {
  ParquetWriterOptions options;
  options.setVersion("1.0");
  EXPECT_EQ(options.getVersion(), "1.0");
  EXPECT_EQ(static_cast<int>(options.buildWriterProperties()->version()), 0);

  for (const std::string bad : {"2.6", "2", "1.0 ", "", "V2.0"}) {
    const auto arguments = expectHostError([&] { options.setVersion(bad); }, kInvalidOption);
    ASSERT_TRUE(arguments) << bad;
    EXPECT_EQ(*arguments, (MessageArguments{std::string("Version"), bad}));
    EXPECT_EQ(options.getVersion(), "1.0") << "a rejected version changes nothing";
  }
  options.setVersion("2.0");
  EXPECT_EQ(options.getVersion(), "2.0");
}

struct BuildError {
  const char* name;
  std::function<ParquetWriterOptions()> options;
  const char* identifier;
  MessageArguments arguments;
};

ParquetWriterOptions withNames(std::vector<std::u16string> names, std::vector<uint64_t> offsets,
                               std::vector<std::u16string> paths) {
  ParquetWriterOptions options;
  options.setVariableNames(std::move(names));
  if (!offsets.empty()) options.setLeafColumnPaths(makeLeafColumnPaths(offsets, paths));
  return options;
}

ParquetWriterOptions twoVariables(std::vector<std::string> encoding,
                                  std::vector<std::string> compression) {
  auto options = twoVariableOptions();
  if (!encoding.empty()) options.setVariableEncoding(std::move(encoding));
  if (!compression.empty()) options.setVariableCompression(std::move(compression));
  return options;
}

TEST(ParquetWriterOptions, BuildErrorsNameTheOptionAndItsValue) {
  const std::string enc = "VariableEncoding", comp = "VariableCompression";
  const std::vector<BuildError> cases = {
      {"compression without leaf paths",
       [] {
         auto o = withNames({u"a"}, {}, {});
         o.setVariableCompression({"snappy"});
         return o;
       },
       kWrongOptionNumel, MessageArguments{comp, int64_t{0}}},
      {"encoding is checked first",
       [] {
         auto o = withNames({u"a"}, {}, {});
         o.setVariableCompression({"snappy"});
         o.setVariableEncoding({"plain"});
         return o;
       },
       kWrongOptionNumel, MessageArguments{enc, int64_t{0}}},
      {"fewer leaf variables than names",
       [] {
         return withNames({u"a", u"b", u"c"}, {0, 1, 2}, {u"a", u"b"});
       },
       kNumTopLevelCols, MessageArguments{int64_t{2}, int64_t{3}}},
      {"single offset describes no variable",
       [] {
         return withNames({u"a", u"b", u"c"}, {3}, {u"a", u"b", u"c"});
       },
       kNumTopLevelCols, MessageArguments{int64_t{0}, int64_t{3}}},
      // Wrong lengths are reported before bad values.
      {"short encoding", [] { return twoVariables({"bogus"}, {}); }, kWrongOptionNumel,
       MessageArguments{enc, int64_t{2}}},
      {"long compression",
       [] {
         return twoVariables({}, {"snappy", "zstd", "gzip"});
       },
       kWrongOptionNumel, MessageArguments{comp, int64_t{2}}},
      // Names are case-sensitive; compression is only looked up after validation.
      {"encoding case",
       [] {
         return twoVariables({"dictionary", "Plain"}, {});
       },
       kInvalidOption, MessageArguments{enc, std::string("Plain")}},
      {"compression case",
       [] {
         return twoVariables({}, {"zstd", "Snappy"});
       },
       kInvalidOption, MessageArguments{comp, std::string("Snappy")}},
      {"encoding before compression",
       [] {
         return twoVariables({"plain", "rle"}, {"nope", "zstd"});
       },
       kInvalidOption, MessageArguments{enc, std::string("rle")}},
      // The setter takes any length; a row group must still hold at least one row, or Parquet
      // would append empty row groups without end.
      {"no rows per row group",
       [] {
         auto o = withNames({u"a"}, {}, {});
         o.setMaxRowGroupLength(0);
         return o;
       },
       kInvalidOption, MessageArguments{std::string("MaxRowGroupLength"), std::string("0")}},
      {"negative row-group length",
       [] {
         auto o = withNames({u"a"}, {}, {});
         o.setMaxRowGroupLength(-5);
         return o;
       },
       kInvalidOption, MessageArguments{std::string("MaxRowGroupLength"), std::string("-5")}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto options = c.options();
    const auto arguments = expectHostError([&] { options.buildWriterProperties(); }, c.identifier);
    ASSERT_TRUE(arguments);
    EXPECT_EQ(*arguments, c.arguments);
  }
}

TEST(ParquetWriterOptions, SingleOffsetPassesOnlyWithoutNames) {
  auto options = withNames({}, {3}, {u"a", u"b", u"c"});
  EXPECT_NE(options.buildWriterProperties(), nullptr);
}

TEST(ParquetWriterOptions, EveryCompressionNameMapsToItsCodec) {
  const std::vector<std::pair<std::string, ::arrow::Compression::type>> names = {
      {"brotli", ::arrow::Compression::BROTLI},
      {"gzip", ::arrow::Compression::GZIP},
      {"lz4", ::arrow::Compression::LZ4},
      {"lzo", ::arrow::Compression::LZO},
      {"snappy", ::arrow::Compression::SNAPPY},
      {"uncompressed", ::arrow::Compression::UNCOMPRESSED},
      {"zstd", ::arrow::Compression::ZSTD}};
  for (const auto& [name, codec] : names) {
    ParquetWriterOptions options;
    options.setVariableNames({u"x"});
    options.setLeafColumnPaths(makeLeafColumnPaths({0, 1}, {u"x"}));
    options.setVariableCompression({name});
    EXPECT_EQ(options.buildWriterProperties()->compression(column("x")), codec) << name;
  }
}

TEST(ParquetWriterOptions, PathsBeforeTheFirstOffsetAreIgnored) {
  ParquetWriterOptions options;
  options.setVariableNames({u"x"});
  options.setLeafColumnPaths(makeLeafColumnPaths({1, 2}, {u"ignored", u"x"}));
  options.setVariableCompression({"zstd"});
  const auto properties = options.buildWriterProperties();
  EXPECT_EQ(properties->compression(column("x")), ::arrow::Compression::ZSTD);
  EXPECT_EQ(properties->compression(column("ignored")), ::arrow::Compression::UNCOMPRESSED);
}

TEST(ParquetWriterOptions, FailedBuildCanBeRepeatedAfterCorrection) {
  auto options = twoVariableOptions();
  options.setVariableCompression({"zstd"});
  expectHostError([&] { options.buildWriterProperties(); }, kWrongOptionNumel);
  options.setVariableCompression({"zstd", "snappy"});
  EXPECT_EQ(options.buildWriterProperties()->compression(column("s.x")),
            ::arrow::Compression::SNAPPY);
}

}  // namespace
