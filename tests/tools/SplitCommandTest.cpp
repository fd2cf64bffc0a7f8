// vxparquet plan, read --split and read --task: the tasks of a plan together print exactly what
// one read prints, and a task refuses files that changed.
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

using vxtest::runVxparquet;

class SplitCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vxtest::writeSimpleFile(mDir, "a.parquet", 5000, 700);
    vxtest::writeSimpleFile(mDir, "b.parquet", 3000, 1000);
    vxtest::writeSimpleFile(mDir, "c.parquet", 0, 10);
  }

  std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
  }

  vxtest::TempDir mDir;
};

TEST_F(SplitCommandTest, TasksTogetherPrintWhatOneReadPrints) {
  for (const std::string options : {"", "--where \"id >= 1200 and id < 6500\" --vars x,name"}) {
    const auto whole = runVxparquet("read " + mDir.path() + " --format csv " + options);
    ASSERT_EQ(whole.exitCode, 0) << whole.err;
    for (uint64_t count : {1u, 2u, 3u, 7u, 20u}) {
      // "read" comes first: splitCsv appends the source and options after it.
      std::string joined;
      bool header = false;
      for (uint64_t k = 1; k <= count; ++k) {
        const auto part =
            runVxparquet("read " + mDir.path() + " --format csv --split " + std::to_string(k) +
                         "/" + std::to_string(count) + " " + options);
        ASSERT_EQ(part.exitCode, 0) << part.err;
        std::string out = part.out;
        if (header && !out.empty()) out = out.substr(out.find('\n') + 1);
        header = header || !out.empty();
        joined += out;
      }
      EXPECT_EQ(joined, whole.out) << count << " tasks, options: " << options;
    }
  }
}

TEST_F(SplitCommandTest, PlanLinesReadBackThroughTaskFiles) {
  const auto plan = runVxparquet("plan " + mDir.path() + " -n 4 --vars id");
  ASSERT_EQ(plan.exitCode, 0) << plan.err;
  const auto tasks = lines(plan.out);
  ASSERT_EQ(tasks.size(), 4u);
  uint64_t rows = 0;
  for (size_t k = 0; k < tasks.size(); ++k) {
    const auto task = vxtest::parseJson(tasks[k]);
    EXPECT_EQ(task.get<uint64_t>("task"), k + 1);
    EXPECT_EQ(task.get<uint64_t>("tasks"), 4u);
    EXPECT_EQ(task.get<std::string>("root"), mDir.path());
    vxtest::writeBytes(mDir.file("task.json"), tasks[k] + "\n");
    const auto read = runVxparquet("read --task " + mDir.file("task.json") + " --format jsonl");
    ASSERT_EQ(read.exitCode, 0) << read.err;
    for (const auto& line : lines(read.out)) {
      EXPECT_EQ(line.rfind("{\"id\":", 0), 0u) << line;  // the task's selection: id alone
      ++rows;
    }
    EXPECT_EQ(task.get<uint64_t>("rows"), lines(read.out).size());
  }
  EXPECT_EQ(rows, 8000u);
}

TEST_F(SplitCommandTest, TasksRefuseChangedFilesAndFollowAMovedRoot) {
  const auto plan = runVxparquet("plan " + mDir.file("a.parquet") + " -n 1");
  ASSERT_EQ(plan.exitCode, 0) << plan.err;
  vxtest::writeBytes(mDir.file("task.json"), plan.out);

  vxtest::TempDir moved;
  std::filesystem::copy_file(mDir.file("a.parquet"), moved.file("a.parquet"));
  const auto elsewhere = runVxparquet("count --help >/dev/null; " + std::string(VX_BINARY_DIR) +
                                      "/tools/vxparquet read --task " + mDir.file("task.json") +
                                      " --root " + moved.path() + " --format csv");
  EXPECT_EQ(elsewhere.exitCode, 0) << elsewhere.err;
  EXPECT_EQ(lines(elsewhere.out).size(), 5001u);

  vxtest::writeSimpleFile(mDir, "a.parquet", 5000, 500);
  const auto changed = runVxparquet("read --task " + mDir.file("task.json"));
  EXPECT_EQ(changed.exitCode, 1);
  EXPECT_NE(changed.err.find("VANTRO:parquetio:plan:FileChanged"), std::string::npos)
      << changed.err;

  vxtest::writeBytes(mDir.file("bad.json"), "{\"task\": 1}");
  const auto bad = runVxparquet("read --task " + mDir.file("bad.json"));
  EXPECT_EQ(bad.exitCode, 1);
  EXPECT_NE(bad.err.find("VANTRO:parquetio:plan:InvalidTask"), std::string::npos) << bad.err;
}

