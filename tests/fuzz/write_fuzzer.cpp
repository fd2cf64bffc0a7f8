// libFuzzer entry point: host tables and writer options built from arbitrary bytes.
#include "tests/fuzz/FuzzInputs.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vxfuzz::writeHostTable(data, size);
  return 0;
}
