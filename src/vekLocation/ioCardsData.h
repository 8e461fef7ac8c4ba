#pragma once

#include "vekIOMatrixLibrary.h"

#include <map>
#include <mutex>
#include <string>

// The I/O card matrix of this platform, loaded once through the card matrix
// library. Without the library or a good database the matrix is empty and
// every query says so.
class ioCardsData {
public:
    static ioCardsData* getInstance();

    ioCardsData(const ioCardsData&) = delete;
    ioCardsData& operator=(const ioCardsData&) = delete;

    // The card of a key; null when unknown or nothing is loaded.
    vekIODevice* queryIOMatrix(const std::string& key);

private:
    ioCardsData();
    ~ioCardsData();

    std::string getLibraryPath();
    bool loadIOLib(const std::string& path);
    bool fetchPtrToConstructor();
    bool fetchPtrToDestructor();
    // The decoded database of the platform; std::runtime_error when it
    // can't be had.
    std::string decodeIOMatrixDb();
    bool loadDecodedIO(ioMatrixLoader* loader, std::string& decoded);

    static ioCardsData* objInstance;
    void* handle_ = nullptr;
    vekCreateIOMatrixLoader createObject_ = nullptr;
    vekDestroyIOMatrixLoader destroyObject_ = nullptr;
    ioMatrixLoader* loader_ = nullptr;
    std::map<std::string, vekIODevice*> devices_;
};
