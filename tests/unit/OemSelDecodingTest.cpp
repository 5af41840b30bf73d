// SelDecoder with the BMC's manufacturer known: OEM codes of system events in the layouts of Dell,
// Intel and Supermicro, and OEM records. Values are worked out by hand from the layouts as
// ipmitool's and FreeIPMI's OEM decoders read them (each test names the file); real records come
// from tests/data/realdata (see each folder's PROVENANCE.txt).
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "IpmiSelDecoding.h"

namespace Tolmar {
namespace {

using Record = std::array<std::uint8_t, 16>;
using Words = std::vector<std::string>;

constexpr BmcIdentity kDell{674, 0x0100};
constexpr BmcIdentity kIntelS2600wt{343, 112};
constexpr BmcIdentity kSupermicro{10876, 0x0937};

// A system event (02h) at 60000000h from `generator` (channel 0, LUN 0).
Record systemEvent(std::uint8_t generator, std::uint8_t sensorType, std::uint8_t sensorNumber,
                   std::uint8_t eventType, std::uint8_t data1, std::uint8_t data2,
                   std::uint8_t data3) {
    return {0x20,       0x00,         0x02,      0x00,  0x00,  0x00, 0x60, generator, 0x00,
            0x04,  // event message format revision
            sensorType, sensorNumber, eventType, data1, data2, data3};
}

Words detailsFrom(const BmcIdentity& bmc, const Record& record) {
    return SelDecoder({}, bmc).decode(record).details;
}

Record recordFromHex(const std::string& hex) {
    Record record{};
    for (std::size_t i = 0; i < record.size() && 2 * i + 1 < hex.size(); ++i) {
        record[i] = static_cast<std::uint8_t>(std::stoul(hex.substr(2 * i, 2), nullptr, 16));
    }
    return record;
}

// Event data 1 A0h-AFh: bits 7:6 and 5:4 10b, OEM codes in bytes 2 and 3 (IPMI v2.0 table
// 29-6), bits 3:0 the offset.

// ipmitool lib/ipmi_sel_delloem.c: processor events, byte 2 one bit per CPU (04h: CPU 3), byte 3
// its APIC ID; offset 06h of sensor 0Ah names a front side bus instead.
TEST(OemSelDecodingTest, DellNamesTheCpuAndItsApicId) {
    const Record ierr = systemEvent(0x20, 0x07, 0x60, 0x6F, 0xA0, 0x04, 0x01);
    EXPECT_EQ(detailsFrom(kDell, ierr), (Words{"CPU 3", "APIC ID = 1"}));
    EXPECT_EQ(SelDecoder({}).decode(ierr).details,
              (Words{"Event Data 2 OEM code = 04h", "Event Data 3 OEM code = 01h"}));
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0x07, 0x0A, 0x6F, 0x86, 0x02, 0xFF)),
              Words{"Front side bus 2"});
}

// ipmitool lib/ipmi_sel_delloem.c, an IPMI v2.0 BMC: memory byte 2 bits 7:4 the card (2h: C),
// 3:0 the bank (1h: DIMMs from 9), byte 3 one bit per DIMM (05h: the bank's first and third).
// Cards 8h-Eh number DIMMs per node (9h: 6 a node), so bank Fh's bit 7 is the 8th DIMM: node B,
// DIMM 2. Event logging disabled events carry the same.
TEST(OemSelDecodingTest, DellNamesTheMemoryCardAndDimms) {
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0x0C, 0x01, 0x6F, 0xA0, 0x21, 0x05)),
              (Words{"Card C", "DIMMs 9, 11"}));
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0x0C, 0x01, 0x6F, 0xA1, 0x9F, 0x80)),
              Words{"DIMM B2"});
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0x10, 0x01, 0x6F, 0xA0, 0xF0, 0x02)),
              Words{"DIMM 2"});
}

