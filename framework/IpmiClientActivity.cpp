#include "IpmiClientActivity.h"

#include <atomic>

namespace {

std::atomic<unsigned long> requestsSent{0};
std::atomic<unsigned long> selEntriesRead{0};
thread_local IpmiCallRecord callRecord;

bool isGetSelEntry(unsigned char netFn, unsigned char command) {
    constexpr unsigned char storage = 0x0A;
    constexpr unsigned char getSelEntry = 0x43;
    return netFn == storage && command == getSelEntry;
}

}  // namespace

IpmiClientActivity ipmiClientActivity() { return {requestsSent.load(), selEntriesRead.load()}; }

void startIpmiCallRecord() { callRecord = IpmiCallRecord{}; }

IpmiCallRecord ipmiCallRecord() { return callRecord; }

IpmiCallRecord& ipmiCallRecordToUpdate() { return callRecord; }

void countIpmiRequest(unsigned char netFn, unsigned char command) {
    ++requestsSent;
    if (isGetSelEntry(netFn, command)) ++selEntriesRead;
}

void recordIpmiAnswer(unsigned char netFn, unsigned char command, bool answered,
                      unsigned char completionCode) {
    if (!answered) {
        ++callRecord.transportFailures;
    } else if (completionCode != 0x00) {
        callRecord.lastCompletionCode = completionCode;
        callRecord.lastRefusedNetFn = netFn;
        callRecord.lastRefusedCommand = command;
    } else if (isGetSelEntry(netFn, command)) {
        ++callRecord.selEntries;
    }
}
