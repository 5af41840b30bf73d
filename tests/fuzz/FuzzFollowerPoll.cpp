// A follower's polls against a BMC whose every answer comes from the fuzz input: the SEL read from
// where it stopped, the SDR repository read whole and each record decoded both ways, the filters
// and the auxiliary log; then its state, which must be taken back as it was written.
#include <cstdlib>

#include "FuzzedClient.h"
#include "IpmiEventFollower.h"
#include "Log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Log::SetMinLogLevel(0);
    fuzz::Input input(data, size);
    fuzz::answerFrom(&input);
    const Tolmar::TolmarConnection::ConnectionInfo info{};
    Tolmar::IpmiEventFollower follower(info);
    std::vector<Tolmar::FollowedEvent> events;
    follower.Poll(events);
    follower.SetRendering(Tolmar::EventRendering::Described);
    follower.Poll(events);
    fuzz::answerFrom(nullptr);
    Tolmar::IpmiEventFollower restored(info);
    std::string error;
    if (!restored.LoadStateText(follower.StateText(), error) ||
        restored.StateText() != follower.StateText()) {
        std::abort();
    }
    return 0;
}
