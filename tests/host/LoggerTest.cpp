#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "host/log/DiagnosticLogger.hpp"
#include "tests/support/TestSupport.hpp"

namespace log = foundation::log;

namespace {

log::diagnostic_logger& testLogger() {
  static log::diagnostic_logger logger("test");
  return logger;
}

void traced(bool fail) {
  log::TraceScope scope(testLogger(), "void traced(bool)", __FILE__, __LINE__);
  testLogger().log(log::severity::kDetail, "inside ", 42);
  if (fail) throw std::runtime_error("fail");
}

}  // namespace

TEST(Logger, OnlyEnabledSeveritiesAreFormed) {
  vxtest::LogCapture capture(log::severity::kDetail);
  testLogger().log(log::severity::kDetail, "kept ", 1, u" \u00e9");
  testLogger().log(log::severity::kConfig, "dropped");
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].severity, log::severity::kDetail);
  EXPECT_EQ(records[0].text, "kept 1 \xC3\xA9");
}

TEST(Logger, TraceScopeWritesEntryAndExitAroundIndentedRecords) {
  vxtest::LogCapture capture;
  traced(false);
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(records[0].severity, log::severity::kEntry);
  EXPECT_EQ(records[0].text, "void traced(bool)");
  EXPECT_EQ(records[1].text, "inside 42");
  EXPECT_EQ(records[1].indent, records[0].indent + 1);
  EXPECT_EQ(records[2].severity, log::severity::kExit);
  EXPECT_EQ(records[2].text, "void traced(bool)");
  EXPECT_EQ(records[2].indent, records[0].indent);
}

TEST(Logger, ExitByExceptionIsMarked) {
  vxtest::LogCapture capture;
  EXPECT_THROW(traced(true), std::runtime_error);
  const auto records = capture.records();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.back().text, "void traced(bool) [throw]");
  EXPECT_EQ(testLogger().indentation(), 0);
}

TEST(Logger, ScopeIsInactiveWithoutEntryRecords) {
  vxtest::LogCapture capture(log::severity::kDetail | log::severity::kExit);
  traced(false);
  const auto records = capture.records();
  ASSERT_EQ(records.size(), 1u);  // no exit record from a scope that never opened
  EXPECT_EQ(records[0].indent, 0);
}

TEST(Logger, RecordsFromManyThreadsAreAllKept) {
  vxtest::LogCapture capture(log::severity::kDetail);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) testLogger().log(log::severity::kDetail, "record");
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(capture.records().size(), 800u);
}

TEST(Logger, WritesToTheFileNamedInTheEnvironment) {
  vxtest::TempDir dir;
  const std::string path = dir.file("trace.log");
  const unsigned previous = log::mask();
  ::setenv("VXPARQUET_LOG", ("0x4:" + path).c_str(), 1);
  log::configureFromEnvironment();
  EXPECT_EQ(log::mask(), 4u);
  testLogger().log(log::severity::kDetail, "to the file");
  ::unsetenv("VXPARQUET_LOG");
  log::setOutput("/dev/null");
  log::setMask(previous);
  EXPECT_NE(vxtest::readBytes(path).find("[test] <4> to the file"), std::string::npos);
}
