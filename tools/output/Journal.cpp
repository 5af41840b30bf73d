#include "output/Journal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace tool {

bool isJournalStream(const char* journalStream, int fd) {
    if (journalStream == nullptr) return false;
    char* colon = nullptr;
    const unsigned long long device = std::strtoull(journalStream, &colon, 10);
    if (colon == journalStream || *colon != ':') return false;
    char* end = nullptr;
    const unsigned long long inode = std::strtoull(colon + 1, &end, 10);
    if (end == colon + 1 || *end != '\0') return false;
    struct stat opened {};
    return fstat(fd, &opened) == 0 && opened.st_dev == device && opened.st_ino == inode;
}

bool standardOutputIsJournal() {
    return isJournalStream(std::getenv("JOURNAL_STREAM"), STDOUT_FILENO);
}

int syslogSeverity(Severity severity) {
    switch (severity) {
        case Severity::Critical:
            return 2;
        case Severity::Warning:
            return 4;
        default:
            return 6;
    }
}

std::string journalPrefix(Severity severity) {
    return "<" + std::to_string(syslogSeverity(severity)) + ">";
}

}  // namespace tool
