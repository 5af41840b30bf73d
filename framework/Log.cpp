#include "Log.h"

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <string>

namespace {

constexpr int kDefaultMinLevel = 1;

int levelFromEnvironment() {
    const char* text = std::getenv("TOLMAR_LOG_LEVEL");
    if (text == nullptr || *text == '\0') return kDefaultMinLevel;
    char* end = nullptr;
    const long level = std::strtol(text, &end, 10);
    if (*end != '\0' || level < 0 || level > 9) return kDefaultMinLevel;
    return static_cast<int>(level);
}

std::atomic<int>& minLevel() {
    static std::atomic<int> level{levelFromEnvironment()};
    return level;
}

}  // namespace

Log::Log(int level, const char* source, int line) : level_(level), source_(source), line_(line) {}

Log::~Log() {
    if (level_ > GetMinLogLevel()) return;
    // Formatted first and written with one call, so lines from several threads do not interleave.
    // The text goes out byte for byte: callers may log raw bytes on purpose.
    std::string out = "[" + std::to_string(level_) + "] " + source_ + ":" + std::to_string(line_) +
                      " " + text_.str() + "\n";
    std::cerr.write(out.data(), static_cast<std::streamsize>(out.size()));
    std::cerr.flush();
}

std::ostream& Log::Stream() { return text_; }

int Log::GetMinLogLevel() { return minLevel().load(std::memory_order_relaxed); }

void Log::SetMinLogLevel(int level) { minLevel().store(level, std::memory_order_relaxed); }
