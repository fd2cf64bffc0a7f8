#include <gtest/gtest.h>

#include <thread>

#include "host/services/Interrupts.hpp"
#include "host/vfs/StreamProvider.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"

namespace info = vantro::io::parquet::core::info;
using vxtest::u16;

namespace {

using CountFunction = std::vector<uint64_t> (*)(std::vector<std::u16string>);

struct Version {
  const char* name;
  CountFunction count;
};

const Version kVersions[] = {{"async", &info::getNumRowGroupsAsync},
                             {"sync", &info::getNumRowGroupsSync}};

class RowGroupCount : public ::testing::TestWithParam<Version> {
 protected:
  std::vector<uint64_t> count(std::vector<std::u16string> files) {
    return GetParam().count(std::move(files));
  }
  vxtest::TempDir dir;
};

INSTANTIATE_TEST_SUITE_P(BothVersions, RowGroupCount, ::testing::ValuesIn(kVersions),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace

TEST_P(RowGroupCount, CountsEachFileInInputOrder) {
  std::vector<std::u16string> files;
  std::vector<uint64_t> expected;
  for (int groups : {3, 1, 7, 2, 5, 1}) {
    files.push_back(
        u16(vxtest::writeSimpleFile(dir, "f" + std::to_string(files.size()), groups * 10, 10)));
    expected.push_back(groups);
  }
  files.push_back(files[2]);  // the same file twice counts twice
  expected.push_back(7);
  vxtest::writeParquetWithoutRowGroups(dir.file("empty.parquet"), vxtest::simpleTable(0)->schema());
  files.push_back(dir.ufile("empty.parquet"));
  expected.push_back(0);
  EXPECT_EQ(count(files), expected);
  EXPECT_EQ(count({files[1]}), std::vector<uint64_t>{1});
  EXPECT_TRUE(count({}).empty());
}

TEST_P(RowGroupCount, ANonParquetFileInTheMiddleEndsTheCallWithItsName) {
  std::vector<std::u16string> files;
  for (int i = 0; i < 5; ++i) {
    files.push_back(u16(vxtest::writeSimpleFile(dir, "f" + std::to_string(i), 20, 10)));
  }
  vxtest::writeBytes(dir.file("text.txt"), "this is not a parquet file, just some text\n");
  files[2] = dir.ufile("text.txt");
  const auto args =
      vxtest::expectHostError([&] { count(files); }, "VANTRO:parquetio:read:InternalInvalidRead");
  ASSERT_TRUE(args);
  EXPECT_EQ(std::get<std::u16string>(args->at(0)), dir.ufile("text.txt"));
  EXPECT_NE(vxtest::u8(std::get<std::u16string>(args->at(1))).find("magic"), std::string::npos);
}

TEST_P(RowGroupCount, BadInputGivesHostErrors) {
  const auto good = vxtest::writeSimpleFile(dir, "good", 30, 10);
  vxtest::writeBytes(dir.file("empty"), "");
  vxtest::writeTruncatedCopy(good, dir.file("cut"), 6);
  vxtest::expectHostError([&] { count({dir.ufile("missing.parquet")}); },
                          "VANTRO:vfs:FileNotFound");
  vxtest::expectHostError([&] { count({u16(dir.path())}); }, "VANTRO:vfs:IsDirectory");
  vxtest::expectHostError([&] { count({dir.ufile("empty")}); },
                          "VANTRO:parquetio:read:InternalInvalidRead");
  vxtest::expectHostError([&] { count({dir.ufile("cut")}); },
                          "VANTRO:parquetio:read:InternalInvalidRead");
  vxtest::expectHostError([&] { count({u"s3://bucket/key.parquet"}); }, "VANTRO:vfs:UnknownScheme");
}

TEST_P(RowGroupCount, FileIRIsAndRegisteredSchemesCountLikePaths) {
  const auto path = vxtest::writeSimpleFile(dir, "a.parquet", 40, 10);
  virtualiostream::registerProvider(u"hdfs",
                                    std::make_shared<virtualiostream::FolderProvider>(dir.path()));
  EXPECT_EQ(count({u16("FILE://" + path), u"hdfs://nn:8020/a.parquet"}),
            (std::vector<uint64_t>{4, 4}));
  virtualiostream::registerProvider(u"hdfs", nullptr);
}

TEST_P(RowGroupCount, PendingInterruptOnTheSignalThreadStopsTheCall) {
  std::vector<std::u16string> files(8, u16(vxtest::writeSimpleFile(dir, "f", 20, 10)));
  foundation::host::initialize();
  utInterruptState::Raise();
  EXPECT_THROW(count(files), foundation::core::except::InterruptException);
  EXPECT_FALSE(utInterruptState::IsInterruptPending());
}

TEST_P(RowGroupCount, WorkerThreadsDoNotPollForInterrupts) {
  // The caller here is not the signal thread, so a pending interrupt is left for the host.
  const auto path = u16(vxtest::writeSimpleFile(dir, "f", 20, 10));
  foundation::host::initialize();
  utInterruptState::Raise();
  std::vector<uint64_t> counts;
  std::thread([&] { counts = count({path, path}); }).join();
  EXPECT_EQ(counts, (std::vector<uint64_t>{2, 2}));
  EXPECT_TRUE(utInterruptState::IsInterruptPending());
  utInterruptState::Clear();
}

TEST(RowGroupCountInterop, AsyncAndSyncAgreeOnTheCorpus) {
  VX_REQUIRE_INTEROP();
  std::vector<std::u16string> readable;
  for (const auto& file : vxtest::interopFiles()) {
    try {
      info::getNumRowGroupsSync({u16(file)});
      readable.push_back(u16(file));
    } catch (const foundation::core::except::IMsgIDException& e) {
      // Files Parquet itself refuses (encrypted, malformed) must fail the same way in parallel.
      EXPECT_EQ(e.identifier(), "VANTRO:parquetio:read:InternalInvalidRead") << file;
      EXPECT_THROW(info::getNumRowGroupsAsync({u16(file)}),
                   foundation::core::except::IMsgIDException);
    }
  }
  ASSERT_FALSE(readable.empty());
  EXPECT_EQ(info::getNumRowGroupsAsync(readable), info::getNumRowGroupsSync(readable));
}
