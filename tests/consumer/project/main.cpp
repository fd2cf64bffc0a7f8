// Counts the row groups of the files named on the command line through the installed library.
#include <cstdio>
#include <string>
#include <vector>

#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"

int main(int argc, char** argv) {
  std::vector<std::u16string> files;
  for (int i = 1; i < argc; ++i) files.push_back(foundation::unicode::utf8_to_ustring(argv[i]));
  try {
    for (auto count : vantro::io::parquet::core::info::getNumRowGroupsSync(files)) {
      std::printf("%llu\n", static_cast<unsigned long long>(count));
    }
  } catch (const foundation::core::except::IMsgIDException& e) {
    std::printf("%s\n", e.identifier().c_str());
    return 1;
  }
  return 0;
}
