#pragma once

#include "vekPhysLocLibrary.h"

#include <dlfcn.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace vekPhysLoc {

class vekPhysLocInterfaceException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class LibraryLoadFailedException : public vekPhysLocInterfaceException {
public:
    using vekPhysLocInterfaceException::vekPhysLocInterfaceException;
};

class InvalidLibraryPathException : public vekPhysLocInterfaceException {
public:
    using vekPhysLocInterfaceException::vekPhysLocInterfaceException;
};

class SymbolAddressNotFoundException : public vekPhysLocInterfaceException {
public:
    explicit SymbolAddressNotFoundException(const std::string& name)
        : vekPhysLocInterfaceException("Symbol address not found for [" + name + "]!")
    {
    }
};

// Built inside a catch block, so that the cause travels along as the nested
// exception.
class InvalidPLException : public vekPhysLocInterfaceException, public std::nested_exception {
public:
    explicit InvalidPLException(const std::string& pl) : vekPhysLocInterfaceException("Invalid PL: [" + pl + "]") {}
};

class PLAPIFailureException : public vekPhysLocInterfaceException {
public:
    explicit PLAPIFailureException(const std::string& text)
        : vekPhysLocInterfaceException("PL API failure: [" + text + "]")
    {
    }
};

} // namespace vekPhysLoc

// The PL of every kind of FRU. "FFFFFFFFFFFFFFFF" is the answer for anything
// that cannot be placed; no operation throws but the decoder.
class vekPhysLocInterface {
public:
    static const std::string NotApplicable; // "NA": the field stays as the library's init left it
    static const std::string InvalidPL;     // "FFFFFFFFFFFFFFFF"

    virtual std::string getPhysLocForDIMMSlot(const std::string& dimmID) = 0;
    virtual std::string getPhysLocForPCIDevice(const std::string& pci) = 0;
    virtual std::string getPhysLocForNetworkAdapter(const std::string& pci) = 0;
    virtual std::string getPhysLocForChassisDriveSlot(const std::string& pci, int box, int bay) = 0;
    virtual std::string getPhysLocForExternalDrive(const std::string& pci) = 0;
    virtual std::string getPhysLocForChassisStorageBackplane(const std::string& pci, int box) = 0;
    // The library's long text of a PL; vekPhysLoc exceptions when the text is
    // no PL or the library refuses it.
    virtual std::string getDecodedPhysLocLongFormat(const std::string& pl) = 0;
    virtual ~vekPhysLocInterface() = default;

    // Twelve characters "%04x:%02x:%02x.%x", or thirteen with a five-digit
    // domain (behind Intel VMD).
    static bool isPCIAddressFormatValid(const std::string& pci);

    // The address of a symbol; SymbolAddressNotFoundException when the
    // library lacks it.
    template <typename T>
    static T fetchSymbolAddress(void* handle, const char* name);

private:
    static void logMissingSymbol(const char* name, const char* error);
};

template <typename T>
T vekPhysLocInterface::fetchSymbolAddress(void* handle, const char* name)
{
    dlerror();
    void* address = dlsym(handle, name);
    const char* error = dlerror();
    if (address == nullptr || error != nullptr) {
        logMissingSymbol(name, error != nullptr ? error : "no address");
        throw vekPhysLoc::SymbolAddressNotFoundException(name);
    }
    return reinterpret_cast<T>(address);
}

// One loaded encoder library and its three functions: what the three
// platform interfaces share. Unloads itself.
class vekPhysLocEncoderLibrary {
public:
    // Loads and binds; vekPhysLoc exceptions on failure, with nothing left
    // loaded.
    vekPhysLocEncoderLibrary(const std::string& path, const char* tag);
    ~vekPhysLocEncoderLibrary();

    vekPhysLocEncoderLibrary(const vekPhysLocEncoderLibrary&) = delete;
    vekPhysLocEncoderLibrary& operator=(const vekPhysLocEncoderLibrary&) = delete;

    physloc_init_data_fn initData = nullptr;
    physloc_encode_fn encode = nullptr;
    physloc_get_string_fn getString = nullptr;

    // The long text of a PL (see vekPhysLocInterface::getDecodedPhysLocLongFormat).
    std::string decode(const std::string& pl) const;
    // "%016llX" of a PL value.
    static std::string format(unsigned long long pl);

private:
    std::string path_;
    const char* tag_;
    void* handle_ = nullptr;
};

// The PL interface of a platform family whose encoder library is loaded:
// what the TRB, LM and GQ/NW interfaces share.
class vekLibraryPhysLocInterface : public vekPhysLocInterface {
public:
    // Loads the library; vekPhysLoc exceptions on failure.
    void Initialize();
    void UnInitialize();
    std::string getDecodedPhysLocLongFormat(const std::string& pl) override { return library_->decode(pl); }

protected:
    vekLibraryPhysLocInterface(std::string libraryPath, const char* tag)
        : libraryPath_(std::move(libraryPath)), tag_(tag)
    {
    }

    // The one interface of the family, made and loaded by the first call.
    template <class Family>
    static Family* singleton(const std::string& libraryPath)
    {
        static std::mutex mutex;
        static Family* instance = nullptr;
        std::lock_guard<std::mutex> lock(mutex);
        if (instance == nullptr) {
            std::unique_ptr<Family> made(new Family(libraryPath));
            made->Initialize();
            instance = made.release();
        }
        return instance;
    }

    std::string libraryPath_;
    const char* tag_;
    std::unique_ptr<vekPhysLocEncoderLibrary> library_;
};

// Joins texts with blanks, for log lines.
std::string vekPhysLocJoin(const std::vector<std::string>& elements);

// The PL of a DIMM slot, the same way on every library but for the type
// code, the init version and which fields the family knows (see the .cpp).
struct vekPhysLocDimmLayout {
    unsigned char version;
    physloc_type_t type;
    bool partition;    // byte 8 from the processor element
    bool chassisSlot;  // byte 11 from the channel and slot elements
};
std::string physlocEncodeForDIMM(const vekPhysLocEncoderLibrary& library, const char* tag,
                                 const vekPhysLocDimmLayout& layout, const std::string& dimmID);

// The element-list encoding of LM (four elements: bytes 4, 5, 8, 11) and
// GQ/NW (three: bytes 4, 5, 11), init version 2. `last`, unless "NA", goes
// to byte 13 (the empty text as 0). *rtn, when given, gets the library's
// result, or 1 for a list of the wrong size.
std::string vekPhysLocEncodeElements(const vekPhysLocEncoderLibrary& library, const char* tag, const std::string& pci,
                                     const std::vector<std::string>& elements, size_t expected, physloc_type_t type,
                                     physloc_rtn_t* rtn, const std::string& last);
