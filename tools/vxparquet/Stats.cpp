// vxparquet stats: per-row-group footer statistics of a file's variables.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Cli.hpp"
#include "Files.hpp"
#include "Split.hpp"
#include "host/converter/Display.hpp"
#include "host/except/Exception.hpp"
#include "host/matrix/Matrix.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/read/Statistics.hpp"

namespace vxparquet {

namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::read::Statistics;

// One minimum or maximum as shown: its text, and whether JSON may write it as a bare number.
struct ShownValue {
  std::string text;
  bool numeric = false;
};

std::string formatDouble(double value, int digits) {
  if (std::isinf(value)) return value > 0 ? "Inf" : "-Inf";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*g", digits, value);
  return buffer;
}

template <class T>
std::string formatInteger(const vxArray* column, size_t row) {
  const T value = static_cast<const T*>(vxGetData(column))[row];
  if constexpr (std::is_signed_v<T>) return std::to_string(static_cast<long long>(value));
  return std::to_string(static_cast<unsigned long long>(value));
}

// A host column of numbers or logicals; NaN is the host's missing value.
std::optional<ShownValue> showNumeric(const vxArray* column, size_t row) {
  switch (vxGetClassID(column)) {
    case vxDOUBLE_CLASS: {
      const double value = vxGetPr(column)[row];
      if (std::isnan(value)) return std::nullopt;
      return ShownValue{formatDouble(value, 17), std::isfinite(value)};
    }
    case vxSINGLE_CLASS: {
      const float value = static_cast<const float*>(vxGetData(column))[row];
      if (std::isnan(value)) return std::nullopt;
      return ShownValue{formatDouble(value, 9), std::isfinite(value)};
    }
    case vxLOGICAL_CLASS:
      return ShownValue{vxGetLogicals(column)[row] ? "true" : "false", true};
    case vxINT8_CLASS:
      return ShownValue{formatInteger<int8_t>(column, row), true};
    case vxUINT8_CLASS:
      return ShownValue{formatInteger<uint8_t>(column, row), true};
    case vxINT16_CLASS:
      return ShownValue{formatInteger<int16_t>(column, row), true};
    case vxUINT16_CLASS:
      return ShownValue{formatInteger<uint16_t>(column, row), true};
    case vxINT32_CLASS:
      return ShownValue{formatInteger<int32_t>(column, row), true};
    case vxUINT32_CLASS:
      return ShownValue{formatInteger<uint32_t>(column, row), true};
    case vxINT64_CLASS:
      return ShownValue{formatInteger<int64_t>(column, row), true};
    case vxUINT64_CLASS:
      return ShownValue{formatInteger<uint64_t>(column, row), true};
    default:
      return std::nullopt;
  }
}

std::string textField(const vxArray* object, const char* name) {
  const vxArray* field = vxGetField(object, 0, name);
  if (field == nullptr || vxGetClassID(field) != vxCHAR_CLASS) return "";
  const vxChar* units = vxGetChars(field);
  return ustring_to_utf8(
      std::u16string(reinterpret_cast<const char16_t*>(units), vxGetNumberOfElements(field)));
}

bool isMissing(const vxArray* object, size_t row) {
  const vxArray* missing = vxGetField(object, 0, "Missing");
  return missing != nullptr && vxGetLogicals(missing)[row];
}

int64_t ticksAt(const vxArray* object, size_t row) {
  return static_cast<const int64_t*>(vxGetData(vxGetField(object, 0, "Ticks")))[row];
}

std::string showString(const vxArray* object, size_t row) {
  const auto* offsets = static_cast<const uint64_t*>(vxGetData(vxGetField(object, 0, "Offsets")));
  const vxChar* units = vxGetChars(vxGetField(object, 0, "Data"));
  return ustring_to_utf8(std::u16string(reinterpret_cast<const char16_t*>(units) + offsets[row],
                                        offsets[row + 1] - offsets[row]));
}

int64_t ticksPerSecond(const std::string& unit) {
  if (unit == "ms") return 1000;
  if (unit == "us") return 1000000;
  if (unit == "ns") return 1000000000;
  return 1;
}

// Splits ticks into whole seconds (rounded down) and the fraction's digits, e.g. ".250".
std::pair<int64_t, std::string> splitSeconds(int64_t ticks, const std::string& unit) {
  const int64_t perSecond = ticksPerSecond(unit);
  int64_t seconds = ticks / perSecond;
  int64_t rest = ticks % perSecond;
  if (rest < 0) {
    rest += perSecond;
    --seconds;
  }
  if (perSecond == 1) return {seconds, ""};
  const int digits = unit == "ms" ? 3 : unit == "us" ? 6 : 9;
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, ".%0*" PRId64, digits, rest);
  return {seconds, buffer};
}

