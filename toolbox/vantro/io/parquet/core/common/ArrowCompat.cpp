#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"

namespace vantro::io::parquet::core::common::compat {
namespace {

// The host converter and the statistics call Arrow's compute functions; loading the library
// makes them available whichever entry point comes first.
const bool kComputeInitialized = initializeCompute().ok();

}  // namespace
}  // namespace vantro::io::parquet::core::common::compat
