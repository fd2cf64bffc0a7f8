// vxparquet read --where/--explain/--limit/--offset/--format, head and several files, run as a
// program against files the tests write, with the expected rows computed here.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

extern char** environ;

namespace {

using boost::property_tree::ptree;
using testing::HasSubstr;

// "k" 0..rows-1 (sorted), "v" = (k * 7919) % 1000, "s" = "s<k % 10>", in groups of groupRows.
std::string writeKeyed(const vxtest::TempDir& dir, const std::string& name, int64_t rows,
                       int64_t groupRows) {
  arrow::Int64Builder k, v;
  arrow::StringBuilder s;
  for (int64_t i = 0; i < rows; ++i) {
    EXPECT_TRUE(k.Append(i).ok());
    EXPECT_TRUE(v.Append((i * 7919) % 1000).ok());
    EXPECT_TRUE(s.Append("s" + std::to_string(i % 10)).ok());
  }
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("k", arrow::int64()), arrow::field("v", arrow::int64()),
                     arrow::field("s", arrow::utf8())}),
      {k.Finish().ValueOrDie(), v.Finish().ValueOrDie(), s.Finish().ValueOrDie()});
  const std::string path = dir.file(name);
  vxtest::writeParquet(path, table, groupRows);
  return path;
}

std::vector<int64_t> column(const ptree& table, const std::string& name) {
  std::vector<int64_t> values;
  for (const auto& item : table.get_child("columns." + name)) {
    values.push_back(item.second.get_value<int64_t>());
  }
  return values;
}

class ReadFilterCommand : public ::testing::Test {
 protected:
  void SetUp() override { mPath = writeKeyed(mDir, "keyed.parquet", 1000, 100); }

  vxtest::ProgramResult run(const std::string& arguments) {
    return vxtest::runVxparquet("read " + mPath + " " + arguments);
  }

  vxtest::TempDir mDir;
  std::string mPath;
};

// The row groups of the keyed file whose values of v reach from at most x to at least x.
size_t groupsWhereVSpans(int64_t x) {
  size_t count = 0;
  for (int64_t group = 0; group < 10; ++group) {
    int64_t low = 1000, high = -1;
    for (int64_t k = group * 100; k < group * 100 + 100; ++k) {
      low = std::min(low, (k * 7919) % 1000);
      high = std::max(high, (k * 7919) % 1000);
    }
    count += low <= x && x <= high;
  }
  return count;
}

TEST_F(ReadFilterCommand, WhereKeepsExactlyTheMatchingRowsAndExplainsSkips) {
  struct Case {
    std::string where;
    std::function<bool(int64_t k)> matches;
    size_t rowGroupsRead;
  };
  const auto v = [](int64_t k) { return (k * 7919) % 1000; };
  const std::vector<Case> cases = {
      {"k >= 250 and k < 420", [](int64_t k) { return k >= 250 && k < 420; }, 3},
      {"k between 995 and 2000 or k == 3", [](int64_t k) { return k >= 995 || k == 3; }, 2},
      {"not (k < 900) and v < 500", [&](int64_t k) { return k >= 900 && v(k) < 500; }, 1},
      {"s in ('s1', 's2') and k < 30",
       [](int64_t k) { return k < 30 && (k % 10 == 1 || k % 10 == 2); }, 1},
      {"v == 7", [&](int64_t k) { return v(k) == 7; }, groupsWhereVSpans(7)},
      {"k < 0", [](int64_t) { return false; }, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.where);
    const auto result = run("--where \"" + c.where + "\" --explain --json --vars v,k");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::vector<int64_t> expectedK, expectedV;
    for (int64_t k = 0; k < 1000; ++k) {
      if (c.matches(k)) {
        expectedK.push_back(k);
        expectedV.push_back(v(k));
      }
    }
    const ptree table = vxtest::parseJson(result.out);
    EXPECT_EQ(column(table, "k"), expectedK);
    EXPECT_EQ(column(table, "v"), expectedV);
    EXPECT_THAT(result.err, testing::StartsWith("row groups: read " +
                                                std::to_string(c.rowGroupsRead) + " of 10\n"));
    // One line per skipped group, with its reason.
    EXPECT_EQ(static_cast<size_t>(std::count(result.err.begin(), result.err.end(), '\n')),
              1 + 10 - c.rowGroupsRead);
  }
  const auto explained = run("--where 'k >= 950' --explain --vars k --format csv");
  EXPECT_THAT(explained.err, HasSubstr("  row group 1 skipped: k >= 950: values lie in [0, 99]\n"));
}

