// Files the tool reads whole (configuration files, password files): each must be a regular file
// of bounded size, so that a directory, a FIFO, a device such as /dev/zero or a huge file is
// refused with its reason instead of being read forever, blocking, or taken as empty.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <stdexcept>
#include <string>

namespace tool {

// The largest file read whole.
constexpr std::size_t kLargestReadFile = 1024 * 1024;

// A file that cannot be read whole; the text names the file and says why ("PATH: not a regular
// file", "PATH: larger than 1 MiB", "PATH: No such file or directory").
struct FileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct FileContents {
    std::string text;
    mode_t mode = 0;  // the file's permission bits, as the open file had them
};

// Reads the regular file at `path` (a symbolic link is followed), of at most `limit` bytes.
// Opening does not block (a FIFO is refused, not waited on); throws FileError.
FileContents readBoundedFile(const std::string& path, std::size_t limit = kLargestReadFile);

// The first line of `text`, without its LF or CR LF ending.
std::string firstLine(const std::string& text);

// Whether users other than the owner and group may read a file of this mode.
inline bool othersMayRead(mode_t mode) { return (mode & 0004) != 0; }

}  // namespace tool
