// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

// A table file as text that can stand under version control: the files are large, sparse and full
// of repetitions, the text is neither.
//
//   bytes <length of the file>
//   <offset> x<count> <word> <word> ...
//
// Each line is a piece of the file (16 bytes of header, heads or links, or a slot), its 64-bit
// words in hexadecimal, their bytes in file order, and how often it follows upon itself. Pieces
// that are all zero are left out.

namespace format_test {

// Throws std::runtime_error if the file is not there or not a shared table.
std::string toText(const std::string& tableFile);

// Writes the file that the text describes, sparse. Throws std::runtime_error if the text is none.
void fromText(const std::string& text, const std::string& tableFile);

}  // namespace format_test
