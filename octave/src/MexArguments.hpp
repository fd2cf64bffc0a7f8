#pragma once

// Reading the arguments that the package's .m functions hand to the gateway, and building the
// small Octave values it returns. Failures throw TranslationError with a binding identifier.
#include <optional>
#include <string>
#include <vector>

#include <mex.h>

#include "OctaveValues.hpp"

namespace vantro::octave {

// A text argument as UTF-16 (file names) or UTF-8.
std::u16string fileNameOf(const mxArray* value);
// Text, or a cell of texts, as a list; [] gives an empty list.
std::vector<std::string> textListOf(const mxArray* value, const char* what);
// A real numeric vector as doubles.
std::vector<double> numbersOf(const mxArray* value, const char* what);

// A field of the options struct, or nothing when the struct lacks it or it holds [].
std::optional<const mxArray*> optionOf(const mxArray* options, const char* name);

// The DatesAs option ("ticks" or "datenum", in any case) as translation options.
ToOctaveOptions translationOptions(const mxArray* options);
// A logical or numeric scalar option (true/false, 1/0) as a flag.
bool flagOf(const mxArray* value, const char* what);
// Text in lower case (ASCII letters only: option values are ASCII words).
std::string lowercase(std::string text);

// Octave values of lists.
mxArray* cellRowOf(const std::vector<std::string>& texts);
mxArray* cellRowOf(const std::vector<std::u16string>& texts);
mxArray* textOfUtf8(const std::string& text);
template <class Number>
mxArray* doubleColumnOf(const std::vector<Number>& numbers) {
  mxArray* out = mxCreateDoubleMatrix(numbers.size(), 1, mxREAL);
  double* data = mxGetPr(out);
  for (size_t i = 0; i < numbers.size(); ++i) data[i] = static_cast<double>(numbers[i]);
  return out;
}

}  // namespace vantro::octave
