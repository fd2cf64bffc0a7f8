#include "BenchUtil.hpp"

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace vxbench {

Timing measure(const std::function<void()>& work, int repetitions, bool warmup) {
  if (warmup) work();
  std::vector<double> seconds;
  for (int i = 0; i < repetitions; ++i) {
    const auto start = std::chrono::steady_clock::now();
    work();
    seconds.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(seconds.begin(), seconds.end());
  return {seconds.front(), seconds[seconds.size() / 2]};
}

std::vector<Timing> alternate(const std::vector<std::function<void()>>& works, int repetitions) {
  for (const auto& work : works) work();
  std::vector<std::vector<double>> seconds(works.size());
  for (int i = 0; i < repetitions; ++i) {
    for (size_t w = 0; w < works.size(); ++w) {
      const auto start = std::chrono::steady_clock::now();
      works[w]();
      seconds[w].push_back(
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
  }
  std::vector<Timing> timings;
  for (auto& runs : seconds) {
    std::sort(runs.begin(), runs.end());
    timings.push_back({runs.front(), runs[runs.size() / 2]});
  }
  return timings;
}

void report(const std::string& name, const Timing& timing) {
  std::printf("%s: min=%.4fs median=%.4fs\n", name.c_str(), timing.min, timing.median);
  std::fflush(stdout);
}

std::string makeTempFolder(const std::string& prefix) {
  std::string pattern = "/tmp/" + prefix + "XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    std::exit(2);
  }
  return pattern;
}

void removeFolder(const std::string& path) {
  const std::string command = "rm -rf '" + path + "'";
  if (std::system(command.c_str()) != 0) std::cerr << "could not remove " << path << "\n";
}

long long intArgument(int argc, char** argv, const std::string& name, long long fallback) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (name == argv[i]) return std::atoll(argv[i + 1]);
  }
  return fallback;
}

}  // namespace vxbench
