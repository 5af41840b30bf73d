// The framework's IPMI exception: an integer code (a completion code, for command failures)
// and the kind of failure.
#pragma once

#include <exception>
#include <string>

enum IPMIEXCEPTIONTYPE {
    IPMI_EXCEPTION_UNKNOWN = 0,
    IPMI_EXCEPTION_CONNECTION = 1,
    IPMI_EXCEPTION_AUTHENTICATION = 2,
    IPMI_EXCEPTION_TIMEOUT = 3,
    IPMI_EXCEPTION_TRANSPORT = 4,
    IPMI_EXCEPTION_COMMAND_FAILED = 5
};

class IpmiException : public std::exception {
public:
    IpmiException(int code, IPMIEXCEPTIONTYPE type);
    int code() const noexcept;
    IPMIEXCEPTIONTYPE type() const noexcept;
    const char* what() const noexcept override;

private:
    int code_;
    IPMIEXCEPTIONTYPE type_;
    std::string text_;
};
