#include "IPMIExtendedSELDataEntry.h"

#include <cstring>
#include <utility>

#include "StringCch.h"

namespace Tolmar {

namespace {

const char* typeName(unsigned char type) {
    switch (type) {
        case 0x01:
            return "PROGRESS_CODE";
        case 0x02:
            return "ERROR_CODE";
        case 0x03:
            return "DEBUG_CODE";
        case 0x80:
            return "PLATFORM_P80_CODE";
        default:
            return "Unknown";
    }
}

const char* severityName(unsigned char severity) {
    switch (severity) {
        case 0x40:
            return "ORV_ERROR_INFO";
        case 0x80:
            return "ORV_ERROR_WARNING";
        case 0x90:
        case 0xA0:
            return "ORV_ERROR_FATAL";
        default:
            return "Unknown";
    }
}

// Sub-class names of each class, by sub-class number; null where the class leaves a gap.
const char* const kComputing[] = {"Undefined", "Host Processor", "Boot Processor", "I/O Processor",
                                  "Cache",     "Memory",         "Chipset"};
const char* const kPeripheral[] = {
    "Undefined",     "Keyboard",      "Mouse",       "Local Console",   "Remote Console",
    "Serial Port",   "Parallel Port", "Fixed Media", "Removable Media", "Spec Reserved",
    "Spec Reserved", "Spec Reserved", "Network"};
const char* const kIoBus[] = {"Undefined", "PCI",   "USB",   nullptr, nullptr, nullptr, "LPC",
                              "SCSI",      "ATAPI", nullptr, nullptr, "SMBUS", "I2C"};
const char* const kSoftware[] = {"Undefined",
                                 "SEC",
                                 "PEI Core",
                                 "PEI Driver",
                                 "DXE Core",
                                 "DXE Boot Driver",
                                 "DXE Runtime Driver",
                                 "SMM Driver",
                                 "uEFI Application",
                                 "OS Loader",
                                 nullptr,
                                 nullptr,
                                 "EBC Exception",
                                 "X86 Exception",
                                 nullptr,
                                 "PEI Service",
                                 "uEFI Boot Service",
                                 "uEFI Runtime Service",
                                 "DXE Service"};

struct ClassNames {
    const char* name;
    const char* const* subclasses;
    std::size_t count;
};

template <std::size_t N>
constexpr ClassNames classNames(const char* name, const char* const (&subclasses)[N]) {
    return {name, subclasses, N};
}

const ClassNames kClasses[] = {classNames("Computing", kComputing),
                               classNames("Peripheral", kPeripheral), classNames("I/O BUS", kIoBus),
                               classNames("Software", kSoftware)};

}  // namespace

void IPMIExtendedSELDataEntry::SetType(unsigned char type) {
    type_ = type;
    typeText_ = typeName(type);
}

void IPMIExtendedSELDataEntry::SetSeverity(unsigned char severity) {
    severity_ = severity;
    severityText_ = severityName(severity);
}

void IPMIExtendedSELDataEntry::SetOperation(unsigned char* twoBytes) {
    std::memcpy(operation_, twoBytes, sizeof operation_);
    char text[7] = {};
    StringCchPrintf(text, sizeof text, "0x%02X%02X", operation_[0], operation_[1]);
    operationText_ = text;
}

void IPMIExtendedSELDataEntry::SetSubclass(unsigned char subclass) { subclass_ = subclass; }

void IPMIExtendedSELDataEntry::SetClass(unsigned char entryClass) {
    class_ = entryClass;
    if (entryClass >= sizeof kClasses / sizeof kClasses[0]) {
        classText_ = "Unknown";  // the sub-class text stays as it was
        return;
    }
    const ClassNames& names = kClasses[entryClass];
    classText_ = names.name;
    const char* subclass = subclass_ < names.count ? names.subclasses[subclass_] : nullptr;
    subclassText_ = subclass != nullptr ? subclass : "Unknown";
}

void IPMIExtendedSELDataEntry::SetFRUInstance(unsigned char* fourBytes) {
    std::memcpy(fruInstance_, fourBytes, sizeof fruInstance_);
    char text[11] = {};
    StringCchPrintf(text, sizeof text, "0x%02X%02X%02X%02X", fruInstance_[0], fruInstance_[1],
                    fruInstance_[2], fruInstance_[3]);
    fruInstanceText_ = text;
}

void IPMIExtendedSELDataEntry::SetGUID(unsigned char* sixteenBytes) {
    // "0x" and the bytes in stored order: no dashes, no reordering of the GUID's fields.
    std::memcpy(guid_, sixteenBytes, sizeof guid_);
    char text[35] = {};
    StringCchCopy(text, sizeof text, "0x");
    for (std::size_t i = 0; i < sizeof guid_; ++i) {
        char hex[3] = {};
        StringCchPrintf(hex, sizeof hex, "%02X", guid_[i]);
        StringCchCat(text, sizeof text, hex);
    }
    guidText_ = text;
}

void IPMIExtendedSELDataEntry::SetExtendedData(std::string text) {
    extendedDataText_ = std::move(text);
}

void IPMIExtendedSELDataEntry::SetSELRecordId(unsigned char low, unsigned char high) {
    selRecordId_[0] = low;
    selRecordId_[1] = high;
}

std::string IPMIExtendedSELDataEntry::GetTypeString() const { return typeText_; }
std::string IPMIExtendedSELDataEntry::GetSeverityString() const { return severityText_; }
std::string IPMIExtendedSELDataEntry::GetOperationString() const { return operationText_; }
std::string IPMIExtendedSELDataEntry::GetSubclassString() const { return subclassText_; }
std::string IPMIExtendedSELDataEntry::GetClassString() const { return classText_; }
std::string IPMIExtendedSELDataEntry::GetFRUInstanceString() const { return fruInstanceText_; }
std::string IPMIExtendedSELDataEntry::GetGUIDString() const { return guidText_; }
std::string IPMIExtendedSELDataEntry::GetExtendedDataString() const { return extendedDataText_; }

int IPMIExtendedSELDataEntry::GetSELRecordId() const {
    return selRecordId_[0] + selRecordId_[1] * 256;
}

}  // namespace Tolmar
