// vxparquet stats: not built yet.
#include <cstdio>
#include <string>
#include <vector>

#include "Cli.hpp"

namespace vxparquet {

int runStats(const std::vector<std::string>& /*words*/) {
  std::fprintf(stderr, "vxparquet stats: not available yet\n");
  return 2;
}

}  // namespace vxparquet
