// An in-memory BMC for tests, written from the server side: it answers the Storage, Sensor/Event
// and OEM requests the library sends the way a BMC does (IPMI v2.0 sections 30, 31 and 33), with
// the completion codes a BMC gives for absent records, cancelled reservations and bad requests.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <vector>

namespace sim {

struct BmcResponse {
    unsigned char completionCode = 0;
    std::vector<unsigned char> data;  // the bytes after the completion code
};

// Completion codes (IPMI v2.0 table 5-2).
constexpr unsigned char kParameterNotSupported = 0x80;  // Get PEF Configuration Parameters
constexpr unsigned char kInvalidCommand = 0xC1;
constexpr unsigned char kReservationCancelled = 0xC5;
constexpr unsigned char kRequestLengthInvalid = 0xC7;
constexpr unsigned char kParameterOutOfRange = 0xC9;
constexpr unsigned char kCannotReturnRequestedBytes = 0xCA;
constexpr unsigned char kNotPresent = 0xCB;
constexpr unsigned char kInvalidDataField = 0xCC;

class SimulatedBmc {
public:
    using SelRecord = std::array<unsigned char, 16>;
    using EventFilter = std::array<unsigned char, 20>;
    using AlertPolicy = std::array<unsigned char, 3>;

    // The SEL, in chain order. A stored record keeps the record ID in its bytes 0-1.
    void storeSelRecord(const SelRecord& record);
    // Drops a stored record, as Delete SEL Entry would, without a reservation.
    void removeSelRecord(std::uint16_t recordId);
    const std::vector<SelRecord>& selRecords() const;
    // The next Storage request with command `command` finds `record` stored first: an event the
    // BMC logs just then.
    void storeBefore(unsigned char command, const SelRecord& record);
    // Get SEL Entry for `requested` answers with the bytes of record `given`, the next-record ID
    // staying `requested`'s: the same record returned for two IDs, as some BMCs do.
    void answerSelRecordWith(std::uint16_t requested, std::uint16_t given);

    // SDR repository records, whole, each carrying its record ID in bytes 0-1.
    void storeSdr(const std::vector<unsigned char>& record);
    // Answers a Get SDR that asks for more than `maxCount` bytes (0xFF, "the rest", included) with
    // 0xCA, as BMCs with small message buffers do.
    void limitSdrReads(unsigned char maxCount);
    // Record `recordId`'s header states `extra` bytes more than the record holds, as on some BMCs;
    // a read of a given count that reaches past the record's real end is refused with CAh, one
    // of "the rest" (FFh) gives what there is.
    void overstateSdrLength(std::uint16_t recordId, unsigned char extra);
    // A Get SDR for the rest of a record (FFh) gives at most `most` bytes, whatever is left: a
    // short answer, as some BMCs give; reads of a given count are answered in full.
    void cutSdrRestReads(unsigned char most);
    // The last record's next-record ID is `nextId`, not FFFFh (the chain's end), as on some BMCs:
    // the ID of no record, or of a record before it.
    void continueSdrChainWith(std::uint16_t nextId);
    // Every Get SDR for record `recordId` is refused with `completionCode`.
    void refuseSdr(std::uint16_t recordId, unsigned char completionCode);

    // The reservation ID handed out last; the next reservation gets the one after it.
    void setLastReservationId(std::uint16_t id);

    // PEF event filter table and alert policy table; set selectors count from 1.
    void addEventFilter(const EventFilter& filter);
    void addAlertPolicy(const AlertPolicy& policy);

    // The OEM auxiliary log: the enterprise number its commands carry, and the record bytes of
    // each entry (entries count from 1).
    void setAuxLogEnterprise(std::uint32_t enterprise);
    void addAuxLogEntry(const std::vector<unsigned char>& entry);

    // Get Device ID answers with this manufacturer (IANA number) and product; without, it is
    // refused with C1h.
    void setDeviceIdentity(std::uint32_t manufacturer, std::uint16_t product);

    // Get SEL Info and Get SDR Repository Info answer with each repository's most recent addition
    // and erase stamps: a clock that every change moves on. Without them (as on some BMCs), both
    // commands are refused with C1h.
    void answerRepositoryInfo(bool answer);
    // Changes from now on come within the second of each repository's last change, so its stamps
    // (whole seconds) stay as they are; only the record counts tell.
    void changeWithinTheSameSecond(bool same);
    // Sets the clock that stamps changes: set back, the next addition is stamped earlier than the
    // last, as after the BMC's clock was corrected.
    void setClock(std::uint32_t now);

