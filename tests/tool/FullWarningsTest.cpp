// What follow says as a SEL fills: once a percentage passed, once when events are dropped, again
// only after the SEL emptied; and the percentages as the command line gives them.
#include <gtest/gtest.h>

#include "cli/Options.h"
#include "follow/FullWarnings.h"

namespace {

using Lines = std::vector<std::string>;

// A SEL of 100 records of 16 bytes, `entries` of them taken, as the IPMI source tells it.
tool::LogHealth selOf100(unsigned long entries, bool overflow = false) {
    tool::LogHealth sel;
    sel.name = "SEL";
    sel.known = true;
    sel.entries = entries;
    sel.freeBytes = (100 - entries) * 16;
    sel.used = entries * 16;
    sel.room = 100 * 16;
    sel.overflow = overflow;
    return sel;
}

TEST(FullWarnings, EachPercentagePassedIsSaidOnceWithTheFillAsItIs) {
    tool::FullWarnings warnings({80, 90, 100});
    EXPECT_EQ(warnings.next(selOf100(79)), Lines{});
    EXPECT_EQ(warnings.next(selOf100(80)),
              Lines{"the SEL is 80% full: 80 entries, 320 bytes free"});
    EXPECT_EQ(warnings.next(selOf100(85)), Lines{});
    // Two passed at once are said in one line.
    EXPECT_EQ(warnings.next(selOf100(100)), Lines{"the SEL is full: 100 entries, no space left"});
    EXPECT_EQ(warnings.next(selOf100(100)), Lines{});
    // Records deleted and added again around a percentage say nothing more.
    EXPECT_EQ(warnings.next(selOf100(85)), Lines{});
    EXPECT_EQ(warnings.next(selOf100(95)), Lines{});
    // Below every percentage (cleared), the warnings start again.
    EXPECT_EQ(warnings.next(selOf100(0)), Lines{});
    EXPECT_EQ(warnings.next(selOf100(91)),
              Lines{"the SEL is 91% full: 91 entries, 144 bytes free"});
}

TEST(FullWarnings, DroppedEventsAreSaidOnceUntilTheFlagGoesOff) {
    tool::FullWarnings warnings({});
    EXPECT_EQ(warnings.next(selOf100(100, true)), Lines{"the BMC dropped events: its SEL is full"});
    EXPECT_EQ(warnings.next(selOf100(100, true)), Lines{});
    EXPECT_EQ(warnings.next(selOf100(0)), Lines{});
    EXPECT_EQ(warnings.next(selOf100(100, true)), Lines{"the BMC dropped events: its SEL is full"});
}

TEST(FullWarnings, ASelThatDoesNotTellSaysNothing) {
    tool::FullWarnings warnings({80});
    EXPECT_EQ(warnings.next(tool::LogHealth{}), Lines{});
}

TEST(ToolOptions, FullWarningsAndClearWhenFullTakePercentages) {
    EXPECT_EQ(tool::parseOptions({"follow"}).fullWarnings, (std::vector<unsigned>{80, 90, 100}));
    EXPECT_EQ(tool::parsePercentages("95,50,95", "--full-warnings"),
              (std::vector<unsigned>{50, 95}));
    EXPECT_TRUE(tool::parsePercentages("off", "--full-warnings").empty());
    EXPECT_EQ(tool::parseOptions({"--clear-when-full", "90", "follow"}).clearWhenFull, 90u);
    for (const char* bad : {"0", "101", "", "80,,90", "x"}) {
        EXPECT_THROW(tool::parsePercentages(bad, "--full-warnings"), tool::UsageError) << bad;
    }
    EXPECT_THROW(tool::parseOptions({"--clear-when-full", "0", "follow"}), tool::UsageError);
}

}  // namespace
