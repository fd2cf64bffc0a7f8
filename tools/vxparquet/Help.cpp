// The help text of each command: every option on one line, then an example.
#include <map>
#include <string>

#include "Cli.hpp"

namespace vxparquet {

std::string commandHelp(const std::string& command) {
  static const std::map<std::string, std::string> texts = {
      {"count",
       "usage: vxparquet count FILE|FOLDER|GLOB... [options]\n"
       "  --json          one JSON document: each file's row groups and rows, and the total\n"
       "  --sequential    count the files one after another instead of in parallel\n"
       "  --strict        stop at the first file that cannot be counted\n"
       "  --skip-bad-files  leave out, with a warning, files of FOLDER or GLOB that are\n"
       "                  dangling links, unreadable or not Parquet\n"
       "  --where EXPR    the rows of the whole dataset where EXPR holds, from statistics where\n"
       "                  they decide, reading otherwise (then --partitioning as for read)\n"
       "  --explain       with --where: which row groups statistics decided and which were read\n"
       "example: vxparquet count data/ 'logs/*.parquet' --json\n"
       "         vxparquet count data/ --where \"year = 2024 and x > 5\" --explain\n"},
      {"info",
       "usage: vxparquet info FILE|FOLDER|GLOB... [options]\n"
       "  --json          the summary as one JSON document\n"
       "  --row-groups    per row group and column: sizes, compression and every encoding\n"
       "  --schema        the tree of nested variables\n"
       "  --strict        stop at the first file that cannot be read, or whose variables\n"
       "                  differ from the first file's\n"
       "  --skip-bad-files, --partitioning none|hive   as for read\n"
       "Several files end with the dataset they make: its variables by name and their types.\n"
       "example: vxparquet info data.parquet --row-groups\n"},
      {"read",
       "usage: vxparquet read FILE|FOLDER|GLOB... [options]\n"
       "  --vars a,b          only these variables, in this order\n"
       "  --where EXPR        only rows where EXPR holds, e.g. \"x > 5 and name in ('a','b')\"\n"
       "  --explain           on standard error: row groups read of all, why others were skipped\n"
       "  --limit N           at most N rows (reads only the row groups needed)\n"
       "  --offset K          skip the first K rows (after --where)\n"
       "  --row-groups 3,1    these row groups, in this order (numbered from 1)\n"
       "  --byte-range O,S    the row groups that start in bytes [O, O+S)\n"
       "  --each              one table per row group\n"
       "  --format F          table (default), json, jsonl (one object per row) or csv\n"
       "  --json              the same as --format json\n"
       "  --delimiter C       csv: field separator (default ',', or 'tab')\n"
       "  --missing TEXT      csv: text of a missing value (default empty; an empty text is \"\")\n"
       "  --no-header         csv: no header line\n"
       "  --with-file         add a variable 'file' naming each row's source file\n"
       "  --partitioning P    hive (default: key=value folders are variables) or none\n"
       "  --strict            every file must have the same variables, in order, of one type\n"
       "  --skip-bad-files    leave out, with a warning, files of FOLDER or GLOB that are\n"
       "                      dangling links, unreadable or not Parquet\n"
       "A FOLDER (with its subfolders), a GLOB ('data/**/*.parquet') or several files are read\n"
       "as one dataset: variables matched by name, narrower types widened where no value\n"
       "changes, a variable a file lacks missing in its rows; files in name order.\n"
       "example: vxparquet read data.parquet --where \"day >= 2024-01-01\" --format jsonl\n"
       "         vxparquet read sales/ --where \"year = 2024\" --vars id,amount,year\n"},
      {"head",
       "usage: vxparquet head FILE|FOLDER|GLOB... [options]\n"
       "  -n N, --rows N      the first N rows (default 10)\n"
       "  --vars a,b          only these variables\n"
       "  --where EXPR        the first rows where EXPR holds\n"
       "  --format F          table (default), json, jsonl or csv\n"
       "  --delimiter C, --missing TEXT, --no-header   csv options, as for read\n"
       "  --partitioning P, --strict, --skip-bad-files  datasets, as for read\n"
       "example: vxparquet head data.parquet -n 5 --format csv\n"},
      {"stats",
       "usage: vxparquet stats FILE|FOLDER|GLOB... [options]\n"
       "  --vars a,b      only these variables (default: every filterable one)\n"
       "  --json          one JSON document (an array of them for several files)\n"
       "  --skip-bad-files  as for read\n"
       "example: vxparquet stats data.parquet --vars id,day\n"},
      {"plan",
       "usage: vxparquet plan FILE|FOLDER|GLOB... -n N [options]\n"
       "  -n N, --tasks N     the number of tasks: each a run of row groups of about equal\n"
       "                      compressed size; one line of JSON per task, numbered from 1\n"
       "  --where EXPR        leave out the row groups whose statistics rule EXPR out, and\n"
       "                      carry EXPR in each task\n"
       "  --vars a,b          carry this selection in each task\n"
       "Each task names its files relative to a root folder and with a fingerprint of each\n"
       "file: read it with 'vxparquet read --task FILE' (--root DIR where the data moved).\n"
       "example: vxparquet plan data/ -n 100 > tasks.jsonl\n"},
      {"write",
       "usage: vxparquet write OUT|- --from IN|- [options]\n"
       "       vxparquet write OUTDIR --from IN|- --partition-by a,b [options]\n"
       "  --from IN                       the input: Parquet, CSV or TSV; '-' reads standard "
       "input\n"
       "  --from-format F                 parquet, csv or tsv (needed for '-' and other names)\n"
       "  --delimiter C                   CSV field separator (default ',' and tab for tsv)\n"
       "  --no-header                     the CSV has no header line: variables are f0, f1, ...\n"
       "  --null-values a,b               CSV texts that mean a missing value\n"
       "  --types a=int64,b=string        CSV column types instead of inferred ones: "
       "int8..uint64,\n"
       "                                  single, double, logical, string, binary, date,\n"
       "                                  timestamp, timestamp[s|ms|us|ns], timestamptz (UTC),\n"
       "                                  decimal(P,S)\n"
       "  --compression NAME              {codecs}\n"
       "  --compression-per-variable a=zstd,b=snappy\n"
       "  --encoding dictionary|plain     (or --encoding-per-variable a=plain,...)\n"
       "  --version 1.0|2.0               Parquet format version\n"
       "  --row-group-heights 1000,...    explicit row groups; they must add up to the rows\n"
       "  --max-row-group-length N        at most N rows per row group (default 1048576)\n"
       "  --compression-level N           the codec's level ({levels})\n"
       "  --partition-by a,b              write the folder OUTDIR: a=../b=../ folders of Parquet\n"
       "                                  files without a and b (integer, text, logical or date)\n"
       "  --max-rows-per-file N           in OUTDIR, files of at most N rows (0: no limit)\n"
       "  --existing error|add|replace    files already in OUTDIR: refuse (default), add beside\n"
       "                                  them, or replace the old Parquet files of the\n"
       "                                  partitions written\n"
       "example: vxparquet write out.parquet --from in.csv --compression zstd\n"
       "example: vxparquet write sales/ --from in.csv --partition-by year,month\n"},
  };
  const auto it = texts.find(command);
  if (it == texts.end()) return std::string();
  // The codecs and levels are this build's Arrow's, asked when the help is shown.
  std::string text = it->second;
  const auto fill = [&text](const std::string& field, const std::string& value) {
    const size_t at = text.find(field);
    if (at != std::string::npos) text.replace(at, field.size(), value);
  };
  std::string codecs;
  std::string levels;
  for (const auto& codec : writableCompressions()) {
    codecs += (codecs.empty() ? "" : ", ") + codec;
    if (const auto range = compressionLevelRange(codec)) {
      levels += (levels.empty() ? "" : ", ") + codec + " " + std::to_string(range->first) + ".." +
                std::to_string(range->second);
    }
  }
  fill("{codecs}", codecs);
  fill("{levels}", levels);
  return text;
}

}  // namespace vxparquet