TEST_F(SplitCommandTest, SplitChoicesComeFromTheCommandLineOrTheLauncher) {
  const std::string read = "read " + mDir.path() + " --format csv --split ";
  for (const std::string wrong : {"0/3", "4/3", "1/0", "a/b", "3"}) {
    EXPECT_EQ(runVxparquet(read + wrong).exitCode, 2) << wrong;
  }
  const std::string program = std::string(VX_BINARY_DIR) + "/tools/vxparquet ";
  const auto direct = runVxparquet(read + "2/3");
  // Slurm numbers array tasks as the job says (here 10, 12, 14): the second is task 2 of 3.
  const auto slurm = runVxparquet(
      "--version >/dev/null; env -u OMPI_COMM_WORLD_RANK SLURM_ARRAY_TASK_ID=12 "
      "SLURM_ARRAY_TASK_MIN=10 SLURM_ARRAY_TASK_STEP=2 SLURM_ARRAY_TASK_COUNT=3 " +
      program + read + "auto");
  EXPECT_EQ(slurm.out, direct.out) << slurm.err;
  const auto mpi = runVxparquet(
      "--version >/dev/null; env -u SLURM_ARRAY_TASK_ID "
      "OMPI_COMM_WORLD_RANK=1 OMPI_COMM_WORLD_SIZE=3 " +
      program + read + "auto");
  EXPECT_EQ(mpi.out, direct.out) << mpi.err;
  const auto none = runVxparquet(
      "--version >/dev/null; env -u SLURM_ARRAY_TASK_ID -u OMPI_COMM_WORLD_RANK -u PMI_RANK "
      "-u SLURM_PROCID " +
      program + read + "auto");
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_NE(none.err.find("vxparquet:read:NoLauncher"), std::string::npos) << none.err;
  EXPECT_EQ(runVxparquet("plan " + mDir.path()).exitCode, 2);  // no -n
}

}  // namespace

// A hive-partitioned folder whose files drift: every task reads its files as part of the
// dataset (its variables, partition values), wherever the data are mounted.
TEST(SplitDatasetCommandTest, TasksReadTheirFilesAsPartOfTheDataset) {
  namespace fs = std::filesystem;
  vxtest::TempDir dir;
  const auto table = [](const std::string& columns, int64_t first, int64_t rows) {
    std::vector<std::shared_ptr<arrow::Field>> fields;
    std::vector<std::shared_ptr<arrow::Array>> arrays;
    std::string ids = "[";
    for (int64_t i = 0; i < rows; ++i) ids += (i ? "," : "") + std::to_string(first + i);
    ids += "]";
    fields.push_back(arrow::field("id", columns == "old" ? arrow::int32() : arrow::int64()));
    arrays.push_back(vxtest::arrayFromJSON(fields.back()->type(), ids));
    if (columns == "new") {
      fields.push_back(arrow::field("note", arrow::utf8()));
      arrays.push_back(vxtest::arrayFromJSON(
          arrow::utf8(),
          "[" + std::string(rows > 0 ? "\"n\"" : "") + std::string(rows > 1 ? ",null" : "") + "]"));
    }
    return arrow::Table::Make(arrow::schema(fields), arrays);
  };
  int64_t first = 0;
  for (const std::string year : {"2022", "2023", "2024"}) {
    for (int part = 0; part < 2; ++part) {
      const std::string path =
          dir.file("data/year=" + year + "/part-" + std::to_string(part) + ".parquet");
      fs::create_directories(fs::path(path).parent_path());
      const bool newer = year == "2024";
      vxtest::writeParquet(path, table(newer ? "new" : "old", first, newer ? 2 : 40), 7);
      first += 100;
    }
  }
  const std::string data = dir.file("data");
  const std::string where = " --where \"year >= 2023 and id != 305\"";
  const auto whole = runVxparquet("read " + data + " --format csv" + where);
  ASSERT_EQ(whole.exitCode, 0) << whole.err;
  EXPECT_EQ(whole.out.substr(0, whole.out.find('\n')), "id,note,year");

  const auto plan = runVxparquet("plan " + data + " -n 4" + where);
  ASSERT_EQ(plan.exitCode, 0) << plan.err;
  EXPECT_EQ(plan.out.find("year=2022"), std::string::npos) << "a pruned partition is in a task";
  std::istringstream tasks(plan.out);
  vxtest::TempDir moved;
  fs::copy(data, moved.file("data"), fs::copy_options::recursive);
  std::string joined, split;
  int k = 0;
  for (std::string task; std::getline(tasks, task);) {
    ++k;
    vxtest::writeBytes(dir.file("task.json"), task + "\n");
    // Read where the data were moved to: the root is replaced, the partitions stay.
    const auto part = runVxparquet("read --task " + dir.file("task.json") + " --root " +
                                   moved.file("data") + " --format csv");
    ASSERT_EQ(part.exitCode, 0) << part.err;
    joined += k == 1 ? part.out : part.out.substr(part.out.find('\n') + 1);
    const auto direct = runVxparquet("read " + data + " --format csv" + where + " --split " +
                                     std::to_string(k) + "/4");
    ASSERT_EQ(direct.exitCode, 0) << direct.err;
    split += k == 1 ? direct.out : direct.out.substr(direct.out.find('\n') + 1);
  }
  EXPECT_EQ(k, 4);
  EXPECT_EQ(joined, whole.out);
  EXPECT_EQ(split, whole.out);
}
