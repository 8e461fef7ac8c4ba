#pragma once

#include "vekIPMIExternalTransport.h"
#include "vekServerPipes.h"

#include <json/json.h>

#include <poll.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

class vekPlatformServices;

// The test event server: a thread that serves a command-line client over
// named pipes. The client writes a message to /var/run/zolvek and reads the
// answer on /var/run/zolvekcli (both under the path root):
//
//   code 256, 257  "<event number> <resource> [details]": a test event
//   code 258       an event as JSON text, sent as the client gave it
//   code 259       a file path: the last inventory is written there
//
// The answer has code 0, the client's PID and an 8-byte payload: the result
// as a little-endian signed integer, 0 for success, negative for failure
// (259: the aggregator's result). A message that never arrives whole gets no
// answer. One client is served at a time.
class vekServer {
public:
    static vekServer& getInstance();

    vekServer(const vekServer&) = delete;
    vekServer& operator=(const vekServer&) = delete;

    // Keeps the services (not owned; they outlive the server) and starts the
    // thread. A server already running is left as it is.
    void initializeVEKServer(vekPlatformServices* services);
    // Wakes the thread through the shutdown pipe and joins it: at once, not
    // at the end of a poll period.
    void stopVEKServer();

    // The kind of an event number, which decides what a JSON event needs:
    // 1 and 2 the machine's own (valid as they are), 3 NIC, 4 Fibre Channel,
    // 5 storage, 6 NVMe, 7 other devices (valid only with a physical
    // location); 0 not an event of this platform.
    int getEventType(int eventId) const;

    static std::string serverPipePath();
    static std::string clientPipePath();

private:
    vekServer() = default;
    ~vekServer();

    void startVekTestEventServer();
    void initializeServerPipes();
    void closeServerPipes();
    void runVEKServerOperations();
    // The number of descriptors ready; 0 on a timeout.
    int pollPipeFds(pollfd (&fds)[2]);
    void interactWithClient();
    bool receiveClientMessage(_VEK_MESSAGE_PACKET& message);
    void sendClientResponse(uint32_t clientPID, int64_t result);

    int sendTestEvent(const std::string& text);
    void getEventInfo(const std::string& text, int& eventId, int& resource, std::string& details) const;
    bool generateTestEvent(int eventId, int resource, const std::string& details);
    void generateServerTestEvent(int eventId);
    int sendJsonPayload(const std::string& text);
    bool validateJsonPayload(const Json::Value& payload) const;
    int saveInventory(const std::string& path);

    // Sets the stop flag and wakes the poll; false when the wake-up could
    // not be written.
    bool signalStop();

    vekPlatformServices* services_ = nullptr;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    // Guards the descriptors between the server's thread, which opens and
    // closes them, and a stop, which writes to the shutdown pipe.
    std::mutex pipesMutex_;
    vekIPMI::UniqueFd serverFd_;
    // The shutdown pipe is anonymous: no path, so no other process can wake
    // or fill it; only stopVEKServer writes to it.
    vekIPMI::UniqueFd shutdownFd_;
    vekIPMI::UniqueFd shutdownWriteFd_;
};