    // The SEL holds at most `records` (unlimited by default). Get SEL Info's free space is what is
    // left, 16 bytes a record (0x1000 while unlimited). A record that finds the SEL full is
    // dropped, Add SEL Entry answering C4h (out of space), and Get SEL Info's overflow flag is set
    // until the SEL is cleared.
    void limitSel(std::size_t records);
    // Once the SEL is full, each new record takes the place of the oldest instead, as BMCs with a
    // circular SEL do: the count stays, the addition stamp moves on, the overflow flag is set.
    void overwriteOldestWhenFull(bool overwrite);
    // Add SEL Entry gives a new record the ID `gap` + 1 after the highest: IDs with gaps.
    void leaveGapsInRecordIds(std::uint16_t gap);
    // Get SEL Entry's next-record ID is the record's own plus one, and FFFFh where no record has
    // that ID: the chain ends at the first gap, as on some BMCs.
    void chainByIdPlusOne(bool plusOne);
    // Get SEL Info's erase stamp is always FFFFFFFFh and its free space always FFFFh, as on BMCs
    // that fill in neither.
    void fillNeitherEraseStampNorFreeSpace(bool neither);

    // Answers one request.
    BmcResponse handle(unsigned char netFn, unsigned char command,
                       const std::vector<unsigned char>& data);

private:
    using Bytes = std::vector<unsigned char>;

    BmcResponse handleStorage(unsigned char command, const Bytes& data);
    BmcResponse reserve(std::uint16_t& repositoryReservation);
    BmcResponse getSelEntry(const Bytes& data) const;
    BmcResponse addSelEntry(const Bytes& data);
    BmcResponse deleteSelEntry(const Bytes& data);
    BmcResponse clearSel(const Bytes& data);
    BmcResponse getSdr(const Bytes& data) const;
    BmcResponse readSdrPart(std::uint16_t nextId, const Bytes& record, unsigned char offset,
                            unsigned char count) const;
    BmcResponse getPefParameter(const Bytes& data) const;
    BmcResponse getAuxLogStatus(const Bytes& data) const;
    BmcResponse repositoryInfo(std::size_t records, const std::uint32_t (&stamps)[2],
                               std::uint16_t freeSpace, unsigned char support) const;
    BmcResponse selInfo() const;
    std::uint16_t nextSelRecordId(std::size_t position) const;
    void changed(std::uint32_t& stamp) {
        if (!sameSecond_) stamp = ++clock_;
    }
    BmcResponse readAuxLog(const Bytes& data) const;

    // Position of a SEL record: ID 0x0000 is the first record, 0xFFFF the last; -1 when absent.
    long findSelRecord(std::uint16_t recordId) const;
    long findSdr(std::uint16_t recordId) const;

    std::vector<SelRecord> sel_;
    std::map<std::uint16_t, std::uint16_t> selAnswers_;
    std::map<unsigned char, SelRecord> storedBefore_;  // command -> record stored before it  //
                                                       // requested ID -> ID of the bytes given
    std::vector<Bytes> sdrs_;
    std::vector<EventFilter> filters_;
    std::vector<AlertPolicy> policies_;
    std::uint32_t auxEnterprise_ = 0;
    std::vector<Bytes> auxEntries_;
    std::uint16_t lastReservation_ = 0;
    std::uint16_t selReservation_ = 0;  // 0: none, or cancelled
    std::uint16_t sdrReservation_ = 0;
    unsigned sdrReadLimit_ = 0xFF;
    std::map<std::uint16_t, unsigned char> sdrOverstatements_;  // record ID -> bytes claimed
    unsigned sdrRestLimit_ = 0xFF;
    std::uint16_t lastSdrNextId_ = 0xFFFF;
    std::map<std::uint16_t, unsigned char> sdrRefusals_;  // record ID -> completion code
    bool answerRepositoryInfo_ = true;
    std::optional<std::vector<unsigned char>> deviceId_;  // Get Device ID's answer
    bool sameSecond_ = false;
    std::size_t selLimit_ = 0;  // 0: unlimited
    bool overwriteOldest_ = false;
    bool selOverflow_ = false;
    std::uint16_t idGap_ = 0;
    bool chainByIdPlusOne_ = false;
    bool selInfoUnfilled_ = false;
    std::uint32_t clock_ = 0x55000000;
    std::uint32_t selStamps_[2] = {};  // most recent addition, most recent erase
    std::uint32_t sdrStamps_[2] = {};
};

// A SEL record with the given record ID and the bytes after the ID (record type ... event data 3).
inline SimulatedBmc::SelRecord selRecord(unsigned id, std::initializer_list<unsigned char> rest) {
    SimulatedBmc::SelRecord record{};
    record[0] = id & 0xFF;
    record[1] = (id >> 8) & 0xFF;
    std::size_t at = 2;
    for (unsigned char byte : rest) record[at++] = byte;
    return record;
}

}  // namespace sim
