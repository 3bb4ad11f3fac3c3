// How findings word what they name: a status as its code and meaning, and the known word a
// misspelt one was probably meant to be. The lint writes its messages with these, and the
// runner its reports, so a status reads the same in both.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace formatv2 {

// "0xC0000105": the code as the host's logs show it, eight hexadecimal digits.
std::string Hex(int status);
// The status's meaning from the contract's table, or "a code of the host" for another code.
std::string StatusMeaning(int status);
// Hex(status), then its meaning in brackets.
std::string StatusText(int status);

// The closest of the candidates to word (letter case ignored, at most two edits), or "".
std::string ClosestWord(const std::string& word, const std::vector<std::string>& candidates);
std::string ClosestWord(const std::string& word, const char* const* candidates, size_t count);

}  // namespace formatv2
