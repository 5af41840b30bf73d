// Captures what the framework's Log writes to standard error for the lifetime of the object.
#pragma once

#include <iostream>
#include <sstream>
#include <string>

// How the framework's Log shows one byte of a line: printable ASCII as it is, anything else as
// \xNN.
inline std::string loggedByte(unsigned char byte) {
    if (byte >= 0x20 && byte < 0x7F && byte != '\\') return std::string(1, static_cast<char>(byte));
    static const char digits[] = "0123456789ABCDEF";
    return std::string("\\x") + digits[byte >> 4] + digits[byte & 0x0F];
}

class LogCapture {
public:
    LogCapture() : saved_(std::cerr.rdbuf(text_.rdbuf())) {}
    ~LogCapture() { std::cerr.rdbuf(saved_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* saved_;
};
