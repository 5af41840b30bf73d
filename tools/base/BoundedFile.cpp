#include "base/BoundedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/Printable.h"

namespace tool {

namespace {

// Closes the descriptor when reading ends, however it ends.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

std::string sizeName(std::size_t limit) {
    if (limit % (1024 * 1024) == 0) return std::to_string(limit / (1024 * 1024)) + " MiB";
    if (limit % 1024 == 0) return std::to_string(limit / 1024) + " KiB";
    return std::to_string(limit) + " bytes";
}

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw FileError(printable(path) + ": " + why);
}

}  // namespace

FileContents readBoundedFile(const std::string& path, std::size_t limit) {
    if (path.empty()) throw FileError("the file name is empty");
    // O_NONBLOCK: opening a FIFO without a writer would wait for one.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (file.get() < 0) fail(path, std::strerror(errno));
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) fail(path, std::strerror(errno));
    if (!S_ISREG(status.st_mode)) fail(path, "not a regular file");
    if (status.st_size < 0 || static_cast<unsigned long long>(status.st_size) > limit)
        fail(path, "larger than " + sizeName(limit));
    // Reads of a regular file never wait, but the flag is of no use any more.
    ::fcntl(file.get(), F_SETFL, ::fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
    FileContents contents;
    contents.mode = status.st_mode & 07777;
    // One byte more than the limit tells a file that grew since fstat.
    contents.text.resize(limit + 1);
    std::size_t size = 0;
    while (size < contents.text.size()) {
        const ssize_t got = ::read(file.get(), &contents.text[size], contents.text.size() - size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail(path, std::strerror(errno));
        if (got == 0) break;
        size += static_cast<std::size_t>(got);
    }
    if (size > limit) fail(path, "larger than " + sizeName(limit));
    contents.text.resize(size);
    return contents;
}

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    // A file written on Windows ends its lines with CR LF.
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

}  // namespace tool
