// The test client's requests, counted and recorded as our framework's IpmiClient does.
#include "IpmiClientActivity.h"
#include "RequestRecords.h"

namespace sim {

void recordRequestSent(const IpmiCommandRequest& request) {
    countIpmiRequest(request.netFn, request.command);
}

void recordRequestAnswered(const IpmiCommandRequest& request, int status,
                           unsigned char completionCode) {
    recordIpmiAnswer(request.netFn, request.command, status == 0, completionCode);
}

}  // namespace sim