TEST_F(ReadFilterCommand, FilterVariablesNeedNotBeShownAndEveryFormatFilters) {
  auto result = run("--where 'k < 3' --vars s --format csv");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "s\ns0\ns1\ns2\n");
  result = run("--where 'k in (5, 105)' --vars k --format jsonl");
  EXPECT_EQ(result.out, "{\"k\":5}\n{\"k\":105}\n");
  result = run("--where 'k in (5, 105)' --vars k --each --format jsonl");
  EXPECT_EQ(result.out, "{\"k\":5}\n{\"k\":105}\n");
  result = run("--where 'k == 5' --vars k");
  EXPECT_THAT(result.out, HasSubstr("1x1 table"));
  // A byte range still names all the row groups it covers, whatever the filter skips.
  result = run("--where 'k == 5' --vars k --byte-range 0,100000000 --json");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const ptree ranged = vxtest::parseJson(result.out);
  EXPECT_EQ(ranged.get_child("rowGroups").size(), 10u);
  EXPECT_EQ(column(ranged.get_child("table"), "k"), std::vector<int64_t>{5});
  EXPECT_EQ(run("--each --offset 3").exitCode, 2);
  EXPECT_EQ(run(mPath + " --each --json").exitCode, 2);
  // The same file twice is one dataset of one file.
  EXPECT_EQ(run(mPath + " --each --format csv --vars k --where 'k < 1'").out, "k\n0\n");
}

TEST_F(ReadFilterCommand, BadFiltersAreRefusedBeforeReading) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"nope > 1", "VANTRO:filter:UnknownVariable"},
      {"s > 1", "VANTRO:filter:TypeMismatch"},
      {"k > \"a\"", "VANTRO:filter:TypeMismatch"},
      {"k >", "VANTRO:filter:InvalidExpression"},
  };
  for (const auto& [where, identifier] : cases) {
    const auto result = run("--where '" + where + "' --format jsonl");
    EXPECT_EQ(result.exitCode, 1) << where;
    EXPECT_EQ(result.out, "") << where;
    EXPECT_THAT(result.err, testing::StartsWith("vxparquet read: error: " + identifier + ": "));
  }
}

TEST_F(ReadFilterCommand, LimitOffsetAndHead) {
  auto result = run("--vars k --limit 3 --offset 98 --json");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(column(vxtest::parseJson(result.out), "k"), (std::vector<int64_t>{98, 99, 100}));
  result = run("--vars k --where 'k >= 500 and k % 2' --limit 1");
  EXPECT_EQ(result.exitCode, 1);  // '%' is no operator
  result = run("--vars k --where 'k >= 550' --offset 2 --limit 2 --format jsonl");
  EXPECT_EQ(result.out, "{\"k\":552}\n{\"k\":553}\n");
  // An empty result still has its header.
  result = run("--vars k --limit 0 --format csv");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "k\n");
  result = vxtest::runVxparquet("head " + mPath + " -n 2 --format csv");
  EXPECT_EQ(result.out, "k,v,s\n0,0,s0\n1,919,s1\n");
  result = vxtest::runVxparquet("head " + mPath + " --rows=12 --vars k --json");
  EXPECT_EQ(column(vxtest::parseJson(result.out), "k").size(), 12u);
  result = vxtest::runVxparquet("head " + mPath + " --where 'k > 990' --format csv --vars k");
  EXPECT_EQ(result.out, "k\n991\n992\n993\n994\n995\n996\n997\n998\n999\n");
}

TEST_F(ReadFilterCommand, SeveralFilesMakeOneTableOrAreRefused) {
  const std::string second = writeKeyed(mDir, "second.parquet", 5, 2);
  auto result =
      vxtest::runVxparquet("read " + mPath + " " + second + " --where 'k < 2' --vars k --json");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(column(vxtest::parseJson(result.out), "k"), (std::vector<int64_t>{0, 1, 0, 1}));
  result = vxtest::runVxparquet("read '" + mDir.path() +
                                "/*.parquet' --where 'k == 4' --vars k --format csv");
  EXPECT_EQ(result.out, "k\n4\n4\n");
  // A file without row groups adds nothing; the same file twice counts twice.
  const std::string empty = mDir.file("empty.parquet");
  vxtest::writeParquetWithoutRowGroups(
      empty, arrow::schema({arrow::field("k", arrow::int64()), arrow::field("v", arrow::int64()),
                            arrow::field("s", arrow::utf8())}));
  // Several files are one dataset: a file named twice is one part of it.
  result = vxtest::runVxparquet("read " + second + " " + empty + " " + second +
                                " --where 'k > 2' --vars k --format csv");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "k\n3\n4\n");
  result = vxtest::runVxparquet("read " + empty + " " + second + " --vars k --limit 3 --json");
  EXPECT_EQ(column(vxtest::parseJson(result.out), "k"), (std::vector<int64_t>{0, 1, 2}));
  // --with-file names each row's source.
  result = vxtest::runVxparquet("read " + mPath + " " + second +
                                " --where 'k == 4' --vars k --with-file --format csv");
  EXPECT_EQ(result.out, "k,file\n4," + mPath + "\n4," + second + "\n");

  auto other = arrow::Table::Make(arrow::schema({arrow::field("k", arrow::utf8())}),
                                  {vxtest::arrayFromJSON(arrow::utf8(), R"(["x"])")});
  vxtest::writeParquet(mDir.file("other.parquet"), other);
  result =
      vxtest::runVxparquet("read " + mPath + " " + mDir.file("other.parquet") + " --format csv");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:SchemaConflict"));
}

