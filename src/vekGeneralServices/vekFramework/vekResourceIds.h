#pragma once

#include <map>
#include <string>

// Resource Manager ids and their names. The names serve log texts and the
// configuration's resource words; the table is built once and never changes.
namespace vekResourceIds {

const int FIBRE_CHANNEL = 0;
const int HOST = 1;
const int STORAGE = 2;
const int ETHERNET = 3;
const int NVME = 4;
const int GPU = 5;
const int INFINIBAND = 6;
const int STORAGE_RSRM = 8;
const int UTILIZATION = 99;
const int PROCESSOR_TELEMETRY = 100;
const int MEMORY_TELEMETRY = 101;
const int NETWORK_TELEMETRY = 102;
const int STORAGE_TELEMETRY = 103;
const int FILE_SERVICE_TELEMETRY = 104;
const int NUMASTAT_TELEMETRY = 105;
const int NVDIMM_TELEMETRY = 106;

// The whole table, in ascending id order.
const std::map<int, std::string>& table();

// The name of an id. An id outside the table raises std::out_of_range
// ("map::at"): a caller holding an unknown id has a wrong list, not a name.
const std::string& nameOf(int id);

} // namespace vekResourceIds
