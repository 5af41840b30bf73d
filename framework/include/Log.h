// The framework's log: one Log object is one line. Text streamed into Stream() is written to
// standard error when the object is destroyed, if the object's level is at or below the minimum
// level (1 failures ... 4 traces; 0 writes nothing). The minimum level comes from the environment
// variable TOLMAR_LOG_LEVEL (default 1) until SetMinLogLevel sets it.
#pragma once

#include <ostream>
#include <sstream>

class Log {
public:
    Log(int level, const char* source, int line);
    ~Log();  // emits the streamed text as one line
    std::ostream& Stream();
    static int GetMinLogLevel();
    static void SetMinLogLevel(int level);

private:
    int level_;
    const char* source_;
    int line_;
    std::ostringstream text_;
};
