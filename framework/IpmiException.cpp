#include "IpmiException.h"

#include <cstdio>

namespace {

const char* typeName(IPMIEXCEPTIONTYPE type) {
    switch (type) {
        case IPMI_EXCEPTION_CONNECTION:
            return "connection failed";
        case IPMI_EXCEPTION_AUTHENTICATION:
            return "authentication refused";
        case IPMI_EXCEPTION_TIMEOUT:
            return "timed out";
        case IPMI_EXCEPTION_TRANSPORT:
            return "transport failure";
        case IPMI_EXCEPTION_COMMAND_FAILED:
            return "command failed";
        case IPMI_EXCEPTION_UNKNOWN:
            break;
    }
    return "unknown failure";
}

}  // namespace

IpmiException::IpmiException(int code, IPMIEXCEPTIONTYPE type) : code_(code), type_(type) {
    // For command failures the code is the IPMI completion code, which people read in hex.
    char text[96];
    std::snprintf(text, sizeof text, "IPMI %s (code %d, 0x%02X)", typeName(type), code,
                  static_cast<unsigned>(code));
    text_ = text;
}

int IpmiException::code() const noexcept { return code_; }

IPMIEXCEPTIONTYPE IpmiException::type() const noexcept { return type_; }

const char* IpmiException::what() const noexcept { return text_.c_str(); }