// ipmitool lib/ipmi_sel_delloem.c: critical interrupts and Dell's PCIe error types C2h/C3h, byte
// 3 bit 7 a slot (bits 6:0), else the bus with byte 2 the device (bits 7:3) and function (2:0);
// offset 02h (I/O channel check NMI) names none.
TEST(OemSelDecodingTest, DellNamesThePciFunctionOrSlot) {
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0x13, 0x01, 0x6F, 0xA4, 0x1A, 0x05)),
              Words{"PCI bus 05h, device 03h, function 2"});
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0x13, 0x01, 0x6F, 0xA5, 0x1A, 0x83)),
              (Words{"Event Data 2 OEM code = 1Ah", "Slot 3"}));
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0xC2, 0x01, 0x6F, 0xA0, 0x00, 0x3B)),
              Words{"PCI bus 3Bh, device 00h, function 0"});
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0x13, 0x01, 0x6F, 0xA2, 0x1A, 0x05)),
              (Words{"Event Data 2 OEM code = 1Ah", "Event Data 3 OEM code = 05h"}));
}

// ipmitool lib/ipmi_sel_delloem.c: firmware progress offset 0Fh, Dell's POST fatal error, byte 2
// the code (80h: no memory detected).
TEST(OemSelDecodingTest, DellNamesPostFatalErrors) {
    const DecodedSelRecord decoded =
        SelDecoder({}, kDell).decode(systemEvent(0x01, 0x0F, 0x01, 0x6F, 0x8F, 0x80, 0xFF));
    EXPECT_EQ(decoded.event, "Reserved offset 0Fh");  // not IPMI's
    EXPECT_EQ(decoded.details, Words{"POST fatal error = no memory detected"});
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x01, 0x0F, 0x01, 0x6F, 0x8F, 0x99, 0xFF)),
              Words{"POST fatal error code = 99h"});
}

// ipmitool lib/ipmi_sel_delloem.c: version change offset 02h with byte 2 02h, byte 3 what the
// BMC's firmware does not match (01h: the CPU); TXT errors on type 20h offset 00h, byte 3 the
// part (03h: BIOS ACM); link tuning (C1h) of sensor 25h, offset 01h with the PCI function.
TEST(OemSelDecodingTest, DellNamesIncompatibilitiesTxtAndLinkTuningErrors) {
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x20, 0x2B, 0x01, 0x6F, 0xA2, 0x02, 0x01)),
              Words{"Incompatibility between BMC/iDRAC firmware and CPU"});
    EXPECT_EQ(detailsFrom(kDell, systemEvent(0x01, 0x20, 0x01, 0x6F, 0xA0, 0x00, 0x03)),
              (Words{"Event Data 2 OEM code = 00h", "TXT error in BIOS ACM"}));
    EXPECT_EQ(
        detailsFrom(kDell, systemEvent(0x20, 0xC1, 0x25, 0x6F, 0xA1, 0x08, 0x04)),
        (Words{"Failed to program virtual MAC address", "PCI bus 04h, device 01h, function 0"}));
}

// FreeIPMI libfreeipmi/sel/ipmi-sel-string-intel-xeon-common.c: memory ECC errors the BIOS's SMI
// handler (generator 33h) logs on sensor 02h, byte 2 bits 1:0 the rank, byte 3 bits 7:5 the
// socket, 4:3 the channel, 2:0 the DIMM (30h: CPU 2, its third channel G, DIMM 1; 6Ah: CPU 4,
// channel P, DIMM 3).
TEST(OemSelDecodingTest, IntelNamesTheRankAndDimmOfEccErrors) {
    EXPECT_EQ(detailsFrom(kIntelS2600wt, systemEvent(0x33, 0x0C, 0x02, 0x6F, 0xA1, 0x01, 0x30)),
              (Words{"Rank = 1", "CPU 2, channel G, DIMM 1"}));
    EXPECT_EQ(detailsFrom(kIntelS2600wt, systemEvent(0x33, 0x0C, 0x02, 0x6F, 0xA0, 0x00, 0x6A)),
              (Words{"Rank = 0", "CPU 4, channel P, DIMM 3"}));
}

