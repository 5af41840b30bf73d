// Names of IPMI entity ID codes (IPMI v2.0 table 43-13), the entity byte of a sensor's SDR.
#pragma once

#include <map>
#include <string>

class EntityIdCodeTable {
public:
    static EntityIdCodeTable table;
    static EntityIdCodeTable* getEntityIdCodeTable();

    // The entity's name; the empty string for the undefined IDs 0x43-0x8F.
    std::string getEntityName(unsigned char entityId) const;
    // The named IDs 0x00-0x42.
    const std::map<unsigned char, std::string>& names() const;

private:
    EntityIdCodeTable();
    std::map<unsigned char, std::string> names_;
};
