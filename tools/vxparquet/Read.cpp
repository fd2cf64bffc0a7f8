// vxparquet read: not built yet.
#include <cstdio>
#include <string>
#include <vector>

#include "Cli.hpp"

namespace vxparquet {

int runRead(const std::vector<std::string>& /*words*/) {
  std::fprintf(stderr, "vxparquet read: not available yet\n");
  return 2;
}

}  // namespace vxparquet
