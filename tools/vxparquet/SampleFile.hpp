#pragma once

#include <string>

namespace vxparquet {

// Writes the program's embedded sample (weather readings: 3 row groups of 10 rows) to a file in
// the temporary folder and returns its path.
std::string writeSampleFile();

}  // namespace vxparquet
