#pragma once

#include <cstdint>

namespace foundation::services {

// The number of threads the host lets computations use: the hardware's thread count unless set.
int64_t getNumComputationalThreads();
// A count of 0 or less restores the default.
void setNumComputationalThreads(int64_t count);

// The most bytes one column chunk may declare that it decodes to: a chunk declaring more is
// refused from the footer before any of it is read. 0 means the memory available at the time
// of asking (the default).
uint64_t getMaxColumnChunkBytes();
void setMaxColumnChunkBytes(uint64_t bytes);

}  // namespace foundation::services
