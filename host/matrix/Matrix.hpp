#pragma once

// C++ conveniences over the C matrix API: owned arrays, string access, recorded warnings.
#include <memory>
#include <string>
#include <vector>

#include "host/matrix/matrix.h"

namespace matrix::detail {
struct vxDestroy_deleter {
  void operator()(vxArray_tag* array) const noexcept { vxDestroyArray(array); }
};
}  // namespace matrix::detail

namespace matrix {

using unique_array = std::unique_ptr<vxArray_tag, detail::vxDestroy_deleter>;

// A real numeric m-by-n array over data that `owner` keeps alive: the array holds a reference
// to owner until it is destroyed. NULL when the host cannot make the array. The array may
// write the data, so hand over only memory that nobody else reads.
unique_array adoptNumeric(size_t m, size_t n, vxClassID classID, void* data,
                          std::shared_ptr<void> owner);

// Reads a char array as UTF-16; throws std::invalid_argument when array is not char.
std::u16string toUString(const vxArray_tag* array);
unique_array fromUString(const std::u16string& text);

// A warning as the host recorded it.
struct Warning {
  std::string identifier;
  std::vector<std::string> arguments;
  std::string message;  // filled catalogue text
};
// Every warning issued since the last call, oldest first; the record is emptied.
std::vector<Warning> takeWarnings();
// When true (the default), each warning is also printed on standard error as
// "Warning: <message> [<identifier>]".
void setPrintWarnings(bool print);

// The number of arrays created since the program started (every creation and duplication of
// an array or of a nested value counts one). Tests take differences of two readings to show
// that a conversion does not allocate per element.
size_t allocationCount();

}  // namespace matrix
