// vxparquet write: not built yet.
#include <cstdio>
#include <string>
#include <vector>

#include "Cli.hpp"

namespace vxparquet {

int runWrite(const std::vector<std::string>& /*words*/) {
  std::fprintf(stderr, "vxparquet write: not available yet\n");
  return 2;
}

}  // namespace vxparquet
