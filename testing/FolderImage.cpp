// SPDX-License-Identifier: Apache-2.0

// Tables are sparse files of hundreds of megabytes with little in them, so everything here goes by
// the pages that have data, as the file system tells them.

#include "testing/FolderImage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "folder/Mapping.h"
#include "folder/RootFolder.h"

namespace testing_support {

namespace {

using Page = FolderImage::Page;
constexpr std::uint64_t kPageBytes = FolderImage::kPageBytes;

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::string pathOf(const std::string& folder, const std::string& name) {
  return folder + "/" + name;
}

bool isZero(const std::byte* page) {
  static constexpr Page kZero{};
  return std::memcmp(page, kZero.data(), kPageBytes) == 0;
}

void writePage(int fd, std::uint64_t number, const Page& page, std::uint64_t fileBytes) {
  const std::uint64_t at = number * kPageBytes;
  const std::size_t bytes = std::min(kPageBytes, fileBytes - at);
  if (::pwrite(fd, page.data(), bytes, static_cast<off_t>(at)) != static_cast<ssize_t>(bytes)) {
    fail("pwrite");
  }
}

Glint::UniqueFd openFile(const std::string& path, int flags) {
  Glint::UniqueFd fd(::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0640));
  if (!fd) {
    fail("open " + path);
  }
  return fd;
}

void writeFile(const std::string& path, const FolderImage::File& file) {
  const Glint::UniqueFd fd = openFile(path, O_WRONLY | O_CREAT | O_EXCL);
  if (::ftruncate(fd.get(), static_cast<off_t>(file.bytes)) != 0) {
    fail("ftruncate " + path);
  }
  for (const auto& [number, page] : file.pages) {
    if (!isZero(page->data())) {
      writePage(fd.get(), number, *page, file.bytes);
    }
  }
}

void rewriteFile(const std::string& path, const FolderImage::File& file,
                 const FolderImage::File& held) {
  static const Page kZero{};
  const Glint::UniqueFd fd = openFile(path, O_WRONLY);
  if (file.bytes != held.bytes && ::ftruncate(fd.get(), static_cast<off_t>(file.bytes)) != 0) {
    fail("ftruncate " + path);
  }
  for (const auto& [number, page] : held.pages) {
    if (!file.pages.contains(number) && number * kPageBytes < file.bytes) {
      writePage(fd.get(), number, kZero, file.bytes);
    }
  }
  for (const auto& [number, page] : file.pages) {
    const auto before = held.pages.find(number);
    if (before == held.pages.end() || *before->second != *page) {
      writePage(fd.get(), number, *page, file.bytes);
    }
  }
}

}  // namespace

Page& FolderImage::File::page(std::uint64_t number) {
  std::unique_ptr<Page>& held = pages[number];
  if (!held) {
    held = std::make_unique<Page>();
  }
  return *held;
}

FolderImage FolderImage::clone() const {
  FolderImage copy;
  for (const auto& [name, file] : files_) {
    File& other = copy.files_[name];
    other.inode = file.inode;
    other.bytes = file.bytes;
    for (const auto& [number, page] : file.pages) {
      other.pages.emplace_hint(other.pages.end(), number, std::make_unique<Page>(*page));
    }
  }
  return copy;
}

void FolderImage::copyTo(const std::string& folder) const {
  for (const auto& [name, file] : files_) {
    writeFile(pathOf(folder, name), file);
  }
}

void FolderImage::rewrite(const std::string& folder, const FolderImage& held) const {
  for (const auto& [name, file] : held.files_) {
    if (!files_.contains(name)) {
      std::filesystem::remove(pathOf(folder, name));
    }
  }
  for (const auto& [name, file] : files_) {
    const auto before = held.files_.find(name);
    if (before == held.files_.end()) {
      writeFile(pathOf(folder, name), file);
    } else {
      rewriteFile(pathOf(folder, name), file, before->second);
    }
  }
}

