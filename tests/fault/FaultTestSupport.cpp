#include "tests/fault/FaultTestSupport.hpp"

#include <algorithm>
#include <cstdlib>

namespace vxtest::fault {

namespace {
// Arrow's buffers on the system allocator, where ASan sees overflows and leaks of them; set
// before Arrow's default pool is first asked for.
[[maybe_unused]] const bool kSystemPool = setenv("ARROW_DEFAULT_MEMORY_POOL", "system", 0) == 0;
}  // namespace

size_t tableRows(const vxArray_tag* table) {
  const vxArray_tag* columns = vxGetField(table, 0, "Columns");
  if (columns == nullptr || vxGetNumberOfElements(columns) == 0) return 0;
  return vxGetNumberOfElements(vxGetCell(columns, 0));
}

std::vector<int64_t> sweepPoints(int64_t end, int steps, std::vector<int64_t> edges) {
  std::vector<int64_t> points = std::move(edges);
  for (int i = 0; i <= steps; ++i) points.push_back(end * i / steps);
  points.erase(
      std::remove_if(points.begin(), points.end(), [&](int64_t p) { return p < 0 || p > end; }),
      points.end());
  std::sort(points.begin(), points.end());
  points.erase(std::unique(points.begin(), points.end()), points.end());
  return points;
}

}  // namespace vxtest::fault
