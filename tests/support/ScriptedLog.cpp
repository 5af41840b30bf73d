#include "ScriptedLog.h"

#include <iostream>
#include <string>

#include "IpmiException.h"
#include "Log.h"

namespace {

int minimumLevel = 1;

struct Script {
    std::string source;
    int line = 0;
    int remaining = 0;
} script;

}  // namespace

namespace sim {

void throwFromLog(const char* source, int line, int occurrence) {
    script = {source, line, occurrence};
}

}  // namespace sim

Log::Log(int level, const char* source, int line) : level_(level), source_(source), line_(line) {
    if (script.remaining > 0 && script.source == source && script.line == line &&
        --script.remaining == 0) {
        throw IpmiException(0, IPMI_EXCEPTION_UNKNOWN);
    }
}

// Lines at or below the minimum level go to standard error, as the framework's log writes them.
Log::~Log() {
    if (level_ <= minimumLevel) {
        std::cerr << '[' << level_ << "] " << source_ << ':' << line_ << ' ' << text_.str() << '\n';
    }
}

std::ostream& Log::Stream() { return text_; }

int Log::GetMinLogLevel() { return minimumLevel; }

void Log::SetMinLogLevel(int level) { minimumLevel = level; }
