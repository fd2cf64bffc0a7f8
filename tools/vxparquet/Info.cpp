// vxparquet info: not built yet.
#include <cstdio>
#include <string>
#include <vector>

#include "Cli.hpp"

namespace vxparquet {

int runInfo(const std::vector<std::string>& /*words*/) {
  std::fprintf(stderr, "vxparquet info: not available yet\n");
  return 2;
}

}  // namespace vxparquet
