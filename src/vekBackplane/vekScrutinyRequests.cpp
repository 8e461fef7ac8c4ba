// The requests to MegaRAID controllers through the Scrutiny library: DCMD
// passthrough for configuration page 43, and ISTWI (I2C) transfers to the UBM
// controller and the FRU EEPROM of a backplane.

#include "vekLog.h"
#include "vekScrutinyInterface.h"
#include "vekUBMUtils.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

const char TAG[] = "DSI_SU";

const size_t kFRUSize = 256;
const uint16_t kFRUHalf = 128;
const size_t kFRUBayCountOffset = 138;
const unsigned char kFRUFormatVersion = 1;
const size_t kPage43HeaderRequestSize = 39;
const size_t kMaximumPageBytes = 0xFFFF; // the request carries the length in 16 bits

std::string version(unsigned major, unsigned minor)
{
    return vekLog::format("%hu.%hu", static_cast<unsigned short>(major), static_cast<unsigned short>(minor));
}

// The names of the backplane, from its FRU's product info area.
void readFRUNames(const unsigned char* fru, size_t size, dsiEnclosureSegmentInfo& segment)
{
    struct Field {
        size_t index;
        void (dsiEnclosureSegmentInfo::*set)(const std::string&);
    };
    const Field fields[] = {{1, &dsiEnclosureSegmentInfo::setManufacturerName},
                            {2, &dsiEnclosureSegmentInfo::setProductName},
                            {3, &dsiEnclosureSegmentInfo::setPartNumber},
                            {5, &dsiEnclosureSegmentInfo::setSerialNumber}};
    for (const Field& field : fields) {
        std::string value;
        if (vekUBMUtils::extractFRUDataFromIPMIProductInfoArea(fru, size, field.index, value)) {
            (segment.*field.set)(value);
        }
    }
}

} // namespace

std::string vekScrutinyInterface::pciAddressOf(const _SCRUTINY_DEVICE_INFO& device)
{
    return vekLog::format("%04x:%02x:%02x.%x", device.pciDomain, device.pciBus, device.pciDevice, device.pciFunction);
}

