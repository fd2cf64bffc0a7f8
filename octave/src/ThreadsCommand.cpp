// pq_threads: the host's thread count, as Octave sees and sets it.
#include <cmath>

#include "Commands.hpp"
#include "OctaveValues.hpp"
#include "host/services/Services.hpp"

namespace vantro::octave {

void threadsCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  if (count > 1) {
    throw TranslationError{"VANTRO:octave:InvalidArgument", "pq_threads takes at most one count"};
  }
  if (count == 1) {
    const mxArray* value = args[0];
    const bool scalar = value != nullptr && mxIsNumeric(value) && !mxIsComplex(value) &&
                        !mxIsSparse(value) && mxGetNumberOfElements(value) == 1;
    const double requested = scalar ? mxGetScalar(value) : NAN;
    if (!std::isfinite(requested) || requested != std::floor(requested) || requested > 65536) {
      throw TranslationError{"VANTRO:octave:InvalidArgument",
                             "the thread count must be one whole number (0 or less: the "
                             "default), at most 65536"};
    }
    foundation::services::setNumComputationalThreads(static_cast<int64_t>(requested));
  }
  out[0] =
      mxCreateDoubleScalar(static_cast<double>(foundation::services::getNumComputationalThreads()));
}

}  // namespace vantro::octave
