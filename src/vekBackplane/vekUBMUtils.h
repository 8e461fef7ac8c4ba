#pragma once

// Reading a UBM backplane's FRU EEPROM image: names from its Product Info
// Area and drive routing from its OEM multi-records. Works on the bytes only;
// fetching them over I2C is the discovery's business.

#include <cstddef>
#include <string>
#include <vector>

// One drive route of the backplane, 7 bytes as the FRU holds them. Only the
// bay is ours to read; the rest is carried for whoever needs it.
struct UBM_PORT_ROUTE_INFO_DESCRIPTOR {
    unsigned char route[6];
    unsigned char driveBay;
};
static_assert(sizeof(UBM_PORT_ROUTE_INFO_DESCRIPTOR) == 7, "a port route descriptor is 7 bytes in the FRU");

// The byte the UBM controller answers to Operational State. Values above 4
// are reserved or vendor-specific and pass through unchanged.
enum UBM_CONTROLLER_OPERATIONAL_STATE : int {
    VEK_UBM_CONTROLLER_STATE_UNKNOWN = -1, // not read yet
    VEK_UBM_CONTROLLER_STATE_RESERVED = 0,
    VEK_UBM_CONTROLLER_STATE_INITIALIZING = 1,
    VEK_UBM_CONTROLLER_STATE_BUSY = 2,
    VEK_UBM_CONTROLLER_STATE_READY = 3,
    VEK_UBM_CONTROLLER_STATE_UPGRADE = 4,
};

class vekUBMUtils {
public:
    // Field 1 manufacturer, 2 product name, 3 part number, 4 version,
    // 5 serial number, 6 asset tag, 7 FRU file id. False, with the list of
    // reasons in the log, when the image does not hold that field.
    static bool extractFRUDataFromIPMIProductInfoArea(const unsigned char* fruData, size_t fruSize, size_t fieldIndex,
                                                      std::string& value);

    // The descriptors of the port route record (0xA1), as many as the count
    // record (0xA0) says. Clears the list first.
    static bool extractUBMPortRouteInfoDescriptors(const unsigned char* fruData, size_t fruSize,
                                                   std::vector<UBM_PORT_ROUTE_INFO_DESCRIPTOR>& list);

    static UBM_CONTROLLER_OPERATIONAL_STATE mapUBMControllerOperationState(unsigned char state);
};
