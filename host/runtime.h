// Setting the host up: which BMC nodes answer, where SMBIOS comes from, what
// the core library reports, and where instances and log lines go. Used by the
// collector program and the tests; the plug-in never includes this.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/framework.h"

namespace ipmisel::host {

// One raw IPMI request as a transport sees it.
struct IpmiRequest {
    uint8_t netfn = 0;
    uint8_t lun = 0;
    uint8_t cmd = 0;
    std::vector<uint8_t> data;
};

// The answer: sent == false when nothing could be sent or nothing came back;
// otherwise the completion code and the response data after it.
struct IpmiResponse {
    bool sent = false;
    uint8_t cc = 0;
    std::vector<uint8_t> data;
};

// One BMC node's way of answering raw requests.
class Transport {
  public:
    virtual ~Transport() = default;
    virtual IpmiResponse send(const IpmiRequest& request) = 0;
    // Short human description ("simulated BMC node 1", "lanplus 10.0.0.5:623").
    virtual std::string describe() const = 0;
};

// SMBIOS structures, each as its formatted area followed by its string set
// (ending in the double NUL), as the SMBIOS library hands them out.
class SmbiosSource {
  public:
    virtual ~SmbiosSource() = default;
    // Empty optional: the tables could not be read at all (load fails).
    virtual std::optional<std::vector<std::vector<uint8_t>>> structures() = 0;
};

std::shared_ptr<SmbiosSource> smbiosFromStructures(std::vector<std::vector<uint8_t>> structures);
std::shared_ptr<SmbiosSource> smbiosFromDumpFile(const std::string& path); // dmidecode --dump-bin
std::shared_ptr<SmbiosSource> smbiosFromSystem(); // /sys/firmware/dmi/tables/DMI

enum class PropertyKind { Text, DateTime, Bytes };

struct Property {
    std::string name;
    PropertyKind kind = PropertyKind::Text;
    std::string text; // Text and DateTime (its CIM text)
    std::vector<uint8_t> bytes;
};

struct Instance {
    std::string className;
    std::vector<Property> properties;
    // Two instances the host delivered with the same nonzero layout have the
    // same class name and the same property names in the same order, so a
    // sink can settle what it derives from the names once (0: not known).
    uint64_t layout = 0;
    const Property* find(const std::string& name) const;
    // Text of a property, or "" when absent.
    std::string get(const std::string& name) const;
};

struct Config {
    // Node i answers through nodes[i]. No nodes and library available: node 0
    // still gets an SPLibrary whose sends all fail.
    std::vector<std::shared_ptr<Transport>> nodes;
    bool libraryAvailable = true; // GetSplibraryInstance(0) answers null when false
    bool driverPresent = true;    // IsIPMIDriversPresent
    bool iBMC = false;            // IsiBMCMachine
    std::optional<bool> lan;      // no value: no IPMI-over-LAN object at all

    std::shared_ptr<SmbiosSource> smbios; // null: smBiosLoad fails

    std::string machineType = "0000";       // GetMachineType
    std::string machineTypeFromID = "0000"; // GetMachineTypeFromID
    std::string biosID;                     // GetBiosID

    // Local UTC offset in minutes for GetLocalTime; none: the system's own.
    std::optional<int> utcOffsetMinutes;
    // Current time for GetLocalTime in seconds since 1970; none: the real clock.
    std::function<int64_t()> now;

    // fdrGetPluginPath answers this; empty: the path of the loaded plug-in as
    // registered by the loader.
    std::string pluginPath;

    bool registerFails = false; // fdrRegisterPlugin answers a non-zero status

    // Both see their argument for the length of the call only: the host
    // reuses the instance's and the line's storage for the next ones, so a
    // sink keeps a copy of what it needs.
    std::function<void(const Instance&)> instanceSink;
    std::function<void(int severity, const std::string& text)> logSink;
    int logLevel = 4; // lines above this severity are dropped before the sink
    std::function<void(uint32_t messageClass, const std::string& text)> coreLogSink;

    // Test hook: when set and answering true, fdrAddProperty fails with status 3
    // for that (instance number counted from 0, property name).
    std::function<bool(uint64_t instance, const std::string& property)> failProperty;
};

// Replace the whole configuration (resets counters and any open instance).
void configure(Config config);
Config& config();

// The plug-in file the loader opened; fdrGetPluginPath derives its answer from
// it (see host docs: the answer's first "ipmisel" is always the file name).
void setLoadedPluginPath(const std::string& path);

// What fdrRegisterPlugin received (null before registration, and after
// configure()), the host object handed to the plug-in and the output handle.
const NOXAQSV20::fdrPluginCallbacks* registeredCallbacks();
void clearRegistration();
NOXAQSV20::TCPluginCallbacks* hostCallbacks();
NOXAQSV20::fdriIOHandle* outputHandle();

// Number of instances committed since configure().
uint64_t instancesCommitted();

} // namespace ipmisel::host
