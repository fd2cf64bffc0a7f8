// vxparquet count: row-group counts of many files.
#include <cstdio>
#include <string>
#include <vector>

#include "Cli.hpp"
#include "SampleFile.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"

namespace vxparquet {

int runCount(const std::vector<std::string>& words) {
  const Arguments args(words, {}, {"--sequential", "--json"});
  std::vector<std::string> names = args.positional();
  if (names.empty()) {
    names.push_back(writeSampleFile());
    if (!args.flag("--json"))
      std::printf("(no file given: counting the sample %s)\n", names[0].c_str());
  }

  std::vector<std::u16string> files;
  files.reserve(names.size());
  for (const auto& name : names) files.push_back(foundation::unicode::utf8_to_ustring(name));

  namespace info = vantro::io::parquet::core::info;
  const std::vector<uint64_t> counts = args.flag("--sequential")
                                           ? info::getNumRowGroupsSync(std::move(files))
                                           : info::getNumRowGroupsAsync(std::move(files));

  if (args.flag("--json")) {
    std::printf("[");
    for (size_t i = 0; i < counts.size(); ++i) {
      std::printf("%s{\"file\": %s, \"rowGroups\": %llu}", i ? ", " : "",
                  jsonString(names[i]).c_str(), static_cast<unsigned long long>(counts[i]));
    }
    std::printf("]\n");
  } else {
    for (size_t i = 0; i < counts.size(); ++i) {
      std::printf("%llu\t%s\n", static_cast<unsigned long long>(counts[i]), names[i].c_str());
    }
  }
  return 0;
}

}  // namespace vxparquet
