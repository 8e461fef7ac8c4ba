#pragma once

// The object model of the I/O card matrix library (libvekcardmatrix.so),
// shared by the service and the library. The library is loaded at run time
// and hands out one loader through createObject().
//
// A card is found by its key, the four PCI ids as lower-case hexadecimal
// without "0x", joined with ":": "8086:1593:8086:0002" (vendor, device,
// subsystem vendor, subsystem device). Its properties are texts:
// "modelName", "partNumber", "sparePartNumber", "skuPartNumber",
// "platformSupport" ("0" when this server model does not support the card),
// and for NVMe "protocolName", "mediaType", "capacityBytes".

#include <map>
#include <string>

class vekIODevice {
public:
    virtual ~vekIODevice() = default;
    // Empty when the card has no such property.
    virtual std::string getProperty(const std::string& name) const = 0;
};

class ioMatrixLoader {
public:
    virtual ~ioMatrixLoader() = default;
    // The hash the named database must have (customHash of the file's text);
    // the library ships with its databases and vouches for them.
    virtual unsigned long expectedHash(const std::string& databaseName) = 0;
    // Takes the decoded database; false, with the reason, when it is not one.
    virtual bool load(const std::string& decoded, std::string& error) = 0;
    // The cards by key; owned by the loader.
    virtual std::map<std::string, vekIODevice*> devices() = 0;
};

extern "C" {
typedef ioMatrixLoader* (*vekCreateIOMatrixLoader)();
typedef void (*vekDestroyIOMatrixLoader)(ioMatrixLoader*);
}
