#include "SimulatedBmc.h"

#include <algorithm>

namespace sim {

namespace {

constexpr unsigned char kNetFnSensorEvent = 0x04;
constexpr unsigned char kNetFnStorage = 0x0A;
constexpr unsigned char kNetFnOemGroup = 0x2E;

constexpr unsigned char kGetPefParameters = 0x13;
constexpr unsigned char kGetSdrRepositoryInfo = 0x20;
constexpr unsigned char kGetSelInfo = 0x40;
constexpr unsigned char kReserveSdrRepository = 0x22;
constexpr unsigned char kGetSdr = 0x23;
constexpr unsigned char kReserveSel = 0x42;
constexpr unsigned char kGetSelEntry = 0x43;
constexpr unsigned char kAddSelEntry = 0x44;
constexpr unsigned char kDeleteSelEntry = 0x46;
constexpr unsigned char kClearSel = 0x47;
constexpr unsigned char kGetAuxLogStatus = 0x5A;
constexpr unsigned char kReadAuxLog = 0x93;

constexpr std::uint16_t kFirstRecord = 0x0000;
constexpr std::uint16_t kLastRecord = 0xFFFF;
constexpr unsigned char kReadWholeRecord = 0xFF;
constexpr unsigned char kPefParameterRevision = 0x11;
constexpr unsigned char kOem1Log = 0x01;

std::uint16_t word(const std::vector<unsigned char>& data, std::size_t at) {
    return static_cast<std::uint16_t>(data[at] | data[at + 1] << 8);
}

void appendWord(std::vector<unsigned char>& out, std::uint32_t value) {
    out.push_back(value & 0xFF);
    out.push_back((value >> 8) & 0xFF);
}

BmcResponse failure(unsigned char completionCode) { return {completionCode, {}}; }

// A reservation ID in a request holds only while it is the one the BMC handed out last.
bool holds(std::uint16_t given, std::uint16_t current) { return current != 0 && given == current; }

// A partial read of `record` as Get SEL Entry and Get SDR define it: `count` 0xFF means the rest.
BmcResponse readPart(std::uint16_t nextId, const std::vector<unsigned char>& record,
                     std::size_t offset, unsigned char count) {
    if (offset > record.size()) return failure(kParameterOutOfRange);
    const std::size_t left = record.size() - offset;
    const std::size_t length =
        count == kReadWholeRecord ? left : std::min<std::size_t>(count, left);
    BmcResponse response;
    appendWord(response.data, nextId);
    response.data.insert(response.data.end(), record.begin() + offset,
                         record.begin() + offset + length);
    return response;
}

}  // namespace

void SimulatedBmc::storeSelRecord(const SelRecord& record) {
    const bool full = selLimit_ != 0 && sel_.size() >= selLimit_;
    if (full) {
        selOverflow_ = true;
        if (!overwriteOldest_) return;
        sel_.erase(sel_.begin());
    }
    sel_.push_back(record);
    changed(selStamps_[0]);
    selReservation_ = 0;  // an addition cancels the SEL's reservation
}

void SimulatedBmc::removeSelRecord(std::uint16_t recordId) {
    const long at = findSelRecord(recordId);
    if (at < 0) return;
    sel_.erase(sel_.begin() + at);
    changed(selStamps_[1]);
}

void SimulatedBmc::answerRepositoryInfo(bool answer) { answerRepositoryInfo_ = answer; }

void SimulatedBmc::changeWithinTheSameSecond(bool same) { sameSecond_ = same; }

void SimulatedBmc::setClock(std::uint32_t now) { clock_ = now; }

void SimulatedBmc::limitSel(std::size_t records) { selLimit_ = records; }

void SimulatedBmc::overwriteOldestWhenFull(bool overwrite) { overwriteOldest_ = overwrite; }

void SimulatedBmc::leaveGapsInRecordIds(std::uint16_t gap) { idGap_ = gap; }

void SimulatedBmc::chainByIdPlusOne(bool plusOne) { chainByIdPlusOne_ = plusOne; }

void SimulatedBmc::fillNeitherEraseStampNorFreeSpace(bool neither) { selInfoUnfilled_ = neither; }

const std::vector<SimulatedBmc::SelRecord>& SimulatedBmc::selRecords() const { return sel_; }

void SimulatedBmc::storeBefore(unsigned char command, const SelRecord& record) {
    storedBefore_[command] = record;
}

void SimulatedBmc::answerSelRecordWith(std::uint16_t requested, std::uint16_t given) {
    selAnswers_[requested] = given;
}

void SimulatedBmc::storeSdr(const std::vector<unsigned char>& record) {
    sdrs_.push_back(record);
    changed(sdrStamps_[0]);
}

void SimulatedBmc::limitSdrReads(unsigned char maxCount) { sdrReadLimit_ = maxCount; }

void SimulatedBmc::overstateSdrLength(std::uint16_t recordId, unsigned char extra) {
    sdrOverstatements_[recordId] = extra;
}

void SimulatedBmc::cutSdrRestReads(unsigned char most) { sdrRestLimit_ = most; }

void SimulatedBmc::continueSdrChainWith(std::uint16_t nextId) { lastSdrNextId_ = nextId; }

void SimulatedBmc::refuseSdr(std::uint16_t recordId, unsigned char completionCode) {
    sdrRefusals_[recordId] = completionCode;
}

void SimulatedBmc::setLastReservationId(std::uint16_t id) { lastReservation_ = id; }

void SimulatedBmc::addEventFilter(const EventFilter& filter) { filters_.push_back(filter); }

void SimulatedBmc::addAlertPolicy(const AlertPolicy& policy) { policies_.push_back(policy); }

void SimulatedBmc::setAuxLogEnterprise(std::uint32_t enterprise) { auxEnterprise_ = enterprise; }

void SimulatedBmc::addAuxLogEntry(const std::vector<unsigned char>& entry) {
    auxEntries_.push_back(entry);
}

void SimulatedBmc::setDeviceIdentity(std::uint32_t manufacturer, std::uint16_t product) {
    // Device ID, revision, firmware 1.00, IPMI v2.0, support (SEL, SDR repository), then the
    // manufacturer and product, least significant byte first (IPMI v2.0 section 20.1).
    deviceId_ = {0x20,
                 0x01,
                 0x01,
                 0x00,
                 0x02,
                 0x06,
                 static_cast<unsigned char>(manufacturer),
                 static_cast<unsigned char>(manufacturer >> 8),
                 static_cast<unsigned char>(manufacturer >> 16),
                 static_cast<unsigned char>(product),
                 static_cast<unsigned char>(product >> 8)};
}

BmcResponse SimulatedBmc::handle(unsigned char netFn, unsigned char command,
                                 const std::vector<unsigned char>& data) {
    constexpr unsigned char netFnApp = 0x06;
    constexpr unsigned char getDeviceId = 0x01;
    if (netFn == netFnApp && command == getDeviceId && deviceId_) return {0x00, *deviceId_};
    if (netFn == kNetFnStorage) return handleStorage(command, data);
    if (netFn == kNetFnSensorEvent && command == kGetPefParameters) return getPefParameter(data);
    if (netFn == kNetFnOemGroup && command == kReadAuxLog) return readAuxLog(data);
    return failure(kInvalidCommand);
}

BmcResponse SimulatedBmc::handleStorage(unsigned char command, const Bytes& data) {
    const auto arriving = storedBefore_.find(command);
    if (arriving != storedBefore_.end()) {
        storeSelRecord(arriving->second);
        storedBefore_.erase(arriving);
    }
    switch (command) {
        case kReserveSdrRepository:
            return reserve(sdrReservation_);
        case kGetSdr:
            return getSdr(data);
        case kReserveSel:
            return reserve(selReservation_);
        case kGetSelEntry:
            return getSelEntry(data);
        case kAddSelEntry:
            return addSelEntry(data);
        case kDeleteSelEntry:
            return deleteSelEntry(data);
        case kClearSel:
            return clearSel(data);
        case kGetAuxLogStatus:
            return getAuxLogStatus(data);
        case kGetSelInfo:
            return selInfo();
        case kGetSdrRepositoryInfo:
            return repositoryInfo(sdrs_.size(), sdrStamps_, 0x1000, 0x0F);
        default:
            return failure(kInvalidCommand);
    }
}

BmcResponse SimulatedBmc::reserve(std::uint16_t& repositoryReservation) {
    // A new reservation cancels the repository's previous one. Its ID is never 0: 0 stands for
    // "no reservation" in requests.
    if (++lastReservation_ == 0) ++lastReservation_;
    repositoryReservation = lastReservation_;
    BmcResponse response;
    appendWord(response.data, repositoryReservation);
    return response;
}

long SimulatedBmc::findSelRecord(std::uint16_t recordId) const {
    if (sel_.empty()) return -1;
    if (recordId == kFirstRecord) return 0;
    if (recordId == kLastRecord) return static_cast<long>(sel_.size()) - 1;
    const auto found = std::find_if(sel_.begin(), sel_.end(), [recordId](const SelRecord& r) {
        return (r[0] | r[1] << 8) == recordId;
    });
    return found == sel_.end() ? -1 : found - sel_.begin();
}

// Get SEL Info and Get SDR Repository Info share their layout: version 51h, record count, free
// space, most recent addition and erase time stamps, operation support.
BmcResponse SimulatedBmc::repositoryInfo(std::size_t records, const std::uint32_t (&stamps)[2],
                                         std::uint16_t freeSpace, unsigned char support) const {
    if (!answerRepositoryInfo_) return failure(kInvalidCommand);
    BmcResponse response;
    response.data = {0x51};
    appendWord(response.data, static_cast<std::uint16_t>(records));
    appendWord(response.data, freeSpace);
    for (std::uint32_t stamp : stamps) {
        appendWord(response.data, static_cast<std::uint16_t>(stamp));
        appendWord(response.data, static_cast<std::uint16_t>(stamp >> 16));
    }
    response.data.push_back(support);
    return response;
}

BmcResponse SimulatedBmc::selInfo() const {
    constexpr std::size_t recordBytes = 16;
    constexpr unsigned char overflow = 0x80;
    // Delete, partial add, reserve and allocation information supported (bits 3 to 0).
    constexpr unsigned char supported = 0x0F;
    const std::size_t left = selLimit_ == 0 ? 0x1000 : (selLimit_ - sel_.size()) * recordBytes;
    std::uint16_t freeSpace = static_cast<std::uint16_t>(std::min<std::size_t>(left, 0xFFFF));
    std::uint32_t stamps[2] = {selStamps_[0], selStamps_[1]};
    if (selInfoUnfilled_) {
        freeSpace = 0xFFFF;
        stamps[1] = 0xFFFFFFFF;
    }
    return repositoryInfo(sel_.size(), stamps, freeSpace,
                          selOverflow_ ? supported | overflow : supported);
}

std::uint16_t SimulatedBmc::nextSelRecordId(std::size_t position) const {
    const auto idAt = [this](std::size_t at) {
        return static_cast<std::uint16_t>(sel_[at][0] | sel_[at][1] << 8);
    };
    if (chainByIdPlusOne_) {
        const auto next = static_cast<std::uint16_t>(idAt(position) + 1);
        return findSelRecord(next) < 0 ? kLastRecord : next;
    }
    return position + 1 < sel_.size() ? idAt(position + 1) : kLastRecord;
}

BmcResponse SimulatedBmc::getSelEntry(const Bytes& data) const {
    if (data.size() != 6) return failure(kRequestLengthInvalid);
    const std::uint16_t reservation = word(data, 0);
    const unsigned char offset = data[4];
    const unsigned char count = data[5];
    // Only a partial read needs a reservation; a given one must be the current one.
    const bool partial = offset != 0 || count != kReadWholeRecord;
    if ((reservation != 0 || partial) && !holds(reservation, selReservation_)) {
        return failure(kReservationCancelled);
    }
    const long at = findSelRecord(word(data, 2));
    if (at < 0) return failure(kNotPresent);
    const std::uint16_t next = nextSelRecordId(static_cast<std::size_t>(at));
    const auto answer = selAnswers_.find(word(data, 2));
    const long given = answer == selAnswers_.end() ? at : findSelRecord(answer->second);
    const SelRecord& bytes = sel_[static_cast<std::size_t>(given < 0 ? at : given)];
    return readPart(next, Bytes(bytes.begin(), bytes.end()), offset, count);
}

BmcResponse SimulatedBmc::addSelEntry(const Bytes& data) {
    constexpr unsigned char outOfSpace = 0xC4;
    if (data.size() != sizeof(SelRecord)) return failure(kRequestLengthInvalid);
    if (selLimit_ != 0 && sel_.size() >= selLimit_ && !overwriteOldest_) {
        selOverflow_ = true;
        return failure(outOfSpace);
    }
    std::uint16_t id = 1;
    for (const SelRecord& record : sel_) {
        id = std::max<std::uint16_t>(
            id, static_cast<std::uint16_t>((record[0] | record[1] << 8) + 1 + idGap_));
    }
    SelRecord record;
    std::copy(data.begin(), data.end(), record.begin());
    record[0] = id & 0xFF;
    record[1] = id >> 8;
    storeSelRecord(record);
    BmcResponse response;
    appendWord(response.data, id);
    return response;
}

BmcResponse SimulatedBmc::deleteSelEntry(const Bytes& data) {
    if (data.size() != 4) return failure(kRequestLengthInvalid);
    if (!holds(word(data, 0), selReservation_)) return failure(kReservationCancelled);
    const long at = findSelRecord(word(data, 2));
    if (at < 0) return failure(kNotPresent);
    const SelRecord deleted = sel_[static_cast<std::size_t>(at)];
    removeSelRecord(static_cast<std::uint16_t>(deleted[0] | deleted[1] << 8));
    selReservation_ = 0;  // a change to the SEL cancels the reservation
    BmcResponse response;
    response.data = {deleted[0], deleted[1]};
    return response;
}

BmcResponse SimulatedBmc::clearSel(const Bytes& data) {
    constexpr unsigned char initiateErase = 0xAA;
    constexpr unsigned char getErasureStatus = 0x00;
    constexpr unsigned char eraseCompleted = 0x01;
    if (data.size() != 6) return failure(kRequestLengthInvalid);
    if (!holds(word(data, 0), selReservation_)) return failure(kReservationCancelled);
    if (data[2] != 'C' || data[3] != 'L' || data[4] != 'R') return failure(kInvalidDataField);
    if (data[5] == initiateErase) {
        sel_.clear();
        selOverflow_ = false;
        changed(selStamps_[1]);
        selReservation_ = 0;
    } else if (data[5] != getErasureStatus) {
        return failure(kInvalidDataField);
    }
    return {0x00, {eraseCompleted}};
}

long SimulatedBmc::findSdr(std::uint16_t recordId) const {
    if (sdrs_.empty()) return -1;
    if (recordId == kFirstRecord) return 0;
    const auto found = std::find_if(sdrs_.begin(), sdrs_.end(), [recordId](const Bytes& r) {
        return r.size() >= 2 && (r[0] | r[1] << 8) == recordId;
    });
    return found == sdrs_.end() ? -1 : found - sdrs_.begin();
}

BmcResponse SimulatedBmc::getSdr(const Bytes& data) const {
    if (data.size() != 6) return failure(kRequestLengthInvalid);
    const std::uint16_t reservation = word(data, 0);
    const unsigned char offset = data[4];
    // Reading from offset 0 may go without a reservation; any other read needs the current one.
    if ((reservation != 0 || offset != 0) && !holds(reservation, sdrReservation_)) {
        return failure(kReservationCancelled);
    }
    if (data[5] > sdrReadLimit_) return failure(kCannotReturnRequestedBytes);
    const long at = findSdr(word(data, 2));
    if (at < 0) return failure(kNotPresent);
    const std::size_t position = static_cast<std::size_t>(at);
    const Bytes& record = sdrs_[position];
    const auto refusal = sdrRefusals_.find(word(record, 0));
    if (refusal != sdrRefusals_.end()) return failure(refusal->second);
    const std::uint16_t next =
        position + 1 < sdrs_.size() ? word(sdrs_[position + 1], 0) : lastSdrNextId_;
    return readSdrPart(next, record, offset, data[5]);
}

BmcResponse SimulatedBmc::readSdrPart(std::uint16_t nextId, const Bytes& record,
                                      unsigned char offset, unsigned char count) const {
    Bytes served = record;
    const auto overstated = sdrOverstatements_.find(word(record, 0));
    if (overstated != sdrOverstatements_.end()) {
        served[4] = static_cast<unsigned char>(served[4] + overstated->second);
        if (count != kReadWholeRecord && offset + count > record.size())
            return failure(kCannotReturnRequestedBytes);
    }
    BmcResponse response = readPart(nextId, served, offset, count);
    constexpr std::size_t nextIdLength = 2;
    if (count == kReadWholeRecord && response.data.size() > nextIdLength + sdrRestLimit_)
        response.data.resize(nextIdLength + sdrRestLimit_);
    return response;
}

BmcResponse SimulatedBmc::getPefParameter(const Bytes& data) const {
    constexpr unsigned char revisionOnly = 0x80;
    constexpr unsigned char filterCount = 5;
    constexpr unsigned char filterTable = 6;
    constexpr unsigned char policyCount = 8;
    constexpr unsigned char policyTable = 9;
    if (data.size() != 3) return failure(kRequestLengthInvalid);
    if (data[0] & revisionOnly) return {0x00, {kPefParameterRevision}};
    const unsigned char set = data[1];
    switch (data[0]) {
        case filterCount:
            return {0x00, {kPefParameterRevision, static_cast<unsigned char>(filters_.size())}};
        case policyCount:
            return {0x00, {kPefParameterRevision, static_cast<unsigned char>(policies_.size())}};
        case filterTable:
            if (set == 0 || set > filters_.size()) return failure(kParameterOutOfRange);
            {
                BmcResponse response{0x00, {kPefParameterRevision, set}};
                const EventFilter& filter = filters_[set - 1];
                response.data.insert(response.data.end(), filter.begin(), filter.end());
                return response;
            }
        case policyTable:
            if (set == 0 || set > policies_.size()) return failure(kParameterOutOfRange);
            {
                BmcResponse response{0x00, {kPefParameterRevision, set}};
                const AlertPolicy& policy = policies_[set - 1];
                response.data.insert(response.data.end(), policy.begin(), policy.end());
                return response;
            }
        default:
            return failure(kParameterNotSupported);
    }
}

BmcResponse SimulatedBmc::getAuxLogStatus(const Bytes& data) const {
    if (data.size() != 1) return failure(kRequestLengthInvalid);
    if (data[0] != kOem1Log) return failure(kInvalidDataField);
    // Time stamp of the last change (none kept here), the enterprise number, the entry count.
    BmcResponse response{0x00, {0x00, 0x00, 0x00, 0x00}};
    response.data.push_back(auxEnterprise_ & 0xFF);
    appendWord(response.data, auxEnterprise_ >> 8);
    appendWord(response.data, static_cast<std::uint32_t>(auxEntries_.size()));
    return response;
}

BmcResponse SimulatedBmc::readAuxLog(const Bytes& data) const {
    if (data.size() != 9) return failure(kRequestLengthInvalid);
    const std::uint32_t enterprise = data[0] | data[1] << 8 | data[2] << 16;
    if (enterprise != auxEnterprise_) return failure(kInvalidDataField);
    const std::uint16_t number = word(data, 3);  // entries count from 1
    if (number == 0 || number > auxEntries_.size()) return failure(kNotPresent);
    const Bytes& entry = auxEntries_[number - 1];
    const std::size_t offset = word(data, 5);
    const std::size_t length = word(data, 7);
    BmcResponse response{0x00, {data[0], data[1], data[2]}};  // the enterprise number, echoed
    if (length == 0) {
        // Length 0 asks for the entry's total length.
        appendWord(response.data, static_cast<std::uint32_t>(entry.size()));
        return response;
    }
    if (offset > entry.size()) return failure(kParameterOutOfRange);
    const std::size_t end = std::min(entry.size(), offset + length);
    response.data.insert(response.data.end(), entry.begin() + offset, entry.begin() + end);
    return response;
}

}  // namespace sim
