// A directory of a test's own under $TMPDIR (or /tmp), removed with everything in it when the
// object goes: tests that run at once, or as different users on one machine, never share a name.
#pragma once

#include <string>

namespace bmcsim {

class ScratchDirectory {
public:
    // Throws std::runtime_error when the directory cannot be made.
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const { return path_; }
    // The path of `name` inside the directory.
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    // Writes the file `name` (throws std::runtime_error when it cannot), or reads it whole (""
    // when it is not there).
    void write(const std::string& name, const std::string& text) const;
    std::string read(const std::string& name) const;

private:
    std::string path_;
};

}  // namespace bmcsim