_DSI_STATUS vekScrutinyInterface::issueMegaRAIDConfigPageRequest(const _SCRUTINY_DEVICE_INFO& device,
                                                                 unsigned char* buffer, size_t size, uint8_t* mfiStatus)
{
    if (!library_) {
        return VEK_DSI_STATUS_NOT_INITIALIZED;
    }
    vekCallocBlock mailbox(static_cast<unsigned char*>(calloc(1, SCRUTINY_DCMD_MAILBOX_SIZE)));
    if (!mailbox) {
        VEK_LOG_ERROR(TAG, "Out of memory for Dcmd passthrough on controller @ [%04x:%02x:%02x.%x].",
                      VEK_DSI_PCI_ADDRESS(device));
        return VEK_DSI_STATUS_OUT_OF_MEMORY;
    }
    vekCallocBlock response(static_cast<unsigned char*>(calloc(1, SCRUTINY_DCMD_RESPONSE_SIZE)));
    if (!response) {
        VEK_LOG_ERROR(TAG, "Out of memory for Dcmd response on controller @ [%04x:%02x:%02x.%x].",
                      VEK_DSI_PCI_ADDRESS(device));
        return VEK_DSI_STATUS_OUT_OF_MEMORY;
    }
    _SCRUTINY_DCMD_PASSTHROUGH dcmd{};
    dcmd.command = SCRUTINY_DCMD_READ_CONFIG_PAGE;
    dcmd.direction = SCRUTINY_DCMD_DIRECTION_READ;
    dcmd.dataBuffer = buffer;
    dcmd.dataLength = static_cast<uint32_t>(size);
    dcmd.mailbox = mailbox.get();
    dcmd.mailboxLength = SCRUTINY_DCMD_MAILBOX_SIZE;
    dcmd.response = response.get();
    dcmd.responseLength = SCRUTINY_DCMD_RESPONSE_SIZE;
    unsigned handle = device.productHandle;
    const _SCRUTINY_STATUS status = library_->dcmdPassthrough(&handle, &dcmd);
    if (status != SCRUTINY_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG, "Dcmd passthrough call failed on controller @ [%04x:%02x:%02x.%x] with libStatus [0x%x]",
                      VEK_DSI_PCI_ADDRESS(device), status);
        return VEK_DSI_STATUS_LIBRARY_FAILURE;
    }
    const uint8_t mfi = response.get()[0];
    if (mfiStatus != nullptr) {
        *mfiStatus = mfi;
    }
    if (mfi != 0) {
        VEK_LOG_ERROR(TAG,
                      "Dcmd passthrough call failed on controller @ [%04x:%02x:%02x.%x] with command MFI status [0x%x]",
                      VEK_DSI_PCI_ADDRESS(device), mfi);
        return VEK_DSI_STATUS_COMMAND_FAILED;
    }
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::readMegaRAIDConfigurationPage43(const _SCRUTINY_DEVICE_INFO& device,
                                                                  _MR_SAS_CONFIG_PAGE& page)
{
    page = _MR_SAS_CONFIG_PAGE();
    vekCallocBlock header(static_cast<unsigned char*>(calloc(1, kPage43HeaderRequestSize)));
    if (!header) {
        VEK_LOG_ERROR(TAG, "Out of memory to read config page 43 header on controller @ [%04x:%02x:%02x.%x].",
                      VEK_DSI_PCI_ADDRESS(device));
        return VEK_DSI_STATUS_OUT_OF_MEMORY;
    }
    unsigned char* request = header.get();
    request[MR_CONFIG_PAGE_REQUEST_KIND_OFFSET] = MR_CONFIG_PAGE_REQUEST_KIND;
    request[MR_CONFIG_PAGE_REQUEST_LENGTH_OFFSET] = MR_CONFIG_PAGE_HEADER_SIZE;
    request[MR_CONFIG_PAGE_REQUEST_PAGE_OFFSET] = MR_CONFIG_PAGE_43_REQUEST_PAGE;
    _DSI_STATUS status = issueMegaRAIDConfigPageRequest(device, request, kPage43HeaderRequestSize);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG, "Failed to read config page 43 header on controller @ [%04x:%02x:%02x.%x].",
                      VEK_DSI_PCI_ADDRESS(device));
        return status;
    }
    const size_t words = request[MR_CONFIG_PAGE_LENGTH_OFFSET] | (request[MR_CONFIG_PAGE_LENGTH_OFFSET + 1] << 8);
    const size_t bytes = words * 4;
    // A length the request cannot carry is as wrong as none.
    if (words == 0 || bytes > kMaximumPageBytes) {
        VEK_LOG_ERROR(TAG, "Invalid page length for config page 43 on controller @ [%04x:%02x:%02x.%x].",
                      VEK_DSI_PCI_ADDRESS(device));
        return VEK_DSI_STATUS_INVALID_PAGE_LENGTH;
    }
    const size_t size = bytes + MR_CONFIG_PAGE_REQUEST_HEADER_SIZE;
    vekCallocBlock block(static_cast<unsigned char*>(calloc(1, size)));
    if (!block) {
        VEK_LOG_ERROR(TAG, "Out of memory to read config page 43 on controller @ [%04x:%02x:%02x.%x].",
                      VEK_DSI_PCI_ADDRESS(device));
        return VEK_DSI_STATUS_OUT_OF_MEMORY;
    }
    request = block.get();
    request[MR_CONFIG_PAGE_REQUEST_KIND_OFFSET] = MR_CONFIG_PAGE_REQUEST_KIND;
    request[MR_CONFIG_PAGE_REQUEST_LENGTH_OFFSET] = static_cast<unsigned char>(bytes & 0xFF);
    request[MR_CONFIG_PAGE_REQUEST_LENGTH_OFFSET + 1] = static_cast<unsigned char>(bytes >> 8);
    request[MR_CONFIG_PAGE_REQUEST_PAGE_OFFSET] = MR_CONFIG_PAGE_43_REQUEST_PAGE;
    status = issueMegaRAIDConfigPageRequest(device, request, size);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG, "Failed to read config page 43 on controller @ [%04x:%02x:%02x.%x].",
                      VEK_DSI_PCI_ADDRESS(device));
        return status;
    }
    VEK_LOG_DEBUG(TAG, "Successfully read config page 43 on controller @ [%04x:%02x:%02x.%x].",
                  VEK_DSI_PCI_ADDRESS(device));
    page.block = std::move(block);
    page.size = size;
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::reserveReleaseMegaRAIDI2CBus(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus,
                                                               uint16_t deviceAddress, uint8_t type, uint8_t muxChannel,
                                                               uint8_t muxIndex, uint16_t muxAddress, bool reserve)
{
    if (!library_) {
        return VEK_DSI_STATUS_NOT_INITIALIZED;
    }
    _SCRUTINY_ISTWI_REQUEST request{};
    request.action = reserve ? SCRUTINY_ISTWI_ACTION_RESERVE_BUS : SCRUTINY_ISTWI_ACTION_RELEASE_BUS;
    request.flags = 1;
    request.type = type;
    request.bus = bus;
    request.deviceAddress = deviceAddress;
    request.muxChannel = muxChannel;
    request.muxIndex = muxIndex;
    request.muxAddress = muxAddress;
    VEK_LOG_DEBUG(TAG, "MegaRAID @ [%04x:%02x:%02x.%x]: %s I2C Bus [%d]...", VEK_DSI_PCI_ADDRESS(device),
                  reserve ? "Reserving" : "Releasing", bus);
    __SCRUTINY_IOC_STATUS ioc{};
    unsigned handle = device.productHandle;
    const _SCRUTINY_STATUS status = library_->istwiReadWrite(&handle, &request, &ioc);
    if (status != SCRUTINY_STATUS_SUCCESS || ioc.iocStatus != 0) {
        VEK_LOG_ERROR(TAG,
                      "MegaRAID @ [%04x:%02x:%02x.%x]: Attempt to %s I2C Bus [%d] failed. (libStatus=[0x%08X]; IOC "
                      "Status=[0x%04X]; IOC LogInfo=[0x%08X])",
                      VEK_DSI_PCI_ADDRESS(device), reserve ? "reserve" : "release", bus, status, ioc.iocStatus, ioc.iocLogInfo);
        return status != SCRUTINY_STATUS_SUCCESS ? VEK_DSI_STATUS_LIBRARY_FAILURE : VEK_DSI_STATUS_IOC_FAILURE;
    }
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::executeMegaRAIDISTWIRequestList(const _SCRUTINY_DEVICE_INFO& device,
                                                                  _SCRUTINY_ISTWI_REQUEST* requests, size_t count,
                                                                  _SCRUTINY_STATUS* statuses,
                                                                  __SCRUTINY_IOC_STATUS* iocStatuses)
{
    VEK_LOG_DEBUG(TAG, "MegaRAID @ [%04x:%02x:%02x.%x]: %zu ISTWI requests to be executed.",
                  VEK_DSI_PCI_ADDRESS(device), count);
    if (statuses != nullptr) {
        memset(statuses, 0xFF, count * sizeof *statuses);
    }
    if (iocStatuses != nullptr) {
        memset(iocStatuses, 0xFF, count * sizeof *iocStatuses);
    }
    if (count == 0 || requests == nullptr) {
        VEK_LOG_WARNING(TAG, "No ISTWI requests specified by caller.");
        return VEK_DSI_STATUS_NO_REQUESTS;
    }
    if (!library_) {
        return VEK_DSI_STATUS_NOT_INITIALIZED;
    }
    const _SCRUTINY_ISTWI_REQUEST& first = requests[0];
    _DSI_STATUS status = reserveReleaseMegaRAIDI2CBus(device, first.bus, first.deviceAddress, first.type,
                                                      first.muxChannel, first.muxIndex, first.muxAddress, true);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        return status;
    }
    for (size_t i = 0; i < count; ++i) {
        _SCRUTINY_ISTWI_REQUEST& request = requests[i];
        VEK_LOG_DEBUG(TAG,
                      "MegaRAID @ [%04x:%02x:%02x.%x]: Issuing ISTWI request [%zu]: Bus=[0x%02x]; Device=[0x%04x]; "
                      "Type=[0x%02x]; Mux=[0x%02x, 0x%04x, 0x%02x]; Action=[%d]; Tx=[%hu, %p] Rx=[%hu, %p]...",
                      VEK_DSI_PCI_ADDRESS(device), i, request.bus, request.deviceAddress, request.type, request.muxChannel,
                      request.muxAddress, request.muxIndex, request.action, request.transmitLength,
                      request.transmitBuffer, request.receiveLength, request.receiveBuffer);
        __SCRUTINY_IOC_STATUS ioc{};
        unsigned handle = device.productHandle;
        const _SCRUTINY_STATUS result = library_->istwiReadWrite(&handle, &request, &ioc);
        if (result != SCRUTINY_STATUS_SUCCESS || ioc.iocStatus != 0) {
            VEK_LOG_ERROR(TAG,
                          "MegaRAID @ [%04x:%02x:%02x.%x]: ISTWI request [%zu] on I2C Bus [%d] failed. "
                          "(libStatus=[0x%08X]; IOC Status=[0x%04X]; IOC LogInfo=[0x%08X])",
                          VEK_DSI_PCI_ADDRESS(device), i, request.bus, result, ioc.iocStatus, ioc.iocLogInfo);
        } else {
            VEK_LOG_DEBUG(TAG, "MegaRAID @ [%04x:%02x:%02x.%x]: ISTWI request [%zu] completed. (Rx=[%hu])",
                          VEK_DSI_PCI_ADDRESS(device), i, request.receiveLength);
        }
        if (statuses != nullptr) {
            statuses[i] = result;
        }
        if (iocStatuses != nullptr) {
            iocStatuses[i] = ioc;
        }
    }
    status = reserveReleaseMegaRAIDI2CBus(device, first.bus, first.deviceAddress, first.type, first.muxChannel,
                                          first.muxIndex, first.muxAddress, false);
    VEK_LOG_DEBUG(TAG, "MegaRAID @ [%04x:%02x:%02x.%x]: Executed %zu ISTWI requests.", VEK_DSI_PCI_ADDRESS(device),
                  count);
    return status;
}

