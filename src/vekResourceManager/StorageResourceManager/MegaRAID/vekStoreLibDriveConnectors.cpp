// Which controller connectors a drive hangs on: the drive's paths name its
// ports, the firmware's PHY (or lane) connections tie ports to connector
// indices, and the connector table names the indices. The names are what the
// backplane rules of the UBM support are written in.

#include "vekLog.h"
#include "vekStoreLibInterface.h"

#include <algorithm>
#include <cstring>

namespace {

const char TAG[] = "LSI_DRIVE_CONNECTOR";

// A path's port: path 0 in the low nibble, path 1 in the high one.
uint8_t portOfPath(const _MR_PD_INFO& info, size_t path)
{
    return static_cast<uint8_t>((info.connectedPortBitmap >> (4 * path)) & 0x0F);
}

void addIndex(std::vector<uint8_t>& indices, uint8_t index)
{
    if (std::find(indices.begin(), indices.end(), index) != indices.end()) {
        return;
    }
    if (indices.size() >= MR_MAX_SAS_CONNECTORS) {
        VEK_LOG_ERROR(TAG, "Internal Error: Too many known connection indices! (%zu >= %hhu)", indices.size(),
                      static_cast<unsigned char>(MR_MAX_SAS_CONNECTORS));
        return;
    }
    indices.push_back(index);
}

// The connections the firmware says are valid and lead from that port.
void collect(const _MR_CONNECTION* connections, size_t count, uint8_t port, std::vector<uint8_t>& indices)
{
    for (size_t i = 0; i < count; ++i) {
        if ((connections[i].flags & MR_CONNECTION_VALID) != 0 && connections[i].portNumber == port) {
            addIndex(indices, connections[i].connectorIndex);
        }
    }
}

} // namespace

uint32_t vekStoreLibInterface::readSASConnectorsInfo(uint32_t ctrlId, _MR_SAS_CONNECTORS& connectors)
{
    memset(&connectors, 0, sizeof connectors);
    return sendDCMDPassThru(ctrlId, MR_DCMD_SAS_CONNECTORS_GET, &connectors, sizeof connectors, "SAS connectors");
}

uint32_t vekStoreLibInterface::readPhyConnectionsInfo(uint32_t ctrlId, _MR_SAS_PHY_CONNECTIONS& phys)
{
    memset(&phys, 0, sizeof phys);
    return sendDCMDPassThru(ctrlId, MR_DCMD_SAS_PHY_CONNECTIONS_GET, &phys, sizeof phys, "SAS PHY connections");
}

uint32_t vekStoreLibInterface::readLaneConnectionsInfo(uint32_t ctrlId, _MR_PCIE_LANE_CONNECTIONS& lanes)
{
    memset(&lanes, 0, sizeof lanes);
    return sendDCMDPassThru(ctrlId, MR_DCMD_PCIE_LANE_CONNECTIONS_GET, &lanes, sizeof lanes,
                            "PCIe lane connections");
}

void vekStoreLibInterface::discoverConnectionIndicesForSASOrSATAPort(uint32_t ctrlId, uint8_t port,
                                                                     unsigned phyCount, std::vector<uint8_t>& indices)
{
    _MR_SAS_PHY_CONNECTIONS phys;
    const uint32_t status = readPhyConnectionsInfo(ctrlId, phys);
    if (status != SL_SUCCESS) {
        throw vekBroadcom::StorelibAPIFailureException(status, "SAS PHY connections");
    }
    // Neither the controller's PHY count nor the firmware's own count may
    // lead past the table.
    const size_t count = std::min<size_t>({phyCount, phys.count, MR_MAX_SAS_PHYS});
    collect(phys.phy, count, port, indices);
}

void vekStoreLibInterface::discoverConnectionIndicesForNVMePort(uint32_t ctrlId, uint8_t port,
                                                                std::vector<uint8_t>& indices)
{
    _MR_PCIE_LANE_CONNECTIONS lanes;
    const uint32_t status = readLaneConnectionsInfo(ctrlId, lanes);
    if (status != SL_SUCCESS) {
        throw vekBroadcom::StorelibAPIFailureException(status, "PCIe lane connections");
    }
    collect(lanes.lane, std::min<size_t>(lanes.count, MR_MAX_PCIE_LANES), port, indices);
}

