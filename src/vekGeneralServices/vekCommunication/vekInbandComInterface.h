#pragma once

#include <functional>
#include <string>

// A channel to the RMC that carries RMC CLI commands and reads doorbells.
class vekInbandComInterface {
public:
    virtual ~vekInbandComInterface() = default;

    // Sends the payload as the named RMC CLI command. A failure of the
    // channel comes out as an exception; an answer of the RMC that refuses
    // the command (an error status, a completion code) is only logged.
    virtual void sendData(std::string command, std::string data) = 0;
    // The same, reporting to the callback 0 on success and -1 on any
    // failure; never throws. An empty callback is not called.
    virtual void sendData(std::string command, std::string data, std::function<void(int)> callback) = 0;
    // The answer of doorbell 1, 2 or 3 (see vekIPMIService), 0 on failure.
    virtual int readDoorBell(int level) = 0;
};

// A channel that needs a device opened first.
class vekInbandIPMIBase : public vekInbandComInterface {
public:
    virtual void openHandle() = 0;
};
