#include "base/WordLists.h"

namespace tool {

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) text += (i > 0 ? separator : "") + words[i];
    return text;
}

std::string listed(const std::vector<std::string>& words, const std::string& conjunction) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0) text += i + 1 == words.size() ? " " + conjunction + " " : ", ";
        text += words[i];
    }
    return text;
}

}  // namespace tool
