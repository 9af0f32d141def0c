// SPDX-License-Identifier: Apache-2.0

// Files of a state folder, seen from outside the tables. The lock is asked for and never taken
// here; who changes files holds it (RootFolder.cpp).

#include "folder/FolderUpkeep.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fmt/format.h>

#include "Glint/MountInfo.h"
#include "folder/RootFolder.h"

namespace Glint {

namespace {

constexpr std::size_t kCopyBytes = std::size_t{1} << 20U;
constexpr int kMaxKept = 1000;  // copies of one file

[[noreturn]] void failErrno(const Pell::String& path, const char* doing, int error) {
  throw ZevGlint::MountException(fmt::format("{}: {}: {}", path, doing, std::strerror(error)));
}

bool exists(const Pell::String& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

Pell::String freeName(const Pell::String& folder, const Pell::String& fileName) {
  for (int number = 1; number <= kMaxKept; ++number) {
    Pell::String name = fmt::format("{}{}{}", fileName, kKeptInfix, number);
    if (!exists(fmt::format("{}/{}", folder, name))) {
      return name;
    }
  }
  throw ZevGlint::MountException(
      fmt::format("{}/{}: {} copies of it are kept already; move them out of the state folder",
                  folder, fileName, kMaxKept));
}

// Copies [from, to) of one file to the same place of another; 0 or an errno.
int copyRange(int source, int target, off_t from, off_t to, std::vector<std::byte>& buffer) {
  while (from < to) {
    const auto wanted = std::min(buffer.size(), static_cast<std::size_t>(to - from));
    const ssize_t got = ::pread(source, buffer.data(), wanted, from);
    if (got <= 0) {
      return got < 0 ? errno : EIO;
    }
    if (const ssize_t put = ::pwrite(target, buffer.data(), static_cast<std::size_t>(got), from);
        put != got) {
      return put < 0 ? errno : ENOSPC;
    }
    from += got;
  }
  return 0;
}

int copyData(int source, int target) {
  struct stat status {};
  if (::fstat(source, &status) != 0 || ::ftruncate(target, status.st_size) != 0) {
    return errno;
  }
  std::vector<std::byte> buffer(kCopyBytes);
  off_t at = ::lseek(source, 0, SEEK_DATA);
  while (at >= 0 && at < status.st_size) {
    const off_t end = ::lseek(source, at, SEEK_HOLE);
    if (end < 0) {
      return errno;
    }
    if (const int error = copyRange(source, target, at, end, buffer); error != 0) {
      return error;
    }
    at = ::lseek(source, end, SEEK_DATA);
  }
  return at < 0 && errno != ENXIO ? errno : 0;
}

}  // namespace

std::optional<Pell::String> currentWriter(const Pell::String& folder) {
  const UniqueFd file(::open(fmt::format("{}/{}", folder, kWriterLockName).c_str(),
                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct flock whole = wholeFileForWriting();
  if (!file || ::fcntl(file.get(), F_OFD_GETLK, &whole) != 0 || whole.l_type == F_UNLCK) {
    return std::nullopt;
  }
  return writerLockHolder(file);
}

Pell::String keepCopy(const Pell::String& folder, const Pell::String& fileName) {
  const Pell::String path = folder + "/" + fileName;
  const UniqueFd source(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!source) {
    failErrno(path, "cannot open it for a copy", errno);
  }
  Pell::String name = freeName(folder, fileName);
  // A copy has its name only when it is whole.
  const Pell::String copyPath = fmt::format("{}/{}{}", folder, kUnfinishedPrefix, name);
  if (::unlink(copyPath.c_str()) != 0 && errno != ENOENT) {
    failErrno(copyPath, "cannot remove a file that an earlier repair left", errno);
  }
  const UniqueFd target(
      ::open(copyPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!target) {
    failErrno(copyPath, "cannot make a copy", errno);
  }
  int error = ::fchmod(target.get(), kFileMode) == 0 ? 0 : errno;
  error = error != 0 ? error : copyData(source.get(), target.get());
  if (error == 0 && ::rename(copyPath.c_str(), fmt::format("{}/{}", folder, name).c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    ::unlink(copyPath.c_str());
    failErrno(copyPath, "cannot make a copy", error);
  }
  return name;
}

Pell::String setAside(const Pell::String& folder, const Pell::String& fileName) {
  const Pell::String path = folder + "/" + fileName;
  Pell::String name = freeName(folder, fileName);
  if (::rename(path.c_str(), (folder + "/" + name).c_str()) != 0) {
    failErrno(path, "cannot set it aside", errno);
  }
  return name;
}

}  // namespace Glint