_SCRUTINY_ISTWI_REQUEST vekScrutinyInterface::transfer(uint8_t bus, uint16_t deviceAddress, unsigned char* transmit,
                                                       uint16_t transmitLength, unsigned char* receive,
                                                       uint16_t receiveLength)
{
    _SCRUTINY_ISTWI_REQUEST request{};
    request.action = SCRUTINY_ISTWI_ACTION_READ_WRITE;
    request.receiveLength = receiveLength;
    request.transmitLength = transmitLength;
    request.receiveBuffer = receive;
    request.transmitBuffer = transmit;
    request.flags = 1;
    request.type = SCRUTINY_ISTWI_TYPE;
    request.bus = bus;
    request.deviceAddress = deviceAddress;
    return request;
}

_DSI_STATUS vekScrutinyInterface::transferStatus(const _SCRUTINY_ISTWI_REQUEST& request, uint16_t wanted,
                                                 _SCRUTINY_STATUS status, const __SCRUTINY_IOC_STATUS& ioc)
{
    if (status != SCRUTINY_STATUS_SUCCESS) {
        return VEK_DSI_STATUS_LIBRARY_FAILURE;
    }
    if (ioc.iocStatus != 0) {
        return VEK_DSI_STATUS_IOC_FAILURE;
    }
    // Fewer bytes than asked leave the rest of the answer unknown; more
    // would be a library that wrote past what it was given.
    return request.receiveLength == wanted ? VEK_DSI_STATUS_SUCCESS : VEK_DSI_STATUS_SHORT_TRANSFER;
}

