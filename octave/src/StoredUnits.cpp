#include "StoredUnits.hpp"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include <arrow/buffer.h>
#include <arrow/io/memory.h>
#include <arrow/ipc/dictionary.h>
#include <arrow/ipc/reader.h>
#include <arrow/type.h>
#include <arrow/util/base64.h>
#include <arrow/util/key_value_metadata.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>

#include "host/converter/HostValues.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"

namespace vantro::octave {

namespace {

namespace host = vantro::io::arrow::core::host;
namespace common = vantro::io::parquet::core::common;

bool isSeconds(const ::arrow::DataType& type) {
  if (type.id() == ::arrow::Type::TIMESTAMP) {
    return static_cast<const ::arrow::TimestampType&>(type).unit() == ::arrow::TimeUnit::SECOND;
  }
  if (type.id() == ::arrow::Type::TIME32) {
    return static_cast<const ::arrow::Time32Type&>(type).unit() == ::arrow::TimeUnit::SECOND;
  }
  return false;
}

// Arrow 11's base64_decode returns the bytes, newer releases a Result (only this file of the
// gateway meets it, so the difference stays here rather than in the library's ArrowCompat).
[[maybe_unused]] ::arrow::Result<std::string> asResult(std::string bytes) { return bytes; }
[[maybe_unused]] ::arrow::Result<std::string> asResult(::arrow::Result<std::string> bytes) {
  return bytes;
}

::arrow::Result<std::shared_ptr<::arrow::Schema>> storedSchema(
    const ::parquet::FileMetaData& footer) {
  const auto metadata = footer.key_value_metadata();
  if (!metadata) return ::arrow::Status::KeyError("no key-value metadata");
  ARROW_ASSIGN_OR_RAISE(const std::string encoded, metadata->Get("ARROW:schema"));
  ARROW_ASSIGN_OR_RAISE(std::string decoded, asResult(::arrow::util::base64_decode(encoded)));
  ::arrow::io::BufferReader bytes(::arrow::Buffer::FromString(std::move(decoded)));
  ::arrow::ipc::DictionaryMemo dictionaries;
  return ::arrow::ipc::ReadSchema(&bytes, &dictionaries);
}

// A datetime or duration in milliseconds whose ticks are whole seconds, made one in seconds.
void toSeconds(vxArray* value) {
  const bool temporal =
      host::IsObject(value, host::kDatetime) || host::IsObject(value, host::kDuration);
  if (!temporal || host::TextField(value, host::kUnit) != "ms") return;
  vxArray* ticks = vxGetField(value, 0, host::kTicks);
  if (ticks == nullptr || vxGetClassID(ticks) != vxINT64_CLASS) return;
  auto* data = static_cast<int64_t*>(vxGetData(ticks));
  const size_t count = vxGetNumberOfElements(ticks);
  if (!std::all_of(data, data + count, [](int64_t tick) { return tick % 1000 == 0; })) return;
  for (size_t i = 0; i < count; ++i) data[i] /= 1000;
  vxSetField(value, 0, host::kUnit, vxCreateString("s"));
}

}  // namespace

std::vector<std::string> secondsVariables(const ::parquet::FileMetaData& footer) {
  std::vector<std::string> names;
  try {
    const auto schema = storedSchema(footer);
    if (!schema.ok()) return names;
    for (const auto& field : (*schema)->fields()) {
      if (isSeconds(*field->type())) names.push_back(field->name());
    }
  } catch (const std::exception&) {
    // Only a hint: a stored schema that cannot be decoded leaves the units as read.
  }
  return names;
}

std::vector<std::string> secondsVariables(const std::u16string& file) {
  try {
    auto input = common::makeReadableFilePtr(file);
    const auto reader = ::parquet::ParquetFileReader::Open(input);
    return secondsVariables(*reader->metadata());
  } catch (const std::exception&) {
    // Only a hint: the read itself reports a file that cannot be opened.
  }
  return {};
}

void restoreSeconds(const std::vector<std::string>& names, const vxArray* columns,
                    const std::vector<std::string>& seconds) {
  if (seconds.empty() || columns == nullptr) return;
  for (size_t i = 0; i < names.size() && i < vxGetNumberOfElements(columns); ++i) {
    if (std::find(seconds.begin(), seconds.end(), names[i]) == seconds.end()) continue;
    if (vxArray* column = vxGetCell(columns, i)) toSeconds(column);
  }
}

void restoreSecondsInTable(vxArray* table, const std::vector<std::string>& seconds) {
  if (seconds.empty() || table == nullptr || !host::IsTable(table)) return;
  const vxArray* names = vxGetField(table, 0, host::kNames);
  std::vector<std::string> texts;
  for (size_t i = 0; names != nullptr && i < vxGetNumberOfElements(names); ++i) {
    texts.push_back(host::TextOf(vxGetCell(names, i)));
  }
  restoreSeconds(texts, vxGetField(table, 0, host::kColumns), seconds);
}

}  // namespace vantro::octave
