#include "toolbox/vantro/io/parquet/core/dataset/Partitioning.hpp"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include <arrow/array/builder_binary.h>
#include <arrow/array/builder_primitive.h>
#include <arrow/builder.h>
#include <arrow/type.h>

#include "toolbox/vantro/io/parquet/core/dataset/Errors.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Parser.hpp"

namespace vantro::io::parquet::core::dataset {

namespace {

namespace fs = std::filesystem;
using Value = std::optional<std::string>;  // nothing: missing

struct FileKeys {
  std::vector<std::string> keys;
  std::vector<Value> values;
};

FileKeys keysOf(const SourceFile& file) {
  FileKeys found;
  if (file.root.empty()) return found;
  const fs::path relative = fs::path(file.path).lexically_relative(file.root).parent_path();
  for (const auto& part : relative) {
    const std::string text = part.string();
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) continue;
    found.keys.push_back(urlDecode(text.substr(0, equals)));
    const std::string value = urlDecode(text.substr(equals + 1));
    found.values.push_back(value == kHiveDefaultPartition ? Value() : Value(value));
  }
  return found;
}

std::string keyList(const std::vector<std::string>& keys) {
  std::string text;
  for (const auto& key : keys) text += (text.empty() ? "" : "/") + key + "=...";
  return text.empty() ? "no partition folders" : text;
}

std::optional<int64_t> asInteger(const std::string& text) {
  if (text.empty() || text.size() > 20) return std::nullopt;
  errno = 0;
  char* end = nullptr;
  const long long value = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || end != text.c_str() + text.size()) return std::nullopt;
  if (text[0] == '+' || (text.size() > 1 && text[0] == '0')) return std::nullopt;  // kept as text
  return static_cast<int64_t>(value);
}

std::optional<double> asDouble(const std::string& text) {
  if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string::npos) {
    return std::nullopt;
  }
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size()) return std::nullopt;
  return value;
}

bool looksLikeDate(const std::string& text) {
  return text.size() == 10 && text[4] == '-' && text[7] == '-';
}

struct Timestamp {
  filter::Instant instant;
  bool hasOffset = false;
};

std::optional<Timestamp> asTimestamp(const std::string& text) {
  bool hasOffset = false;
  auto instant = filter::parseIsoInstant(text, &hasOffset);
  if (!instant) return std::nullopt;
  return Timestamp{*instant, hasOffset};
}

// The finest unit that holds every value's fraction exactly.
::arrow::TimeUnit::type unitFor(const std::vector<Timestamp>& stamps) {
  auto unit = ::arrow::TimeUnit::SECOND;
  for (const auto& stamp : stamps) {
    const int64_t nanos = stamp.instant.nanos;
    if (nanos % 1000 != 0) return ::arrow::TimeUnit::NANO;
    if (nanos % 1000000 != 0) unit = ::arrow::TimeUnit::MICRO;
    if (nanos % 1000000000 != 0 && unit == ::arrow::TimeUnit::SECOND) {
      unit = ::arrow::TimeUnit::MILLI;
    }
  }
  return unit;
}

int64_t ticksOf(const filter::Instant& instant, ::arrow::TimeUnit::type unit) {
  switch (unit) {
    case ::arrow::TimeUnit::SECOND:
      return instant.seconds;
    case ::arrow::TimeUnit::MILLI:
      return instant.seconds * 1000 + instant.nanos / 1000000;
    case ::arrow::TimeUnit::MICRO:
      return instant.seconds * 1000000 + instant.nanos / 1000;
    default:
      return instant.seconds * 1000000000 + instant.nanos;
  }
}

template <class Builder, class Convert>
std::shared_ptr<::arrow::Array> build(Builder&& builder, const std::vector<Value>& values,
                                      Convert convert) {
  for (const auto& value : values) {
    const ::arrow::Status status = value ? builder.Append(convert(*value)) : builder.AppendNull();
    if (!status.ok()) common::throwException<msg::InvalidOption>("partition", status.ToString());
  }
  std::shared_ptr<::arrow::Array> array;
  const ::arrow::Status status = builder.Finish(&array);
  if (!status.ok()) common::throwException<msg::InvalidOption>("partition", status.ToString());
  return array;
}

// The values of one partition variable as an array of the given or inferred type.
class ColumnBuilder {
 public:
  ColumnBuilder(const std::string& name, const std::vector<Value>& values,
                const std::vector<SourceFile>& files)
      : mName(name), mValues(values), mFiles(files) {}

