#pragma once

// The generated file that the read benchmarks share.
#include <cstdint>
#include <string>

namespace vxbench {

// Four double, two int64, one 12-character string and one timestamp column of random values,
// snappy-compressed, in `rowGroups` row groups of equal height.
void writeBenchFile(const std::string& path, int64_t rows, int rowGroups);

}  // namespace vxbench
