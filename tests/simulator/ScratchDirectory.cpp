#include "ScratchDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace bmcsim {

ScratchDirectory::ScratchDirectory() {
    const char* base = std::getenv("TMPDIR");
    const std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/tolmar-test-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot create a directory like " + pattern + ": " +
                                 std::strerror(errno));
    }
    path_ = name.data();
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void ScratchDirectory::write(const std::string& name, const std::string& text) const {
    std::ofstream out(file(name), std::ios::binary);
    out << text;
    if (!out) throw std::runtime_error("cannot write " + file(name));
}

std::string ScratchDirectory::read(const std::string& name) const {
    std::ifstream in(file(name), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace bmcsim
