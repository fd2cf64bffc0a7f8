#pragma once

#include <cstdint>

namespace foundation::services {

// The number of threads the host lets computations use: the hardware's thread count unless set.
int64_t getNumComputationalThreads();
// A count of 0 or less restores the default.
void setNumComputationalThreads(int64_t count);

}  // namespace foundation::services
