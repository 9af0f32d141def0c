// SPDX-License-Identifier: Apache-2.0

// docs/glossary.md explains every abbreviation that names use: each part of each name in the public
// headers is a word of words.txt or stands in the first column of one of the glossary's tables.

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/TextFile.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using testing_support::textOf;
using Texts = std::vector<std::string>;
using Words = std::set<std::string>;

const std::filesystem::path kSource = SOURCE_DIR;

// Folders of the repository without public headers: what they hold is for tests, or is made.
const Words kPrivateFolders = {"bench", "build", "testing", "tests"};

bool isUpper(char c) { return std::isupper(static_cast<unsigned char>(c)) != 0; }
bool isLower(char c) { return std::islower(static_cast<unsigned char>(c)) != 0; }
bool isLetter(char c) { return isUpper(c) || isLower(c); }
bool inName(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

// The parts of a name in small letters: "setRsrcPtrs" has set, rsrc, ptrs; "SSLKey" has ssl, key.
Texts partsOf(std::string_view name) {
  Texts parts;
  bool inside = false;
  for (std::size_t at = 0; at < name.size(); ++at) {
    if (!isLetter(name[at])) {
      inside = false;
      continue;
    }
    const bool hump = isUpper(name[at]) && (isLower(name[at - (at == 0 ? 0 : 1)]) ||
                                            (at + 1 < name.size() && isLower(name[at + 1])));
    if (!inside || hump) {
      parts.emplace_back();
      inside = true;
    }
    parts.back() += static_cast<char>(std::tolower(static_cast<unsigned char>(name[at])));
  }
  return parts;
}

// The end of the comment, literal or include line that begins at `at`; `at` itself if none does.
std::size_t behindNoCode(std::string_view text, std::size_t at) {
  const auto lineEnd = [&] { return std::min(text.find('\n', at), text.size()); };
  if (text.substr(at, 2) == "//" || text.substr(at, 8) == "#include") {
    return lineEnd();
  }
  // A single quote inside a number groups its digits.
  if (text[at] != '"' && (text[at] != '\'' || (at > 0 && inName(text[at - 1])))) {
    return at;
  }
  std::size_t end = at + 1;
  while (end < text.size() && text[end] != text[at]) {
    end += text[end] == '\\' ? 2U : 1U;
  }
  return std::min(end + 1, text.size());
}

// A name as it is written, with what qualifies it: "Zev::Entity". Names of the compiler's own and
// of other libraries are none of ours.
bool isOurs(std::string_view name) {
  return !name.starts_with("__") && !name.starts_with("std::") && !name.starts_with("boost::") &&
         !name.starts_with("fmt::") && !name.starts_with("nlohmann::");
}

Words partsOfNamesIn(std::string_view text) {
  Words parts;
  for (std::size_t at = 0; at < text.size();) {
    if (const std::size_t end = behindNoCode(text, at); end != at) {
      at = end;
      continue;
    }
    if (!inName(text[at])) {
      ++at;
      continue;
    }
    std::size_t end = at;
    while (end < text.size() &&
           (inName(text[end]) || (text.substr(end, 2) == "::" && end + 2 < text.size()))) {
      end += inName(text[end]) ? 1U : 2U;
    }
    // A number is no name, whatever letters it has.
    const bool number = std::isdigit(static_cast<unsigned char>(text[at])) != 0;
    if (const std::string_view name = text.substr(at, end - at); !number && isOurs(name)) {
      for (const std::string& part : partsOf(name)) {
        parts.insert(part);
      }
    }
    at = end;
  }
  return parts;
}

// What the first column of the document's tables explains, in small letters. Several names of one
// meaning stand between commas. A name of several parts explains none of them.
Words explainedIn(const std::string& document) {
  Words explained;
  std::istringstream lines(document);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("| ")) {
      continue;
    }
    std::istringstream names(line.substr(2, line.find(" |") - 2));
    for (std::string name; std::getline(names, name, ',');) {
      if (const Texts parts = partsOf(name); parts.size() == 1) {
        explained.insert(parts.front());
      }
    }
  }
  return explained;
}

// One word per line; a line that begins with # is a comment.
Words wordsIn(const std::string& text) {
  Words words;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line[0] != '#') {
      words.insert(line);
    }
  }
  return words;
}

