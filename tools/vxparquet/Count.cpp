// vxparquet count: row groups and rows of many files, and their total.
#include <cstdio>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <parquet/exception.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "Cli.hpp"
#include "Files.hpp"
#include "Split.hpp"
#include "host/converter/ParallelFor.hpp"
#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"
#include "toolbox/vantro/io/parquet/core/plan/DatasetPlan.hpp"

namespace vxparquet {

namespace {

namespace info = vantro::io::parquet::core::info;
using foundation::unicode::utf8_to_ustring;

struct FileCount {
  std::string file;
  uint64_t rowGroups = 0;
  std::optional<int64_t> rows;
  std::optional<ProgramError> error;  // identifier and text of a file that could not be counted
};

// The footer's row count; the row groups come from the library's own counting.
std::optional<int64_t> footerRows(const std::string& file) {
  try {
    namespace common = vantro::io::parquet::core::common;
    auto input = common::makeReadableFilePtr(utf8_to_ustring(file));
    return ::parquet::ParquetFileReader::Open(input)->metadata()->num_rows();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::vector<FileCount> countEach(const std::vector<std::string>& files, bool sequential,
                                 bool strict) {
  std::vector<std::u16string> names;
  for (const auto& file : files) names.push_back(utf8_to_ustring(file));
  std::vector<FileCount> counts(files.size());
  for (size_t i = 0; i < files.size(); ++i) counts[i].file = files[i];
  try {
    const auto rowGroups =
        sequential ? info::getNumRowGroupsSync(names) : info::getNumRowGroupsAsync(names);
    for (size_t i = 0; i < files.size(); ++i) counts[i].rowGroups = rowGroups[i];
  } catch (const foundation::core::except::InterruptException&) {
    throw;
  } catch (const foundation::core::except::IMsgIDException&) {
    if (strict) throw;
    // One bad file: count them one by one so that the others are still reported.
    for (size_t i = 0; i < files.size(); ++i) {
      checkInterrupt();
      try {
        counts[i].rowGroups = info::getNumRowGroupsSync({names[i]})[0];
      } catch (const foundation::core::except::InterruptException&) {
        throw;
      } catch (const foundation::core::except::IMsgIDException& e) {
        counts[i].error = ProgramError{e.identifier(), e.message()};
      }
    }
  }
  checkInterrupt();
  // Each footer is opened once more for its row count: on the host's threads, as the counting.
  vantro::io::arrow::core::ParallelFor(counts.size(), [&counts](size_t i) {
    if (!counts[i].error) counts[i].rows = footerRows(counts[i].file);
  });
  checkInterrupt();
  return counts;
}

// One share's match count as text for rank 0, and back.
std::string matchText(const vantro::io::parquet::core::dataset::MatchCount& count) {
  return std::to_string(count.rows) + " " + std::to_string(count.piecesAllMatch) + " " +
         std::to_string(count.piecesRead);
}
void addMatchText(const std::string& text, vantro::io::parquet::core::dataset::MatchCount& sum) {
  unsigned long long rows = 0, allMatch = 0, read = 0;
  if (std::sscanf(text.c_str(), "%llu %llu %llu", &rows, &allMatch, &read) != 3) {
    failWith("CannotCombine", "A rank sent '" + text + "' as its count.");
  }
  sum.rows += rows;
  sum.piecesAllMatch += allMatch;
  sum.piecesRead += read;
}

// count --where: the rows of the whole dataset that match, from footer statistics where they
// decide and by reading the filter's variables elsewhere. With --split, the task's pieces only;
// in a launch every rank counts its task and rank 0 prints the sum.
int countMatching(const Arguments& args, const std::string& where) {
  namespace dataset = vantro::io::parquet::core::dataset;
  auto files = std::make_shared<const dataset::Dataset>(args.positional(), datasetOptions(args));
  dataset::DatasetReader reader(files, {}, where);
  if (const auto split = args.value("--split")) {
    const PlanRequest plan{args.positional(), datasetOptions(args), where, {}};
    vantro::io::parquet::core::plan::keepTaskPieces(reader, taskForSplit(plan, parseSplit(*split)));
  }
  auto count = reader.countMatches();
  if (const auto& gather = resultGather()) {
    const auto shares = gather(matchText(count));
    if (shares.empty()) return 0;  // not rank 0: it prints the sum
    dataset::MatchCount sum;
    sum.piecesRuledOut = count.piecesRuledOut;  // every rank rules out the same pieces
    for (const auto& share : shares) addMatchText(share, sum);
    count = sum;
  }
  const uint64_t total = files->rowGroupCount();
  if (args.flag("--explain")) {
    std::fprintf(stderr,
                 "row groups: %llu of %llu ruled out by partitions or statistics, %llu matched "
                 "whole by statistics, %llu read\n",
                 static_cast<unsigned long long>(count.piecesRuledOut),
                 static_cast<unsigned long long>(total),
                 static_cast<unsigned long long>(count.piecesAllMatch),
                 static_cast<unsigned long long>(count.piecesRead));
    printSkippedPieces(reader);
  }
  if (args.flag("--json")) {
    std::printf(
        "{\"where\": %s, \"rows\": %llu, \"files\": %zu, \"rowGroups\": {\"total\": %llu, "
        "\"ruledOut\": %llu, \"allMatch\": %llu, \"read\": %llu}}\n",
        jsonString(where).c_str(), static_cast<unsigned long long>(count.rows), files->fileCount(),
        static_cast<unsigned long long>(total),
        static_cast<unsigned long long>(count.piecesRuledOut),
        static_cast<unsigned long long>(count.piecesAllMatch),
        static_cast<unsigned long long>(count.piecesRead));
  } else {
    std::printf("%llu\n", static_cast<unsigned long long>(count.rows));
  }
  return 0;
}

std::string rowsText(const std::optional<int64_t>& rows) {
  return rows ? std::to_string(*rows) : std::string("?");
}

// A share's counts as text for rank 0 (one JSON object per line), and back.
std::string countsText(const std::vector<FileCount>& counts) {
  std::string text;
  for (const auto& c : counts) {
    text += "{\"file\": " + jsonString(c.file) + ", \"rowGroups\": \"" +
            std::to_string(c.rowGroups) + "\", \"rows\": \"" +
            (c.rows ? std::to_string(*c.rows) : std::string("?")) + "\"";
    if (c.error) {
      text += ", \"identifier\": " + jsonString(c.error->identifier) +
              ", \"message\": " + jsonString(c.error->message);
    }
    text += "}\n";
  }
  return text;
}
void addCountsText(const std::string& text, std::vector<FileCount>& counts) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    try {
      boost::property_tree::ptree entry;
      std::istringstream in(line);
      boost::property_tree::read_json(in, entry);
      FileCount count;
      count.file = entry.get<std::string>("file");
      count.rowGroups = std::stoull(entry.get<std::string>("rowGroups"));
      const auto rows = entry.get<std::string>("rows");
      if (rows != "?") count.rows = std::stoll(rows);
      if (const auto identifier = entry.get_optional<std::string>("identifier")) {
        count.error = ProgramError{*identifier, entry.get<std::string>("message")};
      }
      counts.push_back(std::move(count));
    } catch (const std::exception&) {
      failWith("CannotCombine", "A rank sent a count that cannot be read: '" + line + "'.");
    }
  }
}

}  // namespace

int runCount(const std::vector<std::string>& words) {
  const Arguments args(
      words, {"--where", kPartitioningOption, "--split"},
      {"--sequential", "--json", "--recursive", kStrictFlag, kSkipBadFilesFlag, "--explain"});
  if (args.positional().empty()) throw UsageError{"count needs at least one FILE"};
  if (const auto where = args.value("--where")) return countMatching(args, *where);
  if (args.flag("--explain")) throw UsageError{"--explain needs --where"};
  std::vector<std::string> files = expandInputs(args.positional(), args.flag(kSkipBadFilesFlag));
  // --split: a run of whole files, so that the shares' lines together are the whole count's.
  if (const auto split = args.value("--split")) files = shareOf(files, parseSplit(*split));
  auto counts = countEach(files, args.flag("--sequential"), args.flag("--strict"));
  if (const auto& gather = resultGather()) {
    const auto shares = gather(countsText(counts));
    if (shares.empty()) return 0;  // not rank 0: it prints every rank's counts
    counts.clear();
    for (const auto& share : shares) addCountsText(share, counts);
  }

  uint64_t totalGroups = 0;
  int64_t totalRows = 0;
  size_t failed = 0;
  for (const auto& count : counts) {
    if (count.error) {
      ++failed;
      reportError(count.error->identifier, count.error->message);
      continue;
    }
    totalGroups += count.rowGroups;
    totalRows += count.rows.value_or(0);
  }

  if (args.flag("--json")) {
    std::printf("{\"files\": [");
    for (size_t i = 0; i < counts.size(); ++i) {
      const auto& c = counts[i];
      std::printf("%s{\"file\": %s, ", i ? ", " : "", jsonString(c.file).c_str());
      if (c.error) {
        std::printf("\"error\": {\"identifier\": %s, \"message\": %s}}",
                    jsonString(c.error->identifier).c_str(), jsonString(c.error->message).c_str());
      } else {
        std::printf("\"rowGroups\": %llu, \"rows\": %s}",
                    static_cast<unsigned long long>(c.rowGroups),
                    c.rows ? std::to_string(*c.rows).c_str() : "null");
      }
    }
    std::printf(
        "], \"total\": {\"files\": %zu, \"failed\": %zu, \"rowGroups\": %llu, \"rows\": %lld}}\n",
        counts.size(), failed, static_cast<unsigned long long>(totalGroups),
        static_cast<long long>(totalRows));
  } else {
    for (const auto& c : counts) {
      if (c.error) continue;
      std::printf("%llu\t%s\t%s\n", static_cast<unsigned long long>(c.rowGroups),
                  rowsText(c.rows).c_str(), c.file.c_str());
    }
    if (counts.size() > 1) {
      std::printf("%llu\t%lld\ttotal of %zu files%s\n",
                  static_cast<unsigned long long>(totalGroups), static_cast<long long>(totalRows),
                  counts.size() - failed,
                  failed ? (" (" + std::to_string(failed) + " failed)").c_str() : "");
    }
  }
  return failed == 0 ? 0 : 1;
}

}  // namespace vxparquet
