#pragma once

// The host's converter between Arrow values and host values. The Parquet library never
// converts values itself: it hands whole tables and arrays to these functions.
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

// One Arrow array as one host column (R rows).
::arrow::Result<matrix::unique_array> to_vantro(const std::shared_ptr<::arrow::Array>& array);

// A host table (structure, or object "table", with "Names" and "Columns") as an Arrow table.
// A malformed table gives an Invalid status that says what is wrong and where.
::arrow::Result<std::shared_ptr<::arrow::Table>> to_arrow_table(const vxArray_tag* table);

// The host type name that a column of this Arrow type converts to ("double", "string",
// "datetime", "table", ...), or nothing when the host does not support the type.
std::optional<std::string> to_vantro_datatype(const std::shared_ptr<::arrow::DataType>& type);

}  // namespace vantro::io::arrow::core