// A plural is known with its singular. A single letter stands for nothing.
bool isKnown(const std::string& part, const Words& known) {
  return part.size() == 1 || known.contains(part) ||
         (part.back() == 's' && known.contains(part.substr(0, part.size() - 1)));
}

// "part (file)" for each part that is not known, with one file that has it.
Texts unexplained(const std::map<std::string, Words>& partsByFile, const Words& known) {
  std::map<std::string, std::string> missing;
  for (const auto& [file, parts] : partsByFile) {
    for (const std::string& part : parts) {
      if (!isKnown(part, known)) {
        missing.emplace(part, file);
      }
    }
  }
  Texts found;
  for (const auto& [part, file] : missing) {
    found.emplace_back(part).append(" (").append(file).append(")");
  }
  return found;
}

std::map<std::string, Words> partsOfPublicHeaders() {
  std::map<std::string, Words> parts;
  for (const auto& folder : std::filesystem::directory_iterator(kSource)) {
    const std::string name = folder.path().filename();
    if (!folder.is_directory() || name[0] == '.' || kPrivateFolders.contains(name)) {
      continue;
    }
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
      const std::string path = std::filesystem::relative(file, kSource);
      if (path.ends_with(".h") && path.find("/include/") != std::string::npos) {
        parts[path] = partsOfNamesIn(textOf(file));
      }
    }
  }
  return parts;
}

TEST(GlossaryTest, EveryPartOfANameInAPublicHeaderIsAWordOrExplained) {
  const std::map<std::string, Words> headers = partsOfPublicHeaders();
  EXPECT_GT(headers.size(), 50U);
  Words known = wordsIn(textOf(kSource / "tests/docs/words.txt"));
  known.merge(explainedIn(textOf(kSource / "docs/glossary.md")));
  EXPECT_THAT(unexplained(headers, known), IsEmpty())
      << "explain an abbreviation in docs/glossary.md, or add a word to tests/docs/words.txt";
}

TEST(GlossaryTest, NamesWithoutAnExplanationAreFound) {
  const std::map<std::string, Words> headers = {{"A.h", {"rsrc", "keys", "tbl"}},
                                                {"B.h", {"key", "tbls", "t", "intf"}}};
  EXPECT_THAT(unexplained(headers, {"key", "tbl"}), ElementsAre("intf (B.h)", "rsrc (A.h)"));
}

TEST(GlossaryTest, NoAbbreviationOfTheGlossaryPassesForAWord) {
  const Words words = wordsIn(textOf(kSource / "tests/docs/words.txt"));
  const std::string document = textOf(kSource / "docs/glossary.md");
  const Words explained =
      explainedIn(document.substr(document.find("\n## Abbreviations in names\n")));
  EXPECT_THAT(explained, Contains("rsrc"));
  Texts both;
  std::set_intersection(words.begin(), words.end(), explained.begin(), explained.end(),
                        std::back_inserter(both));
  EXPECT_THAT(both, IsEmpty());
}

TEST(GlossaryTest, NamesAreSplitAtTheirHumps) {
  EXPECT_THAT(partsOf("setRsrcPtrs_"), ElementsAre("set", "rsrc", "ptrs"));
  EXPECT_THAT(partsOf("QE_EntryHandleInLog"), ElementsAre("qe", "entry", "handle", "in", "log"));
  EXPECT_THAT(partsOf("ASICName"), ElementsAre("asic", "name"));
  EXPECT_THAT(partsOf("XXH3_64bits"), ElementsAre("xxh", "bits"));
}

TEST(GlossaryTest, NamesAreTakenFromCodeAlone) {
  EXPECT_THAT(
      partsOfNamesIn("#include \"Inc/Hdr.h\"\n// cmt\nstd::vector<Zev::Obj> tbl{'x', \"str\"};"
                     " __va; n = 0xfull + 1'000'000; // end"),
      UnorderedElementsAre("zev", "obj", "tbl", "n"));
}

TEST(GlossaryTest, TheFirstColumnOfATableIsExplained) {
  EXPECT_THAT(explainedIn("# Gen\n\n| name | meaning |\n|---|---|\n| `Cfg`, `Config` | `Conf` |\n"
                          "| `SwTable`, entry log | |\n"),
              UnorderedElementsAre("name", "cfg", "config"));
}

}  // namespace