int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// The proleptic Gregorian date of a day count since 1970-01-01 (Howard Hinnant's algorithm).
std::string civilDate(int64_t days) {
  int64_t year = 0;
  unsigned month = 0, day = 0;
  vantro::io::arrow::core::display::CivilFromDays(days, year, month, day);
  char buffer[80];
  std::snprintf(buffer, sizeof buffer, "%04" PRId64 "-%02u-%02u", year, month, day);
  return buffer;
}

std::string clockTime(int64_t secondsOfDay, const std::string& fraction) {
  char buffer[80];
  std::snprintf(buffer, sizeof buffer, "%02" PRId64 ":%02" PRId64 ":%02" PRId64,
                secondsOfDay / 3600, secondsOfDay / 60 % 60, secondsOfDay % 60);
  return buffer + fraction;
}

// ISO 8601 at the unit's precision; a zoned instant is shown in UTC with its zone's name, as
// the host's display does.
std::string showDatetime(const vxArray* object, size_t row) {
  const std::string unit = textField(object, "Unit");
  const int64_t ticks = ticksAt(object, row);
  if (unit == "day") return civilDate(ticks);
  const auto [seconds, fraction] = splitSeconds(ticks, unit);
  const int64_t days = floorDiv(seconds, 86400);
  if (textField(object, "Kind") == "date64") return civilDate(days);
  // The zone as read shows it: "Z" for UTC, otherwise the UTC instant and the zone's name.
  const std::string zone = textField(object, "TimeZone");
  const std::string instant = civilDate(days) + "T" + clockTime(seconds - days * 86400, fraction);
  if (zone == "UTC" || zone == "Z" || zone == "+00:00") return instant + "Z";
  return instant + (zone.empty() ? "" : "Z[" + zone + "]");
}

std::string showDuration(const vxArray* object, size_t row) {
  const std::string unit = textField(object, "Unit");
  const int64_t ticks = ticksAt(object, row);
  if (textField(object, "Kind") == "duration") return std::to_string(ticks) + unit;
  const auto [seconds, fraction] = splitSeconds(ticks, unit);
  return clockTime(seconds, fraction);
}

// Row `row` of a host column as filled in by the converter; nothing for a missing value or a
// column the converter could not fill.
std::optional<ShownValue> showHostValue(const vxArray* column, size_t row) {
  if (column == nullptr || vxGetClassID(column) == vxCELL_CLASS) return std::nullopt;
  if (vxGetClassID(column) != vxOBJECT_CLASS) {
    if (row >= vxGetNumberOfElements(column)) return std::nullopt;
    return showNumeric(column, row);
  }
  if (isMissing(column, row)) return std::nullopt;
  const std::string className = vxGetClassName(column);
  if (className == "string") return ShownValue{showString(column, row)};
  if (className == "datetime") return ShownValue{showDatetime(column, row)};
  if (className == "duration") return ShownValue{showDuration(column, row)};
  return std::nullopt;
}

bool flagAt(const matrix::unique_array& flags, size_t position) {
  return vxGetLogicals(flags.get())[position];
}

int64_t countAt(const matrix::unique_array& counts, size_t position) {
  return static_cast<const int64_t*>(vxGetData(counts.get()))[position];
}

// The variables asked for, or every variable whose statistics can be read; the others are
// listed with the reason.
struct Unfilterable {
  std::string name;
  std::string identifier;
  std::string reason;
};

