#pragma once

#include <string>

#include "host/vfs/StreamProvider.hpp"

namespace virtualiostream {

// Opens a local output for writing (truncating). A regular file, or a name that does not exist
// yet, is written to a new hidden file beside it and replaces it on commit; the target of a
// symbolic link is replaced, the link kept. Devices, FIFOs and standard output ("-" or
// "/dev/stdout") are written in place and never removed. Throws the host's open errors.
StreamProvider::Opened openLocalOutput(const std::u16string& displayName, const std::string& path);

// The temporary name an output for target is written under, before its random suffix.
std::string stagingPrefixFor(const std::string& target);
// Removes the temporary files of every output still being written in this process. For a
// program about to end abruptly (an interrupt that the write did not notice in time); the
// targets are left as they were.
void discardUnfinishedOutputs() noexcept;

// True for a file name (no folder) of the kind given to temporary outputs: the leftover of a
// killed writer, never a finished file.
bool isStagingName(const std::string& fileName);

}  // namespace virtualiostream
