// Repeated full reads of one file, with a pause between them as a host's user leaves, under
// several settings of how long Arrow's allocator keeps freed pages
// (foundation::services::setArrowMemoryDecayMs). Each setting runs in a child process of its
// own, since it applies to the allocator's arenas made after it.
//
// Usage: memory_reuse_bench [--rows N] [--reads R] [--pause-ms P]
//        (defaults: 5,000,000 rows in 5 row groups, 5 reads, 1,500 ms)
// Per setting: the median read time, resident memory between reads (after the pause) and the
// peak. Last line: reuse_speedup=<median time at Arrow's 1000 ms over the best median>
//                  best_decay_ms=<d> rest_rss_mb=<at d> default_rest_rss_mb=<at 1000 ms>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "BenchFiles.hpp"
#include "BenchUtil.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;

struct Outcome {
  double medianSeconds = 0;
  double restMB = 0;  // median resident memory after each pause, before the read
  double peakMB = 0;
};

double residentMB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// The reads of one setting, in this (child) process.
Outcome readRepeatedly(const std::string& path, int64_t decayMs, int reads, int pauseMs) {
  foundation::services::setArrowMemoryDecayMs(decayMs);
  const std::u16string upath = foundation::unicode::utf8_to_ustring(path);
  RowGroupParquetReader(upath, {}).readFullFile();  // warm-up: pools, threads, page cache
  std::vector<double> seconds, rest;
  for (int i = 0; i < reads; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
    rest.push_back(residentMB());
    const auto start = std::chrono::steady_clock::now();
    RowGroupParquetReader(upath, {}).readFullFile();
    seconds.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return {median(seconds), median(rest), 0};
}

Outcome inChild(const std::string& path, int64_t decayMs, int reads, int pauseMs) {
  int pipeEnds[2];
  if (pipe(pipeEnds) != 0) std::exit(2);
  const pid_t child = fork();
  if (child == 0) {
    const Outcome outcome = readRepeatedly(path, decayMs, reads, pauseMs);
    if (write(pipeEnds[1], &outcome, sizeof outcome) != sizeof outcome) _exit(3);
    _exit(0);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  Outcome outcome;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
      read(pipeEnds[0], &outcome, sizeof outcome) != sizeof outcome) {
    std::fprintf(stderr, "child process failed\n");
    std::exit(2);
  }
  close(pipeEnds[0]);
  close(pipeEnds[1]);
  outcome.peakMB = static_cast<double>(usage.ru_maxrss) * 1024.0 / 1e6;
  return outcome;
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t rows = vxbench::intArgument(argc, argv, "--rows", 5000000);
  const int reads = static_cast<int>(vxbench::intArgument(argc, argv, "--reads", 5));
  const int pauseMs = static_cast<int>(vxbench::intArgument(argc, argv, "--pause-ms", 1500));
  const std::string folder = vxbench::makeTempFolder("memory_reuse_bench");
  const std::string path = folder + "/bench.parquet";
  vxbench::writeBenchFile(path, rows, 5);

  const std::vector<int64_t> settings{0, 1000, 10000, -1};
  std::vector<Outcome> outcomes;
  for (const int64_t decayMs : settings) {
    outcomes.push_back(inChild(path, decayMs, reads, pauseMs));
    std::printf("decay_ms=%lld: median=%.4fs rss_between_reads=%.0fMB peak_rss=%.0fMB\n",
                static_cast<long long>(decayMs), outcomes.back().medianSeconds,
                outcomes.back().restMB, outcomes.back().peakMB);
    std::fflush(stdout);
  }
  vxbench::removeFolder(folder);
  size_t best = 0;
  for (size_t i = 1; i < outcomes.size(); ++i) {
    if (outcomes[i].medianSeconds < outcomes[best].medianSeconds) best = i;
  }
  std::printf("reuse_speedup=%.3f best_decay_ms=%lld rest_rss_mb=%.0f default_rest_rss_mb=%.0f\n",
              outcomes[1].medianSeconds / outcomes[best].medianSeconds,
              static_cast<long long>(settings[best]), outcomes[best].restMB, outcomes[1].restMB);
  return 0;
}
