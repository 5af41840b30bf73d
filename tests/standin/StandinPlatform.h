// A stand-in for a framework of another maker: IpmiClient, IpmiException and Log as their headers
// declare them and nothing more (no settings, no call records, no activity counts), so that the
// library is built and tested against the three platform classes alone. The client answers from
// the tests' SimulatedBmc through the ClientBench; the exception counts how it is used.
#pragma once

#include <vector>

#include "IpmiException.h"

namespace standin {

struct ConstructedException {
    int code;
    IPMIEXCEPTIONTYPE type;
    bool operator==(const ConstructedException& other) const {
        return code == other.code && type == other.type;
    }
};

// Every IpmiException built from a code and a type since the last call of forgetExceptions(), in
// order (copies are not counted).
const std::vector<ConstructedException>& constructedExceptions();
void forgetExceptions();

}  // namespace standin
