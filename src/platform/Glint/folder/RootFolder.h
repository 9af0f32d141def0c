// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <utility>

#include "Pell/String.h"

namespace Glint {

// Owner of one file descriptor.
//
// Kind: move-only value; -1 owns nothing.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~UniqueFd();

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// The lock file's name below the root folder. The process that has a write lock on the whole file
// is the writer.
inline constexpr const char* kWriterLockName = ".writer";
struct flock wholeFileForWriting();
// What the holder of the lock wrote about itself into the open lock file.
Pell::String writerLockHolder(const UniqueFd& lockFile);

// The mode of every file that is made below a root folder.
inline constexpr mode_t kFileMode = 0640;

// Held for as long as this process may write below a root folder.
//
// Kind: object, shared by the folder and by every table mounted for writing.
class WriterLock {
 public:
  explicit WriterLock(UniqueFd file) : file_(std::move(file)) {}

 private:
  UniqueFd file_;
};

// The folder below which the tables live, and the door to its files.
//
// Kind: object. Every path it opens is one name below the folder; nothing is followed out of it.
// Threads: one.
// Invariants: nothing but the folder and the lock file is created before the writer lock is held.
// All its operations throw ZevGlint::MountException.
class RootFolder {
 public:
  explicit RootFolder(Pell::String path) : path_(std::move(path)) {}

  const Pell::String& path() const { return path_; }
  Pell::String filePath(const Pell::String& fileName) const { return path_ + "/" + fileName; }

  // Makes the folder (mode 0750) if there is none, and takes the writer lock; does nothing if this
  // object holds the lock already. If another process holds it, the error names that process.
  const std::shared_ptr<WriterLock>& lockForWriting();

  enum class Access { read, write };
  struct File {
    UniqueFd fd;  // none when there is no such file
    struct stat status {};
  };
  // Opens a regular file that belongs to the owner of the folder; refuses everything else.
  File open(const Pell::String& fileName, Access access) const;
  // A new file of mode 0640 under a temporary name, which publish() changes to `fileName` once its
  // contents stand; a leftover of a killed writer is replaced. Writer lock held.
  UniqueFd create(const Pell::String& fileName) const;
  void publish(const Pell::String& fileName) const;
  void discard(const Pell::String& fileName) const noexcept;

 private:
  UniqueFd openFolder(bool forWriting) const;
  void makeFolder() const;

  Pell::String path_;
  UniqueFd folder_;  // while locked for writing
  std::shared_ptr<WriterLock> lock_;
};

// The file name of an entity's path: components separated by '/', an optional leading '/', each of
// letters, digits and "_-:." and not beginning with '.'; at most kMaxEntityPath bytes. Distinct
// paths give distinct names. Throws ZevGlint::MountException for any other path.
inline constexpr std::size_t kMaxEntityPath = 200;
Pell::String fileNameOfEntity(const Pell::String& entityPath);

}  // namespace Glint
