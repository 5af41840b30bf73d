// What the IpmiClients of this process have done so far, for progress displays: requests sent
// and, of them, SEL entries read (Get SEL Entry). Counted across all clients and threads.
#pragma once

#include <string>
#include <vector>

struct IpmiClientActivity {
    unsigned long requests;
    unsigned long selEntries;
};

IpmiClientActivity ipmiClientActivity();

// What a client learnt of its BMC in opening its last session, for a bug report.
struct IpmiSessionFacts {
    // "2.0" or "1.5", as Get Channel Authentication Capabilities reported it; empty when this
    // session did not ask (the process learnt it before) and nothing is remembered.
    std::string ipmiVersion;
    // The cipher suite IDs Get Channel Cipher Suites listed, in its order, as this process learnt
    // them; empty when not asked (a cipher suite was given) or not answered.
    std::vector<unsigned char> offeredCipherSuites;
    int cipherSuite = -1;              // the suite the session opened with; -1: none opened
    unsigned char privilegeLevel = 0;  // the level it holds: 2 user, 3 operator, 4 administrator
    // Each departure from IPMI v2.0 the client met and how it coped: the workaround's name as
    // the settings give it ("authcap"), or what it recognised on its own.
    std::vector<std::string> workarounds;
};

// What the IpmiClients used on the calling thread met since startIpmiCallRecord() on it. A call of
// the event log library runs its clients on its caller's thread, so this is that call's record:
// whether it lost its BMC part way, and the last refusal the BMC answered with.
struct IpmiCallRecord {
    unsigned long selEntries = 0;          // Get SEL Entry requests answered with success
    unsigned long transportFailures = 0;   // requests that got no answer, or no session to go in
    unsigned char lastCompletionCode = 0;  // the last completion code other than 00h, or 00h
    unsigned char lastRefusedNetFn = 0;    // and the request it answered
    unsigned char lastRefusedCommand = 0;
    std::string connectFailure;  // why the last connect failed and what to check, or empty
    std::string warning;         // what to know about the last session opened, or empty
    IpmiSessionFacts session;    // of the last session opened
};

void startIpmiCallRecord();
IpmiCallRecord ipmiCallRecord();

// For IpmiClient implementations: the calling thread's record, to write to; a request about to be
// sent, counted; and how it went, recorded (`answered` false: no answer, or no session to go in).
IpmiCallRecord& ipmiCallRecordToUpdate();
void countIpmiRequest(unsigned char netFn, unsigned char command);
void recordIpmiAnswer(unsigned char netFn, unsigned char command, bool answered,
                      unsigned char completionCode);
