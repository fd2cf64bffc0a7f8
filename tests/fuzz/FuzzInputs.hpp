#pragma once

// What the fuzzers do with one input, kept apart from libFuzzer so that the regression tests
// can replay saved inputs through exactly the same calls.
#include <cstddef>
#include <cstdint>

namespace vxfuzz {

// Treats the bytes as a Parquet file held by an in-memory provider and runs every read-side
// entry point over it: ParquetInfo, counting, the row-group reader (each row group, then the
// whole file) and the statistics of each variable. A host exception ends one entry point and is
// an acceptable outcome; anything else escapes.
void readParquetBytes(const uint8_t* data, size_t size);

// Builds a host table and writer options from the bytes (random classes, shapes, names, nested
// cells, compression and encoding names, versions, leaf paths, row-group heights) and writes it
// to an in-memory file. Host exceptions are acceptable outcomes; anything else escapes. Any
// output left once the writer is gone must be a Parquet file (std::logic_error otherwise).
void writeHostTable(const uint8_t* data, size_t size);

}  // namespace vxfuzz
