// What the IpmiClients of this process have done so far, for progress displays: requests sent
// and, of them, SEL entries read (Get SEL Entry). Counted across all clients and threads.
#pragma once

struct IpmiClientActivity {
    unsigned long requests;
    unsigned long selEntries;
};

IpmiClientActivity ipmiClientActivity();
