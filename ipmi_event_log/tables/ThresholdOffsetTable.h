// Texts of IPMI sensor units, in one key space: keys 0-7 are the rate unit field of Sensor Units 1
// (bits 5:3), keys 8-98 the unit type codes 0-90 plus 8 (IPMI v2.0 table 43-15).
#pragma once

#include <map>
#include <string>

class ThresholdOffsetTable {
public:
    static ThresholdOffsetTable table;
    static ThresholdOffsetTable* getThresholdOffsetTable();

    // The unit's text; the empty string for a key outside 0-98.
    std::string getThresholdOffset(int key) const;
    // Every key 0-98 with its text.
    const std::map<int, std::string>& units() const;

private:
    ThresholdOffsetTable();
    std::map<int, std::string> units_;
};
