// SPDX-License-Identifier: Apache-2.0

// docs/guarantees.md names the tests that hold the library to each of its promises: every promise
// has some, and every one that is named is there.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Names = std::set<std::string>;
using Texts = std::vector<std::string>;

const std::filesystem::path kSource = SOURCE_DIR;

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string withoutBlanks(std::string_view text) {
  std::string kept(text);
  std::erase_if(kept, [](char c) { return c == ' ' || c == '\n'; });
  return kept;
}

// Adds "Suite.Name" of each test that the source text defines.
void addTestsOf(const std::string& source, Names& names) {
  for (const std::string_view macro : {"TEST(", "TEST_F(", "TEST_P("}) {
    for (std::size_t at = source.find(macro); at != std::string::npos;
         at = source.find(macro, at + 1)) {
      const std::size_t from = at + macro.size();
      const std::size_t comma = source.find(',', from);
      const std::size_t end = source.find(')', from);
      if (comma < end && end != std::string::npos) {
        names.insert(withoutBlanks(source.substr(from, comma - from)) + '.' +
                     withoutBlanks(source.substr(comma + 1, end - comma - 1)));
      }
    }
  }
}

Names definedTests() {
  Names names;
  for (const auto& file : std::filesystem::recursive_directory_iterator(kSource / "tests")) {
    if (file.path().extension() == ".cpp") {
      addTestsOf(contentsOf(file.path()), names);
    }
  }
  return names;
}

// The items of the document's lists that begin with a promise in bold, each to its blank line.
Texts promisesIn(const std::string& document) {
  Texts promises;
  for (std::size_t at = document.find("\n- **"); at != std::string::npos;
       at = document.find("\n- **", at + 1)) {
    promises.push_back(document.substr(at + 1, document.find("\n\n", at) - at - 1));
  }
  return promises;
}

// The code that stands between back quotes behind the promise's "Tests:".
Texts testsNamedBy(const std::string& promise) {
  Texts names;
  for (std::size_t at = promise.find('`', promise.find("Tests: ")); at != std::string::npos;) {
    const std::size_t end = promise.find('`', at + 1);
    names.push_back(promise.substr(at + 1, end - at - 1));
    at = end == std::string::npos ? end : promise.find('`', end + 1);
  }
  return names;
}

// One line for each promise without a test, and for each test that is not defined.
Texts complaints(const std::string& document, const Names& defined) {
  Texts found;
  for (const std::string& promise : promisesIn(document)) {
    const Texts named = testsNamedBy(promise);
    if (named.empty()) {
      found.push_back("no test: " + promise);
    }
    for (const std::string& name : named) {
      if (!defined.contains(name)) {
        found.push_back("not defined: " + name);
      }
    }
  }
  return found;
}

TEST(GuaranteesTest, EveryPromiseNamesTestsAndEachOfThemIsThere) {
  const std::string document = contentsOf(kSource / "docs/guarantees.md");
  const Names defined = definedTests();
  EXPECT_TRUE(defined.contains("GuaranteesTest.EveryPromiseNamesTestsAndEachOfThemIsThere"));
  EXPECT_GT(promisesIn(document).size(), 50U);
  EXPECT_THAT(complaints(document, defined), IsEmpty());
}

TEST(GuaranteesTest, WhatIsMissingIsFound) {
  const std::string document =
      "# Title\n\n- **Kept.** Words, and\n  more. Tests: `A.One`,\n  `B.Two`\n\n"
      "- **Empty.** `A.One` is no test here.\n\n"
      "- **Broken.**\n  Tests: `A.One`, `A.Gone`\n";
  EXPECT_THAT(complaints(document, {"A.One", "B.Two"}),
              ElementsAre("no test: - **Empty.** `A.One` is no test here.", "not defined: A.Gone"));
}

TEST(GuaranteesTest, TestsOfEachKindAreFoundAcrossLines) {
  Names names;
  addTestsOf("TEST(A, One) {}\nTEST_F(B,\n       Two) {}\nTYPED_TEST(C, Three)\nTEST_P(D, Four)",
             names);
  EXPECT_THAT(names, ElementsAre("A.One", "B.Two", "C.Three", "D.Four"));
}

}  // namespace
