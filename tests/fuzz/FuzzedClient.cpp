#include "FuzzedClient.h"

#include "IpmiClient.h"

namespace {

fuzz::Input* answers = nullptr;

}  // namespace

namespace fuzz {

void answerFrom(Input* input) { answers = input; }

}  // namespace fuzz

struct IpmiClient::Session {};

IpmiClient::IpmiClient(const std::string&, const std::string&, const std::string&,
                       const std::string&, unsigned long) {}
IpmiClient::IpmiClient(unsigned long) {}
int IpmiClient::connect() { return 0; }
void IpmiClient::disconnect() {}
IpmiClient::~IpmiClient() = default;

int IpmiClient::sendCommand(const IpmiCommandRequest&, std::vector<unsigned char>& responseData,
                            unsigned char& completionCode) {
    if (answers == nullptr || answers->empty() || answers->byte() != 0) return 1;
    completionCode = answers->byte();
    responseData = answers->bytes(answers->byte());
    return 0;
}
