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

// The text as it may go to a terminal: control bytes (a BMC's data, an OS stop record's
// characters), DEL and bytes above it as \xNN, and the backslash doubled so that the escapes stay
// unambiguous. Nothing a BMC sends can move a cursor or recolour a terminal.
std::string printable(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        if (c == '\\') {
            out += "\\\\";
        } else if (c < 0x20 || c >= 0x7F) {
            static const char digits[] = "0123456789ABCDEF";
            out += "\\x";
            out += digits[c >> 4];
            out += digits[c & 0x0F];
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
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
    // Callers may stream raw bytes on purpose; they are shown escaped.
    std::string out = "[" + std::to_string(level_) + "] " + source_ + ":" + std::to_string(line_) +
                      " " + printable(text_.str()) + "\n";
    std::cerr.write(out.data(), static_cast<std::streamsize>(out.size()));
    std::cerr.flush();
}

std::ostream& Log::Stream() { return text_; }

int Log::GetMinLogLevel() { return minLevel().load(std::memory_order_relaxed); }

void Log::SetMinLogLevel(int level) { minLevel().store(level, std::memory_order_relaxed); }
