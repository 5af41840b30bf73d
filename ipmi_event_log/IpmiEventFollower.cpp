#include "IpmiEventFollower.h"

#include "IpmiEventFollowerImp.h"

namespace Tolmar {

IpmiEventFollower::IpmiEventFollower(const TolmarConnection::ConnectionInfo& info)
    : imp_(new IpmiEventFollowerImp(info)) {}

IpmiEventFollower::~IpmiEventFollower() { delete imp_; }

int IpmiEventFollower::Poll(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    return imp_->Poll(events);
}

bool IpmiEventFollower::Restarted() const { return imp_->restarted(); }

bool IpmiEventFollower::Complete() const { return imp_->complete(); }

bool IpmiEventFollower::SaveState(const std::string& path, std::string& error) const {
    return imp_->saveState(path, error);
}

bool IpmiEventFollower::LoadState(const std::string& path, std::string& error) {
    return imp_->loadState(path, error);
}

}  // namespace Tolmar
