#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

TEST(CountCommand, PrintsOneCountPerFileInOrder) {
  vxtest::TempDir dir;
  const auto a = vxtest::writeSimpleFile(dir, "a.parquet", 30, 10);
  const auto b = vxtest::writeSimpleFile(dir, "b.parquet", 30, 30);
  for (const std::string mode : {"", "--sequential "}) {
    const auto result = vxtest::runVxparquet("count " + mode + a + " " + b + " " + a);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "3\t" + a + "\n1\t" + b + "\n3\t" + a + "\n");
  }
}

TEST(CountCommand, JsonOutput) {
  vxtest::TempDir dir;
  const auto a = vxtest::writeSimpleFile(dir, "a.parquet", 20, 10);
  const auto result = vxtest::runVxparquet("count --json " + a);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "[{\"file\": \"" + a + "\", \"rowGroups\": 2}]\n");
}

TEST(CountCommand, WithoutFilesCountsItsOwnSample) {
  vxtest::TempDir dir;
  const auto result = vxtest::runVxparquet("count");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_NE(result.out.find("3\t"), std::string::npos) << result.out;
}

TEST(CountCommand, FailureShowsIdentifierAndTextOnStderr) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("x.txt"), "not parquet");
  const auto result = vxtest::runVxparquet("count " + dir.file("x.txt"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(result.out.empty());
  EXPECT_NE(result.err.find("VANTRO:parquetio:read:InternalInvalidRead"), std::string::npos);
  EXPECT_NE(result.err.find("Unable to read '" + dir.file("x.txt") + "'"), std::string::npos);

  const auto missing = vxtest::runVxparquet("count " + dir.file("nope.parquet"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_NE(missing.err.find("VANTRO:vfs:FileNotFound"), std::string::npos);
}

TEST(CountCommand, UsageErrorsExitWithTwo) {
  EXPECT_EQ(vxtest::runVxparquet("count --bogus").exitCode, 2);
  EXPECT_EQ(vxtest::runVxparquet("frobnicate").exitCode, 2);
  EXPECT_EQ(vxtest::runVxparquet("").exitCode, 2);
}