struct LiveFolder::Mapped {
  std::string name;
  Glint::UniqueFd fd;
  std::uint64_t bytes = 0;
  Glint::Mapping mapping;  // null for an empty file
};

LiveFolder::LiveFolder(std::string path) : path_(std::move(path)) {}
LiveFolder::~LiveFolder() = default;

void LiveFolder::rescan() {
  std::set<ino_t> there;
  for (const auto& entry : std::filesystem::directory_iterator(path_)) {
    struct stat status {};
    if (::lstat(entry.path().c_str(), &status) != 0) {
      fail("lstat " + entry.path().string());
    }
    there.insert(status.st_ino);
    const auto bytes = static_cast<std::uint64_t>(status.st_size);
    std::unique_ptr<Mapped>& file = files_[status.st_ino];
    if (!file || file->bytes != bytes) {
      file = std::make_unique<Mapped>(Mapped{{}, openFile(entry.path(), O_RDONLY), bytes, {}});
      if (bytes > 0) {
        file->mapping = Glint::Mapping::ofFile(file->fd.get(), bytes, Glint::Mapping::Access::read);
        if (!file->mapping) {
          fail("mmap " + entry.path().string());
        }
      }
    }
    file->name = entry.path().filename().string();
  }
  std::erase_if(files_, [&](const auto& item) { return !there.contains(item.first); });
}

// visit(number, bytes) returns whether to go on. The last page of a file may be read to its end:
// the mapping pads it with zeros.
template <typename Visit>
bool LiveFolder::forEachDataPage(const Mapped& file, Visit visit) {
  off_t end = 0;
  for (;;) {
    const off_t begin = ::lseek(file.fd.get(), end, SEEK_DATA);
    if (begin < 0) {
      return true;  // ENXIO: nothing more
    }
    end = ::lseek(file.fd.get(), begin, SEEK_HOLE);
    for (std::uint64_t number = static_cast<std::uint64_t>(begin) / kPageBytes;
         number * kPageBytes < static_cast<std::uint64_t>(end); ++number) {
      if (!visit(number, file.mapping.base() + number * kPageBytes)) {
        return false;
      }
    }
  }
}

FolderImage LiveFolder::capture() const {
  FolderImage image;
  for (const auto& [inode, file] : files_) {
    FolderImage::File& copy = image.files()[file->name];
    copy.inode = inode;
    copy.bytes = file->bytes;
    forEachDataPage(*file, [&copy](std::uint64_t number, const std::byte* bytes) {
      if (!isZero(bytes)) {
        std::memcpy(copy.page(number).data(), bytes, kPageBytes);
      }
      return true;
    });
  }
  return image;
}

bool LiveFolder::equals(const FolderImage& image) const {
  if (files_.size() != image.files().size()) {
    return false;
  }
  for (const auto& [inode, file] : files_) {
    const auto held = image.files().find(file->name);
    if (held == image.files().end() || held->second.bytes != file->bytes) {
      return false;
    }
    const auto& pages = held->second.pages;
    std::size_t met = 0;
    const bool same = forEachDataPage(*file, [&](std::uint64_t number, const std::byte* bytes) {
      const auto page = pages.find(number);
      if (page == pages.end()) {
        return isZero(bytes);
      }
      ++met;
      return std::memcmp(page->second->data(), bytes, kPageBytes) == 0;
    });
    // A page of the image that is a hole now must be zero.
    if (!same || (met < pages.size() && static_cast<std::size_t>(std::count_if(
                                            pages.begin(), pages.end(), [](const auto& page) {
                                              return !isZero(page.second->data());
                                            })) > met)) {
      return false;
    }
  }
  return true;
}

const std::byte* LiveFolder::page(ino_t inode, std::uint64_t number) const {
  const auto held = files_.find(inode);
  const bool there =
      held != files_.end() && held->second->mapping && number * kPageBytes < held->second->bytes;
  return there ? held->second->mapping.base() + number * kPageBytes : nullptr;
}

}  // namespace testing_support
