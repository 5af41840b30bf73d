// One decoded auxiliary-log entry: a firmware status report belonging to one SEL record. Each raw
// code is kept with its display text. The type, severity and class vocabularies follow the status
// code classes of the UEFI Platform Initialization specification.
#pragma once

#include <string>

namespace Tolmar {

class IPMIExtendedSELDataEntry {
public:
    void SetType(unsigned char type);
    void SetSeverity(unsigned char severity);
    void SetOperation(unsigned char* twoBytes);
    // Only stores the number: SetClass, called after it, sets the sub-class text.
    void SetSubclass(unsigned char subclass);
    void SetClass(unsigned char entryClass);
    void SetFRUInstance(unsigned char* fourBytes);
    void SetGUID(unsigned char* sixteenBytes);
    void SetExtendedData(std::string text);
    void SetSELRecordId(unsigned char low, unsigned char high);

    std::string GetTypeString() const;
    std::string GetSeverityString() const;
    std::string GetOperationString() const;
    std::string GetSubclassString() const;
    std::string GetClassString() const;
    std::string GetFRUInstanceString() const;
    std::string GetGUIDString() const;
    std::string GetExtendedDataString() const;
    // The ID of the SEL record the entry belongs to.
    int GetSELRecordId() const;

private:
    unsigned char type_ = 0;
    std::string typeText_ = "Not set";
    unsigned char severity_ = 0;
    std::string severityText_ = "Not set";
    unsigned char operation_[2] = {0, 0};
    std::string operationText_ = "Not set";
    unsigned char subclass_ = 0;
    std::string subclassText_ = "Not set";
    unsigned char class_ = 0;
    std::string classText_ = "Not set";
    unsigned char fruInstance_[4] = {0, 0, 0, 0};
    std::string fruInstanceText_ = "Not set";
    unsigned char guid_[16] = {};
    std::string guidText_ = "Not set";
    std::string extendedDataText_;
    unsigned char selRecordId_[2] = {0, 0};  // low byte first
};

}  // namespace Tolmar
