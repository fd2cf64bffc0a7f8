#include "OctaveValues.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <set>
#include <vector>

#include "../arrays/OctaveArrays.h"
#include "host/converter/HostValues.hpp"
#include "host/converter/ParallelFor.hpp"
#include "host/converter/TextCodec.hpp"
#include "host/services/Interrupts.hpp"
#include "host/services/LargeBlockPool.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"

namespace vantro::octave {

namespace {

namespace host = vantro::io::arrow::core::host;
using vantro::io::arrow::core::ParallelRanges;

constexpr const char* kTypeField = "Type";
constexpr const char* kObjectClasses[] = {host::kDatetime, host::kDuration, host::kCategorical,
                                          host::kInteger};
// datenum of 1970-01-01.
constexpr double kUnixEpochDatenum = 719529.0;

[[noreturn]] void fail(const std::string& key, const std::string& message) {
  throw TranslationError{"VANTRO:octave:" + key, message};
}

mxClassID toMxClass(vxClassID id) {
  switch (id) {
    case vxDOUBLE_CLASS:
      return mxDOUBLE_CLASS;
    case vxSINGLE_CLASS:
      return mxSINGLE_CLASS;
    case vxINT8_CLASS:
      return mxINT8_CLASS;
    case vxUINT8_CLASS:
      return mxUINT8_CLASS;
    case vxINT16_CLASS:
      return mxINT16_CLASS;
    case vxUINT16_CLASS:
      return mxUINT16_CLASS;
    case vxINT32_CLASS:
      return mxINT32_CLASS;
    case vxUINT32_CLASS:
      return mxUINT32_CLASS;
    case vxINT64_CLASS:
      return mxINT64_CLASS;
    case vxUINT64_CLASS:
      return mxUINT64_CLASS;
    default:
      return mxUNKNOWN_CLASS;
  }
}

vxClassID toVxClass(mxClassID id) {
  switch (id) {
    case mxDOUBLE_CLASS:
      return vxDOUBLE_CLASS;
    case mxSINGLE_CLASS:
      return vxSINGLE_CLASS;
    case mxINT8_CLASS:
      return vxINT8_CLASS;
    case mxUINT8_CLASS:
      return vxUINT8_CLASS;
    case mxINT16_CLASS:
      return vxINT16_CLASS;
    case mxUINT16_CLASS:
      return vxUINT16_CLASS;
    case mxINT32_CLASS:
      return vxINT32_CLASS;
    case mxUINT32_CLASS:
      return vxUINT32_CLASS;
    case mxINT64_CLASS:
      return vxINT64_CLASS;
    case mxUINT64_CLASS:
      return vxUINT64_CLASS;
    default:
      return vxUNKNOWN_CLASS;
  }
}

// Appends the UTF-8 form of UTF-16 units; unpaired surrogates become U+FFFD.
void appendUtf8(const vxChar* units, size_t count, std::string& out) {
  for (size_t i = 0; i < count; ++i) {
    char32_t c = units[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 &&
        units[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (c >> 12)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (c >> 18)));
      out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
}

// A 1xN Octave char row of the bytes, embedded NULs included.
mxArray* charRow(const std::string& bytes) {
  const mwSize dims[2] = {bytes.empty() ? 0 : 1, static_cast<mwSize>(bytes.size())};
  mxArray* row = mxCreateCharArray(2, dims);
  if (!bytes.empty()) std::memcpy(mxGetChars(row), bytes.data(), bytes.size());
  return row;
}

mxArray* emptyDouble() { return mxCreateDoubleMatrix(0, 0, mxREAL); }

// ---- host to Octave -------------------------------------------------------------------------

mxArray* translate(const vxArray* value, const ToOctaveOptions& options);

// Whether translate() gives the value an array made by OctaveArrays.
bool madeByOctaveArrays(const vxArray* value, const ToOctaveOptions& options) {
  if (value == nullptr) return false;
  const vxClassID id = vxGetClassID(value);
  if (id == vxLOGICAL_CLASS || toMxClass(id) != mxUNKNOWN_CLASS) return true;
  if (id != vxOBJECT_CLASS) return false;
  const std::string className = vxGetClassName(value);
  return className == host::kString ||
         (options.datesAsDatenum && (className == host::kDatetime || className == host::kDuration));
}

// The threads the host lets a translation use.
int threadCount() {
  return static_cast<int>(
      std::min<int64_t>(foundation::services::getNumComputationalThreads(), 64));
}

// An array made by OctaveArrays, or the host's failure when Octave could not allocate it.
mxArray* made(mxArray* array) {
  if (array == nullptr) throw std::bad_alloc();
  return array;
}

mxArray* numericToOctave(const vxArray* value) {
  const mxClassID mxClass = toMxClass(vxGetClassID(value));
  if (vxIsComplex(value)) {
    fail("UnsupportedValue", "complex host values have no Octave translation here");
  }
  const size_t m = vxGetM(value), n = vxGetN(value);
  void* data = vxGetData(value);
  // A column that Arrow decoded into a block of the package's pool becomes Octave's array as
  // it is. The host array still points there, but is destroyed unread once translated.
  auto& pool = foundation::services::LargeBlockPool::instance();
  if (mxClass != mxUNKNOWN_CLASS && m * n > 0 &&
      pool.handOver(data, m * n * vxGetElementSize(value))) {
    int taken = 0;
    mxArray* adopted = vxoct_adopted_numeric_array(mxClass, data, m, n, &taken);
    if (adopted != nullptr) return adopted;
    if (taken == 0) {
      pool.takeBack(data);
    } else {
      throw std::bad_alloc();
    }
  }
  return made(vxoct_numeric_array(mxClass, data, m, n, threadCount()));
}

mxArray* logicalToOctave(const vxArray* value) {
  static_assert(sizeof(vxLogical) == 1, "host logicals are one byte each");
  return made(vxoct_logical_array(reinterpret_cast<const uint8_t*>(vxGetLogicals(value)),
                                  vxGetM(value), vxGetN(value)));
}

mxArray* charToOctave(const vxArray* value) {
  const size_t m = vxGetM(value);
  const size_t n = vxGetN(value);
  const vxChar* units = vxGetChars(value);
  if (m <= 1) {
    std::string text;
    appendUtf8(units, m * n, text);
    return charRow(text);
  }
  // A char matrix: rows are stored column-major; each row becomes one line of a char matrix.
  std::vector<std::string> rows(m);
  std::vector<vxChar> row(n);
  for (size_t r = 0; r < m; ++r) {
    for (size_t c = 0; c < n; ++c) row[c] = units[c * m + r];
    appendUtf8(row.data(), n, rows[r]);
  }
  std::vector<const char*> pointers;
  for (const auto& text : rows) pointers.push_back(text.c_str());
  return mxCreateCharMatrixFromStrings(m, pointers.data());
}

// An Rx1 cellstr of the texts, made by OctaveArrays.
mxArray* stringObjectToOctave(const vxArray* value) {
  const vxArray* data = vxGetField(value, 0, host::kData);
  const vxArray* offsets = vxGetField(value, 0, host::kOffsets);
  const vxArray* missing = vxGetField(value, 0, host::kMissing);
  if (offsets == nullptr || vxGetClassID(offsets) != vxUINT64_CLASS) {
    fail("UnsupportedValue", "a string object without uint64 Offsets");
  }
  const size_t rows = vxGetNumberOfElements(offsets) == 0 ? 0 : vxGetNumberOfElements(offsets) - 1;
  const auto* bounds = static_cast<const uint64_t*>(vxGetData(offsets));
  const vxChar* units = data ? vxGetChars(data) : nullptr;
  const size_t unitCount = data ? vxGetNumberOfElements(data) : 0;
  const vxLogical* isMissing =
      missing && vxGetNumberOfElements(missing) == rows ? vxGetLogicals(missing) : nullptr;

  for (size_t r = 0; r < rows; ++r) {
    if (!(isMissing && isMissing[r]) && (bounds[r] > bounds[r + 1] || bounds[r + 1] > unitCount)) {
      fail("UnsupportedValue", "a string object whose offsets run past its data");
    }
  }
  static_assert(sizeof(vxLogical) == 1, "host logicals are one byte each");
  return made(vxoct_text_column(units, bounds, reinterpret_cast<const uint8_t*>(isMissing), rows,
                                threadCount()));
}

// Day numbers of datetime or duration ticks; NaN where missing.
mxArray* ticksAsDays(const vxArray* value, bool isDatetime) {
  const vxArray* ticks = vxGetField(value, 0, host::kTicks);
  const vxArray* missing = vxGetField(value, 0, host::kMissing);
  const std::string unit = host::TextField(value, host::kUnit);
  double perDay = 86400.0;
  if (unit == "ms") perDay = 86400e3;
  if (unit == "us") perDay = 86400e6;
  if (unit == "ns") perDay = 86400e9;
  if (unit == "day") perDay = 1.0;
  const size_t rows = ticks ? vxGetNumberOfElements(ticks) : 0;
  std::vector<double> days(rows);
  const auto* counts = ticks ? static_cast<const int64_t*>(vxGetData(ticks)) : nullptr;
  const vxLogical* isMissing =
      missing && vxGetNumberOfElements(missing) == rows ? vxGetLogicals(missing) : nullptr;
  const double origin = isDatetime ? kUnixEpochDatenum : 0.0;
  for (size_t r = 0; r < rows; ++r) {
    days[r] = isMissing && isMissing[r] ? std::numeric_limits<double>::quiet_NaN()
                                        : origin + static_cast<double>(counts[r]) / perDay;
  }
  return made(vxoct_numeric_array(mxDOUBLE_CLASS, days.data(), rows, 1, threadCount()));
}

mxArray* structLike(const vxArray* value, size_t m, size_t n, bool typeFirst,
                    const ToOctaveOptions& options);

mxArray* objectToOctave(const vxArray* value, const ToOctaveOptions& options) {
  const std::string className = vxGetClassName(value);
  if (className == host::kString) return stringObjectToOctave(value);
  if (className == host::kTable) {
    const vxArray* names = vxGetField(value, 0, host::kNames);
    const vxArray* columns = vxGetField(value, 0, host::kColumns);
    const size_t count = names ? vxGetNumberOfElements(names) : 0;
    // Octave takes any text as a field name but not the same one twice.
    std::vector<std::string> fieldNames;
    std::set<std::string> taken;
    for (size_t i = 0; i < count; ++i) {
      std::string name = host::TextOf(vxGetCell(names, i));
      for (int suffix = 2; taken.count(name) != 0; ++suffix) {
        name = host::TextOf(vxGetCell(names, i)) + "_" + std::to_string(suffix);
      }
      taken.insert(name);
      fieldNames.push_back(std::move(name));
    }
    std::vector<const char*> pointers;
    for (const auto& name : fieldNames) pointers.push_back(name.c_str());
    mxArray* out = mxCreateStructMatrix(1, 1, static_cast<int>(count), pointers.data());
    for (size_t i = 0; i < count; ++i) {
      const vxArray* column = columns ? vxGetCell(columns, i) : nullptr;
      mxSetFieldByNumber(out, 0, static_cast<int>(i), translate(column, options));
      // Ctrl-C also stops a long translation, between columns.
      if (utIsSignalThread() != 0) utInterruptState::ThrowIfInterruptPending();
    }
    return out;
  }
  const bool isDatetime = className == host::kDatetime;
  if (options.datesAsDatenum && (isDatetime || className == host::kDuration)) {
    return ticksAsDays(value, isDatetime);
  }
  return structLike(value, 1, 1, true, options);
}

// A struct (or an object, with its class name as the leading field Type).
mxArray* structLike(const vxArray* value, size_t m, size_t n, bool typeFirst,
                    const ToOctaveOptions& options) {
  const int fieldCount = vxGetNumberOfFields(value);
  std::vector<const char*> names;
  if (typeFirst) names.push_back(kTypeField);
  for (int f = 0; f < fieldCount; ++f) names.push_back(vxGetFieldNameByNumber(value, f));
  mxArray* out = mxCreateStructMatrix(m, n, static_cast<int>(names.size()), names.data());
  const int shift = typeFirst ? 1 : 0;
  for (size_t i = 0; i < m * n; ++i) {
    if (typeFirst) mxSetFieldByNumber(out, i, 0, charRow(vxGetClassName(value)));
    for (int f = 0; f < fieldCount; ++f) {
      mxSetFieldByNumber(out, i, f + shift,
                         translate(vxGetField(value, i, names[f + shift]), options));
    }
  }
  return out;
}

mxArray* translate(const vxArray* value, const ToOctaveOptions& options) {
  if (value == nullptr) return emptyDouble();
  const vxClassID id = vxGetClassID(value);
  switch (id) {
    case vxLOGICAL_CLASS:
      return logicalToOctave(value);
    case vxCHAR_CLASS:
      return charToOctave(value);
    case vxCELL_CLASS: {
      mxArray* out = mxCreateCellMatrix(vxGetM(value), vxGetN(value));
      const size_t count = vxGetNumberOfElements(value);
      for (size_t i = 0; i < count; ++i) {
        mxSetCell(out, i, translate(vxGetCell(value, i), options));
      }
      return out;
    }
    case vxSTRUCT_CLASS:
      return structLike(value, vxGetM(value), vxGetN(value), false, options);
    case vxOBJECT_CLASS:
      return objectToOctave(value, options);
    default:
      if (toMxClass(id) != mxUNKNOWN_CLASS) return numericToOctave(value);
      fail("UnsupportedValue", "a host value of unknown class");
  }
}

// ---- Octave to host -------------------------------------------------------------------------

// Octave owns the data that a host array views. A release function must be given: without one
// the host frees the data into its own pool when the array goes.
void keepOctaveData(void*) {}

matrix::unique_array checked(vxArray* array) {
  if (array == nullptr) fail("OutOfMemory", "the host could not allocate an array");
  return matrix::unique_array(array);
}

// Every vector is a column: a 1xN numeric, logical or cell array is taken as the Nx1 column
// it holds (the data is the same in either orientation). A char row is one text.
size_t heightOf(const mxArray* value) { return mxGetM(value) == 1 ? mxGetN(value) : mxGetM(value); }
size_t widthOf(const mxArray* value) { return mxGetM(value) == 1 ? 1 : mxGetN(value); }

bool isCharRow(const mxArray* value) {
  return mxIsChar(value) && mxGetNumberOfDimensions(value) == 2 && mxGetM(value) <= 1;
}

// UTF-16 units of one UTF-8 text; a broken sequence decodes to U+FFFD.
size_t unitsOf(const uint8_t* bytes, size_t count, char16_t* out) {
  // Most texts are ASCII: eight bytes at a time until the first that is not.
  size_t ascii = 0;
  for (uint64_t eight; ascii + 8 <= count; ascii += 8) {
    std::memcpy(&eight, bytes + ascii, sizeof eight);
    if ((eight & 0x8080808080808080ull) != 0) break;
  }
  while (ascii < count && bytes[ascii] < 0x80) ++ascii;
  if (out != nullptr) std::copy(bytes, bytes + ascii, out);
  size_t units = ascii;
  for (size_t i = ascii; i < count;) {
    const char32_t c = foundation::unicode::decodeUtf8(bytes, count, i);
    if (c < 0x10000) {
      if (out != nullptr) out[units] = static_cast<char16_t>(c);
      units += 1;
    } else {
      if (out != nullptr) {
        out[units] = static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
        out[units + 1] = static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
      }
      units += 2;
    }
  }
  return units;
}

// A "string" object of a cell made of char rows and [], read in place from Octave's own
// arrays; NULL for any other cell. A cell without any text (no rows, or only []) is text too:
// a column filtered to nothing, or missing everywhere, keeps the type it has elsewhere.
matrix::unique_array textCellToHost(const mxArray* value) {
  const size_t rows = mxGetNumberOfElements(value);
  // Left unset here: the threads that fill them touch their pages first.
  const std::unique_ptr<const char*[]> texts(new const char*[rows]);
  const std::unique_ptr<uint64_t[]> lengths(new uint64_t[rows]);
  const std::unique_ptr<uint8_t[]> absent(new uint8_t[rows]);
  if (!vxoct_cell_texts(value, rows, texts.get(), lengths.get(), absent.get(), threadCount())) {
    return nullptr;
  }
  const auto bytesOf = [&](size_t r) { return reinterpret_cast<const uint8_t*>(texts[r]); };
  auto offsets = checked(vxCreateUninitNumericMatrix(rows + 1, 1, vxUINT64_CLASS, vxREAL));
  auto missing = checked(vxCreateLogicalMatrix(rows, 1));
  auto* bounds = static_cast<uint64_t*>(vxGetData(offsets.get()));
  vxLogical* isMissing = vxGetLogicals(missing.get());
  // First as if every text were ASCII, one unit per byte: the rows placed by their bytes and
  // widened on the host's threads. A text that is not sends the column through counting its
  // units before they are written.
  constexpr int64_t kRowsPerTask = 65536;
  bounds[0] = 0;
  for (size_t r = 0; r < rows; ++r) {
    isMissing[r] = absent[r] != 0;
    bounds[r + 1] = bounds[r] + (isMissing[r] ? 0 : lengths[r]);
  }
  auto units = checked(vxCreateUninitCharArray(1, bounds[rows]));
  std::atomic<bool> ascii{true};
  ParallelRanges(static_cast<int64_t>(rows), kRowsPerTask, [&](int64_t first, int64_t last) {
    auto* out = reinterpret_cast<char16_t*>(vxGetChars(units.get()));
    for (auto r = static_cast<size_t>(first); r < static_cast<size_t>(last) && ascii; ++r) {
      if (!isMissing[r] &&
          !vantro::io::arrow::core::text::WidenIfAscii(bytesOf(r), lengths[r], out + bounds[r])) {
        ascii = false;
      }
    }
  });
  if (!ascii) {
    ParallelRanges(static_cast<int64_t>(rows), kRowsPerTask, [&](int64_t first, int64_t last) {
      for (auto r = static_cast<size_t>(first); r < static_cast<size_t>(last); ++r) {
        bounds[r + 1] = isMissing[r] ? 0 : unitsOf(bytesOf(r), lengths[r], nullptr);
      }
    });
    for (size_t r = 0; r < rows; ++r) bounds[r + 1] += bounds[r];
    units = checked(vxCreateUninitCharArray(1, bounds[rows]));
    auto* out = reinterpret_cast<char16_t*>(vxGetChars(units.get()));
    ParallelRanges(static_cast<int64_t>(rows), kRowsPerTask, [&](int64_t first, int64_t last) {
      for (auto r = static_cast<size_t>(first); r < static_cast<size_t>(last); ++r) {
        if (!isMissing[r]) unitsOf(bytesOf(r), lengths[r], out + bounds[r]);
      }
    });
  }
  std::vector<host::Field> fields;
  fields.emplace_back(host::kData, std::move(units));
  fields.emplace_back(host::kOffsets, std::move(offsets));
  fields.emplace_back(host::kMissing, std::move(missing));
  auto object = host::MakeObject(host::kString, std::move(fields));
  if (!object.ok()) fail("OutOfMemory", object.status().ToString());
  return std::move(object).ValueUnsafe();
}

matrix::unique_array cellToHost(const mxArray* value) {
  if (auto texts = textCellToHost(value)) return texts;
  auto cells = checked(vxCreateCellMatrix(heightOf(value), widthOf(value)));
  const size_t count = mxGetNumberOfElements(value);
  for (size_t i = 0; i < count; ++i) {
    const mxArray* element = mxGetCell(value, i);
    vxSetCell(cells.get(), i,
              element ? toHost(element).release() : vxCreateDoubleMatrix(0, 0, vxREAL));
  }
  return cells;
}

// The object class a struct stands for, or empty for a table.
std::string objectClassOf(const mxArray* value) {
  if (mxGetNumberOfFields(value) == 0 || std::strcmp(mxGetFieldNameByNumber(value, 0), kTypeField))
    return {};
  const mxArray* type = mxGetFieldByNumber(value, 0, 0);
  if (type == nullptr || !isCharRow(type)) return {};
  const std::string className = textOf(type, kTypeField);
  for (const char* known : kObjectClasses) {
    if (className == known) return className;
  }
  return {};
}

matrix::unique_array structToHost(const mxArray* value) {
  if (mxGetNumberOfElements(value) != 1) {
    fail("UnsupportedValue", "a struct array is not a table: use a 1x1 struct of columns");
  }
  const int fieldCount = mxGetNumberOfFields(value);
  const std::string className = objectClassOf(value);
  if (!className.empty()) {
    std::vector<host::Field> fields;
    for (int f = 1; f < fieldCount; ++f) {
      const mxArray* field = mxGetFieldByNumber(value, 0, f);
      fields.emplace_back(mxGetFieldNameByNumber(value, f),
                          field ? toHost(field) : checked(vxCreateDoubleMatrix(0, 0, vxREAL)));
    }
    auto object = host::MakeObject(className.c_str(), std::move(fields));
    if (!object.ok()) fail("OutOfMemory", object.status().ToString());
    return std::move(object).ValueUnsafe();
  }
  std::vector<std::string> names;
  std::vector<matrix::unique_array> columns;
  for (int f = 0; f < fieldCount; ++f) {
    names.emplace_back(mxGetFieldNameByNumber(value, f));
    const mxArray* field = mxGetFieldByNumber(value, 0, f);
    columns.push_back(field ? toHost(field) : checked(vxCreateDoubleMatrix(0, 0, vxREAL)));
  }
  auto table = host::MakeTable(names, std::move(columns));
  if (!table.ok()) fail("OutOfMemory", table.status().ToString());
  return std::move(table).ValueUnsafe();
}

matrix::unique_array charToHost(const mxArray* value) {
  const size_t m = mxGetM(value);
  const size_t n = mxGetN(value);
  const char* bytes = static_cast<const char*>(mxGetChars(value));
  if (m <= 1) {
    const auto units = foundation::unicode::utf8_to_ustring(std::string_view(bytes, m * n));
    return checked(
        vxCreateStringFromUTF16(reinterpret_cast<const vxChar*>(units.data()), units.size()));
  }
  // Rows of a char matrix, each decoded on its own and padded with blanks to the longest.
  std::vector<std::u16string> rows(m);
  size_t width = 0;
  for (size_t r = 0; r < m; ++r) {
    std::string row(n, ' ');
    for (size_t c = 0; c < n; ++c) row[c] = bytes[c * m + r];
    rows[r] = foundation::unicode::utf8_to_ustring(row);
    width = std::max(width, rows[r].size());
  }
  auto out = checked(vxCreateCharArray(m, width));
  vxChar* units = vxGetChars(out.get());
  for (size_t r = 0; r < m; ++r) {
    rows[r].resize(width, u' ');
    for (size_t c = 0; c < width; ++c) units[c * m + r] = rows[r][c];
  }
  return out;
}

}  // namespace

std::string textOf(const mxArray* value, const char* what) {
  if (value == nullptr || !mxIsChar(value)) {
    fail("InvalidArgument", std::string(what) + " must be text");
  }
  return std::string(static_cast<const char*>(mxGetChars(value)), mxGetNumberOfElements(value));
}

mxArray* toOctave(const vxArray* value, const ToOctaveOptions& options) {
  mxArray* out = translate(value, options);
  if (!madeByOctaveArrays(value, options)) return out;
  // Arrays made by OctaveArrays belong to no MEX call until a struct or cell made by the MEX
  // interface holds them; a registered copy is freed with the call if Octave never takes it.
  mxArray* registered = mxDuplicateArray(out);
  mxDestroyArray(out);
  return registered;
}

matrix::unique_array toHost(const mxArray* value) {
  if (mxIsSparse(value) || mxIsComplex(value)) {
    fail("UnsupportedValue", "sparse and complex arrays cannot be written");
  }
  if (mxGetNumberOfDimensions(value) > 2) {
    fail("UnsupportedValue", "arrays of more than two dimensions cannot be written");
  }
  if (mxIsCell(value)) return cellToHost(value);
  if (mxIsStruct(value)) return structToHost(value);
  if (mxIsChar(value)) return charToHost(value);
  if (mxIsLogical(value)) {
    auto out = checked(vxCreateLogicalMatrix(heightOf(value), widthOf(value)));
    const mxLogical* in = mxGetLogicals(value);
    vxLogical* data = vxGetLogicals(out.get());
    for (size_t i = 0, count = mxGetNumberOfElements(value); i < count; ++i) data[i] = in[i] != 0;
    return out;
  }
  const vxClassID id = toVxClass(mxGetClassID(value));
  if (id == vxUNKNOWN_CLASS) {
    fail("UnsupportedValue",
         std::string("an Octave value of class ") + mxGetClassName(value) + " cannot be written");
  }
  // The host array views Octave's data: the caller writes it out before Octave gets it back.
  void* data = mxGetData(value);
  if (data == nullptr)
    return checked(vxCreateNumericMatrix(heightOf(value), widthOf(value), id, vxREAL));
  return checked(vxCreateNumericMatrixOver(heightOf(value), widthOf(value), id, data,
                                           keepOctaveData, nullptr));
}

}  // namespace vantro::octave
