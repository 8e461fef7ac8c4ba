#include "ioCardsData.h"

#include "secureFileInterface.h"
#include "vekGlobalDef.h"
#include "vekLog.h"
#include "vekPlatformServices.h"

#include <dlfcn.h>

#include <stdexcept>

namespace {
const char TAG[] = "IO_CARDS_DATA";
} // namespace

ioCardsData* ioCardsData::objInstance = nullptr;

ioCardsData* ioCardsData::getInstance()
{
    static std::once_flag once;
    std::call_once(once, [] { objInstance = new ioCardsData(); });
    return objInstance;
}

ioCardsData::ioCardsData()
{
    const std::string path = getLibraryPath();
    if (!loadIOLib(path) || !fetchPtrToConstructor() || !fetchPtrToDestructor()) {
        return;
    }
    loader_ = createObject_();
    if (loader_ == nullptr) {
        return;
    }
    try {
        std::string decoded = decodeIOMatrixDb();
        loadDecodedIO(loader_, decoded);
    } catch (const std::exception& e) {
        VEK_LOG_ERROR(TAG, "Failed to load I/O matrix data from Database file.");
        VEK_LOG_DEBUG(TAG, "%s", e.what());
    }
}

ioCardsData::~ioCardsData()
{
    if (loader_ != nullptr && destroyObject_ != nullptr) {
        destroyObject_(loader_);
    }
    if (handle_ != nullptr) {
        dlclose(handle_);
    }
}

std::string ioCardsData::getLibraryPath()
{
    const std::string path = "libvekcardmatrix.so";
    VEK_LOG_DEBUG(TAG, "Library Path: [%s].", path.c_str());
    return path;
}

bool ioCardsData::loadIOLib(const std::string& path)
{
    handle_ = dlopen(path.c_str(), RTLD_LAZY);
    if (handle_ == nullptr) {
        VEK_LOG_WARNING(TAG, "Cannot open Dynamic Library: [%s], Error = [%s].", path.c_str(), dlerror());
        return false;
    }
    VEK_LOG_DEBUG(TAG, "Successfully received handle to Dynamic Library: [%s].", path.c_str());
    return true;
}

bool ioCardsData::fetchPtrToConstructor()
{
    dlerror();
    createObject_ = reinterpret_cast<vekCreateIOMatrixLoader>(dlsym(handle_, "createObject"));
    if (createObject_ == nullptr) {
        VEK_LOG_ERROR(TAG, "Cannot load symbol 'createObject': [%s].", dlerror());
        return false;
    }
    return true;
}

bool ioCardsData::fetchPtrToDestructor()
{
    dlerror();
    destroyObject_ = reinterpret_cast<vekDestroyIOMatrixLoader>(dlsym(handle_, "destroyObject"));
    if (destroyObject_ == nullptr) {
        VEK_LOG_ERROR(TAG, "Cannot load symbol 'destroyObject': [%s].", dlerror());
        return false;
    }
    return true;
}

std::string ioCardsData::decodeIOMatrixDb()
{
    const int platform = vekPlatformServices::getCachedPlatform();
    if (platform == -1) {
        VEK_LOG_ERROR(TAG, "Unable to identify System Platform: {%s}", std::to_string(platform).c_str());
        throw std::runtime_error("Unknown System Platform!");
    }
    const std::string name = platform == 4 ? "vekIOMatrix_v3.db" : "vekIOMatrix_v2.db";
    const std::string path = vekGlobalDef::VMwareOSUtils::DirectoryPath() + "/data/" + name;
    VEK_LOG_DEBUG(TAG, "Path to IO Matrix Database: [%s]", path.c_str());
    std::string decoded;
    try {
        secureFileInterface file(hashAlgorithmBase::CUSTOM_HASH, decoderBase::BASE64_DECODER);
        file.verifyFileAndDecodeOutput(path, loader_->expectedHash(name), decoded);
    } catch (const secureFileExceptions::cryptographicException& e) {
        VEK_LOG_ERROR(TAG, "%s", e.what());
        throw std::runtime_error("Failed to decode");
    }
    return decoded;
}

bool ioCardsData::loadDecodedIO(ioMatrixLoader* loader, std::string& decoded)
{
    std::string error;
    if (!loader->load(decoded, error)) {
        VEK_LOG_ERROR(TAG, "Failed to load I/O matrix data from Database file.");
        VEK_LOG_DEBUG(TAG, "%s", error.c_str());
        return false;
    }
    devices_ = loader->devices();
    return true;
}

vekIODevice* ioCardsData::queryIOMatrix(const std::string& key)
{
    if (handle_ == nullptr) {
        VEK_LOG_DEBUG(TAG, "Handle to dynamic library does not exist! Cannot retrieve I/O device properties. Key = [%s].",
                      key.c_str());
        return nullptr;
    }
    if (devices_.empty()) {
        VEK_LOG_DEBUG(TAG, "Map containing I/O card properties is empty!. Key = [%s].", key.c_str());
        return nullptr;
    }
    const auto found = devices_.find(key);
    if (found == devices_.end()) {
        VEK_LOG_DEBUG(TAG, "I/O card with key = [%s] Not found!.", key.c_str());
        return nullptr;
    }
    return found->second;
}