  std::shared_ptr<::arrow::Array> inferred() {
    bool integers = true, doubles = true, dates = true, stamps = true;
    std::vector<Timestamp> parsed;
    size_t withOffset = 0, present = 0;
    for (const auto& value : mValues) {
      if (!value) continue;
      ++present;
      integers = integers && asInteger(*value).has_value();
      doubles = doubles && asDouble(*value).has_value();
      dates = dates && looksLikeDate(*value) && asTimestamp(*value).has_value();
      if (stamps) {
        auto stamp = asTimestamp(*value);
        stamps = stamp.has_value();
        if (stamp) {
          withOffset += stamp->hasOffset;
          parsed.push_back(*stamp);
        }
      }
    }
    if (present == 0) return typed("string");
    if (integers) return typed("int64");
    if (doubles) return typed("double");
    if (dates) return typed("date");
    if (stamps && (withOffset == 0 || withOffset == present)) return typed("timestamp");
    return typed("string");
  }

  std::shared_ptr<::arrow::Array> typed(const std::string& type) {
    if (type == "int64") {
      return build(::arrow::Int64Builder(), mValues,
                   [&](const std::string& v) { return require(asInteger(v), v, type); });
    }
    if (type == "double") {
      return build(::arrow::DoubleBuilder(), mValues,
                   [&](const std::string& v) { return require(asDouble(v), v, type); });
    }
    if (type == "date") {
      return build(::arrow::Date32Builder(), mValues, [&](const std::string& v) {
        auto stamp = looksLikeDate(v) ? asTimestamp(v) : std::nullopt;
        return static_cast<int32_t>(require(stamp, v, type).instant.seconds / 86400);
      });
    }
    if (type == "timestamp") {
      std::vector<Timestamp> stamps;
      bool zoned = false;
      for (const auto& value : mValues) {
        if (!value) continue;
        stamps.push_back(require(asTimestamp(*value), *value, type));
        zoned = zoned || stamps.back().hasOffset;
      }
      const auto unit = unitFor(stamps);
      auto arrowType = ::arrow::timestamp(unit, zoned ? "UTC" : "");
      return build(::arrow::TimestampBuilder(arrowType, ::arrow::default_memory_pool()), mValues,
                   [&](const std::string& v) {
                     return ticksOf(require(asTimestamp(v), v, type).instant, unit);
                   });
    }
    if (type == "string") {
      return build(::arrow::StringBuilder(), mValues, [](const std::string& v) { return v; });
    }
    common::throwException<msg::InvalidOption>("partition type of '" + mName + "'", type);
  }

 private:
  template <class T>
  T require(const std::optional<T>& parsed, const std::string& value, const std::string& type) {
    if (!parsed) {
      std::string file;
      for (size_t i = 0; i < mValues.size(); ++i) {
        if (mValues[i] && *mValues[i] == value) {
          file = mFiles[i].path;
          break;
        }
      }
      common::throwException<msg::InvalidPartitionValue>(mName, type, value, file);
    }
    return *parsed;
  }

  const std::string& mName;
  const std::vector<Value>& mValues;
  const std::vector<SourceFile>& mFiles;
};

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string urlDecode(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() + 0 && hexDigit(text[i + 1]) >= 0 &&
        hexDigit(text[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2])));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

std::string urlEncode(const std::string& text) {
  static const char* kHex = "0123456789ABCDEF";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = byte >= 0x80 || std::isalnum(byte) || c == '-' || c == '_' || c == '.' ||
                       c == '~' || c == ' ';
    if (plain && !(out.empty() && (c == '.' || c == '_'))) {
      out.push_back(c);
    } else {
      out.push_back('%');
      out.push_back(kHex[byte >> 4]);
      out.push_back(kHex[byte & 15]);
    }
  }
  return out;
}

Partitions readPartitions(const std::vector<SourceFile>& files, const PartitionOptions& options) {
  Partitions partitions;
  if (!options.hive || files.empty()) return partitions;
  std::vector<FileKeys> keys;
  keys.reserve(files.size());
  for (const auto& file : files) {
    keys.push_back(keysOf(file));
    if (keys.back().keys != keys.front().keys) {
      common::throwException<msg::InconsistentPartitions>(
          files.front().path, files[keys.size() - 1].path,
          keyList(keys.front().keys) + " against " + keyList(keys.back().keys));
    }
  }
  partitions.names = keys.front().keys;
  for (size_t p = 0; p < partitions.names.size(); ++p) {
    std::vector<Value> values;
    values.reserve(files.size());
    for (const auto& fileKeys : keys) values.push_back(fileKeys.values[p]);
    ColumnBuilder builder(partitions.names[p], values, files);
    std::optional<std::string> given;
    for (const auto& [name, type] : options.types) {
      if (name == partitions.names[p]) given = type;
    }
    partitions.values.push_back(given ? builder.typed(*given) : builder.inferred());
  }
  for (const auto& [name, type] : options.types) {
    if (std::find(partitions.names.begin(), partitions.names.end(), name) ==
        partitions.names.end()) {
      common::throwException<msg::InvalidOption>("partition types", name);
    }
  }
  return partitions;
}

}  // namespace vantro::io::parquet::core::dataset
