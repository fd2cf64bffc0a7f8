#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/vfs/StreamProvider.hpp"

namespace virtualiostream {

// Files held in memory, keyed by the IRI's text after the scheme ("mem://fuzz/a.parquet" is
// "//fuzz/a.parquet"). Serves fuzzers and tests, and can inject faults into the streams it
// opens, the way a failing disk or network would.
class MemoryProvider : public StreamProvider {
 public:
  struct Faults {
    // After this many bytes have been read, every further read fails and leaves the stream bad.
    int64_t failReadAfter = -1;
    // Each read hands out at most this many bytes at a time (short reads); -1 for no limit.
    int64_t maxReadChunk = -1;
    // Bytes that may be written to one file before writes fail (a disk that fills up).
    int64_t writeQuota = -1;
  };

  void put(const std::string& key, std::string bytes);
  // The bytes of a file, or nothing when there is none.
  std::shared_ptr<const std::string> get(const std::string& key) const;
  bool contains(const std::string& key) const;
  void setFaults(const Faults& faults);

  // Outputs appear under their key only when committed, like local files.
  Opened open(const vfs::AbsoluteIRI& iri, open_mode mode) override;

 private:
  struct Files {
    std::mutex lock;
    std::map<std::string, std::shared_ptr<std::string>> byKey;
  };
  class PendingFile;

  std::shared_ptr<Files> mFiles = std::make_shared<Files>();
  Faults mFaults;
};

}  // namespace virtualiostream
