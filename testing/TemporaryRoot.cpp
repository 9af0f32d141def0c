// SPDX-License-Identifier: Apache-2.0

// Beside each folder stands a file that is locked for the life of its process; the kernel drops the
// lock when that ends, however it ends. A file that can be locked has nobody, and goes with its
// folder while it is locked. Between its making and its locking a new file looks like one that was
// left: so its maker looks, once it has the lock, whether the file still has its name, and makes
// another one if not. The folder itself is not what is locked: tests remove it, make it anew and
// mount on it.

#include "testing/TemporaryRoot.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace testing_support {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = "loamfec-root.";
constexpr std::string_view kRandom = "XXXXXX";  // what mkostemps() puts letters for
constexpr std::string_view kLockSuffix = ".lock";
constexpr int kTries = 100;  // each lost to a process that swept just then

bool tryToLock(int descriptor) { return ::flock(descriptor, LOCK_EX | LOCK_NB) == 0; }

bool isNamed(int descriptor, const std::string& path) {
  struct stat held {};
  struct stat named {};
  return ::fstat(descriptor, &held) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

bool isLockName(std::string_view name) {
  return name.size() == kPrefix.size() + kRandom.size() + kLockSuffix.size() &&
         name.starts_with(kPrefix) && name.ends_with(kLockSuffix);
}

// False if something of the folder stays, and its lock file for that reason, for a later sweep.
bool removeWithLock(const fs::path& folder, const fs::path& lockPath) {
  std::error_code failed;
  fs::remove_all(folder, failed);
  std::error_code ignored;
  return !failed && fs::remove(lockPath, ignored);
}

}  // namespace

TemporaryRoot::TemporaryRoot(const Pell::String& parent) {
  [[maybe_unused]] static const std::size_t kSwept =
      sweepTemporaryRoots(kSharedMemory, ::geteuid());
  for (int tried = 0; !make(parent); ++tried) {
    if (tried == kTries) {
      throw std::runtime_error("no temporary folder in " + parent);
    }
  }
}

// False if it was swept before it was locked, or could not be made.
bool TemporaryRoot::make(const Pell::String& parent) {
  std::string lockPath = fmt::format("{}/{}{}{}", parent, kPrefix, kRandom, kLockSuffix);
  lock_ = ::mkostemps(lockPath.data(), static_cast<int>(kLockSuffix.size()), O_CLOEXEC);
  if (lock_ < 0) {
    return false;
  }
  path_ = lockPath.substr(0, lockPath.size() - kLockSuffix.size());
  if (tryToLock(lock_) && isNamed(lock_, lockPath) && ::mkdir(path_.c_str(), 0700) == 0) {
    return true;
  }
  ::close(lock_);
  return false;
}

TemporaryRoot::~TemporaryRoot() {
  removeWithLock(path_, path_ + std::string(kLockSuffix));
  ::close(lock_);
}

namespace {

// Whether that lock file's folder was there and has gone.
bool sweep(const fs::path& lockPath) {
  const int lock = ::open(lockPath.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
  bool swept = false;
  if (lock >= 0 && tryToLock(lock) && isNamed(lock, lockPath)) {
    fs::path folder = lockPath;
    folder.replace_extension();
    const bool wasThere = fs::is_directory(fs::symlink_status(folder));
    ::umount2(folder.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);  // a killed test's, if there is one
    swept = removeWithLock(folder, lockPath) && wasThere;
  }
  ::close(lock);
  return swept;
}

}  // namespace

std::size_t sweepTemporaryRoots(const Pell::String& parent, uid_t owner) {
  std::size_t swept = 0;
  std::error_code ended;
  for (fs::directory_iterator at(parent, ended); !ended && at != fs::directory_iterator();
       at.increment(ended)) {
    const std::string name = at->path().filename();
    struct stat found {};
    if (isLockName(name) && ::lstat(at->path().c_str(), &found) == 0 && S_ISREG(found.st_mode) &&
        found.st_uid == owner && sweep(at->path())) {
      ++swept;
    }
  }
  return swept;
}

}  // namespace testing_support
