// What the test build of IpmiClient tells its platform about each request it sends. Our framework's
// client counts every request and records every answer for the library's call reports
// (FrameworkRequestRecords.cpp does the same for the test client); the stand-in platform of the
// three classes alone records nothing (tests/standin).
#pragma once

#include "IpmiClient.h"

namespace sim {

void recordRequestSent(const IpmiCommandRequest& request);
// `status` is sendCommand's return: 0 when an answer with `completionCode` came.
void recordRequestAnswered(const IpmiCommandRequest& request, int status,
                           unsigned char completionCode);

}  // namespace sim
