// SPDX-License-Identifier: Apache-2.0

// ARCHITECTURE.md maps hardware/ and the folders of src/: every header stands in its folder's
// table, and every name in a table is a header.

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/TextFile.h"

namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;
using testing_support::textOf;
using Names = std::vector<std::string>;

const std::filesystem::path kSource = SOURCE_DIR;
const std::string kTitle = "\n### `";

// The folder's part of the document, from its title to the next one; empty if it has none.
std::string partOf(const std::string& document, const std::string& folder) {
  const std::size_t at = document.find("\n### `" + folder + "/`\n");
  return at == std::string::npos ? "" : document.substr(at, document.find("\n##", at + 1) - at);
}

// The names between back quotes in the first column of the part's table.
Names namesIn(const std::string& part) {
  Names names;
  for (std::size_t line = part.find("\n| `"); line != std::string::npos;
       line = part.find("\n| `", line + 1)) {
    const std::string column = part.substr(line + 3, part.find(" | ", line + 3) - line - 3);
    for (std::size_t at = column.find('`'); at != std::string::npos; at = column.find('`', at)) {
      const std::size_t end = column.find('`', at + 1);
      names.push_back(column.substr(at + 1, end - at - 1));
      at = end + 1;
    }
  }
  return names;
}

// What the tables should name: each header, and each .cpp without one, without its ending; those of
// include/ without their folder.
Names filesOf(const std::filesystem::path& folder) {
  std::set<std::string> names;
  for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
    const auto path = std::filesystem::relative(file.path(), folder);
    if (path.extension() == ".h" || path.extension() == ".cpp") {
      const bool isFace = *path.begin() == "include" || !path.has_parent_path();
      names.insert((isFace ? path.stem() : path.parent_path() / path.stem()).string());
    }
  }
  return {names.begin(), names.end()};
}

Names mappedFolders() {
  Names folders;
  for (const char* layer : {"platform", "framework"}) {
    for (const auto& folder : std::filesystem::directory_iterator(kSource / "src" / layer)) {
      folders.push_back(std::filesystem::relative(folder.path(), kSource).string());
    }
  }
  folders.emplace_back("src/fec");
  folders.emplace_back("hardware");
  return folders;
}

// A folder of a few files needs no map.
constexpr std::size_t kFilesWithoutAMap = 2;

TEST(ArchitectureDocument, MapsEveryFileOfAFolder) {
  const std::string document = textOf(kSource / "ARCHITECTURE.md");
  std::size_t maps = 0;
  for (const std::string& folder : mappedFolders()) {
    const Names files = filesOf(kSource / folder);
    const std::string part = partOf(document, folder);
    if (files.size() <= kFilesWithoutAMap && part.empty()) {
      continue;
    }
    EXPECT_THAT(namesIn(part), UnorderedElementsAreArray(files)) << folder;
    ++maps;
  }
  EXPECT_GE(maps, 6U);
}

TEST(ArchitectureDocument, NamesNoFolderThatIsNotThere) {
  const std::string document = textOf(kSource / "ARCHITECTURE.md");
  Names missing;
  for (std::size_t at = document.find(kTitle); at != std::string::npos;
       at = document.find(kTitle, at + 1)) {
    const std::size_t begin = document.find('`', at) + 1;
    const std::string folder = document.substr(begin, document.find('`', begin) - begin);
    if (!std::filesystem::is_directory(kSource / folder)) {
      missing.push_back(folder);
    }
  }
  EXPECT_THAT(missing, IsEmpty());
}

}  // namespace
