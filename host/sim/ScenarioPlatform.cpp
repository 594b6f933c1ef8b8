// What the platform reports beside the BMCs: machine type, BIOS ID, driver,
// library, LAN and iBMC answers, and the SMBIOS structures.
#include "host/sim/Builders.h"
#include "host/sim/ScenarioSections.h"

namespace ipmisel::sim::scenario {

namespace {

std::vector<std::string> readStrings(FieldReader& f) {
    std::vector<std::string> out;
    if (const json* s = f.get("strings")) {
        const ValueReader& values = f.values();
        values.eachItem(*s, f.at("strings"), [&](const json& v, const std::string& here) {
            std::string t = values.text(v, here);
            if (t.empty() || t.find('\0') != std::string::npos) {
                values.fail(here, "an SMBIOS string is neither empty nor holds a NUL");
            }
            out.push_back(std::move(t));
        });
    }
    return out;
}

std::vector<uint8_t> ipmiDevice(FieldReader& f, uint16_t handle) {
    SmbiosIpmiDevice d;
    d.handle = handle;
    f.each<uint8_t>({{"interfaceType", &d.interfaceType},
                     {"specRevision", &d.specRevision},
                     {"i2cAddress", &d.i2cAddress},
                     {"nvStorage", &d.nvStorage}});
    int64_t base = static_cast<int64_t>(d.baseAddress);
    f.num("baseAddress", base, 0, std::numeric_limits<int64_t>::max());
    d.baseAddress = static_cast<uint64_t>(base);
    f.each<uint8_t>({{"baseModifier", &d.baseModifier}, {"interrupt", &d.interrupt}});
    return smbiosIpmiDevice(d);
}

std::vector<uint8_t> systemInformation(FieldReader& f, uint16_t handle) {
    SmbiosSystem s;
    s.handle = handle;
    for (auto [k, field] :
         {std::pair{"manufacturer", &s.manufacturer}, std::pair{"product", &s.product},
          std::pair{"version", &s.version}, std::pair{"serial", &s.serial},
          std::pair{"sku", &s.sku}, std::pair{"family", &s.family}}) {
        f.text(k, *field);
        if (field->find('\0') != std::string::npos) {
            f.fail(k, "an SMBIOS string cannot hold a NUL");
        }
    }
    f.bytes("uuid", s.uuid, "a UUID");
    f.num("wakeUp", s.wakeUp);
    return smbiosSystem(s);
}

std::vector<uint8_t> smbiosEntry(const ValueReader& values, const json& v, const std::string& place,
                                 uint16_t defaultHandle) {
    if (v.IsString() || v.IsArray()) {
        auto raw = values.bytes(v, place);
        if (raw.size() < 6 || raw[1] < 4 || raw.size() < raw[1] + 2u) {
            values.fail(place, "not a whole SMBIOS structure (header, formatted area, string set)");
        }
        if (raw[raw.size() - 1] != 0 || raw[raw.size() - 2] != 0) {
            values.fail(place, "the structure does not end in the string set's double NUL");
        }
        return raw;
    }
    FieldReader f(values, v, place, "hex bytes or an object");
    uint8_t type = 0;
    if (!f.num("type", type)) {
        f.fail("needs \"type\"");
    }
    uint16_t handle = defaultHandle;
    f.num("handle", handle);
    std::vector<uint8_t> out;
    if (f.has("formatted") || (type != 1 && type != 11 && type != 38)) {
        std::vector<uint8_t> formatted;
        f.bytes("formatted", formatted);
        if (formatted.size() > 251) {
            f.fail("formatted", "a formatted area holds at most 251 bytes after the header");
        }
        out = smbiosStructure(type, handle, formatted, readStrings(f));
    } else if (type == 38) {
        out = ipmiDevice(f, handle);
    } else if (type == 11) {
        auto strings = readStrings(f);
        if (strings.size() > 255) {
            f.fail("strings", "more than 255 OEM strings");
        }
        out = smbiosOemStrings(handle, strings);
    } else {
        out = systemInformation(f, handle);
    }
    f.finish();
    return out;
}

} // namespace

void readPlatform(const ValueReader& values, FieldReader& top, Scenario& s) {
    top.each<std::string>({{"machineType", &s.machineType},
                           {"machineTypeFromID", &s.machineTypeFromID},
                           {"biosID", &s.biosID}});
    top.each<bool>({{"driverPresent", &s.driverPresent},
                    {"libraryAvailable", &s.libraryAvailable},
                    {"iBMC", &s.iBMC}});
    if (const json* lan = top.get("lan"); lan && !lan->IsNull()) {
        s.lan = values.flag(*lan, top.at("lan"));
    }
    top.flag("smbiosReadable", s.smbiosReadable);
    if (const json* list = top.get("smbios")) {
        values.eachItem(*list, top.at("smbios"), [&](const json& v, const std::string& here) {
            s.smbios.push_back(
                smbiosEntry(values, v, here, static_cast<uint16_t>(s.smbios.size())));
        });
    }
}

} // namespace ipmisel::sim::scenario