// FreeIPMI ipmi-sel-string-intel-xeon-common.c: sparing redundancy (sensor 11h, type 0Bh) byte 2
// bits 7:4 the domain (2h: C).
TEST(OemSelDecodingTest, IntelNamesTheSparingDomain) {
    EXPECT_EQ(detailsFrom(kIntelS2600wt, systemEvent(0x33, 0x0C, 0x11, 0x0B, 0xA2, 0x21, 0x00)),
              (Words{"Sparing domain = C", "Rank = 1", "CPU 1, channel A, DIMM 1"}));
}

// FreeIPMI ipmi-sel-string-intel-xeon-common.c: legacy PCI errors (sensor 03h, PERR/SERR) and
// PCIe errors (sensor 04h, OEM type 70h), byte 2 the bus, byte 3 bits 7:3 the device, 2:0 the
// function.
TEST(OemSelDecodingTest, IntelNamesThePciFunction) {
    EXPECT_EQ(detailsFrom(kIntelS2600wt, systemEvent(0x33, 0x13, 0x03, 0x6F, 0xA5, 0x05, 0x1A)),
              Words{"PCI bus 05h, device 03h, function 2"});
    EXPECT_EQ(detailsFrom(kIntelS2600wt, systemEvent(0x33, 0x13, 0x04, 0x70, 0xA3, 0x80, 0x00)),
              Words{"PCI bus 80h, device 00h, function 0"});
}

// FreeIPMI ipmi-sel-string-intel-*.c: POST errors of BIOS POST (generator 01h) on sensor 06h, a
// 16-bit code with byte 2 its low byte (8130h: processor 1 disabled, in Intel's list).
TEST(OemSelDecodingTest, IntelGivesThePostErrorCode) {
    EXPECT_EQ(detailsFrom(kIntelS2600wt, systemEvent(0x01, 0x0F, 0x06, 0x6F, 0xA0, 0x30, 0x81)),
              Words{"POST error code = 8130h"});
}

// Intel's layout is the BIOS's: not for another generator, nor for the products FreeIPMI decodes
// otherwise (S5500WB, product 62).
TEST(OemSelDecodingTest, IntelLayoutNeedsTheBiosAndAnS2600Board) {
    const Words numbers{"Event Data 2 OEM code = 01h", "Event Data 3 OEM code = 30h"};
    EXPECT_EQ(detailsFrom(kIntelS2600wt, systemEvent(0x20, 0x0C, 0x02, 0x6F, 0xA1, 0x01, 0x30)),
              numbers);
    EXPECT_EQ(
        detailsFrom(BmcIdentity{343, 62}, systemEvent(0x33, 0x0C, 0x02, 0x6F, 0xA1, 0x01, 0x30)),
        numbers);
}

// ipmitool lib/ipmi_sel_supermicrooem.c: OEM sensor type D0h, event data 1 80h and byte 3 FFh,
// byte 2 the BMC's reset (01h: cold).
TEST(OemSelDecodingTest, SupermicroNamesTheBmcsReset) {
    EXPECT_EQ(detailsFrom(kSupermicro, systemEvent(0x20, 0xD0, 0xFF, 0x6F, 0x80, 0x01, 0xFF)),
              Words{"BMC cold reset"});
    EXPECT_EQ(detailsFrom(kSupermicro, systemEvent(0x20, 0xD0, 0xFF, 0x6F, 0x80, 0x03, 0xFF)),
              Words{"Event Data 2 OEM code = 03h"});
}

// FreeIPMI libfreeipmi/sel/ipmi-sel-string-supermicro-common.c: OEM type C0h with OEM event type
// 70h, offset 02h, is the CPU's overheat.
TEST(OemSelDecodingTest, SupermicroNamesTheCpuOverheat) {
    EXPECT_EQ(detailsFrom(kSupermicro, systemEvent(0x20, 0xC0, 0x01, 0x70, 0x02, 0xFF, 0xFF)),
              Words{"CPU overheat"});
}

