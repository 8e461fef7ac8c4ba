#pragma once

// Writes to the debug log where each PCI function named in the SMBIOS slot
// records sits: GeoID, form factor, chassis location and PL. The service
// does this once at start, so a log shows the machine's map of places.
void vekLogPCILocations();
