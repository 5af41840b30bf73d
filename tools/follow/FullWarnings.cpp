#include "follow/FullWarnings.h"

#include <algorithm>

namespace tool {

namespace {

std::string fillText(const LogHealth& log) {
    const std::string entries = std::to_string(log.entries) + " entries";
    if (log.fullTo(100)) return "the " + log.name + " is full: " + entries + ", no space left";
    // Whole percents, down: not yet 80% is not said to be 80%.
    const auto percent = static_cast<unsigned>(log.fillRatio() * 100 + 1e-9);
    std::string text = "the " + log.name + " is " + std::to_string(percent) + "% full: " + entries;
    if (log.freeBytes) text += ", " + std::to_string(*log.freeBytes) + " bytes free";
    return text;
}

}  // namespace

std::vector<std::string> FullWarnings::next(const LogHealth& log) {
    std::vector<std::string> said;
    if (!log.known) return said;
    const auto passed = static_cast<std::size_t>(
        std::count_if(percentages_.begin(), percentages_.end(),
                      [&log](unsigned percent) { return log.fullTo(percent); }));
    if (passed > passed_) said.push_back(fillText(log));
    // Records deleted take nothing back; only a SEL below every percentage starts again.
    passed_ = passed == 0 ? 0 : std::max(passed_, passed);
    if (log.overflow && !overflow_)
        said.push_back("the BMC dropped events: its " + log.name + " is full");
    overflow_ = log.overflow;
    return said;
}

}  // namespace tool