// ipmitool lib/ipmi_sel_supermicrooem.c and FreeIPMI ipmi-sel-string-supermicro-common.c (from
// ipmiutil: "2A 80 = P1_DIMMB1"): memory byte 2 bits 7:4 the DIMM pair from 1, 3:0 the DIMM plus
// 9, byte 3 bits 1:0 the CPU less 1. The same with the other number Supermicro BMCs answer with.
TEST(OemSelDecodingTest, SupermicroNamesTheCpuAndDimm) {
    const Record ecc = systemEvent(0x20, 0x0C, 0x01, 0x6F, 0xA0, 0x2A, 0x80);
    EXPECT_EQ(detailsFrom(kSupermicro, ecc), Words{"CPU 1, DIMM pair 2, DIMM 1"});
    EXPECT_EQ(detailsFrom(BmcIdentity{47488, 0x0937}, ecc), Words{"CPU 1, DIMM pair 2, DIMM 1"});
    EXPECT_EQ(detailsFrom(kSupermicro, systemEvent(0x20, 0x0C, 0x01, 0x6F, 0xA0, 0x29, 0x81)),
              (Words{"Event Data 2 OEM code = 29h", "Event Data 3 OEM code = 81h"}));
}

// tests/data/realdata/microsoft_vc_ipmiutil_sel_example1/sel.hex, records 00A9h and 00E7h: a
// D0h OEM sensor ("NVDIMM" to ipmiutil) and a critical interrupt of BIOS POST with OEM codes. The
// machine's maker is not known: the codes stay numbers; with Intel's ID they still do, the
// layout being that of other sensors.
TEST(OemSelDecodingTest, RealOemCodesOfAnUnknownMakerStayNumbers) {
    const Record nvdimm = recordFromHex("a90002af92aa65200004d0036f8400ff");
    const DecodedSelRecord decoded = SelDecoder({}).decode(nvdimm);
    EXPECT_EQ(decoded.event, "OEM offset 04h");
    EXPECT_EQ(decoded.details, Words{"Event Data 2 OEM code = 00h"});
    const Record interrupt = recordFromHex("e700022b11d46501000413a16fab0009");
    const Words numbers{"Event Data 2 OEM code = 00h", "Event Data 3 OEM code = 09h"};
    EXPECT_EQ(SelDecoder({}).decode(interrupt).details, numbers);
    EXPECT_EQ(detailsFrom(kIntelS2600wt, interrupt), numbers);
}

// Linux's panic record (drivers/char/ipmi/ipmi_msghandler.c; ipmitool lib/ipmi_sel.c, FreeIPMI
// ipmi-sel-string-linux-kernel.c): type F0h, byte 3 an IPMB address, byte 4 the piece's number
// from 0, bytes 5-15 eleven characters of the text, NUL padded.
TEST(OemSelDecodingTest, ReadsLinuxKernelPanicText) {
    const DecodedSelRecord first =
        SelDecoder({}).decode(recordFromHex("0500f020004b65726e656c2070616e69"));  // "Kernel pani"
    EXPECT_EQ(first.kind, DecodedSelRecord::Kind::NonTimestampedOem);
    EXPECT_EQ(first.details, Words{"Linux kernel panic text #0 = \"Kernel pani\""});
    EXPECT_EQ(first.message,
              "Unspecified | OEM record F0h | 20 00 4b 65 72 6e 65 6c 20 70 61 6e 69 | "
              "Linux kernel panic text #0 = \"Kernel pani\"");
    const DecodedSelRecord last =
        SelDecoder({}).decode(recordFromHex("0600f02001630a000000000000000000"));  // "c\n"
    EXPECT_EQ(last.details, Words{"Linux kernel panic text #1 = \"c\\x0A\""});
}

// A timestamped OEM record's bytes have no public layout for these makers: the words stay off.
TEST(OemSelDecodingTest, KeepsTimestampedOemRecordsOfTheseMakersAsBytes) {
    const DecodedSelRecord decoded =
        SelDecoder({}, kDell).decode(recordFromHex("0700c100000060a20200010203040506"));
    EXPECT_EQ(decoded.manufacturer, "Dell");
    EXPECT_TRUE(decoded.details.empty());
    EXPECT_EQ(decoded.description, "Dell (674) | 01 02 03 04 05 06");
}

}  // namespace
}  // namespace Tolmar
