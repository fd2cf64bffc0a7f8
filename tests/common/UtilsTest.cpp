#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace common = vantro::io::parquet::core::common;
using foundation::core::except::MessageArguments;

namespace {

const std::u16string& textArgument(const MessageArguments& args, size_t i) {
  return std::get<std::u16string>(args.at(i));
}

}  // namespace

TEST(ThrowFunctions, StatusBecomesContextAndFullStatusText) {
  const auto read = vxtest::expectHostError(
      [] { common::throwReadExceptIfNotOk(arrow::Status::IOError("disk gone"), u"a.parquet"); },
      "VANTRO:parquetio:read:InternalInvalidRead");
  ASSERT_TRUE(read);
  ASSERT_EQ(read->size(), 2u);
  EXPECT_EQ(textArgument(*read, 0), u"a.parquet");
  EXPECT_EQ(textArgument(*read, 1), u"IOError: disk gone");

  const auto write = vxtest::expectHostError(
      [] { common::throwWriteExceptIfNotOk(arrow::Status::Invalid("bad"), u"b.parquet"); },
      "VANTRO:parquetio:write:InvalidWrite");
  ASSERT_TRUE(write);
  EXPECT_EQ(textArgument(*write, 1), u"Invalid: bad");
}

TEST(ThrowFunctions, EmptyStatusMessageStillGivesTheCodeName) {
  const auto args = vxtest::expectHostError(
      [] { common::throwReadExceptIfNotOk(arrow::Status::UnknownError(""), u"f"); },
      "VANTRO:parquetio:read:InternalInvalidRead");
  ASSERT_TRUE(args);
  EXPECT_EQ(textArgument(*args, 1).rfind(u"Unknown error", 0), 0u);
}

TEST(ThrowFunctions, ArgumentKindsAreFixedPerKey) {
  const auto unsupported = vxtest::expectHostError(
      [] { common::throwInternalUnsupportedParquetTypeException("col\xC3\xA9"); },
      "VANTRO:parquetio:read:InternalUnsupportedParquetType");
  ASSERT_TRUE(unsupported);
  ASSERT_EQ(unsupported->size(), 1u);
  EXPECT_EQ(textArgument(*unsupported, 0), u"col\u00e9");

  const auto load = vxtest::expectHostError([] { common::throwReaderLoadException("a", "b"); },
                                            "VANTRO:parquetio:read:ReaderLoadFailed");
  ASSERT_TRUE(load);
  EXPECT_EQ(std::get<std::string>(load->at(0)), "a");
  EXPECT_EQ(std::get<std::string>(load->at(1)), "b");

  const auto numel = vxtest::expectHostError(
      [] {
        common::throwException<VANTRO::parquetio::write::WrongOptionNumel>("VariableEncoding", 3);
      },
      "VANTRO:parquetio:write:WrongOptionNumel");
  ASSERT_TRUE(numel);
  EXPECT_EQ(std::get<int64_t>(numel->at(1)), 3);

  vxtest::expectHostError(
      [] { common::throwException<VANTRO::parquetio::write::LeafColumnPathsOffsetsAcending>(); },
      "VANTRO:parquetio:write:LeafColumnPathsOffsetsAcending");
}

TEST(Logger, LibraryLoggerUsesItsChannel) {
  EXPECT_EQ(common::getLogger().channel(), "vnio::parquet");
  EXPECT_EQ(&common::getLogger(), &common::getLogger());
}
