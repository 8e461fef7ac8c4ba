#include "scsi_disk.h"

#include "ata_disk.h"
#include "byte_order.h"
#include "disk_facts.h"

#include <algorithm>
#include <functional>

namespace diskemu {

namespace {

using simstorage::Device;

// Operation codes.
constexpr uint8_t kTestUnitReady = 0x00;
constexpr uint8_t kRequestSense = 0x03;
constexpr uint8_t kInquiry = 0x12;
constexpr uint8_t kModeSense6 = 0x1A;
constexpr uint8_t kReadCapacity10 = 0x25;
constexpr uint8_t kReadDefectData10 = 0x37;
constexpr uint8_t kLogSense = 0x4D;
constexpr uint8_t kModeSense10 = 0x5A;
constexpr uint8_t kAtaPassThrough16 = 0x85;
constexpr uint8_t kServiceActionIn16 = 0x9E;
constexpr uint8_t kReadCapacity16 = 0x10; // its service action
constexpr uint8_t kReportLuns = 0xA0;

// Sense keys and additional sense codes.
constexpr uint8_t kNoSense = 0x0;
constexpr uint8_t kNotReady = 0x2;
constexpr uint8_t kHardwareError = 0x4;
constexpr uint8_t kIllegalRequest = 0x5;
constexpr uint8_t kAbortedCommand = 0xB;
constexpr uint8_t kAscNotReady = 0x04, kAscqStartUnitNeeded = 0x02;
constexpr uint8_t kAscInvalidOpcode = 0x20;
constexpr uint8_t kAscInvalidField = 0x24;
constexpr uint8_t kAscInternalTargetFailure = 0x44;
constexpr uint8_t kAscFailurePrediction = 0x5D, kAscqImpendingDriveFailure = 0x10;
constexpr uint8_t kAscqAtaInformationAvailable = 0x1D;

// SAS is protocol identifier 6, in mode pages and designators alike.
constexpr uint8_t kProtocolSas = 0x6;

// SAS link rates, as the negotiated and programmed rate fields code them.
constexpr uint8_t kRate1_5G = 0x8, kRate6G = 0xA, kRate12G = 0xB;

const uint8_t kSupportedVpdPages[] = {0x00, 0x80, 0x83, 0x89, 0xB1};

// A sense of fixed format (70h), 18 bytes.
Bytes fixedSense(uint8_t key, uint8_t asc, uint8_t ascq)
{
    Bytes sense(18, 0);
    sense[0] = 0x70;
    sense[2] = key;
    sense[7] = 10; // additional sense length
    sense[12] = asc;
    sense[13] = ascq;
    return sense;
}

Response checkCondition(Bytes sense)
{
    Response response;
    response.status = kStatusCheckCondition;
    response.sense = std::move(sense);
    return response;
}

Response checkCondition(uint8_t key, uint8_t asc, uint8_t ascq = 0)
{
    return checkCondition(fixedSense(key, asc, ascq));
}

// ILLEGAL REQUEST, INVALID FIELD IN CDB, pointing at the byte at fault as
// disks do (sense-key specific: SKSV, command data).
Response invalidField(size_t cdbByte)
{
    Bytes sense = fixedSense(kIllegalRequest, kAscInvalidField, 0);
    sense[15] = 0xC0;
    putBe(sense, 16, cdbByte, 2);
    return checkCondition(std::move(sense));
}

Response invalidOpcode() { return checkCondition(kIllegalRequest, kAscInvalidOpcode); }
Response notReady() { return checkCondition(kNotReady, kAscNotReady, kAscqStartUnitNeeded); }

// GOOD with what the device has, cut to the allocation length and to what
// the initiator takes.
Response dataIn(const Request& request, const Bytes& available, size_t allocation)
{
    Response response;
    if (request.direction == kFromDevice) {
        const size_t length = std::min({available.size(), allocation, size_t{request.dxferLen}});
        response.data.assign(available.begin(), available.begin() + static_cast<long>(length));
    }
    return response;
}

uint8_t peripheralByte(const Device& device) { return static_cast<uint8_t>(device.deviceType & 0x1F); }

// --- INQUIRY ---------------------------------------------------------------

// A SAT layer shows the last four characters of the eight-character ATA
// firmware revision, or the first four when those are blank.
std::string productRevision(const Device& device)
{
    if (!isSata(device)) {
        return device.revision;
    }
    const std::string firmware = ata::firmwareText(device);
    const std::string tail = firmware.substr(4, 4);
    return tail == "    " ? firmware.substr(0, 4) : tail;
}

Bytes vpdHeader(const Device& device, uint8_t page, size_t length)
{
    Bytes out(4 + length, 0);
    out[0] = peripheralByte(device);
    out[1] = page;
    putBe(out, 2, length, 2);
    return out;
}

void appendDesignator(Bytes& out, uint8_t protocolAndCodeSet, uint8_t flagsAndType, const Bytes& value)
{
    out.insert(out.end(), {protocolAndCodeSet, flagsAndType, 0, static_cast<uint8_t>(value.size())});
    out.insert(out.end(), value.begin(), value.end());
}

Bytes naa(uint64_t name)
{
    Bytes value(8, 0);
    putBe(value, 0, name, 8);
    return value;
}

Bytes deviceIdentification(const Device& device)
{
    const uint64_t wwn = worldWideName(device);
    Bytes designators;
    appendDesignator(designators, 0x01, 0x03, naa(wwn)); // logical unit, NAA, binary
    if (isSata(device)) {
        // The T10 vendor identification a SAT layer builds from IDENTIFY DEVICE.
        const std::string text = "ATA     " + ata::modelText(device) + ata::serialText(device);
        appendDesignator(designators, 0x02, 0x01, Bytes(text.begin(), text.end()));
    } else {
        appendDesignator(designators, kProtocolSas << 4 | 0x1, 0x93, naa(wwn + 1)); // target port
        appendDesignator(designators, kProtocolSas << 4 | 0x1, 0x94, {0, 0, 0, 1}); // relative port 1
        appendDesignator(designators, kProtocolSas << 4 | 0x1, 0xA3, naa(wwn + 3)); // target device
    }
    Bytes out = vpdHeader(device, 0x83, designators.size());
    std::copy(designators.begin(), designators.end(), out.begin() + 4);
    return out;
}

Bytes ataInformation(const Device& device)
{
    Bytes out = vpdHeader(device, 0x89, 568);
    putText(out, 8, "LSI", 8); // the translation layer's own vendor, product and revision
    putText(out, 16, "LSI SATL", 16);
    putText(out, 32, "0008", 4);
    // The device's signature FIS: a plain ATA device.
    out[36] = 0x34;
    out[38] = 0x50;
    out[39] = 0x01;
    out[40] = 0x01;
    out[48] = 0x01;
    out[56] = ata::kIdentifyDevice;
    const Bytes identify = ata::identify(device);
    std::copy(identify.begin(), identify.end(), out.begin() + 60);
    return out;
}

Bytes blockDeviceCharacteristics(const Device& device)
{
    Bytes out = vpdHeader(device, 0xB1, 0x3C);
    putBe(out, 4, static_cast<uint16_t>(device.rotationRate), 2);
    out[7] = static_cast<uint8_t>(formFactorCode(device));
    return out;
}

bool hasVpdPage(const Device& device, uint8_t page)
{
    if (page == 0x89) {
        return isSata(device);
    }
    if (page == 0xB1) {
        return !isEnclosure(device);
    }
    return std::find(std::begin(kSupportedVpdPages), std::end(kSupportedVpdPages), page) !=
           std::end(kSupportedVpdPages);
}

Response inquiry(const Device& device, const Request& request)
{
    const Bytes& cdb = request.cdb;
    const bool evpd = (cdb[1] & 0x01) != 0;
    const size_t allocation = getBe(cdb, 3, 2);
    if ((cdb[1] & 0x02) != 0) {
        return invalidField(1); // CMDDT is gone since SPC-3
    }
    if (!evpd) {
        return cdb[2] != 0 ? invalidField(2) : dataIn(request, standardInquiry(device), allocation);
    }
    const Bytes page = vpdPage(device, cdb[2]);
    return page.empty() ? invalidField(2) : dataIn(request, page, allocation);
}

// --- MODE SENSE ------------------------------------------------------------

struct ModePage {
    uint8_t code;
    uint8_t subpage;
    Bytes bytes;
};

uint64_t attachedInitiatorAddress(const Device& device)
{
    return 0x500605B000000000ULL | ((std::hash<std::string>{}(device.hba) & 0xffffff) << 8);
}

// Protocol-specific port page, short format: SAS, with the I_T nexus loss
// time and the initiator response timeout (ms).
Bytes sasPortPage()
{
    Bytes page(8, 0);
    page[0] = 0x19;
    page[1] = 6;
    page[2] = kProtocolSas;
    putBe(page, 4, 2000, 2);
    putBe(page, 6, 2000, 2);
    return page;
}

// Phy control and discover subpage: a SAS disk has two phys, the first
// linked to the adapter; a SATA disk is seen through the one phy of its
// translation layer.
Bytes phyControlAndDiscoverPage(const Device& device)
{
    const size_t phys = isSata(device) ? 1 : 2;
    const uint8_t maximumRate = isSata(device) ? kRate6G : kRate12G;
    Bytes page(8 + 48 * phys, 0);
    page[0] = 0x40 | 0x19; // subpage format
    page[1] = 0x01;
    putBe(page, 2, page.size() - 4, 2);
    page[5] = kProtocolSas;
    page[7] = static_cast<uint8_t>(phys);
    for (size_t phy = 0; phy < phys; ++phy) {
        const size_t at = 8 + 48 * phy;
        const bool linked = phy == 0;
        page[at + 1] = static_cast<uint8_t>(phy);
        page[at + 4] = linked ? 0x10 : 0x00; // attached: an end device (the adapter)
        page[at + 5] = linked ? maximumRate : 0x0;
        page[at + 6] = linked ? 0x08 : 0x00; // attached SSP initiator port
        putBe(page, at + 8, worldWideName(device) + 1 + phy, 8);
        if (linked) {
            putBe(page, at + 16, attachedInitiatorAddress(device), 8);
            page[at + 24] = static_cast<uint8_t>(device.target & 0xff);
        }
        page[at + 32] = kRate1_5G << 4 | kRate1_5G;
        page[at + 33] = static_cast<uint8_t>(maximumRate << 4 | maximumRate);
    }
    return page;
}

// Informational exceptions control: exceptions enabled (DEXCPT clear),
// reported only on request (MRIE 6); saveable.
Bytes informationalExceptionsPage()
{
    Bytes page(12, 0);
    page[0] = 0x80 | 0x1C;
    page[1] = 10;
    page[3] = 6;
    putBe(page, 8, 1, 4); // report count
    return page;
}

std::vector<ModePage> modePages(const Device& device)
{
    std::vector<ModePage> pages = {{0x19, 0x00, sasPortPage()}, {0x19, 0x01, phyControlAndDiscoverPage(device)}};
    if (!isEnclosure(device)) {
        pages.push_back({0x1C, 0x00, informationalExceptionsPage()});
    }
    return pages;
}

// The changeable values of a page: its header with every field zero, as
// nothing here can be changed by MODE SELECT.
Bytes changeableMask(const ModePage& page)
{
    const size_t header = page.subpage != 0 || (page.bytes[0] & 0x40) != 0 ? 4 : 2;
    Bytes mask(page.bytes.size(), 0);
    std::copy(page.bytes.begin(), page.bytes.begin() + static_cast<long>(header), mask.begin());
    return mask;
}

Response modeSense(const Device& device, const Request& request, bool ten)
{
    const Bytes& cdb = request.cdb;
    const bool dbd = (cdb[1] & 0x08) != 0;
    const bool longLba = ten && (cdb[1] & 0x10) != 0;
    const uint8_t control = cdb[2] >> 6;
    const uint8_t code = cdb[2] & 0x3F;
    const uint8_t subpage = cdb[3];
    const size_t allocation = ten ? getBe(cdb, 7, 2) : cdb[4];
    constexpr uint8_t kAllPages = 0x3F, kAllSubpages = 0xFF;
    constexpr uint8_t kChangeable = 1;

    Bytes pages;
    for (const ModePage& page : modePages(device)) {
        const bool codeMatches = code == kAllPages || page.code == code;
        const bool subpageMatches = subpage == kAllSubpages || page.subpage == subpage;
        if (codeMatches && subpageMatches) {
            const Bytes bytes = control == kChangeable ? changeableMask(page) : page.bytes;
            pages.insert(pages.end(), bytes.begin(), bytes.end());
        }
    }
    if (pages.empty()) {
        return invalidField(subpage != 0 ? 3 : 2);
    }

    Bytes descriptor;
    if (!dbd && !isEnclosure(device)) {
        descriptor.assign(longLba ? 16 : 8, 0);
        if (longLba) {
            putBe(descriptor, 0, device.blocks, 8);
            putBe(descriptor, 12, device.blockSize, 4);
        } else {
            putBe(descriptor, 0, std::min<uint64_t>(device.blocks, 0xffffffff), 4);
            putBe(descriptor, 5, device.blockSize, 3);
        }
    }
    const uint8_t deviceSpecific = isEnclosure(device) ? 0x00 : 0x10; // DPOFUA
    Bytes out(ten ? 8 : 4, 0);
    if (ten) {
        out[3] = deviceSpecific;
        out[4] = longLba ? 0x01 : 0x00;
        putBe(out, 6, descriptor.size(), 2);
    } else {
        out[2] = deviceSpecific;
        out[3] = static_cast<uint8_t>(descriptor.size());
    }
    out.insert(out.end(), descriptor.begin(), descriptor.end());
    out.insert(out.end(), pages.begin(), pages.end());
    if (ten) {
        putBe(out, 0, out.size() - 2, 2);
    } else {
        out[0] = static_cast<uint8_t>(std::min<size_t>(out.size() - 1, 0xff));
    }
    return dataIn(request, out, allocation);
}

// --- LOG SENSE -------------------------------------------------------------

struct LogParameter {
    uint16_t code;
    Bytes value;
};

constexpr uint8_t kSupportedLogPages = 0x00;
constexpr uint8_t kTemperatureLog = 0x0D;
constexpr uint8_t kSolidStateMediaLog = 0x11;
constexpr uint8_t kBackgroundScanLog = 0x15;
constexpr uint8_t kInformationalExceptionsLog = 0x2F;

// A SAT layer translates the temperature and informational exceptions
// pages (from the device statistics and SMART RETURN STATUS) and refuses
// the others; a SAS disk has all, solid state media only when it is one.
std::vector<uint8_t> logPages(const Device& device)
{
    if (isSata(device)) {
        return {kSupportedLogPages, kTemperatureLog, kInformationalExceptionsLog};
    }
    std::vector<uint8_t> pages = {kSupportedLogPages, kTemperatureLog};
    if (isSolidState(device)) {
        pages.push_back(kSolidStateMediaLog);
    }
    pages.push_back(kBackgroundScanLog);
    pages.push_back(kInformationalExceptionsLog);
    return pages;
}

std::vector<LogParameter> logParameters(const Device& device, uint8_t page)
{
    const auto temperature = static_cast<uint8_t>(device.temperature);
    const auto reference = static_cast<uint8_t>(device.maxTemperature);
    switch (page) {
    case kTemperatureLog:
        return {{0x0000, {0, temperature}}, {0x0001, {0, reference}}};
    case kSolidStateMediaLog:
        return {{0x0001, {0, 0, 0, static_cast<uint8_t>(std::clamp(device.wear, 0, 255))}}};
    case kBackgroundScanLog: {
        Bytes status(12, 0);
        putBe(status, 0, std::min<uint64_t>(uint64_t{device.powerOnHours} * 60, 0xffffffff), 4);
        return {{0x0000, status}};
    }
    case kInformationalExceptionsLog: {
        const bool predicted = device.health == "predictive" && !isSata(device);
        return {{0x0000,
                 {predicted ? kAscFailurePrediction : uint8_t{0}, predicted ? kAscqImpendingDriveFailure : uint8_t{0},
                  temperature, reference}}};
    }
    default:
        return {};
    }
}

Response logSense(const Device& device, const Request& request)
{
    const Bytes& cdb = request.cdb;
    const uint8_t page = cdb[2] & 0x3F;
    const uint8_t subpage = cdb[3];
    const auto pointer = static_cast<uint16_t>(getBe(cdb, 5, 2));
    const size_t allocation = getBe(cdb, 7, 2);
    const std::vector<uint8_t> pages = logPages(device);
    constexpr uint8_t kAllSubpages = 0xFF;

    if (std::find(pages.begin(), pages.end(), page) == pages.end()) {
        return invalidField(2);
    }
    Bytes out(4, 0);
    out[0] = page;
    if (page == kSupportedLogPages && subpage == kAllSubpages) {
        out[0] |= 0x40;
        out[1] = kAllSubpages;
        for (uint8_t each : pages) {
            out.insert(out.end(), {each, 0x00});
            if (each == kSupportedLogPages) {
                out.insert(out.end(), {kSupportedLogPages, kAllSubpages});
            }
        }
    } else if (subpage != 0) {
        return invalidField(3);
    } else if (page == kSupportedLogPages) {
        out.insert(out.end(), pages.begin(), pages.end());
    } else {
        if (page == kInformationalExceptionsLog && device.health == "failed") {
            return checkCondition(kHardwareError, kAscInternalTargetFailure);
        }
        const std::vector<LogParameter> parameters = logParameters(device, page);
        if (pointer > parameters.back().code) {
            return invalidField(5);
        }
        for (const LogParameter& parameter : parameters) {
            if (parameter.code < pointer) {
                continue;
            }
            out.insert(out.end(), {static_cast<uint8_t>(parameter.code >> 8), static_cast<uint8_t>(parameter.code),
                                   0x03, static_cast<uint8_t>(parameter.value.size())});
            out.insert(out.end(), parameter.value.begin(), parameter.value.end());
        }
    }
    putBe(out, 2, out.size() - 4, 2);
    return dataIn(request, out, allocation);
}

// --- Capacity, defects, the rest of SPC ------------------------------------

uint64_t lastLba(const Device& device) { return device.blocks == 0 ? 0 : device.blocks - 1; }

Response readCapacity10(const Device& device, const Request& request)
{
    Bytes out(8, 0);
    putBe(out, 0, std::min<uint64_t>(lastLba(device), 0xffffffff), 4);
    putBe(out, 4, device.blockSize, 4);
    return dataIn(request, out, out.size());
}

Response readCapacity16(const Device& device, const Request& request)
{
    if ((request.cdb[1] & 0x1F) != kReadCapacity16) {
        return invalidField(1);
    }
    Bytes out(32, 0);
    putBe(out, 0, lastLba(device), 8);
    putBe(out, 8, device.blockSize, 4);
    out[14] = isSolidState(device) ? 0x80 : 0x00; // LBPME: unmapping provisions
    return dataIn(request, out, getBe(request.cdb, 10, 4));
}

// Defect list header of an empty list, in the format and lists asked for.
Response readDefectData10(const Request& request)
{
    Bytes out(4, 0);
    out[1] = request.cdb[2] & 0x1F;
    return dataIn(request, out, getBe(request.cdb, 7, 2));
}

Response requestSense(const Device& device, const Request& request)
{
    const Bytes sense = device.state == "notready" ? fixedSense(kNotReady, kAscNotReady, kAscqStartUnitNeeded)
                                                   : fixedSense(kNoSense, 0, 0);
    return dataIn(request, sense, request.cdb[4]);
}

Response reportLuns(const Request& request)
{
    Bytes out(16, 0);
    putBe(out, 0, 8, 4); // one LUN: 0
    return dataIn(request, out, getBe(request.cdb, 6, 4));
}

// --- ATA PASS-THROUGH(16) ----------------------------------------------------

// The ATA registers of the command, and how many bytes it moves.
struct PassThrough {
    ata::Command command;
    size_t transferBytes = 0;
};

PassThrough decodePassThrough(const Request& request)
{
    const Bytes& cdb = request.cdb;
    const bool extend = (cdb[1] & 0x01) != 0;
    PassThrough pass;
    pass.command.command = cdb[14];
    pass.command.features = static_cast<uint16_t>((extend ? cdb[3] << 8 : 0) | cdb[4]);
    pass.command.count = static_cast<uint16_t>((extend ? cdb[5] << 8 : 0) | cdb[6]);
    uint64_t lba = uint64_t{cdb[8]} | uint64_t{cdb[10]} << 8 | uint64_t{cdb[12]} << 16;
    if (extend) {
        lba |= uint64_t{cdb[7]} << 24 | uint64_t{cdb[9]} << 32 | uint64_t{cdb[11]} << 40;
    } else {
        lba |= uint64_t{cdb[13] & 0x0Fu} << 24;
    }
    pass.command.lba = lba;

    const uint8_t lengthField = cdb[2] & 0x03; // T_LENGTH: 0 none, 1 features, 2 count, 3 STPSIU
    const bool inBlocks = (cdb[2] & 0x04) != 0;
    const size_t units = lengthField == 1 ? pass.command.features : pass.command.count;
    if (lengthField == 3) {
        pass.transferBytes = request.dxferLen;
    } else if (lengthField != 0) {
        pass.transferBytes = inBlocks ? units * 512 : units;
    }
    return pass;
}

// ATA command aborted (ERR, ABRT) as SAT reports it in fixed format: the
// ATA error and status registers in the information field.
Response ataAborted(const ata::Command& command)
{
    Bytes sense = fixedSense(kAbortedCommand, 0x00, kAscqAtaInformationAvailable);
    sense[3] = 0x04; // error: ABRT
    sense[4] = 0x51; // status: DRDY, SERV, ERR
    sense[6] = static_cast<uint8_t>(command.count);
    sense[9] = static_cast<uint8_t>(command.lba);
    sense[10] = static_cast<uint8_t>(command.lba >> 8);
    sense[11] = static_cast<uint8_t>(command.lba >> 16);
    return checkCondition(std::move(sense));
}

Response ataPassThrough(const Device& device, const Request& request)
{
    const PassThrough pass = decodePassThrough(request);
    const ata::Result result = ata::execute(device, pass.command);
    switch (result.outcome) {
    case ata::Result::kAborted:
        return ataAborted(pass.command);
    case ata::Result::kDeviceFault:
        return checkCondition(kHardwareError, kAscInternalTargetFailure);
    case ata::Result::kNotReady:
        return notReady();
    case ata::Result::kOk:
        break;
    }
    return dataIn(request, result.data, pass.transferBytes);
}

// --- Dispatch ----------------------------------------------------------------

struct Command {
    uint8_t opcode;
    size_t cdbLength;
    bool medium; // needs the medium ready
    std::function<bool(const Device&)> supported;
    std::function<Response(const Device&, const Request&)> run;
};

bool always(const Device&) { return true; }
bool disksOnly(const Device& device) { return !isEnclosure(device); }
bool sataOnly(const Device& device) { return isSata(device); }

const std::vector<Command>& commands()
{
    static const std::vector<Command> table = {
        {kTestUnitReady, 6, true, always, [](const Device&, const Request&) { return Response{}; }},
        {kRequestSense, 6, false, always, requestSense},
        {kInquiry, 6, false, always, inquiry},
        {kModeSense6, 6, false, always,
         [](const Device& d, const Request& r) { return modeSense(d, r, false); }},
        {kModeSense10, 10, false, always, [](const Device& d, const Request& r) { return modeSense(d, r, true); }},
        {kLogSense, 10, false, disksOnly, logSense},
        {kReadCapacity10, 10, true, disksOnly, readCapacity10},
        {kServiceActionIn16, 16, true, disksOnly, readCapacity16},
        {kReadDefectData10, 10, true, disksOnly, [](const Device&, const Request& r) { return readDefectData10(r); }},
        {kReportLuns, 12, false, always, [](const Device&, const Request& r) { return reportLuns(r); }},
        {kAtaPassThrough16, 16, false, sataOnly, ataPassThrough},
    };
    return table;
}

} // namespace

Bytes standardInquiry(const Device& device)
{
    Bytes out(96, 0);
    out[0] = peripheralByte(device);
    out[2] = 0x06; // SPC-4
    out[3] = 0x12; // HISUP, response data format 2
    out[4] = static_cast<uint8_t>(out.size() - 5);
    out[6] = isEnclosure(device) ? 0x50 : isSata(device) ? 0x00 : 0x10; // ENCSERV, MULTIP (dual port)
    out[7] = 0x02;                                                       // CMDQUE
    putText(out, 8, isSata(device) ? "ATA" : device.vendor, 8);
    putText(out, 16, isSata(device) ? ata::modelText(device) : device.model, 16);
    putText(out, 32, productRevision(device), 4);
    if (!isSata(device)) {
        putText(out, 36, device.serial, 20); // vendor specific: the serial number, as SAS disks keep it
    }
    // Version descriptors: SAM-5, SPC-4, then the command set and transport.
    const uint16_t commandSet = isEnclosure(device) ? 0x0680 /* SES-3 */ : 0x04C0 /* SBC-3 */;
    const uint16_t transport = isSata(device) ? 0x1EE0 /* SAT-3 */ : 0x0C60 /* SAS-3 */;
    const uint16_t versions[] = {0x00A0, 0x0460, commandSet, transport};
    for (size_t i = 0; i < 4; ++i) {
        putBe(out, 58 + 2 * i, versions[i], 2);
    }
    return out;
}

Bytes vpdPage(const Device& device, uint8_t page)
{
    if (!hasVpdPage(device, page)) {
        return {};
    }
    switch (page) {
    case 0x00: {
        Bytes list;
        for (uint8_t each : kSupportedVpdPages) {
            if (hasVpdPage(device, each)) {
                list.push_back(each);
            }
        }
        Bytes out = vpdHeader(device, 0x00, list.size());
        std::copy(list.begin(), list.end(), out.begin() + 4);
        return out;
    }
    case 0x80: {
        const std::string serial = isSata(device) ? ata::serialText(device) : device.serial;
        Bytes out = vpdHeader(device, 0x80, serial.size());
        std::copy(serial.begin(), serial.end(), out.begin() + 4);
        return out;
    }
    case 0x83:
        return deviceIdentification(device);
    case 0x89:
        return ataInformation(device);
    case 0xB1:
        return blockDeviceCharacteristics(device);
    default:
        return {};
    }
}

Response answer(const Device& device, const Request& request)
{
    if (device.state == "unresponsive") {
        Response silent;
        silent.answered = false;
        return silent;
    }
    if (device.state == "offline") {
        Response gone;
        gone.hostStatus = kDidNoConnect;
        return gone;
    }
    if (request.cdb.empty()) {
        return invalidOpcode();
    }
    for (const Command& command : commands()) {
        if (command.opcode != request.cdb[0]) {
            continue;
        }
        if (!command.supported(device)) {
            break;
        }
        if (request.cdb.size() < command.cdbLength) {
            return invalidField(request.cdb.size());
        }
        if (command.medium && device.state == "notready") {
            return notReady();
        }
        return command.run(device, request);
    }
    return invalidOpcode();
}

} // namespace diskemu