std::vector<int> resolveVariables(const std::vector<std::string>& fileNames,
                                  const std::optional<std::string>& wanted,
                                  vantro::io::parquet::core::read::RowGroupParquetReader& reader,
                                  std::vector<Unfilterable>& unfilterable) {
  std::vector<int> indices;
  if (!wanted) {
    for (size_t i = 0; i < fileNames.size(); ++i) {
      checkInterrupt();
      try {
        reader.getStatistics({static_cast<int>(i)});
        indices.push_back(static_cast<int>(i));
      } catch (const foundation::core::except::InterruptException&) {
        throw;
      } catch (const foundation::core::except::IMsgIDException& e) {
        unfilterable.push_back({fileNames[i], e.identifier(), e.message()});
      }
    }
    return indices;
  }
  std::map<std::string, int> byName;
  for (size_t i = 0; i < fileNames.size(); ++i) byName.emplace(fileNames[i], static_cast<int>(i));
  for (const auto& name : splitNames(*wanted, "--vars")) {
    const auto found = byName.find(name);
    if (found == byName.end()) {
      std::string known;
      for (const auto& n : fileNames) known += (known.empty() ? "" : ", ") + n;
      failWith("UnknownVariable",
               "The file has no variable '" + name + "'. Its variables are: " + known + ".");
    }
    indices.push_back(found->second);
  }
  return indices;
}

// The statistics of one variable in one row group, as printed.
struct Entry {
  std::optional<int64_t> nullCount;
  std::optional<int64_t> distinctCount;
  std::optional<ShownValue> min;
  std::optional<ShownValue> max;
  bool hasMinMax = false;
};

Entry entryAt(const Statistics& stats, size_t r, size_t v, const std::vector<uint64_t>& heights) {
  const size_t position = v * vxGetM(stats.hasMinMax.get()) + r;
  Entry entry;
  if (flagAt(stats.hasNullCount, position)) entry.nullCount = countAt(stats.nullCount, position);
  if (flagAt(stats.hasDistinctCount, position)) {
    entry.distinctCount = countAt(stats.distinctCount, position);
    // Parquet C++ 11 reports a distinct count of 0, flagged as present, for every chunk it
    // wrote: a chunk holding a value has at least one distinct value, so such a 0 is no count.
    const uint64_t height = r < heights.size() ? heights[r] : 0;
    const bool holdsValues = !entry.nullCount || static_cast<uint64_t>(*entry.nullCount) < height;
    if (*entry.distinctCount == 0 && holdsValues) entry.distinctCount.reset();
  }
  entry.hasMinMax = flagAt(stats.hasMinMax, position);
  if (entry.hasMinMax) {
    entry.min = showHostValue(vxGetCell(stats.min.get(), v), r);
    entry.max = showHostValue(vxGetCell(stats.max.get(), v), r);
  }
  return entry;
}

std::string countText(const std::optional<int64_t>& count) {
  return count ? std::to_string(*count) : "-";
}

// Texts from the file may hold control characters: escaped, so that a bound cannot move the
// terminal's cursor or break the tab-separated lines.
std::string valueText(const std::optional<ShownValue>& value) {
  return value ? vantro::io::arrow::core::display::EscapeControl(value->text) : "-";
}

std::string jsonCount(const std::optional<int64_t>& count) {
  return count ? std::to_string(*count) : "null";
}

std::string jsonValue(const std::optional<ShownValue>& value) {
  if (!value) return "null";
  return value->numeric ? value->text : jsonString(value->text);
}

void printText(const Statistics& stats, const std::vector<std::string>& names, size_t numRowGroups,
               const std::vector<uint64_t>& heights,
               const std::vector<Unfilterable>& unfilterable) {
  std::printf("variable\trow group\tnull count\tdistinct count\tmin\tmax\n");
  for (size_t v = 0; v < names.size(); ++v) {
    for (size_t r = 0; r < numRowGroups; ++r) {
      const Entry entry = entryAt(stats, r, v, heights);
      std::printf("%s\t%zu\t%s\t%s\t%s\t%s\n",
                  vantro::io::arrow::core::display::EscapeControl(names[v]).c_str(), r + 1,
                  countText(entry.nullCount).c_str(), countText(entry.distinctCount).c_str(),
                  valueText(entry.min).c_str(), valueText(entry.max).c_str());
    }
  }
  if (!unfilterable.empty()) {
    std::printf("\nwithout statistics for filtering:\n");
    for (const auto& u : unfilterable) {
      std::printf(
          "  %s\t%s (%s)\n", vantro::io::arrow::core::display::EscapeControl(u.name).c_str(),
          vantro::io::arrow::core::display::EscapeControl(u.reason).c_str(), u.identifier.c_str());
    }
  }
}

