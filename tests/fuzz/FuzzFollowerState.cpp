// FollowerState::fromText over arbitrary text, as a follower's state file or a program's store may
// hold it after damage. A text it takes is written again as it was read: its own text reads back to
// the same state.
#include <string>

#include "FollowerState.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Tolmar::FollowerState state;
    std::string error;
    if (!Tolmar::FollowerState::fromText(text, state, error)) return 0;
    Tolmar::FollowerState again;
    if (!Tolmar::FollowerState::fromText(state.text(), again, error) ||
        again.text() != state.text()) {
        __builtin_trap();
    }
    return 0;
}