_DSI_STATUS vekScrutinyInterface::ubmCommand(const _SCRUTINY_DEVICE_INFO& device, uint8_t bus, uint8_t command,
                                             unsigned char* response, uint16_t size, uint8_t& lastStatus)
{
    unsigned char transmit[2] = {command, static_cast<unsigned char>(UBM_COMMAND_CHECKSUM_BASE - command)};
    unsigned char statusTransmit[2] = {UBM_COMMAND_LAST_COMMAND_STATUS,
                                       UBM_COMMAND_CHECKSUM_BASE - UBM_COMMAND_LAST_COMMAND_STATUS};
    unsigned char statusByte[1] = {0};
    _SCRUTINY_ISTWI_REQUEST requests[2] = {
        transfer(bus, UBM_CONTROLLER_I2C_ADDRESS, transmit, sizeof transmit, response, size),
        transfer(bus, UBM_CONTROLLER_I2C_ADDRESS, statusTransmit, sizeof statusTransmit, statusByte, 1)};
    _SCRUTINY_STATUS statuses[2];
    __SCRUTINY_IOC_STATUS iocStatuses[2];
    lastStatus = 0;
    _DSI_STATUS status = executeMegaRAIDISTWIRequestList(device, requests, 2, statuses, iocStatuses);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        return status;
    }
    status = transferStatus(requests[1], 1, statuses[1], iocStatuses[1]);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        return status;
    }
    lastStatus = statusByte[0];
    status = transferStatus(requests[0], size, statuses[0], iocStatuses[0]);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        return status;
    }
    return lastStatus == UBM_LAST_COMMAND_STATUS_SUCCESS ? VEK_DSI_STATUS_SUCCESS : VEK_DSI_STATUS_COMMAND_FAILED;
}