// Runs vxparquet with its output to /dev/null; returns the child's peak resident memory in KiB.
long peakMemoryKiB(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {std::string(VX_BINARY_DIR) + "/tools/vxparquet"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  EXPECT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  rusage usage{};
  EXPECT_EQ(wait4(pid, &status, 0, &usage), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  return usage.ru_maxrss;
}

TEST(ReadStreaming, JsonLinesMemoryStaysWithinOneRowGroup) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer's quarantine holds freed memory, so peaks grow with input";
#endif
  vxtest::TempDir dir;
  // 2 and 30 row groups of 50,000 rows: 30 groups hold about 45 MB of host values.
  const std::string small = writeKeyed(dir, "small.parquet", 100000, 50000);
  const std::string large = writeKeyed(dir, "large.parquet", 1500000, 50000);
  const long smallPeak = peakMemoryKiB({"read", small, "--format", "jsonl"});
  const long largePeak = peakMemoryKiB({"read", large, "--format", "jsonl"});
  EXPECT_LT(largePeak - smallPeak, 20 * 1024) << smallPeak << " KiB vs " << largePeak << " KiB";
}

// True once the process catches SIGINT (its SigCgt mask in /proc has bit 2 set).
bool waitForSigintHandler(pid_t pid) {
  for (int attempt = 0; attempt < 500; ++attempt) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("SigCgt:", 0) == 0 && (std::stoull(line.substr(7), nullptr, 16) & 2) != 0) {
        return true;
      }
    }
    ::usleep(10000);
  }
  return false;
}

TEST(ReadInterrupt, CtrlCStopsWithinASecondWith130) {
  vxtest::TempDir dir;
  const std::string fifo = dir.file("fifo.parquet");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string big = writeKeyed(dir, "big.parquet", 200000, 100000);
  // Parquet needs random access: a FIFO is refused at once, never waited on.
  for (const std::string command : {"info", "read", "count", "stats"}) {
    const auto result = vxtest::runVxparquet(command + " " + fifo);
    EXPECT_EQ(result.exitCode, 1) << command;
    EXPECT_NE(result.err.find("not a regular file"), std::string::npos) << result.err;
  }
  // A CSV FIFO nobody writes blocks the open; standard output into a pipe nobody reads blocks
  // the output: either way only Ctrl-C ends the command.
  const std::vector<std::vector<std::string>> commands = {
      {"write", dir.file("out.parquet"), "--from", fifo, "--from-format", "csv"},
      {"read", big, "--format", "jsonl"},
      {"read", big, "--json"},
      {"head", big, "-n", "100000"}};
  int pipeEnds[2];
  ASSERT_EQ(::pipe(pipeEnds), 0);
  for (const auto& command : commands) {
    SCOPED_TRACE(command[0] + " " + command[1]);
    std::vector<std::string> words = {std::string(VX_BINARY_DIR) + "/tools/vxparquet"};
    words.insert(words.end(), command.begin(), command.end());
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
    const std::string errPath = dir.file("err");
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    // Ctrl-C counts from the moment the program handles it; until then the default action
    // would end it by the signal.
    ASSERT_TRUE(waitForSigintHandler(pid));
    ::usleep(100000);
    const auto sent = std::chrono::steady_clock::now();
    ::kill(pid, SIGINT);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    const auto waited = std::chrono::steady_clock::now() - sent;
    EXPECT_LT(waited, std::chrono::milliseconds(1000));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_EQ(vxtest::readBytes(errPath), "vxparquet " + command[0] + ": interrupted\n");
  }
  ::close(pipeEnds[0]);
  ::close(pipeEnds[1]);
  EXPECT_FALSE(vxtest::fileExists(dir.file("out.parquet")));
}

}  // namespace
