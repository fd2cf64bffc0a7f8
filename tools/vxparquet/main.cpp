// vxparquet: the host's Parquet functions from the command line.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "Cli.hpp"
#include "host/except/Exception.hpp"
#include "host/services/Interrupts.hpp"

namespace {

const char* kUsage =
    "usage: vxparquet <command> [arguments]\n"
    "\n"
    "commands:\n"
    "  count [--sequential] [--json] [FILE...]   row groups of each file, in input order;\n"
    "                                            without files, counts a sample file it writes\n"
    "  info FILE [--json]                         the file's metadata summary\n"
    "  read FILE [--vars a,b] [--row-groups 3,1 | --byte-range OFFSET,SIZE | --each] [--json]\n"
    "  stats FILE [--vars a,b] [--json]           per-row-group statistics of each variable\n"
    "  write OUT --from IN [options]              writes a CSV or Parquet file's table\n"
    "\n"
    "Set VXPARQUET_LOG=<mask>[:<file>] (mask 'all' or a number) to trace the library.\n";

int dispatch(const std::string& command, const std::vector<std::string>& words) {
  if (command == "count") return vxparquet::runCount(words);
  if (command == "info") return vxparquet::runInfo(words);
  if (command == "read") return vxparquet::runRead(words);
  if (command == "stats") return vxparquet::runStats(words);
  if (command == "write") return vxparquet::runWrite(words);
  throw vxparquet::UsageError{"unknown command '" + command + "'"};
}

}  // namespace

int main(int argc, char** argv) {
  foundation::host::initialize();
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    std::fputs(kUsage, argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  try {
    return dispatch(argv[1], std::vector<std::string>(argv + 2, argv + argc));
  } catch (const vxparquet::UsageError& e) {
    std::fprintf(stderr, "vxparquet: %s\n\n%s", e.message.c_str(), kUsage);
    return 2;
  } catch (const foundation::core::except::IMsgIDException& e) {
    std::fprintf(stderr, "Error using vxparquet %s (%s)\n%s\n", argv[1], e.identifier().c_str(),
                 e.message().c_str());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "Error using vxparquet %s\n%s\n", argv[1], e.what());
    return 1;
  }
}
