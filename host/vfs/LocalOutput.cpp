#include "host/vfs/LocalOutput.hpp"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <random>
#include <set>

#include "host/except/Exception.hpp"
#include "host/vfs/OutputFileBuf.hpp"

namespace virtualiostream {
namespace {

namespace except = foundation::core::except;
constexpr char kStagingMarker[] = ".partial-";

std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseNameOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Follows symbolic links to the file they name, so that writing replaces that file and keeps
// the links. A dangling link resolves to the name it points at, which the write then creates.
std::string resolveLinks(std::string path) {
  for (int depth = 0; depth < 40; ++depth) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return path;
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target - 1);
    if (length < 0) return path;
    std::string next(target, static_cast<size_t>(length));
    path = next[0] == '/' ? next : folderOf(path) + "/" + next;
  }
  return path;  // a loop: opening it reports ELOOP
}

bool isStandardOutput(const std::string& path) { return path == "-" || path == "/dev/stdout"; }

StreamProvider::Opened inPlace(int fd, const std::u16string& displayName) {
  StreamProvider::Opened opened;
  opened.buffer = std::make_unique<OutputFileBuf>(fd, displayName, /*seekable=*/false);
  return opened;
}

// Durability of a rename needs the file's data on disk first, and the folder's entry after.
void syncPath(const std::string& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

// The temporary files of the outputs being written, for discardUnfinishedOutputs.
struct UnfinishedOutputs {
  std::mutex lock;
  std::set<std::string> paths;
};

UnfinishedOutputs& unfinishedOutputs() {
  static UnfinishedOutputs outputs;
  return outputs;
}

void forgetUnfinished(const std::string& path) {
  std::lock_guard<std::mutex> guard(unfinishedOutputs().lock);
  unfinishedOutputs().paths.erase(path);
}

class StagedLocalFile : public PendingOutput {
 public:
  StagedLocalFile(std::string staging, std::string target, std::u16string displayName)
      : mStaging(std::move(staging)),
        mTarget(std::move(target)),
        mDisplayName(std::move(displayName)) {
    std::lock_guard<std::mutex> guard(unfinishedOutputs().lock);
    unfinishedOutputs().paths.insert(mStaging);
  }
  ~StagedLocalFile() override { forgetUnfinished(mStaging); }

  void commit() override {
    if (mDone) return;
    syncPath(mStaging, O_RDONLY);
    if (::rename(mStaging.c_str(), mTarget.c_str()) != 0) {
      throw except::Exception<except::host::OpenFailed>(
          except::kVfsComponent, "OpenFailed", {mDisplayName, std::string(std::strerror(errno))});
    }
    mDone = true;
    forgetUnfinished(mStaging);
    syncPath(folderOf(mTarget), O_RDONLY | O_DIRECTORY);
  }

  void discard() noexcept override {
    if (mDone) return;
    ::unlink(mStaging.c_str());
    forgetUnfinished(mStaging);
    mDone = true;
  }

 private:
  std::string mStaging;
  std::string mTarget;
  std::u16string mDisplayName;
  bool mDone = false;
};

std::string randomSuffix() {
  static constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device device;
  std::string suffix(8, 'x');
  for (auto& c : suffix) c = kAlphabet[device() % (sizeof kAlphabet - 1)];
  return suffix;
}

// Creates the staging file with the permissions the target has, or that a new file would get.
int createStagingFile(const std::string& prefix, const struct stat* existing,
                      std::string& stagingPath) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    stagingPath = prefix + randomSuffix();
    const int fd = ::open(stagingPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno == EEXIST) continue;
    if (fd >= 0 && existing != nullptr) ::fchmod(fd, existing->st_mode & 07777);
    return fd;
  }
  errno = EEXIST;
  return -1;
}

}  // namespace

void discardUnfinishedOutputs() noexcept {
  std::lock_guard<std::mutex> guard(unfinishedOutputs().lock);
  for (const auto& path : unfinishedOutputs().paths) ::unlink(path.c_str());
  unfinishedOutputs().paths.clear();
}

std::string stagingPrefixFor(const std::string& target) {
  const std::string folder = folderOf(target);
  return (folder == "/" ? "" : folder) + "/." + baseNameOf(target) + kStagingMarker;
}

bool isStagingName(const std::string& fileName) {
  const size_t marker = fileName.rfind(kStagingMarker);
  return !fileName.empty() && fileName[0] == '.' && marker != std::string::npos &&
         fileName.size() == marker + sizeof kStagingMarker - 1 + 8;
}

StreamProvider::Opened openLocalOutput(const std::u16string& displayName, const std::string& path) {
  if (isStandardOutput(path)) {
    const int fd = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    if (fd < 0) throwOpenError(displayName, errno);
    return inPlace(fd, displayName);
  }
  const std::string target = resolveLinks(path);
  struct stat info {};
  const bool exists = ::stat(target.c_str(), &info) == 0;
  if (exists && S_ISDIR(info.st_mode)) throwOpenError(displayName, EISDIR);
  if (exists && !S_ISREG(info.st_mode)) {
    const int fd = ::open(target.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) throwOpenError(displayName, errno);
    return inPlace(fd, displayName);
  }
  std::string stagingPath;
  const int fd = createStagingFile(stagingPrefixFor(target), exists ? &info : nullptr, stagingPath);
  if (fd < 0) throwOpenError(displayName, errno);
  StreamProvider::Opened opened;
  opened.buffer = std::make_unique<OutputFileBuf>(fd, displayName, /*seekable=*/true);
  opened.pending = std::make_unique<StagedLocalFile>(stagingPath, target, displayName);
  return opened;
}

}  // namespace virtualiostream
