#pragma once

// Translation between the host's values (host/matrix) and Octave's arrays. This side sees
// Octave through the MEX interface only (plain C; Octave's C++ API uses the other std::string
// ABI); columns are made by OctaveArrays (../arrays), Octave's own C++ API behind a C
// interface, so that Octave takes them back without copying.
//
// Host value                        Octave value
// table object (Names, Columns)     1x1 struct, one field per variable, each an Rx1 column
// numeric / logical R-by-C          the same class and shape (copied once)
// char                              char (UTF-16 units become UTF-8 bytes)
// "string" object                   Rx1 cell of char rows; a missing text is [] (0x0 double)
// "datetime" / "duration" /         1x1 struct whose first field Type names the class, then
// "categorical" object              the object's own fields (Ticks int64, Unit, ...); with
//                                   dates as "datenum", datetimes and durations become
//                                   doubles in days (NaN where missing)
// cell                              cell of the same shape; a missing element is []
//
// Octave back to host values is the inverse: a cell whose elements are all char rows or []
// (at least one char) is a "string" object; a 1x1 struct whose first field Type holds one of
// the object class names is that object; any other 1x1 struct is a table. A 1xN numeric,
// logical or cell vector is taken as an Nx1 column; a char row is one text.
#include <string>

#include <mex.h>

#include "host/matrix/Matrix.hpp"

namespace vantro::octave {

struct ToOctaveOptions {
  // Datetimes and durations as day numbers (datenum: days since 0000-01-00; durations: days).
  bool datesAsDatenum = false;
};

// An error raised by the translation itself, with an identifier of the binding.
struct TranslationError {
  std::string identifier;
  std::string message;
};

// A new Octave array holding the host value (NULL host values become []).
mxArray* toOctave(const vxArray* value, const ToOctaveOptions& options);

// A new host value holding the Octave array. Numeric arrays are not copied: the host array
// views the Octave data, so the result must not outlive `value`. Throws TranslationError for
// values the host has no counterpart for (complex, sparse, function handles, struct arrays).
matrix::unique_array toHost(const mxArray* value);

// UTF-8 of an Octave char array (its bytes, row after row), or throws TranslationError.
std::string textOf(const mxArray* value, const char* what);

}  // namespace vantro::octave
