#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

TEST(CountCommand, PrintsOneCountPerFileInOrder) {
  vxtest::TempDir dir;
  const auto a = vxtest::writeSimpleFile(dir, "a.parquet", 30, 10);
  const auto b = vxtest::writeSimpleFile(dir, "b.parquet", 30, 30);
  for (const std::string mode : {"", "--sequential "}) {
    const auto result = vxtest::runVxparquet("count " + mode + a + " " + b + " " + a);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out,
              "3\t30\t" + a + "\n1\t30\t" + b + "\n3\t30\t" + a + "\n7\t90\ttotal of 3 files\n");
  }
}

TEST(CountCommand, JsonOutput) {
  vxtest::TempDir dir;
  const auto a = vxtest::writeSimpleFile(dir, "a.parquet", 20, 10);
  const auto result = vxtest::runVxparquet("count --json " + a);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "{\"files\": [{\"file\": \"" + a +
                            "\", \"rowGroups\": 2, \"rows\": 20}], \"total\": {\"files\": 1, "
                            "\"failed\": 0, \"rowGroups\": 2, \"rows\": 20}}\n");
}

TEST(CountCommand, WithoutFilesIsAUsageError) {
  const auto result = vxtest::runVxparquet("count");
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("vxparquet count --help"), std::string::npos) << result.err;
}

TEST(CountCommand, FoldersGlobsAndOneBadFile) {
  vxtest::TempDir dir;
  vxtest::writeSimpleFile(dir, "a.parquet", 20, 10);
  ASSERT_EQ(::mkdir(dir.file("sub").c_str(), 0700), 0);
  vxtest::writeSimpleFile(dir, "sub/b.parquet", 5, 10);
  vxtest::writeBytes(dir.file("notes.txt"), "not parquet");
  // A folder: its files and those of its subfolders (--recursive is accepted, and the same);
  // a file in it that is not Parquet is reported like any bad file.
  for (const std::string flag : {"", "--recursive "}) {
    auto result = vxtest::runVxparquet("count " + flag + dir.path());
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "2\t20\t" + dir.file("a.parquet") + "\n1\t5\t" +
                              dir.file("sub/b.parquet") + "\n3\t25\ttotal of 2 files (1 failed)\n");
  }
  auto result = vxtest::runVxparquet("count '" + dir.path() + "/*/*.parquet'");
  EXPECT_EQ(result.out, "1\t5\t" + dir.file("sub/b.parquet") + "\n");
  EXPECT_EQ(vxtest::runVxparquet("count '" + dir.path() + "/*.csv'").exitCode, 1);
  result = vxtest::runVxparquet("count '" + dir.path() + "/**/*.parquet'");
  EXPECT_EQ(result.out, "2\t20\t" + dir.file("a.parquet") + "\n1\t5\t" + dir.file("sub/b.parquet") +
                            "\n3\t25\ttotal of 2 files\n");

  // One bad file is reported with its identifier; the others still count (exit 1).
  result = vxtest::runVxparquet("count " + dir.file("a.parquet") + " " + dir.file("notes.txt") +
                                " " + dir.file("sub/b.parquet"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "2\t20\t" + dir.file("a.parquet") + "\n1\t5\t" + dir.file("sub/b.parquet") +
                            "\n3\t25\ttotal of 2 files (1 failed)\n");
  EXPECT_NE(result.err.find("vxparquet count: error: VANTRO:parquetio:read:InternalInvalidRead: "),
            std::string::npos);
  result =
      vxtest::runVxparquet("count --strict " + dir.file("a.parquet") + " " + dir.file("notes.txt"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
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

// --split K/N counts and describes a run of whole files: the shares' file lines together are
// the whole count's; each share is a complete output of its own.
TEST(CountCommand, SplitsTakeRunsOfWholeFiles) {
  vxtest::TempDir dir;
  for (const std::string name : {"a", "b", "c"})
    vxtest::writeSimpleFile(dir, name + ".parquet", 30, 10);
  const auto whole = vxtest::runVxparquet("count " + dir.path());
  ASSERT_EQ(whole.exitCode, 0) << whole.err;
  std::string lines;
  for (const std::string share : {"1/2", "2/2"}) {
    const auto part = vxtest::runVxparquet("count " + dir.path() + " --split " + share);
    ASSERT_EQ(part.exitCode, 0) << part.err;
    for (size_t at = 0, next; at < part.out.size(); at = next + 1) {
      next = part.out.find('\n', at);
      const std::string line = part.out.substr(at, next - at + 1);
      if (line.find("total of") == std::string::npos) lines += line;
    }
    const auto stats =
        vxtest::runVxparquet("stats " + dir.path() + " --split " + share + " --json");
    ASSERT_EQ(stats.exitCode, 0) << stats.err;
    EXPECT_NO_THROW(vxtest::parseJson(stats.out)) << stats.out;
  }
  // The whole count less its total line.
  EXPECT_EQ(lines, whole.out.substr(0, whole.out.rfind('\n', whole.out.size() - 2) + 1));
  EXPECT_EQ(vxtest::runVxparquet("count " + dir.path() + " --split 3/2").exitCode, 2);
}
