#include "IpmiEventLog.h"

#include <new>

#include "IpmiEventLogImp.h"

namespace Tolmar {

namespace {

// GetConnectStatus and ResetConn pass the client's connect status on; -1 is none of those.
constexpr int kNoImplementation = -1;

}  // namespace

IpmiEventLog::IpmiEventLog(const TolmarConnection::ConnectionInfo& info)
    : imp_(new (std::nothrow) IpmiEventLogImp(info)) {}

IpmiEventLog::~IpmiEventLog() { delete imp_; }

int IpmiEventLog::GetConnectStatus() { return imp_ ? imp_->GetConnectStatus() : kNoImplementation; }

int IpmiEventLog::ResetConn(const TolmarConnection::ConnectionInfo& info) {
    return imp_ ? imp_->ResetConn(info) : kNoImplementation;
}

int IpmiEventLog::GetAllIpmiEventLog(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    return imp_ ? imp_->GetAllIpmiEventLog(events) : EL_INTERNAL_FAIL;
}

int IpmiEventLog::GetIpmiEventLogByRecordId(unsigned long recordId,
                                            TolmarAgentless::IPMIEVENT& event) {
    return imp_ ? imp_->GetIpmiEventLogByRecordId(recordId, event) : EL_INTERNAL_FAIL;
}

int IpmiEventLog::GetAllIpmiSelEntry(std::vector<IPMISELENTRY>& entries) {
    return imp_ ? imp_->GetAllIpmiSelEntry(entries) : EL_INTERNAL_FAIL;
}

int IpmiEventLog::GetIpmiSelEntryByRecordId(unsigned long recordId, IPMISELENTRY& entry) {
    return imp_ ? imp_->GetIpmiSelEntryByRecordId(recordId, entry) : EL_INTERNAL_FAIL;
}

int IpmiEventLog::DeleteEventLog(unsigned long recordId) {
    return imp_ ? imp_->DeleteEventLog(recordId) : EL_INTERNAL_FAIL;
}

int IpmiEventLog::DeleteAllEventLog() {
    return imp_ ? imp_->DeleteAllEventLog() : EL_INTERNAL_FAIL;
}

int IpmiEventLog::AddSelEntry(const IPMISELENTRY& entry) {
    return imp_ ? imp_->AddSelEntry(entry) : EL_INTERNAL_FAIL;
}

}  // namespace Tolmar
