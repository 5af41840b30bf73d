// The stand-in's Log: one line to standard error per object, its bytes shown as the tests'
// LogCapture expects them.
#include "Log.h"

#include <iostream>
#include <string>

#include "LogCapture.h"

namespace {

int minimumLevel = 1;

}  // namespace

Log::Log(int level, const char* source, int line) : level_(level), source_(source), line_(line) {}

Log::~Log() {
    if (level_ > minimumLevel) return;
    std::string out =
        "[" + std::to_string(level_) + "] " + source_ + ":" + std::to_string(line_) + " ";
    for (unsigned char byte : text_.str()) out += loggedByte(byte);
    std::cerr << out << "\n";
}

std::ostream& Log::Stream() { return text_; }

int Log::GetMinLogLevel() { return minimumLevel; }

void Log::SetMinLogLevel(int level) { minimumLevel = level; }
