#include "vekResourceIds.h"

namespace vekResourceIds {

const std::map<int, std::string>& table()
{
    static const std::map<int, std::string> names = {
        {FIBRE_CHANNEL, "FibreChannelDevices"},
        {HOST, "HostOSInfo"},
        {STORAGE, "StorageControllers"},
        {ETHERNET, "EthernetDevices"},
        {NVME, "NVMeControllers"},
        {GPU, "GPUDevices"},
        {INFINIBAND, "InfiniBandDevices"},
        {STORAGE_RSRM, "StorageControllers (RSRM)"},
        {UTILIZATION, "Utilization"},
        {PROCESSOR_TELEMETRY, "ProcessorTelemetry"},
        {MEMORY_TELEMETRY, "MemoryTelemetry"},
        {NETWORK_TELEMETRY, "NetworkTelemetry"},
        {STORAGE_TELEMETRY, "StorageTelemetry"},
        {FILE_SERVICE_TELEMETRY, "FileServiceTelemetry"},
        {NUMASTAT_TELEMETRY, "NumastatTelemetry"},
        {NVDIMM_TELEMETRY, "NvdimmTelemetry"},
    };
    return names;
}

const std::string& nameOf(int id)
{
    return table().at(id);
}

} // namespace vekResourceIds
