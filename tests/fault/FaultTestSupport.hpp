#pragma once

// Fixtures of the fault tests: an in-memory file system that breaks on demand, and the outcome
// of one call as the host would see it.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "host/except/Exception.hpp"
#include "host/matrix/matrix.h"
#include "host/vfs/MemoryProvider.hpp"
#include "tests/support/TestSupport.hpp"

namespace vxtest::fault {

// How a call ended: normally, or with a host exception (identifier and message). Anything else
// propagates and fails the test.
struct Outcome {
  bool failed = false;
  std::string identifier;
  std::string message;
};

inline Outcome outcomeOf(const std::function<void()>& call) {
  Outcome outcome;
  try {
    call();
  } catch (const foundation::core::except::IMsgIDException& e) {
    outcome.failed = true;
    outcome.identifier = e.identifier();
    outcome.message = e.message();
  }
  return outcome;
}

inline std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  if (!outcome.failed) return out << "no error";
  return out << outcome.identifier << ": " << outcome.message;
}

// Serves the "mem" scheme from a MemoryProvider for the test's lifetime.
class MemoryFileTest : public ::testing::Test {
 protected:
  void SetUp() override { virtualiostream::registerProvider(u"mem", mProvider); }
  void TearDown() override { virtualiostream::registerProvider(u"mem", nullptr); }

  void setFaults(int64_t failReadAfter, int64_t maxReadChunk, int64_t writeQuota) {
    virtualiostream::MemoryProvider::Faults faults;
    faults.failReadAfter = failReadAfter;
    faults.maxReadChunk = maxReadChunk;
    faults.writeQuota = writeQuota;
    mProvider->setFaults(faults);
  }

  std::shared_ptr<virtualiostream::MemoryProvider> mProvider =
      std::make_shared<virtualiostream::MemoryProvider>();
};

// Rows of a host table whose first column is a plain numeric column (vxtest::simpleTable's).
size_t tableRows(const vxArray_tag* table);

// Evenly spread points of [0, end] plus the given edges; a sweep visits each once.
std::vector<int64_t> sweepPoints(int64_t end, int steps, std::vector<int64_t> edges);

}  // namespace vxtest::fault
