#include "follow/FullWarnings.h"

#include <algorithm>

namespace tool {

namespace {

std::string fillText(const Tolmar::SelHealth& sel) {
    const std::string entries = std::to_string(sel.entries) + " entries";
    if (sel.FullTo(100)) return "the SEL is full: " + entries + ", no space left";
    // Whole percents, down: not yet 80% is not said to be 80%.
    const auto percent = static_cast<unsigned>(sel.FillRatio() * 100 + 1e-9);
    return "the SEL is " + std::to_string(percent) + "% full: " + entries + ", " +
           std::to_string(sel.freeBytes) + " bytes free";
}

}  // namespace

std::vector<std::string> FullWarnings::next(const Tolmar::SelHealth& sel) {
    std::vector<std::string> said;
    if (!sel.known) return said;
    const auto passed = static_cast<std::size_t>(
        std::count_if(percentages_.begin(), percentages_.end(),
                      [&sel](unsigned percent) { return sel.FullTo(percent); }));
    if (passed > passed_) said.push_back(fillText(sel));
    // Records deleted take nothing back; only a SEL below every percentage starts again.
    passed_ = passed == 0 ? 0 : std::max(passed_, passed);
    if (sel.overflow && !overflow_) said.push_back("the BMC dropped events: its SEL is full");
    overflow_ = sel.overflow;
    return said;
}

}  // namespace tool
