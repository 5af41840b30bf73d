// Comparing decoded events field by field, naming the event and field that differ.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "IpmiEventLog.h"

namespace sim {

inline void expectSameEvents(const std::vector<Tolmar::TolmarAgentless::IPMIEVENT>& actual,
                             const std::vector<Tolmar::TolmarAgentless::IPMIEVENT>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        EXPECT_EQ(actual[i].recordId, expected[i].recordId) << "event " << i;
        EXPECT_EQ(actual[i].timeStamp, expected[i].timeStamp) << "event " << i;
        EXPECT_EQ(actual[i].message, expected[i].message) << "event " << i;
        EXPECT_EQ(actual[i].severity, expected[i].severity) << "event " << i;
        EXPECT_EQ(actual[i].source, expected[i].source) << "event " << i;
        EXPECT_EQ(actual[i].auxLog, expected[i].auxLog) << "event " << i;
    }
}

}  // namespace sim
