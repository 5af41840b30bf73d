// What follow says about one host's SEL filling up: once as the fill passes each percentage given,
// and once when the BMC starts dropping events for lack of space. A SEL that falls below every
// percentage (cleared) has them said again as it fills again.
#pragma once

#include <string>
#include <vector>

#include "fleet/EventSource.h"

namespace tool {

class FullWarnings {
public:
    // `percentages`: from 1 to 100, rising.
    explicit FullWarnings(std::vector<unsigned> percentages)
        : percentages_(std::move(percentages)) {}

    // What to say after a poll that found `log`, a line each; nothing when it did not tell.
    std::vector<std::string> next(const LogHealth& log);

private:
    std::vector<unsigned> percentages_;
    std::size_t passed_ = 0;  // how many of them the fill had passed at the last poll
    bool overflow_ = false;
};

}  // namespace tool
