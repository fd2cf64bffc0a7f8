// Built with Octave's std::string ABI and C++ API; see OctaveArrays.h.
#include <octave/oct.h>

#include <octave/Cell.h>
#include <octave/mxarray.h>
#include <octave/ov-str-mat.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <thread>
#include <typeinfo>
#include <vector>

#include "OctaveArrays.h"

namespace {

// A window onto a char row that shares the row's storage, as Octave's own A(i:j) does. It
// moves instead of being made anew for every text: each Octave value made from it copies the
// window as it stands, so a text costs that copy and nothing more. It is a charNDArray itself,
// so that making a value from it needs no intermediate charNDArray (one more allocation).
class CharWindow : public charNDArray {
 public:
  explicit CharWindow(const Array<char>& row) : charNDArray(row), mRow(m_slice_data) {}

  // Bytes [begin, end) of the row.
  const charNDArray& view(octave_idx_type begin, octave_idx_type end) {
    m_slice_data = mRow + begin;
    m_slice_len = end - begin;
    m_dimensions(1) = end - begin;
    return *this;
  }

 private:
  char* mRow;
};

// Runs work(0) .. work(parts - 1), parts 1 and up on threads of their own where they can be
// had. Returns false when a part failed; every thread has ended by then.
bool runParts(size_t parts, const std::function<void(size_t)>& work) {
  std::atomic<bool> failed{false};
  const auto runPart = [&](size_t part) noexcept {
    try {
      work(part);
    } catch (...) {
      failed = true;
    }
  };
  std::vector<std::thread> workers;
  size_t part = 1;
  try {
    for (; part < parts; ++part) workers.emplace_back(runPart, part);
  } catch (const std::exception&) {
    // No thread to be had: this one does the rest.
    for (; part < parts; ++part) runPart(part);
  }
  runPart(0);
  for (auto& worker : workers) worker.join();
  return !failed;
}

// How many parts `count` items split into: below `perPart` items a thread costs more than it
// saves.
size_t partsFor(size_t count, size_t perPart, int threads) {
  return std::max<size_t>(
      1, std::min<size_t>(static_cast<size_t>(std::max(threads, 1)), count / perPart));
}

// An Octave array over storage, which it adopts; *taken is set once it owns storage.
template <typename OctaveArray>
octave_value adoptedArray(void* storage, size_t m, size_t n, int* taken) {
  using Element = typename OctaveArray::element_type;
  Array<Element> adopted(
      static_cast<Element*>(storage),
      dim_vector(static_cast<octave_idx_type>(m), static_cast<octave_idx_type>(n)));
  *taken = 1;
  return octave_value(OctaveArray(adopted));
}

// A copy of the data as an Octave array. The storage is taken from operator new and adopted,
// not made by the array, which would first fill it with zeros on one thread; the copy is split
// across threads, so that the first touch of fresh pages is too.
template <typename OctaveArray>
octave_value copiedArray(const void* data, size_t m, size_t n, int threads) {
  using Element = typename OctaveArray::element_type;
  const size_t bytes = m * n * sizeof(Element);
  void* storage = ::operator new(bytes);
  constexpr size_t kBytesPerThread = 4 << 20;
  const size_t parts = partsFor(bytes, kBytesPerThread, threads);
  const size_t step = (bytes / parts + 63) & ~size_t{63};
  if (bytes > 0)
    runParts(parts, [&](size_t part) {
      const size_t first = std::min(bytes, part * step);
      const size_t last = std::min(bytes, first + step);
      std::memcpy(static_cast<char*>(storage) + first, static_cast<const char*>(data) + first,
                  last - first);
    });
  int taken = 0;
  try {
    return adoptedArray<OctaveArray>(storage, m, n, &taken);
  } catch (...) {
    if (taken == 0) ::operator delete(storage);
    throw;
  }
}

template <typename OctaveArray>
struct ArrayKind {
  using type = OctaveArray;
};

// make(ArrayKind<the Octave array type of class id>{}); undefined for a class without one.
template <typename Make>
octave_value byNumericClass(mxClassID id, Make make) {
  switch (id) {
    case mxDOUBLE_CLASS:
      return make(ArrayKind<NDArray>{});
    case mxSINGLE_CLASS:
      return make(ArrayKind<FloatNDArray>{});
    case mxINT8_CLASS:
      return make(ArrayKind<int8NDArray>{});
    case mxUINT8_CLASS:
      return make(ArrayKind<uint8NDArray>{});
    case mxINT16_CLASS:
      return make(ArrayKind<int16NDArray>{});
    case mxUINT16_CLASS:
      return make(ArrayKind<uint16NDArray>{});
    case mxINT32_CLASS:
      return make(ArrayKind<int32NDArray>{});
    case mxUINT32_CLASS:
      return make(ArrayKind<uint32NDArray>{});
    case mxINT64_CLASS:
      return make(ArrayKind<int64NDArray>{});
    case mxUINT64_CLASS:
      return make(ArrayKind<uint64NDArray>{});
    default:
      return octave_value();
  }
}

octave_value adoptedValue(mxClassID id, void* data, size_t m, size_t n, int* taken) {
  return byNumericClass(id, [&](auto kind) {
    return adoptedArray<typename decltype(kind)::type>(data, m, n, taken);
  });
}

octave_value numericValue(mxClassID id, const void* data, size_t m, size_t n, int threads) {
  return byNumericClass(id, [&](auto kind) {
    return copiedArray<typename decltype(kind)::type>(data, m, n, threads);
  });
}

// Wraps the value the way Octave wraps a MEX function's arguments: the value itself, no copy.
mxArray* wrapped(const octave_value& value) {
  if (value.is_undefined()) return nullptr;
  return new mxArray(false, value);
}

// The next code point of UTF-16 units at position i (advanced past it); an unpaired
// surrogate reads as U+FFFD.
char32_t nextCodePoint(const uint16_t* units, uint64_t end, uint64_t& i) {
  const char32_t unit = units[i++];
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit <= 0xDBFF && i < end && units[i] >= 0xDC00 && units[i] <= 0xDFFF) {
    return 0x10000 + ((unit - 0xD800) << 10) + (units[i++] - 0xDC00);
  }
  return 0xFFFD;
}

