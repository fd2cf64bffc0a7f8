// Splitting files into tasks: every row group in exactly one task, whatever the footer's
// order; tasks balanced by compressed bytes; task texts that travel and refuse changed files.
#include <algorithm>
#include <filesystem>
#include <numeric>

#include <arrow/io/file.h>
#include <arrow/io/memory.h>
#include <gtest/gtest.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>

#include "host/converter/HostValues.hpp"
#include "host/matrix/Matrix.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/plan/SplitPlanner.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::plan::checkTaskFiles;
using vantro::io::parquet::core::plan::describeFiles;
using vantro::io::parquet::core::plan::keepRowGroups;
using vantro::io::parquet::core::plan::PlanFile;
using vantro::io::parquet::core::plan::planTasks;
using vantro::io::parquet::core::plan::Task;
using vantro::io::parquet::core::plan::taskFromText;
using vantro::io::parquet::core::plan::taskToText;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;

constexpr const char* kInvalidTask = "VANTRO:parquetio:plan:InvalidTask";
constexpr const char* kFileChanged = "VANTRO:parquetio:plan:FileChanged";

// Rewrites a file's footer so that it lists the row groups in the given order; the data pages
// stay where they are, so the footer's order is no longer the file's.
void reorderRowGroups(const std::string& path, const std::vector<int>& order) {
  auto file = *arrow::io::ReadableFile::Open(path);
  auto reader = parquet::ParquetFileReader::Open(file);
  const auto metadata = reader->metadata()->Subset(order);
  const std::string bytes = vxtest::readBytes(path);
  const uint32_t footerLength = static_cast<uint8_t>(bytes[bytes.size() - 8]) |
                                static_cast<uint8_t>(bytes[bytes.size() - 7]) << 8 |
                                static_cast<uint8_t>(bytes[bytes.size() - 6]) << 16 |
                                static_cast<uint8_t>(bytes[bytes.size() - 5]) << 24;
  auto sink = *arrow::io::BufferOutputStream::Create();
  metadata->WriteTo(sink.get());
  const std::string footer = (*sink->Finish())->ToString();
  std::string forged = bytes.substr(0, bytes.size() - 8 - footerLength) + footer;
  for (int shift = 0; shift < 32; shift += 8) forged += static_cast<char>(footer.size() >> shift);
  forged += "PAR1";
  reader.reset();
  vxtest::writeBytes(path, forged);
}

// The "id" values of every row the tasks read, in reading order.
std::vector<int64_t> idsReadBy(const std::vector<Task>& tasks) {
  std::vector<int64_t> ids;
  for (const auto& task : tasks) {
    // What a worker does: the task arrives as text and is checked before it is read.
    const Task arrived = taskFromText(taskToText(task));
    checkTaskFiles(arrived);
    for (const auto& file : arrived.files) {
      std::vector<double> rowGroups;
      for (int rowGroup : file.rowGroups) rowGroups.push_back(rowGroup + 1);
      RowGroupParquetReader reader(file.name, rowGroups);
      reader.setSelectedVariableNames({u"id"});
      auto table = reader.readall();
      const vxArray* columns = vxGetField(table.get(), 0, "Columns");
      const vxArray* id = vxGetCell(columns, 0);
      const auto* values = static_cast<const int64_t*>(vxGetData(id));
      ids.insert(ids.end(), values, values + vxGetNumberOfElements(id));
    }
  }
  return ids;
}

class SplitPlannerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Files of unequal sizes, one with row groups listed against the file's order, one with
    // a single row group and one without rows; ids run on across files.
    mFiles = {writeIds("a.parquet", 0, 5000, 700), writeIds("b.parquet", 5000, 3000, 1000),
              writeIds("c.parquet", 8000, 1, 10), writeIds("d.parquet", 8001, 0, 10)};
    reorderRowGroups(mFiles[1], {2, 0, 1});
    mTotalRows = 8001;
  }

  std::string writeIds(const std::string& name, int64_t first, int64_t rows, int64_t rowGroup) {
    arrow::Int64Builder ids;
    arrow::StringBuilder texts;
    for (int64_t i = first; i < first + rows; ++i) {
      EXPECT_TRUE(ids.Append(i).ok());
      EXPECT_TRUE(texts.Append("row " + std::to_string(i * 7919 % 10007)).ok());
    }
    auto schema =
        arrow::schema({arrow::field("id", arrow::int64()), arrow::field("s", arrow::utf8())});
    auto table = arrow::Table::Make(schema, {*ids.Finish(), *texts.Finish()}, rows);
    vxtest::writeParquet(mDir.file(name), table, rowGroup);
    return mDir.file(name);
  }

  std::vector<std::u16string> names() const {
    std::vector<std::u16string> names;
    for (const auto& file : mFiles) names.push_back(u16(file));
    return names;
  }

  vxtest::TempDir mDir;
  std::vector<std::string> mFiles;
  int64_t mTotalRows = 0;
};

