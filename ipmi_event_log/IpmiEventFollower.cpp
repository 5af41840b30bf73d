#include "IpmiEventFollower.h"

#include "IpmiEventFollowerImp.h"

namespace Tolmar {

IpmiEventFollower::IpmiEventFollower(const TolmarConnection::ConnectionInfo& info,
                                     const ConnectionSettings& settings)
    : imp_(std::make_unique<IpmiEventFollowerImp>(info, settings)) {}

IpmiEventFollower::~IpmiEventFollower() = default;

IpmiEventFollower::IpmiEventFollower(IpmiEventFollower&& other) noexcept = default;

IpmiEventFollower& IpmiEventFollower::operator=(IpmiEventFollower&& other) noexcept = default;

PollResult IpmiEventFollower::Poll(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    return imp_->Poll(&events);
}

PollResult IpmiEventFollower::SkipToEnd() { return imp_->Poll(nullptr); }

bool IpmiEventFollower::SaveState(const std::string& path, std::string& error) const {
    return imp_->saveState(path, error);
}

bool IpmiEventFollower::LoadState(const std::string& path, std::string& error) {
    return imp_->loadState(path, error);
}

std::string IpmiEventFollower::StateText() const { return imp_->stateText(); }

bool IpmiEventFollower::LoadStateText(const std::string& text, std::string& error) {
    return imp_->loadStateText(text, error);
}

}  // namespace Tolmar
