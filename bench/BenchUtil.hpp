#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace vxbench {

// Wall-clock timings of repeated runs of one piece of work.
struct Timing {
  double min = 0;     // seconds
  double median = 0;  // seconds
};

// Runs work once untimed (warm-up) unless warmup is false, then `repetitions` times.
Timing measure(const std::function<void()>& work, int repetitions, bool warmup = true);

// Runs each piece of work once untimed, then `repetitions` rounds in which every piece runs
// once, in turn: load that comes and goes on a shared machine falls on all of them alike.
std::vector<Timing> alternate(const std::vector<std::function<void()>>& works, int repetitions);

// "name: min=...s median=...s" on standard output.
void report(const std::string& name, const Timing& timing);

// A fresh empty folder under the system's temporary folder; removed by removeFolder.
std::string makeTempFolder(const std::string& prefix);
void removeFolder(const std::string& path);

// The value of "--name N" among the arguments, or fallback.
long long intArgument(int argc, char** argv, const std::string& name, long long fallback);

}  // namespace vxbench
