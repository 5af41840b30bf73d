// Standard output connected to systemd's journal: each line may then carry its priority.
#pragma once

#include <string>

#include "fleet/EventSource.h"

namespace tool {

// Whether `journalStream` (JOURNAL_STREAM's value, "DEVICE:INODE" in decimal; null when unset)
// names the file `fd` is open on, as systemd sets it for a service's output to the journal.
bool isJournalStream(const char* journalStream, int fd);

// Whether this process's standard output goes to the journal.
bool standardOutputIsJournal();

// The syslog severity of an event's: 2 (critical), 4 (warning) or 6 (informational).
int syslogSeverity(Severity severity);

// The sd-daemon(3) prefix of a line with an event's severity: "<2>" critical, "<4>" warning,
// "<6>" info, the syslog severities of follow --syslog.
std::string journalPrefix(Severity severity);

}  // namespace tool