_DSI_STATUS
vekScrutinyInterface::populateEnclosureInfoWithUBMSiliconIdentityVersion(const _SCRUTINY_DEVICE_INFO& device,
                                                                         uint8_t bus, dsiEnclosureSegmentInfo& segment)
{
    std::array<unsigned char, UBM_SILICON_IDENTITY_VERSION_SIZE> identity{};
    uint8_t lastStatus = 0;
    const _DSI_STATUS status = ubmCommand(device, bus, UBM_COMMAND_SILICON_IDENTITY_VERSION, identity.data(),
                                          static_cast<uint16_t>(identity.size()), lastStatus);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG,
                      "MegaRAID @ [%04x:%02x:%02x.%x]: I2c Bus [%hu]: UBM Silicon Identity & Version command failure. "
                      "(dsiStatus=[%d], rData2[0]=[0x%02X])",
                      VEK_DSI_PCI_ADDRESS(device), static_cast<unsigned short>(bus), status, lastStatus);
        return status;
    }
    segment.setUBMBackplaneStandardVersion(version(identity[0] >> 4, identity[0] & 0x0F));
    segment.setUBMBackplanePCIVendorID(static_cast<uint16_t>(identity[1] | (identity[2] << 8)));
    segment.setUBMControllerDeviceCode(static_cast<uint32_t>(identity[4]) | (static_cast<uint32_t>(identity[5]) << 8) |
                                       (static_cast<uint32_t>(identity[6]) << 16) |
                                       (static_cast<uint32_t>(identity[7]) << 24));
    segment.setUBMBackplaneImageVersion(version(identity[11], identity[10]));
    segment.setBackplaneType("UBM");
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::populateEnclosureInfoWithUBMBackplaneInfo(const _SCRUTINY_DEVICE_INFO& device,
                                                                            uint8_t bus,
                                                                            dsiEnclosureSegmentInfo& segment)
{
    unsigned char info[1] = {0};
    uint8_t lastStatus = 0;
    const _DSI_STATUS status = ubmCommand(device, bus, UBM_COMMAND_BACKPLANE_INFO, info, sizeof info, lastStatus);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG,
                      "MegaRAID @ [%04x:%02x:%02x.%x]: I2c Bus [%hu]: UBM Backplane Info command failure. (dsiStatus=[%d], "
                      "rData2[0]=[0x%02X])",
                      VEK_DSI_PCI_ADDRESS(device), static_cast<unsigned short>(bus), status, lastStatus);
        return status;
    }
    segment.setBoxNumber(info[0] & 0x0F);
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::populateEnclosureInfoWithUBMOperationalState(const _SCRUTINY_DEVICE_INFO& device,
                                                                               uint8_t bus,
                                                                               dsiEnclosureSegmentInfo& segment)
{
    unsigned char state[1] = {0};
    uint8_t lastStatus = 0;
    const _DSI_STATUS status = ubmCommand(device, bus, UBM_COMMAND_OPERATIONAL_STATE, state, sizeof state, lastStatus);
    if (status != VEK_DSI_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG,
                      "MegaRAID @ [%04x:%02x:%02x.%x]: I2c Bus [%hu]: UBM Operational State command failure. (dsiStatus=[%d], "
                      "rData2[0]=[0x%02X])",
                      VEK_DSI_PCI_ADDRESS(device), static_cast<unsigned short>(bus), status, lastStatus);
        return status;
    }
    segment.setUBMControllerOperationalState(vekUBMUtils::mapUBMControllerOperationState(state[0]));
    return VEK_DSI_STATUS_SUCCESS;
}

