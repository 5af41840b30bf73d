// Relating SEL records to PEF filters and to sensor data records.
#include <gtest/gtest.h>

#include "IpmiEventOperations.h"

namespace {

using Tolmar::IpmiEventOperations;

// A threshold event: upper non-critical going high (offset 7) on temperature sensor 0x30 of the
// BMC. (No filter can match offsets above 7.)
RawSelEntry temperatureEvent() {
    RawSelEntry sel{};
    sel.recordType = 0x02;
    sel.generatorId[0] = 0x20;
    sel.evMRev = 0x04;
    sel.sensorType = 0x01;
    sel.sensorNum = 0x30;
    sel.eventDirType = 0x01;
    sel.eventData1 = 0x57;
    sel.eventData2 = 0x5A;
    sel.eventData3 = 0x50;
    return sel;
}

// A filter that matches everything: every field 0xFF, every offset, event data don't-care.
RawPETEntry anyEvent(unsigned char policy = 0x11) {
    RawPETEntry pet{};
    pet.filterConfiguration = 0x80;
    pet.eventFilterAction = 0x01;
    pet.alertPolicyNumber = policy;
    pet.generatorId[0] = pet.generatorId[1] = 0xFF;
    pet.sensorType = pet.sensorNumber = pet.eventTrigger = 0xFF;
    pet.eventData1OffsetMask[0] = pet.eventData1OffsetMask[1] = 0xFF;
    return pet;
}

RawSDR sdrForSensor(unsigned char number) {
    RawSDR sdr;
    sdr.bytes[3] = 0x01;
    sdr.bytes[7] = number;
    return sdr;
}

bool eventDataMatch(unsigned char data, unsigned char andMask, unsigned char compare1,
                    unsigned char compare2) {
    return IpmiEventOperations::matchSelPETEntryEventDataMasks(data, andMask, compare1, compare2);
}

// --- filter fields ---

TEST(SelMatching, WildcardFilterMatches) {
    EXPECT_TRUE(IpmiEventOperations::matchSelPETEntry(temperatureEvent(), anyEvent()));
}

TEST(SelMatching, EachFieldMatchesWhenEqualOrFF) {
    using Field = unsigned char RawPETEntry::*;
    const RawSelEntry sel = temperatureEvent();
    const std::pair<Field, unsigned char> fields[] = {{&RawPETEntry::sensorType, 0x01},
                                                      {&RawPETEntry::sensorNumber, 0x30},
                                                      {&RawPETEntry::eventTrigger, 0x01}};
    for (const auto& [field, value] : fields) {
        RawPETEntry pet = anyEvent();
        pet.*field = value;
        EXPECT_TRUE(IpmiEventOperations::matchSelPETEntry(sel, pet));
        pet.*field = static_cast<unsigned char>(value + 1);
        EXPECT_FALSE(IpmiEventOperations::matchSelPETEntry(sel, pet));
    }
    RawPETEntry pet = anyEvent();
    pet.generatorId[0] = 0x20;
    pet.generatorId[1] = 0x00;
    EXPECT_TRUE(IpmiEventOperations::matchSelPETEntry(sel, pet));
    pet.generatorId[0] = 0x22;
    EXPECT_FALSE(IpmiEventOperations::matchSelPETEntry(sel, pet));
    pet.generatorId[0] = 0xFF;
    pet.generatorId[1] = 0x01;
    EXPECT_FALSE(IpmiEventOperations::matchSelPETEntry(sel, pet));
}

TEST(SelMatching, DeassertionMatchesOnlyATriggerWithTheDirectionBitOrFF) {
    RawSelEntry sel = temperatureEvent();
    sel.eventDirType = 0x81;
    RawPETEntry pet = anyEvent();
    pet.eventTrigger = 0x01;
    EXPECT_FALSE(IpmiEventOperations::matchSelPETEntry(sel, pet));
    pet.eventTrigger = 0x81;
    EXPECT_TRUE(IpmiEventOperations::matchSelPETEntry(sel, pet));
    pet.eventTrigger = 0xFF;
    EXPECT_TRUE(IpmiEventOperations::matchSelPETEntry(sel, pet));
}

// --- offset mask ---

TEST(SelMatching, OffsetMaskTestsBothBytesAtOffsetsZeroToSevenAndNeverMatchesAbove) {
    for (unsigned offset = 0; offset <= 15; ++offset) {
        for (unsigned bit = 0; bit <= 15; ++bit) {
            RawSelEntry sel = temperatureEvent();
            sel.eventData1 = static_cast<unsigned char>(0x50 | offset);
            RawPETEntry pet = anyEvent();
            pet.eventData1OffsetMask[0] = bit < 8 ? static_cast<unsigned char>(1u << bit) : 0;
            pet.eventData1OffsetMask[1] =
                bit >= 8 ? static_cast<unsigned char>(1u << (bit - 8)) : 0;
            const bool expected = offset <= 7 && (bit == offset || bit - 8 == offset);
            EXPECT_EQ(IpmiEventOperations::matchSelPETEntryOffsetMask(sel, pet), expected)
                << "offset " << offset << ", mask bit " << bit;
        }
    }
}

TEST(SelMatching, OffsetTenNeverMatchesWhateverTheMask) {
    RawSelEntry sel = temperatureEvent();
    sel.eventData1 = 0x0A;
    RawPETEntry pet = anyEvent();  // mask 0xFFFF
    EXPECT_FALSE(IpmiEventOperations::matchSelPETEntryOffsetMask(sel, pet));
    EXPECT_FALSE(IpmiEventOperations::matchSelPETEntry(sel, pet));
}

TEST(SelMatching, OffsetThreeMatchesBitThreeOfTheHighMaskByte) {
    RawSelEntry sel = temperatureEvent();
    sel.eventData1 = 0x03;
    RawPETEntry pet = anyEvent();
    pet.eventData1OffsetMask[0] = 0x00;
    pet.eventData1OffsetMask[1] = 0x08;
    EXPECT_TRUE(IpmiEventOperations::matchSelPETEntryOffsetMask(sel, pet));
}

// --- event data masks ---

TEST(SelMatching, DontCareMatchesEveryValue) {
    for (int data = 0; data <= 0xFF; ++data) {
        EXPECT_TRUE(eventDataMatch(static_cast<unsigned char>(data), 0x00, 0x00, 0x00)) << data;
    }
}

TEST(SelMatching, CompareOneFFIsAnExactMatchOfTheMaskedBits) {
    EXPECT_TRUE(eventDataMatch(0x5A, 0xFF, 0xFF, 0x5A));
    EXPECT_FALSE(eventDataMatch(0x5B, 0xFF, 0xFF, 0x5A));
    EXPECT_TRUE(eventDataMatch(0x5A, 0xF0, 0xFF, 0x50));  // the AND mask applies first
}

TEST(SelMatching, CompareOneZeroLooksOnlyAtBitZero) {
    // compare 2 zero: matches when bit 0 of the masked data is clear.
    EXPECT_TRUE(eventDataMatch(0xFE, 0xFF, 0x00, 0x00));
    EXPECT_FALSE(eventDataMatch(0x01, 0xFF, 0x00, 0x00));
    // compare 2 with bit 0 set: matches when bit 0 is set, whatever the other bits.
    EXPECT_TRUE(eventDataMatch(0x01, 0xFF, 0x00, 0x01));
    EXPECT_TRUE(eventDataMatch(0xF1, 0xFF, 0x00, 0x81));
    EXPECT_FALSE(eventDataMatch(0xF0, 0xFF, 0x00, 0x01));
    // compare 2 non-zero with bit 0 clear never matches.
    EXPECT_FALSE(eventDataMatch(0x01, 0xFF, 0x00, 0x02));
    EXPECT_FALSE(eventDataMatch(0x02, 0xFF, 0x00, 0x02));
}

TEST(SelMatching, PartialCompareOneWithNonZeroCompareTwoNeverMatches) {
    // The IPMI standard would match 0x0F against compare 1 = 0x0F, compare 2 = 0x0F: the selected
    // bits are equal. This rule does not.
    EXPECT_FALSE(eventDataMatch(0x0F, 0xFF, 0x0F, 0x0F));
    EXPECT_FALSE(eventDataMatch(0x3F, 0xFF, 0x0F, 0x0F));
    for (int data = 0; data <= 0xFF; ++data) {
        EXPECT_FALSE(eventDataMatch(static_cast<unsigned char>(data), 0xFF, 0x81, 0x01)) << data;
    }
}

TEST(SelMatching, PartialCompareOneWithZeroCompareTwoMatchesWhenTheSelectedBitsAreClear) {
    EXPECT_TRUE(eventDataMatch(0xF0, 0xFF, 0x0F, 0x00));
    EXPECT_FALSE(eventDataMatch(0xF1, 0xFF, 0x0F, 0x00));
}

TEST(SelMatching, AllThreeEventDataBytesMustMatch) {
    RawPETEntry pet = anyEvent();
    pet.eventData2AndMask = 0xFF;
    pet.eventData2Compare1 = 0xFF;
    pet.eventData2Compare2 = 0x5A;  // the event's trigger reading
    EXPECT_TRUE(IpmiEventOperations::matchSelPETEntryOtherMasks(temperatureEvent(), pet));
    pet.eventData3AndMask = 0xFF;
    pet.eventData3Compare1 = 0xFF;
    pet.eventData3Compare2 = 0x51;
    EXPECT_FALSE(IpmiEventOperations::matchSelPETEntryOtherMasks(temperatureEvent(), pet));
    EXPECT_FALSE(IpmiEventOperations::matchSelPETEntry(temperatureEvent(), pet));
}

// --- choosing the filter ---

TEST(SelMatching, LowestAlertPolicyByteWinsAndTheFirstOnATie) {
    const RawSelEntry sel = temperatureEvent();
    EXPECT_EQ(
        IpmiEventOperations::getPETEntryNumberForSelEntry(sel, {anyEvent(0x12), anyEvent(0x11)}),
        1);
    EXPECT_EQ(
        IpmiEventOperations::getPETEntryNumberForSelEntry(sel, {anyEvent(0x11), anyEvent(0x11)}),
        0);
}

TEST(SelMatching, NonMatchingFiltersAreSkipped) {
    RawPETEntry other = anyEvent(0x01);
    other.sensorNumber = 0x99;
    EXPECT_EQ(IpmiEventOperations::getPETEntryNumberForSelEntry(temperatureEvent(),
                                                                {other, anyEvent(0x40)}),
              1);
}

TEST(SelMatching, NoFilterOrNoMatchIsMinusOne) {
    EXPECT_EQ(IpmiEventOperations::getPETEntryNumberForSelEntry(temperatureEvent(), {}), -1);
    RawPETEntry other = anyEvent();
    other.sensorType = 0x02;
    EXPECT_EQ(IpmiEventOperations::getPETEntryNumberForSelEntry(temperatureEvent(), {other}), -1);
}

TEST(SelMatching, FilterMapIsKeyedBySelPositionAndOverwritesWithoutClearing) {
    RawSelEntry voltage = temperatureEvent();
    voltage.sensorType = 0x02;
    RawPETEntry temperatureOnly = anyEvent();
    temperatureOnly.sensorType = 0x01;
    std::map<int, int> map = {{1, 7}, {9, 9}};
    IpmiEventOperations::getSelPETEntryNumberMap({temperatureEvent(), voltage},
                                                 {anyEvent(0x30), temperatureOnly}, map);
    EXPECT_EQ(map, (std::map<int, int>{{0, 1}, {1, 0}, {9, 9}}));
    map.clear();
    IpmiEventOperations::getSelPETEntryNumberMap({voltage}, {temperatureOnly}, map);
    EXPECT_EQ(map, (std::map<int, int>{{0, -1}}));
}

// --- SDR map ---

TEST(SelMatching, SdrMapFindsTheFirstSdrWithTheSensorNumber) {
    RawSelEntry other = temperatureEvent();
    other.sensorNum = 0x77;
    std::map<int, int> map = {{5, 5}};
    IpmiEventOperations::getSelSDRNumberMap(
        {temperatureEvent(), other}, {sdrForSensor(0x40), sdrForSensor(0x30), sdrForSensor(0x30)},
        map);
    EXPECT_EQ(map, (std::map<int, int>{{0, 1}, {1, -1}, {5, 5}}));
}

TEST(SelMatching, SdrMapComparesOnlyTheSensorNumber) {
    RawSDR otherOwner = sdrForSensor(0x30);
    otherOwner.bytes[5] = 0x2C;  // sensor owner: another controller
    otherOwner.bytes[6] = 0x03;  // another LUN
    std::map<int, int> map;
    IpmiEventOperations::getSelSDRNumberMap({temperatureEvent()}, {otherOwner, sdrForSensor(0x30)},
                                            map);
    EXPECT_EQ(map.at(0), 0);
}

TEST(SelMatching, EmptySelGivesAnEmptyMap) {
    std::map<int, int> map;
    IpmiEventOperations::getSelSDRNumberMap({}, {sdrForSensor(0x30)}, map);
    IpmiEventOperations::getSelPETEntryNumberMap({}, {anyEvent()}, map);
    EXPECT_TRUE(map.empty());
}

}  // namespace
