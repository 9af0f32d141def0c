// SPDX-License-Identifier: Apache-2.0

// Each folder is locked for the life of its process, with a lock that the kernel drops when that
// ends, however it ends. What can be locked has nobody, and is removed while it is locked. Between
// its making and its locking a new folder looks like one that was left: so its maker looks, once it
// has the lock, whether the folder still has its name, and makes another one if not.
//
// A file system that a test has mounted on its folder hides the lock. So a folder of another device
// than its parent's is left alone.

#include "testing/TemporaryRoot.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace testing_support {

namespace {

namespace fs = std::filesystem;

constexpr const char* kPrefix = "loamfec-test.";
constexpr int kTries = 100;  // each lost to a process that swept just then

// A descriptor of the folder, locked; -1 if somebody else has it, or there is none.
int lockFolder(const char* path) {
  const int descriptor = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor >= 0 && ::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    ::close(descriptor);
    return -1;
  }
  return descriptor;
}

bool isNamed(int descriptor, const char* path) {
  struct stat held {};
  struct stat named {};
  return ::fstat(descriptor, &held) == 0 && ::lstat(path, &named) == 0 &&
         held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

void removeAll(const fs::path& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
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
  path_ = parent + "/" + kPrefix + "XXXXXX";
  if (::mkdtemp(path_.data()) == nullptr) {
    return false;
  }
  lock_ = lockFolder(path_.c_str());
  if (lock_ >= 0 && isNamed(lock_, path_.c_str())) {
    return true;
  }
  ::rmdir(path_.c_str());
  ::close(lock_);
  return false;
}

TemporaryRoot::~TemporaryRoot() {
  removeAll(path_);
  ::close(lock_);
}

std::size_t sweepTemporaryRoots(const Pell::String& parent, uid_t owner) {
  std::size_t swept = 0;
  std::error_code ended;
  struct stat around {};
  if (::stat(parent.c_str(), &around) != 0) {
    return 0;
  }
  for (fs::directory_iterator at(parent, ended); !ended && at != fs::directory_iterator();
       at.increment(ended)) {
    const std::string path = at->path();
    struct stat found {};
    if (!at->path().filename().string().starts_with(kPrefix) ||
        ::lstat(path.c_str(), &found) != 0 || found.st_uid != owner ||
        found.st_dev != around.st_dev) {
      continue;
    }
    const int lock = lockFolder(path.c_str());
    if (lock >= 0 && isNamed(lock, path.c_str())) {
      removeAll(path);
      ++swept;
    }
    ::close(lock);
  }
  return swept;
}

}  // namespace testing_support
