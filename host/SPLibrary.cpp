// The service-processor library: one object per BMC node, each sending raw
// requests through the node's transport and laying the answer out in the
// caller's buffer.
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "host/framework.h"
#include "host/runtime.h"

namespace NOXAQSV20 {

namespace {

// Request bytes: 2 netfn, 3 LUN, 4 command, 5..8 data length (little endian),
// data from 9. The response reuses 4 and 8 for the completion code and 9 on for
// the data.
constexpr int32_t kNetFn = 2, kLun = 3, kCmd = 4, kLength = 5, kCc2 = 8, kData = 9;

std::shared_ptr<ipmisel::host::Transport> transportOf(int32_t node) {
    const auto& nodes = ipmisel::host::config().nodes;
    if (node < 0 || static_cast<size_t>(node) >= nodes.size()) {
        return nullptr;
    }
    return nodes[static_cast<size_t>(node)];
}

} // namespace

SPLibrary* SPLibrary::GetSplibraryInstance(int32_t node) {
    if (!ipmisel::host::config().libraryAvailable || node < 0) {
        return nullptr;
    }
    // The library owns its objects and the plug-in keeps the pointers for the
    // whole process, so they are made once per node and never freed. Which
    // transport answers is looked up at every send, so a later configure()
    // applies to objects already handed out.
    static std::mutex lock;
    static auto* objects = new std::map<int32_t, std::unique_ptr<SPLibrary>>();
    std::lock_guard<std::mutex> guard(lock);
    auto& slot = (*objects)[node];
    if (!slot) {
        slot = std::make_unique<SPLibrary>(node);
    }
    return slot.get();
}

int32_t SPLibrary::GetNumberBMCNode() {
    return static_cast<int32_t>(std::min<size_t>(ipmisel::host::config().nodes.size(), INT32_MAX));
}

bool SPLibrary::IsIPMIDriversPresent() {
    return ipmisel::host::config().driverPresent;
}

bool SPLibrary::IsiBMCMachine() {
    return ipmisel::host::config().iBMC;
}

bool SPLibrary::sendIPMICommand(unsigned char* buffer, int32_t* length, int32_t capacity,
                                bool /*flag*/) {
    // A buffer that cannot even hold the request's header is refused untouched.
    if (buffer == nullptr || length == nullptr || capacity < kData) {
        return false;
    }
    auto transport = transportOf(node_);
    if (!transport) {
        return false;
    }
    // One request object per thread, its data buffer reused from send to send.
    thread_local ipmisel::host::IpmiRequest request;
    request.netfn = buffer[kNetFn];
    request.lun = buffer[kLun];
    request.cmd = buffer[kCmd];
    uint32_t count = 0;
    for (int i = 3; i >= 0; --i) {
        count = (count << 8) | buffer[kLength + i];
    }
    const auto room = static_cast<uint32_t>(capacity - kData);
    count = std::min(count, room);
    request.data.assign(buffer + kData, buffer + kData + count);

    ipmisel::host::IpmiResponse response;
    try {
        response = transport->send(request);
    } catch (...) {
        // A transport fault is a failed send to the plug-in, never an exception
        // crossing into it.
        return false;
    }
    if (!response.sent) {
        return false;
    }
    buffer[kCmd] = response.cc;
    buffer[kCc2] = response.cc;
    const size_t stored = std::min<size_t>(response.data.size(), room);
    if (stored > 0) {
        std::memcpy(buffer + kData, response.data.data(), stored);
    }
    *length = static_cast<int32_t>(stored);
    return true;
}

} // namespace NOXAQSV20