void vekStoreLibInterface::discoverDriveConnectorNamesForPort(uint32_t ctrlId, uint16_t deviceId,
                                                              uint8_t interfaceType, uint8_t port, unsigned phyCount,
                                                              std::vector<uint8_t>& indices)
{
    switch (interfaceType) {
    case MR_PD_INTF_SAS:
    case MR_PD_INTF_SATA:
        discoverConnectionIndicesForSASOrSATAPort(ctrlId, port, phyCount, indices);
        return;
    case MR_PD_INTF_NVME:
        discoverConnectionIndicesForNVMePort(ctrlId, port, indices);
        return;
    default:
        VEK_LOG_ERROR(TAG, "Controller ID [%u]; PD Device ID [%hu]: Unrecognized drive interface type [%hhu]!", ctrlId,
                      deviceId, interfaceType);
        throw vekBroadcom::UnrecognizedDriveInterfaceTypeException("Unrecognized drive interface type [" +
                                                                   std::to_string(interfaceType) + "]");
    }
}

void vekStoreLibInterface::discoverDriveConnectorNames(uint32_t ctrlId, uint16_t deviceId,
                                                       std::vector<std::string>& out)
{
    std::lock_guard<std::recursive_mutex> lock(cache_lock);
    out.clear();
    _MR_CTRL_INFO ctrl;
    uint32_t status = getCtrlInfoFunc(ctrlId, ctrl);
    if (status != SL_SUCCESS) {
        throw vekBroadcom::StorelibAPIFailureException(status, "controller info");
    }
    _MR_PD_INFO pd;
    status = FirePDInfo(ctrlId, deviceId, pd);
    if (status != SL_SUCCESS) {
        throw vekBroadcom::StorelibAPIFailureException(status, "PD info");
    }
    if (ctrl.sasPhyCount == 0) {
        VEK_LOG_ERROR(TAG,
                      "Unable to determine connector names for drive (Device ID: [%hu]), since the # of PHYs "
                      "supported by the controller (ID: [%u]) cannot be determined!",
                      deviceId, ctrlId);
        throw vekBroadcom::NoPhysSupportedException("No PHYs supported by controller " + std::to_string(ctrlId));
    }
    std::vector<uint8_t> indices;
    bool addressed = false;
    const size_t paths = std::min<size_t>(pd.pathInfo.count, 2);
    for (size_t path = 0; path < paths; ++path) {
        if (pd.pathInfo.sasAddr[path] == 0) {
            continue;
        }
        addressed = true;
        discoverDriveConnectorNamesForPort(ctrlId, deviceId, pd.interfaceType, portOfPath(pd, path),
                                           ctrl.sasPhyCount, indices);
    }
    if (!addressed) {
        throw vekBroadcom::PhysicalDriveHasNoSASAddressException("PD (Device ID: [" + std::to_string(deviceId) +
                                                                 "]) has no SAS address");
    }
    _MR_SAS_CONNECTORS connectors;
    status = readSASConnectorsInfo(ctrlId, connectors);
    if (status != SL_SUCCESS) {
        throw vekBroadcom::StorelibAPIFailureException(status, "SAS connectors");
    }
    const size_t known = std::min<size_t>(connectors.count, MR_MAX_SAS_CONNECTORS);
    for (const uint8_t index : indices) {
        if (index >= known) {
            VEK_LOG_WARNING(TAG, "Controller ID [%u]; PD Device ID [%hu]: Connector index [%hhu] not in the "
                                 "controller's %zu connectors.",
                            ctrlId, deviceId, index, known);
            continue;
        }
        const char* name = connectors.connectors[index].name;
        out.emplace_back(name, strnlen(name, sizeof connectors.connectors[index].name));
    }
}