_DSI_STATUS vekScrutinyInterface::populateEnclosureInfoWithUBMFRUNVRAMData(const _SCRUTINY_DEVICE_INFO& device,
                                                                           uint8_t bus,
                                                                           dsiEnclosureSegmentInfo& segment)
{
    std::array<unsigned char, kFRUSize> fru{};
    unsigned char firstHalf[1] = {0x00};
    unsigned char secondHalf[1] = {0x80};
    _SCRUTINY_ISTWI_REQUEST requests[2] = {
        transfer(bus, UBM_FRU_I2C_ADDRESS, firstHalf, sizeof firstHalf, fru.data(), kFRUHalf),
        transfer(bus, UBM_FRU_I2C_ADDRESS, secondHalf, sizeof secondHalf, fru.data() + kFRUHalf, kFRUHalf)};
    _SCRUTINY_STATUS statuses[2];
    __SCRUTINY_IOC_STATUS iocStatuses[2];
    _DSI_STATUS status = executeMegaRAIDISTWIRequestList(device, requests, 2, statuses, iocStatuses);
    for (size_t i = 0; i < 2 && status == VEK_DSI_STATUS_SUCCESS; ++i) {
        status = transferStatus(requests[i], kFRUHalf, statuses[i], iocStatuses[i]);
    }
    if (status == VEK_DSI_STATUS_SUCCESS && fru[0] != kFRUFormatVersion) {
        status = VEK_DSI_STATUS_COMMAND_FAILED; // blank or foreign EEPROM
    }
    if (status != VEK_DSI_STATUS_SUCCESS) {
        VEK_LOG_ERROR(TAG, "MegaRAID @ [%04x:%02x:%02x.%x]: I2c Bus [%hu]: UBM FRU NVRAM Read failure. (dsiStatus=[%d])",
                      VEK_DSI_PCI_ADDRESS(device), static_cast<unsigned short>(bus), status);
        return status;
    }
    readFRUNames(fru.data(), fru.size(), segment);
    segment.setBayCount(fru[kFRUBayCountOffset]);
    std::vector<UBM_PORT_ROUTE_INFO_DESCRIPTOR> routes;
    if (vekUBMUtils::extractUBMPortRouteInfoDescriptors(fru.data(), fru.size(), routes)) {
        segment.setUBMPortRouteInfoVector(routes);
    }
    return VEK_DSI_STATUS_SUCCESS;
}
