#include "IpmiEventFollower.h"

#include "IpmiEventFollowerImp.h"

namespace Tolmar {

namespace {

constexpr unsigned long kSelRecordBytes = 16;

}  // namespace

double SelHealth::FillRatio() const {
    const double used = entries * kSelRecordBytes;
    return used == 0 ? 0 : used / (used + freeBytes);
}

bool SelHealth::FullTo(unsigned percent) const {
    const unsigned long used = entries * kSelRecordBytes;
    const unsigned long room = used + freeBytes;
    return known && room != 0 && used * 100 >= percent * room;
}

IpmiEventFollower::IpmiEventFollower(const TolmarConnection::ConnectionInfo& info,
                                     const ConnectionSettings& settings)
    : imp_(std::make_unique<IpmiEventFollowerImp>(info, settings)) {}

IpmiEventFollower::~IpmiEventFollower() = default;

IpmiEventFollower::IpmiEventFollower(IpmiEventFollower&& other) noexcept = default;

IpmiEventFollower& IpmiEventFollower::operator=(IpmiEventFollower&& other) noexcept = default;

PollResult IpmiEventFollower::Poll(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    IpmiEventFollowerImp::Outputs outputs;
    outputs.events = &events;
    return imp_->Poll(outputs);
}

PollResult IpmiEventFollower::Poll(std::vector<FollowedEvent>& events) {
    IpmiEventFollowerImp::Outputs outputs;
    outputs.followed = &events;
    return imp_->Poll(outputs);
}

PollResult IpmiEventFollower::SkipToEnd() { return imp_->Poll({}); }

PollResult IpmiEventFollower::PollRaw(std::vector<IPMISELENTRY>& entries) {
    IpmiEventFollowerImp::Outputs outputs;
    outputs.entries = &entries;
    return imp_->Poll(outputs);
}

bool IpmiEventFollower::ReadToEnd() const { return imp_->readToEnd(); }

void IpmiEventFollower::ClearWhenFull(unsigned percent) { imp_->clearWhenFull(percent); }

void IpmiEventFollower::SetSettings(const ConnectionSettings& settings) {
    imp_->setSettings(settings);
}

void IpmiEventFollower::SetRendering(EventRendering rendering) { imp_->setRendering(rendering); }

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
