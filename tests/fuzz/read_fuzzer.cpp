// libFuzzer entry point: arbitrary bytes as a Parquet file.
#include "tests/fuzz/FuzzInputs.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vxfuzz::readParquetBytes(data, size);
  return 0;
}
