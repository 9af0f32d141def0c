// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace testing_support {

// The contents of the files of one folder at one moment: names, sizes, and the pages with data in
// them.
//
// Kind: move-only value. A page that is all zero and one that is not there are the same.
class FolderImage {
 public:
  static constexpr std::size_t kPageBytes = 4096;
  using Page = std::array<std::byte, kPageBytes>;

  struct File {
    ino_t inode = 0;
    std::uint64_t bytes = 0;
    std::map<std::uint64_t, std::unique_ptr<Page>> pages;  // by number

    // The page, zero when it had no data.
    Page& page(std::uint64_t number);
  };

  std::map<std::string, File>& files() { return files_; }
  const std::map<std::string, File>& files() const { return files_; }
  FolderImage clone() const;

  // Writes the files to an existing empty folder: sparse, mode 0640. Throws std::system_error.
  void copyTo(const std::string& folder) const;
  // Changes a folder that holds `held` into this image, in place: a process that has mapped a file
  // that stays sees the new bytes. Throws std::system_error.
  void rewrite(const std::string& folder, const FolderImage& held) const;

 private:
  std::map<std::string, File> files_;
};

// The files of a folder as they are now, seen through read-only mappings.
//
// Kind: object. Reads only pages that have data: it never makes a hole of a sparse file a page.
// Throws std::system_error.
class LiveFolder {
 public:
  explicit LiveFolder(std::string path);
  LiveFolder(const LiveFolder&) = delete;
  LiveFolder& operator=(const LiveFolder&) = delete;
  ~LiveFolder();

  const std::string& path() const { return path_; }

  // Looks again which files there are; earlier mappings may be gone.
  void rescan();
  // Both of what the last rescan found.
  FolderImage capture() const;
  bool equals(const FolderImage& image) const;

  // The bytes of a page of a file, as they are now; null without such a file or page.
  const std::byte* page(ino_t inode, std::uint64_t number) const;

 private:
  struct Mapped;

  template <typename Visit>
  static bool forEachDataPage(const Mapped& file, Visit visit);

  std::string path_;
  std::map<ino_t, std::unique_ptr<Mapped>> files_;
};

}  // namespace testing_support
