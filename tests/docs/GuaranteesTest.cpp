// SPDX-License-Identifier: Apache-2.0

// docs/guarantees.md numbers its promises, and names behind them the tests that hold the library to
// each number: every promise has some, and every test that is named is there.

#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/TextFile.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::textOf;
using Names = std::set<std::string>;
using Texts = std::vector<std::string>;

const std::filesystem::path kSource = SOURCE_DIR;

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
      addTestsOf(textOf(file.path()), names);
    }
  }
  return names;
}

// The items of a list that begin with `mark`, each without it and up to its blank line or the end.
Texts itemsOf(const std::string& text, const std::string& mark) {
  const std::string begin = "\n" + mark;
  Texts items;
  for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at + 1)) {
    const std::size_t from = at + begin.size();
    items.push_back(text.substr(from, text.find("\n\n", at) - from));
    items.back().erase(items.back().find_last_not_of('\n') + 1);
  }
  return items;
}

// The number that a text begins with: a capital and digits. Empty if there is none before `end`.
std::string numberOf(const std::string& text, char end) {
  const std::size_t digits = text.find_first_not_of("0123456789", 1);
  const bool good = digits != std::string::npos && digits > 1 && text[digits] == end &&
                    text[0] >= 'A' && text[0] <= 'Z';
  return good ? text.substr(0, digits) : "";
}

// What stands between back quotes.
Texts codeIn(const std::string& text) {
  Texts code;
  for (std::size_t at = text.find('`'); at != std::string::npos;) {
    const std::size_t end = text.find('`', at + 1);
    code.push_back(text.substr(at + 1, end - at - 1));
    at = end == std::string::npos ? end : text.find('`', end + 1);
  }
  return code;
}

// The promises come first, and behind this title each number's tests.
const std::string kTestsTitle = "\n## Tests\n";

// The document's promises: the items of its lists that begin in bold.
Texts promisesIn(const std::string& document) {
  return itemsOf(document.substr(0, document.find(kTestsTitle)), "- **");
}

// The items that name the tests of a number.
Texts testItemsIn(const std::string& document) {
  const std::size_t at = document.find(kTestsTitle);
  return at == std::string::npos ? Texts() : itemsOf(document.substr(at), "- ");
}

// One line for each promise without a number of its own or without a test, for each item of tests
// that is no promise's, and for each test that is not defined.
Texts complaints(const std::string& document, const Names& defined) {
  Texts found;
  Names promised;
  for (const std::string& promise : promisesIn(document)) {
    const std::string number = numberOf(promise, '.');
    if (number.empty()) {
      found.push_back("no number: " + promise);
    } else if (!promised.insert(number).second) {
      found.push_back("promised twice: " + number);
    }
  }
  Names tested;
  for (const std::string& item : testItemsIn(document)) {
    const std::string number = numberOf(item, ':');
    if (!promised.contains(number)) {
      found.push_back("no promise: " + item);
    }
    const Texts named = codeIn(item);
    if (!named.empty() && !tested.insert(number).second) {
      found.push_back("tested twice: " + number);
    }
    for (const std::string& name : named) {
      if (!defined.contains(name)) {
        found.push_back("not defined: " + name);
      }
    }
  }
  for (const std::string& number : promised) {
    if (!tested.contains(number)) {
      found.push_back("no test: " + number);
    }
  }
  return found;
}

TEST(GuaranteesTest, EveryPromiseNamesTestsAndEachOfThemIsThere) {
  const std::string document = textOf(kSource / "docs/guarantees.md");
  const Names defined = definedTests();
  EXPECT_TRUE(defined.contains("GuaranteesTest.EveryPromiseNamesTestsAndEachOfThemIsThere"));
  EXPECT_GT(promisesIn(document).size(), 50U);
  EXPECT_THAT(complaints(document, defined), IsEmpty());
}

TEST(GuaranteesTest, WhatIsMissingIsFound) {
  const std::string document =
      "# Title\n\n- **A1. Kept.** Words, and\n  more.\n\n- **A2. Untested.** `A.One` is no test "
      "here.\n\n- **A3. Empty.**\n\n- **B10. Broken.**\n\n## Tests\n\n- A1: `A.One`,\n  `B.Two`\n"
      "\n- A3:\n\n- B10: `A.One`, `A.Gone`\n\n- C1: `A.One`\n";
  EXPECT_THAT(
      complaints(document, {"A.One", "B.Two"}),
      ElementsAre("not defined: A.Gone", "no promise: C1: `A.One`", "no test: A2", "no test: A3"));
}

TEST(GuaranteesTest, APromiseHasANumberOfItsOwn) {
  const std::string document =
      "# Title\n\n- **A1. One.**\n\n- **A1. Another.**\n\n- **None.**\n\n- **A. None.**\n\n"
      "- **a2. None.**\n\n## Tests\n\n- A1: `A.One`\n\n- A1: `A.One`\n\n- `A.One`\n";
  EXPECT_THAT(complaints(document, {"A.One"}),
              ElementsAre("promised twice: A1", "no number: None.**", "no number: A. None.**",
                          "no number: a2. None.**", "tested twice: A1", "no promise: `A.One`"));
}

TEST(GuaranteesTest, WithoutAPartOfTestsNoPromiseIsKept) {
  EXPECT_THAT(complaints("# Title\n\n- **A1. Kept.**\n  Tests: `A.One`\n", {"A.One"}),
              ElementsAre("no test: A1"));
}

TEST(GuaranteesTest, TestsOfEachKindAreFoundAcrossLines) {
  Names names;
  addTestsOf("TEST(A, One) {}\nTEST_F(B,\n       Two) {}\nTYPED_TEST(C, Three)\nTEST_P(D, Four)",
             names);
  EXPECT_THAT(names, ElementsAre("A.One", "B.Two", "C.Three", "D.Four"));
}

}  // namespace
