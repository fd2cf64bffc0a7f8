#pragma once

// Null positions of Arrow values, found in runs from the validity bitmap (64 bits at a time)
// rather than by testing every element: columns without nulls cost nothing, and the fill of a
// run of nulls is one std::fill.
#include <algorithm>
#include <cstdint>

#include <arrow/array.h>
#include <arrow/util/bit_run_reader.h>

namespace vantro::io::arrow::core {

// Calls fill(start, length) for each maximal run of nulls among the `length` values that start
// at bit `offset` of the bitmap; positions are relative to that first value. A null bitmap
// means no nulls.
template <typename Fill>
void ForEachNullRun(const uint8_t* validity, int64_t offset, int64_t length, Fill fill) {
  if (validity == nullptr || length == 0) return;
  int64_t next = 0;
  ::arrow::internal::VisitSetBitRunsVoid(validity, offset, length, [&](int64_t start, int64_t run) {
    if (start > next) fill(next, start - next);
    next = start + run;
  });
  if (next < length) fill(next, length - next);
}

// The runs of nulls of rows [first, first + length) of a chunk, relative to `first`.
template <typename Fill>
void ForEachNullRun(const ::arrow::Array& chunk, int64_t first, int64_t length, Fill fill) {
  if (chunk.null_count() == 0) return;
  ForEachNullRun(chunk.null_bitmap_data(), chunk.offset() + first, length, fill);
}

// The runs of nulls of a whole chunk.
template <typename Fill>
void ForEachNullRun(const ::arrow::Array& chunk, Fill fill) {
  ForEachNullRun(chunk, 0, chunk.length(), fill);
}

// Sets out[i] to `value` at every null of the chunk's rows [first, first + length).
template <typename T>
void FillNulls(const ::arrow::Array& chunk, int64_t first, int64_t length, T* out, T value) {
  ForEachNullRun(chunk, first, length,
                 [&](int64_t start, int64_t run) { std::fill_n(out + start, run, value); });
}

template <typename T>
void FillNulls(const ::arrow::Array& chunk, T* out, T value) {
  FillNulls(chunk, 0, chunk.length(), out, value);
}

}  // namespace vantro::io::arrow::core
