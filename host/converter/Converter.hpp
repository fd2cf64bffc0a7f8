#pragma once

// The host's converter between Arrow values and host values. The Parquet library never
// converts values itself: it hands whole tables and arrays to these functions.
//
// Host values of Arrow columns. A column of R rows is an Rx1 array, or a 1x1 object whose
// fields hold Rx1 arrays. Objects keep one block per field, never one host value per row:
//
//   "string"      Data     1xU char: the UTF-16 units of every row, one after another
//                 Offsets  (R+1)x1 uint64: row i is Data(Offsets(i)+1 : Offsets(i+1))
//                 Missing  Rx1 logical: true at nulls (their range is empty or ignored)
//   "datetime"    Ticks    Rx1 int64: counts of Unit since 1970-01-01 (UTC when TimeZone is set)
//                 Unit     "s", "ms", "us", "ns", or "day" (date32)
//                 TimeZone char: the Arrow time zone, empty for none
//                 Kind     "timestamp", "date32" or "date64"
//                 Missing  Rx1 logical
//   "duration"    Ticks    Rx1 int64 in Unit; for times of day, since midnight
//                 Unit     "s", "ms", "us" or "ns"
//                 Kind     "duration", "time32" or "time64"
//                 Missing  Rx1 logical
//   "categorical" Codes      Rx1 of the Arrow index class (int8 ... uint64): 0-based indices
//                            into Categories, exactly as Arrow stores them
//                 Categories a "string" object, one row per category
//                 Ordered    logical scalar
//                 Missing    Rx1 logical
//   "table"       Names (1xN cell of char row vectors), Columns (1xN cell of columns)
//
// Choices made here:
//  - Host to Arrow, NaN in a double or single column becomes null: NaN is the host's missing
//    value, so an Arrow column with nulls survives a round trip (a NaN stored as a value does
//    not, it comes back null).
//  - Datetime and duration objects without Kind read as "timestamp"/"date32" (by Unit) and
//    "duration"; times of day must fit their Arrow width (time32 for s/ms, time64 for us/ns).
//  - Categorical codes come back with the same index type; codes past the categories are an
//    Invalid status. Chunks with different dictionaries are unified first (the index type may
//    then widen).
//  - Arrow to host, integer and logical columns with nulls become double with NaN at the nulls.
//    A 64-bit integer column with nulls holding a value a double cannot represent exactly
//    (beyond +-2^53) is refused with an Invalid status naming the column, position and value,
//    at the top level and inside lists alike: never a rounded value.
//  - Host to Arrow, a missing value inside a cell (the 0x0 double) takes the type of its column:
//    it may stand for a list, a map or a nested table whatever its neighbours hold.
//  - A null struct row shows as missing in every field of the nested table; a nested table
//    returns to Arrow as a struct without nulls.
//  - A table without columns cannot record its row count: it has zero rows.
//  - A char matrix column gives one text per row, kept as is (trailing blanks included).
//  - A cell whose non-null elements are all uint8 vectors (or which has no non-null element)
//    becomes BINARY; elements that are tables of exactly "Key" and "Value" make a MAP; any other
//    cell becomes a LIST whose elements must all convert to one Arrow type. Row vectors are
//    accepted as list elements.
//  - Texts longer than 2 GiB of UTF-8 in one column give a CapacityError (STRING has 32-bit
//    offsets).
//  - Arrow to host keeps LARGE_STRING, LARGE_BINARY, LARGE_LIST and HALF_FLOAT only as their
//    host values: they return to Arrow as STRING, BINARY, LIST and FLOAT.
//
// Note for callers inside namespace vantro::io: this namespace is vantro::io::arrow, so refer
// to Apache Arrow as ::arrow there.
#include <memory>
#include <optional>
#include <string>

#include <arrow/result.h>
#include <arrow/status.h>
#include <arrow/type_fwd.h>

#include "host/matrix/Matrix.hpp"

namespace vantro::io::arrow::core {

// The detail of a TypeError status: which column held a type the host cannot represent.
class TableErrorStatusDetail : public ::arrow::StatusDetail {
 public:
  TableErrorStatusDetail(std::string columnName, std::shared_ptr<::arrow::DataType> type);
  const char* type_id() const override;
  std::string ToString() const override;
  const std::string& column_name() const { return mColumnName; }
  const std::shared_ptr<::arrow::DataType>& type() const { return mType; }

 private:
  std::string mColumnName;
  std::shared_ptr<::arrow::DataType> mType;
};

// An Arrow table as a host table: an object of class "table" with the fields "Names" (1xN cell
// of char row vectors) and "Columns" (1xN cell of host columns). A null table pointer gives a
// table with no variables and no rows. A column of unsupported type gives a TypeError status
// whose detail is a TableErrorStatusDetail naming the column.
::arrow::Result<matrix::unique_array> to_vantro(const std::shared_ptr<::arrow::Table>& table);

// The same conversion, consuming the table: each Arrow column is released as soon as it is
// converted, so peak memory stays near one table's worth instead of two. A fixed-width column
// of one chunk without nulls that nothing else references is not copied: the host array takes
// over its values buffer. Columns still referenced elsewhere (the table or its arrays shared
// with another holder) are copied, exactly as by the overload above; the table pointer is
// null afterwards, whatever the result.
::arrow::Result<matrix::unique_array> to_vantro(std::shared_ptr<::arrow::Table>&& table);

// The consuming conversion of a table that a read has just produced (Parquet's FileReader):
// apart from the caller, only Arrow's own finished bookkeeping may still hold its columns, for
// a moment, and it never reads them again. Such a lingering reference does not stop a column
// from lending its buffers, as it would above; the arrays and buffers themselves must still be
// unshared. Do not use it for a table whose columns anyone else can reach.
::arrow::Result<matrix::unique_array> to_vantro_from_read(std::shared_ptr<::arrow::Table>&& table);

// One Arrow array as one host column (R rows).
::arrow::Result<matrix::unique_array> to_vantro(const std::shared_ptr<::arrow::Array>& array);

// A host table (structure, or object "table", with "Names" and "Columns") as an Arrow table.
// A malformed table gives an Invalid status that says what is wrong and where.
::arrow::Result<std::shared_ptr<::arrow::Table>> to_arrow_table(const vxArray_tag* table);

// The same conversion without copying fixed-width values: numeric columns, the ticks of
// datetime and duration objects (64-bit Arrow types) and categorical codes become Arrow
// buffers that point into the host arrays. Lifetime rule: the Arrow table (and every array,
// buffer or slice taken from it) is valid only while the host table lives and none of its
// arrays is changed; release it before the host table goes. Meant for a caller that consumes
// the Arrow table at once, such as a Parquet write.
::arrow::Result<std::shared_ptr<::arrow::Table>> to_arrow_table_view(const vxArray_tag* table);

// The host type name that a column of this Arrow type converts to ("double", "string",
// "datetime", "table", ...), or nothing when the host does not support the type.
std::optional<std::string> to_vantro_datatype(const std::shared_ptr<::arrow::DataType>& type);

}  // namespace vantro::io::arrow::core