size_t utf8Length(char32_t c) { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }

char* putUtf8(char32_t c, char* out) {
  if (c < 0x80) {
    *out++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *out++ = static_cast<char>(0xC0 | (c >> 6));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *out++ = static_cast<char>(0xE0 | (c >> 12));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *out++ = static_cast<char>(0xF0 | (c >> 18));
    *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return out;
}

// The end of the run of ASCII units that starts at i, looking at four units at a time: most
// texts are ASCII, and for them UTF-8 is the units narrowed.
uint64_t asciiEnd(const uint16_t* units, uint64_t i, uint64_t end) {
  for (; i + 4 <= end; i += 4) {
    uint64_t four;
    std::memcpy(&four, units + i, sizeof four);
    if ((four & 0xFF80FF80FF80FF80ull) != 0) break;
  }
  while (i < end && units[i] < 0x80) ++i;
  return i;
}

bool isAbsent(const uint8_t* missing, size_t row) { return missing != nullptr && missing[row]; }

// UTF-8 bytes of rows [first, last), each row decoded on its own so that a broken pair never
// reaches into the next row.
size_t utf8Bytes(const uint16_t* units, const uint64_t* offsets, const uint8_t* missing,
                 size_t first, size_t last) {
  size_t bytes = 0;
  for (size_t r = first; r < last; ++r) {
    if (isAbsent(missing, r)) continue;
    uint64_t i = asciiEnd(units, offsets[r], offsets[r + 1]);
    bytes += i - offsets[r];
    while (i < offsets[r + 1]) bytes += utf8Length(nextCodePoint(units, offsets[r + 1], i));
  }
  return bytes;
}

// Constructs elements [first, last) of the text column in raw storage, counting them in
// `made`. Each part has its own block of bytes and its own [] and empty text, and the storage
// never held Octave's shared empty value: threads that count references to one shared value
// spend their time contending for it.
void makeTexts(octave_value* storage, const uint16_t* units, const uint64_t* offsets,
               const uint8_t* missing, size_t first, size_t last, size_t& made) {
  const octave_value absent = octave_value(Matrix());
  const octave_value empty = octave_value(charNDArray(), '\'');
  Array<char> part(
      dim_vector(1, static_cast<octave_idx_type>(utf8Bytes(units, offsets, missing, first, last))));
  char* const begin = part.fortran_vec();
  char* out = begin;
  CharWindow window(part);
  // Counted here, not in `made`: the parts' counts share a cache line.
  size_t r = first;
  try {
    for (; r < last; ++r) {
      if (isAbsent(missing, r)) {
        new (storage + r) octave_value(absent);
        continue;
      }
      const octave_idx_type start = out - begin;
      uint64_t i = offsets[r];
      for (const uint64_t ascii = asciiEnd(units, i, offsets[r + 1]); i < ascii; ++i) {
        *out++ = static_cast<char>(units[i]);
      }
      while (i < offsets[r + 1]) out = putUtf8(nextCodePoint(units, offsets[r + 1], i), out);
      if (out == begin + start) {
        new (storage + r) octave_value(empty);
      } else {
        new (storage + r) octave_value(window.view(start, out - begin), '\'');
      }
    }
  } catch (...) {
    made = r - first;
    throw;
  }
  made = r - first;
}

octave_value textColumn(const uint16_t* units, const uint64_t* offsets, const uint8_t* missing,
                        size_t rows, int threads) {
  // Raw storage that an Array adopts once every element is made (it must come from operator
  // new); a Cell made up front would hold Octave's shared empty value in every element.
  auto* storage = static_cast<octave_value*>(::operator new(rows * sizeof(octave_value)));

  constexpr size_t kRowsPerThread = 65536;
  const size_t parts = partsFor(rows, kRowsPerThread, threads);
  const size_t step = (rows + parts - 1) / parts;
  std::vector<size_t> made(parts, 0);
  const bool ok = runParts(parts, [&](size_t part) {
    makeTexts(storage, units, offsets, missing, std::min(rows, part * step),
              std::min(rows, (part + 1) * step), made[part]);
  });
  if (ok) {
    std::unique_ptr<Array<octave_value>> adopted;
    try {
      adopted = std::make_unique<Array<octave_value>>(storage, dim_vector(rows, 1));
    } catch (...) {
      // Not adopted: the storage is still this function's to clean up.
    }
    if (adopted) return octave_value(Cell(*adopted));
  }
  for (size_t p = 0; p < parts; ++p) {
    for (size_t r = p * step; r < p * step + made[p]; ++r) storage[r].~octave_value();
  }
  ::operator delete(storage);
  throw std::bad_alloc();
}

// The char matrix of a text value, reached without octave_value::rows(), which copies the
// dimensions (an allocation for every element of a text column); NULL for other values.
const charNDArray* charMatrixOf(const octave_value& element) {
  const octave_base_value& rep = element.get_rep();
  if (typeid(rep) != typeid(octave_char_matrix_str) &&
      typeid(rep) != typeid(octave_char_matrix_sq_str)) {
    return nullptr;
  }
  return &static_cast<const octave_char_matrix_str&>(rep).matrix_ref();
}

bool isCharRow(const octave_value& element) {
  if (const charNDArray* chars = charMatrixOf(element)) {
    const dim_vector& dims = chars->dims();
    return dims.ndims() == 2 && dims(0) <= 1;
  }
  return element.is_string() && element.ndims() == 2 && element.rows() <= 1;
}

bool isMissing(const octave_value& element) {
  return element.is_double_type() && !element.iscomplex() && !element.issparse() &&
         element.ndims() == 2 && element.rows() == 0 && element.columns() == 0;
}

}  // namespace

