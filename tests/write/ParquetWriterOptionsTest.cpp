#include "toolbox/vantro/io/parquet/core/write/ParquetWriterOptions.hpp"

#include <gtest/gtest.h>
#include <parquet/schema.h>

#include "host/except/Exception.hpp"
#include "tests/support/TestSupport.hpp"

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
  EXPECT_EQ(static_cast<int>(properties->version()), 1);
  EXPECT_EQ(properties->compression(column("any")), ::arrow::Compression::SNAPPY);
  EXPECT_TRUE(properties->dictionary_enabled(column("any")));
  EXPECT_EQ(properties->max_row_group_length(), 67108864);
  EXPECT_EQ(properties->created_by(), "parquet-cpp-arrow version 11.0.0");

  const auto arrowProperties = options.buildArrowWriterProperties();
  EXPECT_TRUE(arrowProperties->store_schema());
  EXPECT_TRUE(arrowProperties->compliant_nested_types());
  EXPECT_FALSE(arrowProperties->support_deprecated_int96_timestamps());
  EXPECT_FALSE(arrowProperties->coerce_timestamps_enabled());
  EXPECT_EQ(arrowProperties->coerce_timestamps_unit(), ::arrow::TimeUnit::SECOND);
  EXPECT_FALSE(arrowProperties->truncated_timestamps_allowed());
  EXPECT_EQ(arrowProperties->engine_version(), ::parquet::ArrowWriterProperties::V2);
}

TEST(ParquetWriterOptions, ArrowFlagsFollowTheOptions) {
  ParquetWriterOptions options;
  options.setStoreArrowSchema(false);
  options.setUseCompliantNestedTypes(false);
  const auto arrowProperties = options.buildArrowWriterProperties();
  EXPECT_FALSE(arrowProperties->store_schema());
  EXPECT_FALSE(arrowProperties->compliant_nested_types());
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

TEST(ParquetWriterOptions, PerVariableOptionsNeedLeafPaths) {
  ParquetWriterOptions options;
  options.setVariableNames({u"a"});
  options.setVariableCompression({"snappy"});
  auto arguments = expectHostError([&] { options.buildWriterProperties(); }, kWrongOptionNumel);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{std::string("VariableCompression"), int64_t{0}}));

  // Encoding is checked first.
  options.setVariableEncoding({"plain"});
  arguments = expectHostError([&] { options.buildWriterProperties(); }, kWrongOptionNumel);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{std::string("VariableEncoding"), int64_t{0}}));
}

TEST(ParquetWriterOptions, LeafPathsMustDescribeEveryVariable) {
  ParquetWriterOptions options;
  options.setVariableNames({u"a", u"b", u"c"});
  options.setLeafColumnPaths(makeLeafColumnPaths({0, 1, 2}, {u"a", u"b"}));
  auto arguments = expectHostError([&] { options.buildWriterProperties(); }, kNumTopLevelCols);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{int64_t{2}, int64_t{3}}));

  // A single offset describes no variable: only a table without names passes.
  options.setLeafColumnPaths(makeLeafColumnPaths({3}, {u"a", u"b", u"c"}));
  arguments = expectHostError([&] { options.buildWriterProperties(); }, kNumTopLevelCols);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{int64_t{0}, int64_t{3}}));
  options.setVariableNames({});
  EXPECT_NE(options.buildWriterProperties(), nullptr);
}

TEST(ParquetWriterOptions, WrongLengthIsReportedBeforeBadValues) {
  auto options = twoVariableOptions();
  options.setVariableEncoding({"bogus"});
  auto arguments = expectHostError([&] { options.buildWriterProperties(); }, kWrongOptionNumel);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{std::string("VariableEncoding"), int64_t{2}}));

  auto other = twoVariableOptions();
  other.setVariableCompression({"snappy", "zstd", "gzip"});
  arguments = expectHostError([&] { other.buildWriterProperties(); }, kWrongOptionNumel);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{std::string("VariableCompression"), int64_t{2}}));
}

TEST(ParquetWriterOptions, NamesAreCaseSensitive) {
  auto options = twoVariableOptions();
  options.setVariableEncoding({"dictionary", "Plain"});
  auto arguments = expectHostError([&] { options.buildWriterProperties(); }, kInvalidOption);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{std::string("VariableEncoding"), std::string("Plain")}));

  // Compression is only looked up while the properties are built, after validation.
  auto other = twoVariableOptions();
  other.setVariableCompression({"zstd", "Snappy"});
  arguments = expectHostError([&] { other.buildWriterProperties(); }, kInvalidOption);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments,
            (MessageArguments{std::string("VariableCompression"), std::string("Snappy")}));
}

TEST(ParquetWriterOptions, EncodingIsCheckedBeforeCompression) {
  auto options = twoVariableOptions();
  options.setVariableCompression({"nope", "zstd"});
  options.setVariableEncoding({"plain", "rle"});
  const auto arguments = expectHostError([&] { options.buildWriterProperties(); }, kInvalidOption);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{std::string("VariableEncoding"), std::string("rle")}));
}

TEST(ParquetWriterOptions, PerVariableSettingsReachEveryLeaf) {
  auto options = twoVariableOptions();
  options.setVariableCompression({"zstd", "gzip"});
  options.setVariableEncoding({"plain", "dictionary"});
  const auto properties = options.buildWriterProperties();
  EXPECT_EQ(properties->compression(column("a.list.element")), ::arrow::Compression::ZSTD);
  EXPECT_EQ(properties->compression(column("s.x")), ::arrow::Compression::GZIP);
  EXPECT_EQ(properties->compression(column("s.y")), ::arrow::Compression::GZIP);
  // Columns not named keep Parquet's own default.
  EXPECT_EQ(properties->compression(column("other")), ::arrow::Compression::UNCOMPRESSED);
  EXPECT_FALSE(properties->dictionary_enabled(column("a.list.element")));
  EXPECT_TRUE(properties->dictionary_enabled(column("s.x")));
  EXPECT_TRUE(properties->dictionary_enabled(column("s.y")));
  // "plain" switches dictionary encoding off and sets no encoding of its own.
  EXPECT_EQ(properties->encoding(column("a.list.element")), ::parquet::Encoding::PLAIN);
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

TEST(ParquetWriterOptions, MoveTransfersTheLeafPaths) {
  auto options = twoVariableOptions();
  options.setVariableCompression({"zstd", "gzip"});
  ParquetWriterOptions moved(std::move(options));
  EXPECT_EQ(moved.getVariableCompression().size(), 2u);
  ASSERT_NE(moved.getLeafColumnPaths(), nullptr);
  EXPECT_EQ(options.getLeafColumnPaths(), nullptr);
  EXPECT_EQ(moved.buildWriterProperties()->compression(column("s.y")), ::arrow::Compression::GZIP);
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
