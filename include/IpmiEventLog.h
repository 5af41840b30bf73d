/**
 * @file IpmiEventLog.h
 * @brief Reads and changes the IPMI event log of a server's baseboard management controller.
 *
 * Every operation opens its own IPMI session (LAN, RMCP+, or the local in-band interface),
 * runs its commands, closes the session and returns one of the codes of
 * Tolmar::IpmiEventLog::ResultCode. Nothing read from the BMC is cached between calls.
 */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tolmar {

namespace TolmarConnection {

/// How to reach a BMC.
struct ConnectionInfo {
    std::string ip;                 ///< BMC host name or address (LAN only)
    std::uint16_t port = 0;         ///< RMCP+ UDP port, usually 623 (LAN only)
    std::string user;               ///< BMC user name (LAN only)
    std::string password;           ///< BMC password (LAN only); never logged
    std::uint16_t extra1 = 0;       ///< kept for the framework, not used
    std::uint16_t cipherSuite = 3;  ///< IPMI v2.0 cipher suite ID of the LAN session
    std::int32_t extra2 = 0;        ///< kept for the framework, not used
    /// 1: LAN session to @ref ip; 0: the local in-band interface; any other value keeps the
    /// previous choice (see IpmiEventLog::ResetConn).
    std::int32_t connectionType = 0;
    std::int32_t extra3 = 0;  ///< kept for the framework, not used
};

}  // namespace TolmarConnection

namespace TolmarAgentless {

/// One decoded SEL record.
struct IPMIEVENT {
    unsigned long recordId = 0;  ///< SEL record ID, 0 to 65535
    std::string timeStamp;       ///< "MM/DD/YYYY hh:mm:ss" in UTC, or "Unspecified"
    std::string message;         ///< the event's text
    int severity = 0;            ///< 0 informational, 1 warning, 2 critical
    std::string source;          ///< the generator of the event
    std::string auxLog;          ///< auxiliary-log details, or "No Extended Data"
};

}  // namespace TolmarAgentless

/// One raw SEL record, byte for byte as the IPMI SEL record (IPMI v2.0 section 32.1).
struct IPMISELENTRY {
    std::uint8_t recordId[2];     ///< least significant byte first
    std::uint8_t recordType;      ///< 0x02 system event, 0xC0-0xFF OEM
    std::uint8_t timestamp[4];    ///< seconds since 1970, least significant byte first
    std::uint8_t generatorId[2];  ///< slave address or software ID; channel and LUN
    std::uint8_t evMRev;          ///< event message format revision
    std::uint8_t sensorType;
    std::uint8_t sensorNum;
    std::uint8_t eventDirType;  ///< bit 7 deassertion, bits 6:0 event/reading type code
    std::uint8_t eventData1;
    std::uint8_t eventData2;
    std::uint8_t eventData3;
};
static_assert(sizeof(IPMISELENTRY) == 16, "IPMISELENTRY is the 16-byte IPMI SEL record");

class IpmiEventLogImp;

/// The IPMI event log of one BMC.
class IpmiEventLog {
public:
    /// Results of every operation except GetConnectStatus and ResetConn.
    enum ResultCode {
        EL_SUCCESS = 0,
        EL_NOT_SUPPORTED = 1,      ///< the BMC answered 0x80
        EL_BUSY = 2,               ///< the BMC answered 0x81, or the SEL could not be reserved
        EL_CONNECTION_FAIL = 3,    ///< no session could be opened
        EL_AUTHTICATION_FAIL = 4,  ///< the BMC refused the credentials
        EL_NOT_FOUND = 5,          ///< no event with the requested record ID
        EL_INTERNAL_FAIL = 6       ///< any other failure
    };

    /// Keeps a copy of @p info; nothing is sent until an operation is called.
    explicit IpmiEventLog(const TolmarConnection::ConnectionInfo& info);
    ~IpmiEventLog();
    IpmiEventLog(const IpmiEventLog&) = delete;
    IpmiEventLog& operator=(const IpmiEventLog&) = delete;

    /// Opens a session and returns the client's connect status: 0 connected, 2 credentials
    /// refused, another value for any other failure. The probe's session is left open.
    int GetConnectStatus();
    /// Takes new connection parameters, then probes them as GetConnectStatus does.
    int ResetConn(const TolmarConnection::ConnectionInfo& info);

    /// Appends one decoded event per SEL record, in SEL order, to @p events. The SEL, the PEF
    /// filters, the sensor records and the auxiliary log are all read in one session first.
    /// After a connection, a failure part way keeps what was read and still returns EL_SUCCESS.
    int GetAllIpmiEventLog(std::vector<TolmarAgentless::IPMIEVENT>& events);
    /// Finds the decoded event of one SEL record and sets @p event's recordId, timeStamp,
    /// message and severity (source and auxLog are left as they were); EL_NOT_FOUND when the SEL
    /// has no such record.
    int GetIpmiEventLogByRecordId(unsigned long recordId, TolmarAgentless::IPMIEVENT& event);

    /// Appends every SEL record, in SEL order, to @p entries.
    int GetAllIpmiSelEntry(std::vector<IPMISELENTRY>& entries);
    /// Reads one SEL record; @p entry is written only on EL_SUCCESS.
    int GetIpmiSelEntryByRecordId(unsigned long recordId, IPMISELENTRY& entry);
    /// Deletes one SEL record.
    int DeleteEventLog(unsigned long recordId);
    /// Clears the SEL (the erase is started; its completion is not awaited).
    int DeleteAllEventLog();
    /// Adds a SEL record; the BMC assigns its record ID.
    int AddSelEntry(const IPMISELENTRY& entry);

private:
    IpmiEventLogImp* imp_;
};

}  // namespace Tolmar