void printJson(const Statistics& stats, const std::string& file,
               const std::vector<std::string>& names, size_t numRowGroups,
               const std::vector<uint64_t>& heights,
               const std::vector<Unfilterable>& unfilterable) {
  std::printf("{\"file\": %s, \"rowGroups\": %zu, \"variables\": [", jsonString(file).c_str(),
              numRowGroups);
  for (size_t v = 0; v < names.size(); ++v) {
    std::printf("%s{\"name\": %s, \"rowGroups\": [", v ? ", " : "", jsonString(names[v]).c_str());
    for (size_t r = 0; r < numRowGroups; ++r) {
      const Entry entry = entryAt(stats, r, v, heights);
      std::printf(
          "%s{\"rowGroup\": %zu, \"hasNullCount\": %s, \"nullCount\": %s, "
          "\"hasDistinctCount\": %s, \"distinctCount\": %s, \"hasMinMax\": %s, \"min\": %s, "
          "\"max\": %s}",
          r ? ", " : "", r + 1, entry.nullCount ? "true" : "false",
          jsonCount(entry.nullCount).c_str(), entry.distinctCount ? "true" : "false",
          jsonCount(entry.distinctCount).c_str(), entry.hasMinMax ? "true" : "false",
          jsonValue(entry.min).c_str(), jsonValue(entry.max).c_str());
    }
    std::printf("]}");
  }
  std::printf("], \"unfilterable\": [");
  for (size_t i = 0; i < unfilterable.size(); ++i) {
    std::printf("%s{\"name\": %s, \"identifier\": %s, \"reason\": %s}", i ? ", " : "",
                jsonString(unfilterable[i].name).c_str(),
                jsonString(unfilterable[i].identifier).c_str(),
                jsonString(unfilterable[i].reason).c_str());
  }
  std::printf("]}\n");
}

}  // namespace

namespace {

void printStatsOf(const std::string& file, const Arguments& args) {
  namespace read = vantro::io::parquet::core::read;
  read::RowGroupParquetReader reader(utf8_to_ustring(file), std::vector<double>{});
  std::vector<std::string> fileNames;
  for (const auto& name : reader.getVariableNames()) fileNames.push_back(ustring_to_utf8(name));

  std::vector<Unfilterable> unfilterable;
  const std::vector<int> indices =
      resolveVariables(fileNames, args.value("--vars"), reader, unfilterable);
  const std::vector<uint64_t> heights = reader.getRowGroupHeights();
  std::vector<std::string> names;
  for (int index : indices) names.push_back(fileNames[index]);

  const Statistics stats = reader.getStatistics(indices);
  const size_t numRowGroups = vxGetM(stats.hasMinMax.get());
  if (args.flag("--json")) {
    printJson(stats, file, names, numRowGroups, heights, unfilterable);
  } else {
    printText(stats, names, numRowGroups, heights, unfilterable);
  }
}

}  // namespace

int runStats(const std::vector<std::string>& words) {
  const Arguments args(words, {"--vars", "--split"}, {"--json", "--recursive", kSkipBadFilesFlag});
  if (args.positional().empty()) throw UsageError{"stats needs at least one FILE"};
  std::vector<std::string> files = expandInputs(args.positional(), args.flag(kSkipBadFilesFlag));
  // --split: a run of whole files. On its own the share is a document of its own; in a launch
  // each rank prints its part of the whole document, and rank 0 puts the parts together.
  size_t first = 0, end = files.size();
  if (const auto split = args.value("--split")) {
    std::tie(first, end) = shareRange(files.size(), parseSplit(*split));
    if (!resultGather()) {
      files = {files.begin() + static_cast<std::ptrdiff_t>(first),
               files.begin() + static_cast<std::ptrdiff_t>(end)};
      first = 0;
      end = files.size();
    }
  }
  // Several files: a JSON array of the documents, or each table under a "file:" line.
  const bool several = files.size() > 1;
  // The brackets go with the first and the last file, whichever share holds them.
  if (several && args.flag("--json") && first == 0 && end > first) std::printf("[");
  Progress progress("file", end - first);
  for (size_t i = first; i < end; ++i) {
    checkInterrupt();
    if (several) progress.step(i - first);
    if (several && args.flag("--json") && i > 0) std::printf(", ");
    if (several && !args.flag("--json")) {
      std::printf("%sfile: %s\n", i > 0 ? "\n" : "",
                  vantro::io::arrow::core::display::EscapeControl(files[i]).c_str());
    }
    printStatsOf(files[i], args);
  }
  if (several && args.flag("--json") && end == files.size() && end > first) std::printf("]\n");
  return 0;
}

}  // namespace vxparquet
