// SPDX-License-Identifier: Apache-2.0

// The doors of a state folder: who may write, which files are opened, with which modes they are
// made. Tables (Table.cpp) map what this opens. The lock is one on the open file description of a
// lock file, so it ends with the process whatever ends it; descriptors are close-on-exec.

#include "folder/RootFolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "Glint/MountInfo.h"
#include "folder/FolderUpkeep.h"

namespace Glint {

namespace {

constexpr mode_t kFolderMode = 0750;

[[noreturn]] void fail(const Pell::String& path, const Pell::String& what) {
  throw ZevGlint::MountException(fmt::format("{}: {}", path, what));
}

[[noreturn]] void failErrno(const Pell::String& path, const char* doing, int error) {
  switch (error) {
    case EACCES:
    case EPERM:
      fail(path, fmt::format("{}: no permission; run as the owner of the state folder or as a "
                             "member of its group",
                             doing));
    case ELOOP:
      fail(path, fmt::format("{}: it is a symbolic link; remove it", doing));
    case ENOTDIR:
      fail(path, fmt::format("{}: a part of the path is a symbolic link or not a folder", doing));
    case ENOSPC:
      fail(path, fmt::format("{}: the file system is full; make room or enlarge it", doing));
    default:
      fail(path, fmt::format("{}: {}", doing, std::strerror(error)));
  }
}

Pell::String temporaryName(const Pell::String& fileName) {
  return fmt::format("{}{}", kUnfinishedPrefix, fileName);
}

void writeHolder(int fd, const Pell::String& path) {
  const Pell::String text =
      fmt::format("process {} ({})\n", ::getpid(), ::program_invocation_short_name);
  if (::ftruncate(fd, 0) != 0 ||
      ::pwrite(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
    failErrno(path, "cannot write the lock file", errno);
  }
}

// What there is to know about an open file; refuses all but a regular one of the folder's owner.
struct stat ownFile(const Pell::String& path, const UniqueFd& file, const UniqueFd& folder) {
  struct stat status {};
  struct stat folderStatus {};
  if (::fstat(file.get(), &status) != 0 || ::fstat(folder.get(), &folderStatus) != 0) {
    failErrno(path, "cannot look at it", errno);
  }
  if (!S_ISREG(status.st_mode)) {
    fail(path, S_ISDIR(status.st_mode) ? "it is a folder, not a table file; remove it"
                                       : "it is not a regular file; remove it");
  }
  if (status.st_uid != folderStatus.st_uid) {
    fail(path, fmt::format("it belongs to user {}, its folder to user {}; remove it", status.st_uid,
                           folderStatus.st_uid));
  }
  return status;
}

bool allowedInName(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == ':' ||
         c == '.';
}

}  // namespace

UniqueFd::~UniqueFd() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

struct flock wholeFileForWriting() {
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  return whole;
}

// The file is empty in the instant before a holder has written.
Pell::String writerLockHolder(const UniqueFd& lockFile) {
  std::array<char, 128> text{};
  const ssize_t got = ::pread(lockFile.get(), text.data(), text.size(), 0);
  Pell::String holder(text.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  holder.erase(std::find(holder.begin(), holder.end(), '\n'), holder.end());
  return holder.empty() ? "a process that has only just started" : holder;
}

void RootFolder::makeFolder() const {
  if (::mkdir(path_.c_str(), kFolderMode) == 0) {
    if (::chmod(path_.c_str(), kFolderMode) != 0) {
      failErrno(path_, "cannot set the mode of the state folder", errno);
    }
  } else if (errno != EEXIST) {
    failErrno(path_, "cannot make the state folder", errno);
  }
}

UniqueFd RootFolder::openFolder(bool forWriting) const {
  UniqueFd folder(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) {
    if (errno == ENOENT) {
      fail(path_, "there is no such state folder; start its writer first");
    }
    failErrno(path_, "cannot open the state folder", errno);
  }
  struct stat status {};
  if (::fstat(folder.get(), &status) != 0) {
    failErrno(path_, "cannot look at the state folder", errno);
  }
  if (forWriting && status.st_uid != ::geteuid()) {
    fail(path_, fmt::format("the state folder belongs to user {}, this process runs as user {}; "
                            "choose another folder",
                            status.st_uid, ::geteuid()));
  }
  return folder;
}

const std::shared_ptr<WriterLock>& RootFolder::lockForWriting() {
  if (lock_ != nullptr) {
    return lock_;
  }
  makeFolder();
  UniqueFd folder = openFolder(true);
  const Pell::String path = filePath(kWriterLockName);
  UniqueFd file(::openat(folder.get(), kWriterLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                         kFileMode));
  if (!file) {
    if (errno == EISDIR) {
      fail(path, "it is a folder, not a lock file; remove it");
    }
    failErrno(path, "cannot open the lock file", errno);
  }
  ownFile(path, file, folder);
  struct flock whole = wholeFileForWriting();
  if (::fcntl(file.get(), F_OFD_SETLK, &whole) != 0) {
    if (errno == EAGAIN || errno == EACCES) {
      fail(path_, fmt::format("the state folder is in use by another writer, {}; stop it or "
                              "choose another folder",
                              writerLockHolder(file)));
    }
    failErrno(path, "cannot lock", errno);
  }
  if (::fchmod(file.get(), kFileMode) != 0) {
    failErrno(path, "cannot set the mode of the lock file", errno);
  }
  writeHolder(file.get(), path);
  folder_ = std::move(folder);
  lock_ = std::make_shared<WriterLock>(std::move(file));
  return lock_;
}

RootFolder::File RootFolder::open(const Pell::String& fileName, Access access) const {
  const UniqueFd folder = openFolder(access == Access::write);
  const Pell::String path = filePath(fileName);
  const int flags = access == Access::write ? O_RDWR : O_RDONLY;
  File file;
  file.fd = UniqueFd(
      ::openat(folder.get(), fileName.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.fd) {
    if (errno == ENOENT) {
      return file;
    }
    if (errno == EISDIR) {
      fail(path, "it is a folder, not a table file; remove it");
    }
    failErrno(path, "cannot open the table file", errno);
  }
  file.status = ownFile(path, file.fd, folder);
  return file;
}

UniqueFd RootFolder::create(const Pell::String& fileName) const {
  const Pell::String name = temporaryName(fileName);
  if (::unlinkat(folder_.get(), name.c_str(), 0) != 0 && errno != ENOENT) {
    failErrno(filePath(name), "cannot remove a file that an earlier writer left", errno);
  }
  UniqueFd file(::openat(folder_.get(), name.c_str(),
                         O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!file) {
    failErrno(filePath(name), "cannot create the table file", errno);
  }
  if (::fchmod(file.get(), kFileMode) != 0) {
    const int error = errno;
    discard(fileName);
    failErrno(filePath(name), "cannot set the mode of the table file", error);
  }
  return file;
}

void RootFolder::publish(const Pell::String& fileName) const {
  if (::renameat(folder_.get(), temporaryName(fileName).c_str(), folder_.get(), fileName.c_str()) !=
      0) {
    const int error = errno;
    discard(fileName);
    failErrno(filePath(fileName), "cannot name the new table file", error);
  }
}

void RootFolder::discard(const Pell::String& fileName) const noexcept {
  ::unlinkat(folder_.get(), temporaryName(fileName).c_str(), 0);
}

Pell::String fileNameOfEntity(const Pell::String& entityPath) {
  const auto refuse = [&](const char* why) {
    throw ZevGlint::MountException(fmt::format("entity path \"{}\": {}", entityPath, why));
  };
  if (entityPath.size() > kMaxEntityPath) {
    refuse("it is longer than 200 bytes");
  }
  Pell::String name;
  bool atStart = true;  // of a component
  for (std::size_t i = entityPath.starts_with('/') ? 1 : 0; i < entityPath.size(); ++i) {
    const char c = entityPath[i];
    if (c == '/' ? atStart : !allowedInName(c) || (atStart && c == '.')) {
      refuse(
          "its components have letters, digits and \"_-:.\" only, do not begin with '.' and are "
          "separated by one '/'");
    }
    atStart = c == '/';
    name += atStart ? '~' : c;
  }
  if (atStart) {
    refuse("it is empty or ends with '/'");
  }
  return name + ".table";
}

}  // namespace Glint
