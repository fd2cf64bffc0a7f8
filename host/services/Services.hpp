#pragma once

#include <cstdint>
#include <string>

namespace arrow {
class MemoryPool;
}

namespace foundation::services {

// The pool that file reads decode Arrow's arrays into: Arrow's default pool unless the host
// sets another (a host that adopts decoded values as its own memory). Null restores the
// default. The pool must outlive every read and every array it allocated.
::arrow::MemoryPool* getArrowReadPool();
void setArrowReadPool(::arrow::MemoryPool* pool);

// The number of threads the host lets computations use: availableCpus() unless set.
int64_t getNumComputationalThreads();
// The CPUs this process may run on: those of its affinity mask (taskset, an MPI rank's
// binding), no more than its cgroup's CPU quota allows (rounded up), at least 1.
int64_t availableCpus();
// The smallest CPU quota of the cgroups named in procSelfCgroup (a /proc/self/cgroup), v2's
// cpu.max or v1's cpu.cfs_quota_us under cgroupRoot, walking up to the root; 0 for none.
int64_t cgroupCpuQuota(const std::string& procSelfCgroup, const std::string& cgroupRoot);
// A count of 0 or less restores the default.
void setNumComputationalThreads(int64_t count);

// The most bytes one column chunk may declare that it decodes to: a chunk declaring more is
// refused from the footer before any of it is read. 0 means the memory available at the time
// of asking (the default).
uint64_t getMaxColumnChunkBytes();
void setMaxColumnChunkBytes(uint64_t bytes);

// Whether writers skip Parquet's dictionary for the columns that cannot profit from one
// (mostly distinct values, logicals) when the host names no encodings: faster writes and
// files no larger. Off by default (every column tries a dictionary); programs may turn it on.
bool getChooseDictionaryPerColumn();
void setChooseDictionaryPerColumn(bool choose);

// How long Arrow's allocator keeps memory that was freed before it returns the pages to the
// kernel, in milliseconds (-1: never, 0: at once; Arrow's own choice is 1000). Kept pages serve
// the next read without page faults, so repeated reads run faster, at the cost of resident
// memory between reads up to the largest read's Arrow buffers. A positive time counts from
// when Arrow was last busy (reading or writing a file, or holding more or fewer bytes than
// before): the pages are all kept until then, and all returned after. Programs call it at
// start-up, before Arrow first allocates; called later, the allocator keeps the earlier setting
// for the arenas it has already made (its first arena, made as the library loads, always keeps
// Arrow's 1000 ms for what it holds). Called at start-up, it also makes jemalloc Arrow's
// allocator where the build's default is another (newer Arrow's mimalloc returns freed pages
// within milliseconds), unless ARROW_DEFAULT_MEMORY_POOL names one. False when Arrow's
// allocator is not jemalloc (nothing changes then).
bool setArrowMemoryDecayMs(int64_t milliseconds);
// The last value set, or Arrow's own 1000 when none was.
int64_t getArrowMemoryDecayMs();
// The value programs apply at start-up: setArrowMemoryDecayMs(kProgramArrowMemoryDecayMs).
inline constexpr int64_t kProgramArrowMemoryDecayMs = 10000;

}  // namespace foundation::services
