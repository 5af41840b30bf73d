// Lists of words in the tool's messages and outputs.
#pragma once

#include <string>
#include <vector>

namespace tool {

// The words with `separator` between each two: "3 17", "a:b".
std::string joined(const std::vector<std::string>& words, const std::string& separator);

// The words as a sentence lists them, `conjunction` before the last: "a, b and c", "a or b".
std::string listed(const std::vector<std::string>& words, const std::string& conjunction);

}  // namespace tool