TEST_F(SplitPlannerTest, EveryRowIsInExactlyOneTaskForAnyCount) {
  const auto described = describeFiles(names());
  ASSERT_EQ(described.size(), 4u);
  EXPECT_EQ(described[1].rowGroups, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(described[1].rows, (std::vector<uint64_t>{1000, 1000, 1000}));
  EXPECT_EQ(described[3].rows, (std::vector<uint64_t>{0}));  // Arrow writes one empty group
  for (uint64_t count = 1; count <= 64; ++count) {
    const auto tasks = planTasks(described, count);
    ASSERT_EQ(tasks.size(), count);
    auto ids = idsReadBy(tasks);
    ASSERT_EQ(static_cast<int64_t>(ids.size()), mTotalRows) << count << " tasks";
    std::sort(ids.begin(), ids.end());
    std::vector<int64_t> expected(mTotalRows);
    std::iota(expected.begin(), expected.end(), 0);
    ASSERT_EQ(ids, expected) << count << " tasks";
    uint64_t rows = 0;
    for (const auto& task : tasks) {
      EXPECT_EQ(task.number, &task - tasks.data() + 1u);
      EXPECT_EQ(task.count, count);
      rows += task.rows;
    }
    EXPECT_EQ(rows, static_cast<uint64_t>(mTotalRows));
  }
}

TEST_F(SplitPlannerTest, TasksAreBalancedWithinOneRowGroupAndAlikeOnEveryPlanning) {
  const auto described = describeFiles(names());
  uint64_t total = 0, largest = 0;
  for (const auto& file : described) {
    for (uint64_t bytes : file.bytes) {
      total += std::max<uint64_t>(bytes, 1);
      largest = std::max(largest, bytes);
    }
  }
  for (uint64_t count : {2u, 3u, 5u, 8u}) {
    const auto tasks = planTasks(described, count);
    for (const auto& task : tasks) {
      EXPECT_LE(task.bytes, total / count + largest + 1) << "task " << task.number << "/" << count;
    }
    const auto again = planTasks(describeFiles(names()), count);
    for (size_t k = 0; k < count; ++k) EXPECT_EQ(taskToText(tasks[k]), taskToText(again[k]));
  }
}

TEST_F(SplitPlannerTest, PrunedRowGroupsAreInNoTask) {
  auto described = describeFiles(names());
  keepRowGroups(described[0], {1, 6, 99});
  keepRowGroups(described[1], {2});
  const auto tasks = planTasks(described, 3);
  auto ids = idsReadBy(tasks);
  std::sort(ids.begin(), ids.end());
  std::vector<int64_t> expected;
  for (int64_t i = 700; i < 1400; ++i) expected.push_back(i);
  for (int64_t i = 4200; i < 4900; ++i) expected.push_back(i);
  // b's footer lists its groups as 2, 0, 1: its third entry is the file's second group.
  for (int64_t i = 6000; i < 7000; ++i) expected.push_back(i);
  expected.push_back(8000);  // c, whole
  EXPECT_EQ(ids, expected);
}

TEST_F(SplitPlannerTest, TaskTextKeepsEverythingAndNamesFilesRelativeToTheirRoot) {
  auto tasks = planTasks(describeFiles(names()), 2);
  Task task = tasks[0];
  task.variables = std::vector<std::string>{"id", "s \"quoted\"", "é\ttab"};
  task.where = "s == 'a\\b' and id > 3";
  const std::string text = taskToText(task);
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_NE(text.find("\"root\":\"" + mDir.path() + "\""), std::string::npos) << text;
  EXPECT_NE(text.find("\"path\":\"a.parquet\""), std::string::npos) << text;

  const Task back = taskFromText(text);
  EXPECT_EQ(back.number, task.number);
  EXPECT_EQ(back.count, 2u);
  EXPECT_EQ(back.bytes, task.bytes);
  EXPECT_EQ(back.rows, task.rows);
  ASSERT_EQ(back.files.size(), task.files.size());
  for (size_t i = 0; i < back.files.size(); ++i) {
    EXPECT_EQ(back.files[i].name, task.files[i].name);
    EXPECT_EQ(back.files[i].fingerprint, task.files[i].fingerprint);
    EXPECT_EQ(back.files[i].rowGroups, task.files[i].rowGroups);
  }
  EXPECT_EQ(back.variables, task.variables);
  EXPECT_EQ(back.where, task.where);
}

TEST_F(SplitPlannerTest, ChangedTruncatedAndMovedFilesAreRefused) {
  const Task task = planTasks(describeFiles(names()), 1)[0];
  const std::string text = taskToText(task);
  checkTaskFiles(taskFromText(text));

  // The same rows written again in other row groups: another footer, perhaps the same size.
  writeIds("a.parquet", 0, 5000, 600);
  auto args = vxtest::expectHostError([&] { checkTaskFiles(taskFromText(text)); }, kFileChanged);
  ASSERT_TRUE(args);

  vxtest::writeTruncatedCopy(mFiles[2], mDir.file("c-short.parquet"), 1);
  std::filesystem::rename(mDir.file("c-short.parquet"), mFiles[2]);
  vxtest::expectHostError([&] { checkTaskFiles(taskFromText(text)); }, kFileChanged);

  // Data mounted elsewhere: the same files under another root.
  vxtest::TempDir elsewhere;
  const Task planned = planTasks(describeFiles({u16(mFiles[1])}), 1)[0];
  std::filesystem::copy_file(mFiles[1], elsewhere.file("b.parquet"));
  const std::string movedText = taskToText(planned);
  const Task moved = taskFromText(movedText, u16(elsewhere.path()));
  EXPECT_EQ(moved.files.at(0).name, u16(elsewhere.file("b.parquet")));
  checkTaskFiles(moved);
  std::filesystem::remove(mFiles[1]);
  vxtest::expectHostError([&] { checkTaskFiles(taskFromText(movedText)); },
                          "VANTRO:vfs:FileNotFound");
}

TEST(TaskTextTest, AnythingButATaskIsRefused) {
  const std::string file =
      R"({"path":"a.parquet","size":10,"footer":"fnv1a64:0123456789abcdef","row_groups":[1]})";
  auto task = [&](const std::string& head, const std::string& files) {
    return "{" + head + R"(,"root":"/data","files":[)" + files + "]}";
  };
  EXPECT_EQ(taskFromText(task(R"("task":2,"tasks":3)", file)).files.at(0).name, u"/data/a.parquet");
  for (const std::string& text : {
           std::string("not json"),
           std::string("{}"),
           task(R"("task":0,"tasks":3)", file),
           task(R"("task":4,"tasks":3)", file),
           task(R"("task":-1,"tasks":3)", file),
           task(R"("task":1.5,"tasks":3)", file),
           task(R"("task":1,"tasks":99999999999999999999)", file),
           task(R"("task":1,"tasks":3)",
                R"({"path":"a","size":1,"footer":"md5:00","row_groups":[1]})"),
           task(R"("task":1,"tasks":3)",
                R"({"path":"a","size":1,"footer":"fnv1a64:0123456789abcdeg","row_groups":[1]})"),
           task(R"("task":1,"tasks":3)",
                R"({"path":"a","size":1,"footer":"fnv1a64:0123456789abcdef","row_groups":[0]})"),
           task(R"("task":1,"tasks":3)",
                R"({"path":"a","size":1,"footer":"fnv1a64:0123456789abcdef","row_groups":3})"),
           task(R"("task":1,"tasks":3)",
                R"({"path":"","size":1,"footer":"fnv1a64:0123456789abcdef","row_groups":[]})"),
           task(R"("task":1,"tasks":3)",
                R"({"size":1,"footer":"fnv1a64:0123456789abcdef","row_groups":[]})"),
       }) {
    vxtest::expectHostError([&] { taskFromText(text); }, kInvalidTask);
  }
  vxtest::expectHostError([] { planTasks({}, 0); }, kInvalidTask);
  EXPECT_EQ(planTasks({}, 3).size(), 3u);
}

TEST(PlanFilesTest, FilesThatCannotBeReadAreRefusedWithTheirReadError) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("text.parquet"), "not a parquet file at all");
  vxtest::expectHostError([&] { describeFiles({u16(dir.file("text.parquet"))}); },
                          "VANTRO:parquetio:read:InternalInvalidRead");
  vxtest::expectHostError([&] { describeFiles({u16(dir.file("none.parquet"))}); },
                          "VANTRO:vfs:FileNotFound");
}

}  // namespace

