#include <string>

#include "IpmiException.h"
#include "StandinPlatform.h"

namespace standin {

namespace {

std::vector<ConstructedException>& constructed() {
    static std::vector<ConstructedException> exceptions;
    return exceptions;
}

}  // namespace

const std::vector<ConstructedException>& constructedExceptions() { return constructed(); }

void forgetExceptions() { constructed().clear(); }

}  // namespace standin

IpmiException::IpmiException(int code, IPMIEXCEPTIONTYPE type)
    : code_(code), type_(type), text_("IPMI failure " + std::to_string(code)) {
    standin::constructed().push_back({code, type});
}

int IpmiException::code() const noexcept { return code_; }

IPMIEXCEPTIONTYPE IpmiException::type() const noexcept { return type_; }

const char* IpmiException::what() const noexcept { return text_.c_str(); }