extern "C" {

mxArray* vxoct_numeric_array(mxClassID id, const void* data, size_t m, size_t n, int threads) {
  try {
    return wrapped(numericValue(id, data, m, n, threads));
  } catch (...) {
    return nullptr;
  }
}

mxArray* vxoct_adopted_numeric_array(mxClassID id, void* data, size_t m, size_t n, int* taken) {
  *taken = 0;
  try {
    return wrapped(adoptedValue(id, data, m, n, taken));
  } catch (...) {
    return nullptr;
  }
}

mxArray* vxoct_logical_array(const uint8_t* data, size_t m, size_t n) {
  try {
    boolNDArray array(dim_vector(static_cast<octave_idx_type>(m), static_cast<octave_idx_type>(n)));
    bool* out = array.fortran_vec();
    for (size_t i = 0; i < m * n; ++i) out[i] = data[i] != 0;
    return wrapped(octave_value(array));
  } catch (...) {
    return nullptr;
  }
}

mxArray* vxoct_text_column(const uint16_t* units, const uint64_t* offsets, const uint8_t* missing,
                           size_t rows, int threads) {
  try {
    return wrapped(textColumn(units, offsets, missing, rows, threads));
  } catch (...) {
    return nullptr;
  }
}

int vxoct_cell_texts(const mxArray* cell, size_t count, const char** data, uint64_t* lengths,
                     uint8_t* missing, int threads) {
  try {
    const octave_value value = cell->as_octave_value();
    if (!value.iscell() || static_cast<size_t>(value.numel()) != count) return 0;
    const Cell elements = value.cell_value();
    // Each element's shape is a copy of its dimensions (an allocation): worth the threads.
    constexpr size_t kElementsPerThread = 65536;
    const size_t parts = partsFor(count, kElementsPerThread, threads);
    const size_t step = (count + parts - 1) / parts;
    std::atomic<bool> allTexts{true};
    const bool ran = runParts(parts, [&](size_t part) {
      for (size_t i = part * step; i < std::min(count, (part + 1) * step) && allTexts; ++i) {
        const octave_value& element = elements(static_cast<octave_idx_type>(i));
        missing[i] = isMissing(element) ? 1 : 0;
        if (missing[i] != 0) {
          data[i] = nullptr;
          lengths[i] = 0;
        } else if (isCharRow(element)) {
          // The element's own bytes, which the cell keeps alive.
          data[i] = static_cast<const char*>(element.mex_get_data());
          lengths[i] = static_cast<uint64_t>(element.numel());
        } else {
          allTexts = false;
        }
      }
    });
    return ran && allTexts ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

}  // extern "C"
