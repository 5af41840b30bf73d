#include "CommandExchange.h"

#include <utility>

#include "IpmiEventLog.h"
#include "IpmiException.h"

namespace Tolmar {

bool CommandResponse::succeeded(std::size_t minLength) const {
    return status == 0 && completionCode == kCompletionOk && data.size() >= minLength;
}

bool CommandResponse::truncated(std::size_t minLength) const {
    return status == 0 && completionCode == kCompletionOk && data.size() < minLength;
}

int CommandResponse::resultCode() const {
    if (status != 0) return IpmiEventLog::EL_INTERNAL_FAIL;
    switch (completionCode) {
        case kCompletionOk:
            return IpmiEventLog::EL_SUCCESS;
        case kCompletionCommandSpecific80:
            return IpmiEventLog::EL_NOT_SUPPORTED;
        case kCompletionCommandSpecific81:
            return IpmiEventLog::EL_BUSY;
        default:
            return IpmiEventLog::EL_INTERNAL_FAIL;
    }
}

void CommandResponse::raise() const {
    throw IpmiException(completionCode, IPMI_EXCEPTION_COMMAND_FAILED);
}

CommandResponse exchange(IpmiClient& client, unsigned char netFn, unsigned char command,
                         std::vector<unsigned char> data) {
    const IpmiCommandRequest request{command, std::move(data), netFn};
    CommandResponse response;
    response.status = client.sendCommand(request, response.data, response.completionCode);
    return response;
}

bool reserve(IpmiClient& client, unsigned char command, unsigned char& low, unsigned char& high) {
    constexpr std::size_t reservationIdLength = 2;
    try {
        const CommandResponse response = exchange(client, kNetFnStorage, command, {});
        if (!response.succeeded(reservationIdLength)) response.raise();
        low = response.data[0];
        high = response.data[1];
        return true;
    } catch (const IpmiException&) {
        return false;
    }
}

}  // namespace Tolmar
