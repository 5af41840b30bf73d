// The IPMI name of a completion code, for messages a person reads.
#pragma once

// "invalid command" for C1h, and so on through the generic codes of IPMI v2.0 table 5-2;
// "command-specific" for 80h to BEh, whose meaning depends on the command; "unknown" otherwise.
const char* ipmiCompletionCodeName(unsigned char code);