namespace {

// A writer's file whose column chunks declare a dictionary page at offset 0 without having one:
// the planner goes by the footer's row groups and sizes, never by page offsets, so it is
// planned like any other file beside the suite's own.
TEST_F(SplitPlannerTest, ChunksDeclaringDictionaryOffsetZeroArePlannedLikeAnyOther) {
  const std::string odd = vxtest::interopDir() + "/dict-page-offset-zero.parquet";
  if (vxtest::interopDir().empty() || !vxtest::fileExists(odd)) {
    GTEST_SKIP() << "the Parquet test corpus (../shared/interop/parquet-testing) is absent";
  }
  auto files = names();
  files.insert(files.begin() + 1, u16(odd));
  const auto described = describeFiles(files);
  const uint64_t oddRows = described[1].rows.at(0);
  ASSERT_GT(oddRows, 0u);
  for (uint64_t count = 1; count <= 8; ++count) {
    uint64_t rows = 0, oddTasks = 0;
    for (const auto& task : planTasks(described, count)) {
      rows += task.rows;
      for (const auto& file : task.files) oddTasks += file.name == u16(odd) ? 1 : 0;
    }
    EXPECT_EQ(rows, static_cast<uint64_t>(mTotalRows) + oddRows) << count << " tasks";
    EXPECT_EQ(oddTasks, 1u) << count << " tasks";
  }
}

}  // namespace
