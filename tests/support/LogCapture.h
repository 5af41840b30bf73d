// Captures what the framework's Log writes to standard error for the lifetime of the object.
#pragma once

#include <iostream>
#include <sstream>
#include <string>

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
