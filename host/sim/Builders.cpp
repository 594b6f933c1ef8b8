#include "host/sim/Builders.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace ipmisel::sim {

namespace {

constexpr int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

void putLe16(std::vector<uint8_t>& out, size_t at, uint16_t v) {
    out[at] = static_cast<uint8_t>(v & 0xFF);
    out[at + 1] = static_cast<uint8_t>(v >> 8);
}

void putLe32(std::vector<uint8_t>& out, size_t at, uint32_t v) {
    for (size_t i = 0; i < 4; ++i) {
        out[at + i] = static_cast<uint8_t>(v >> (8 * i));
    }
}

// A 10-bit two's-complement field given either as a signed value or as the
// raw pattern a BMC would hold.
uint16_t tenBits(int v, const char* what) {
    if (v < -512 || v > 1023) {
        throw std::invalid_argument(std::string(what) + " " + std::to_string(v) +
                                    " does not fit in 10 bits (-512..1023)");
    }
    return static_cast<uint16_t>(v & 0x3FF);
}

uint8_t nibble(int v, const char* what) {
    if (v < -8 || v > 15) {
        throw std::invalid_argument(std::string(what) + " " + std::to_string(v) +
                                    " does not fit in 4 bits (-8..15)");
    }
    return static_cast<uint8_t>(v & 0x0F);
}

void checkBits(unsigned v, unsigned bits, const char* what) {
    if (v >= (1u << bits)) {
        throw std::invalid_argument(std::string(what) + " " + std::to_string(v) +
                                    " does not fit in " + std::to_string(bits) + " bits");
    }
}

// Type/length byte and the ID string bytes.
void appendName(std::vector<uint8_t>& out, const SdrName& name) {
    if (name.bytes.size() > 16) {
        throw std::invalid_argument("ID string of " + std::to_string(name.bytes.size()) +
                                    " bytes, a record holds at most 16");
    }
    out.push_back(static_cast<uint8_t>(0xC0 | name.bytes.size()));
    out.insert(out.end(), name.bytes.begin(), name.bytes.end());
}

void header(std::vector<uint8_t>& out, uint16_t id, uint8_t version, uint8_t type) {
    putLe16(out, 0, id);
    out[2] = version;
    out[3] = type;
}

void finishLength(std::vector<uint8_t>& out) {
    out[4] = static_cast<uint8_t>(out.size() - 5);
}

} // namespace

std::vector<uint8_t> parseHex(std::string_view text) {
    // What each character is: a digit's value, a blank, or neither. A
    // recording holds tens of thousands of these texts.
    static constexpr int8_t kBlank = -2, kOther = -1;
    static constexpr auto kKind = [] {
        std::array<int8_t, 256> kind{};
        kind.fill(kOther);
        for (int c = 0; c < 256; ++c) {
            if (isBlank(static_cast<char>(c))) {
                kind[c] = kBlank;
            } else if (int d = hexDigit(static_cast<char>(c)); d >= 0) {
                kind[c] = static_cast<int8_t>(d);
            }
        }
        return kind;
    }();
    // Two digits a byte, blanks or not between them: never more than this
    // many bytes, written in place and cut to what was read at the end.
    std::vector<uint8_t> out(text.size() / 2);
    size_t n = 0;
    const auto kindOf = [](char c) { return kKind[static_cast<unsigned char>(c)]; };
    // The form recordings and scenarios use, two digits and a blank a byte,
    // goes three characters at a step; whatever else follows is read below.
    const char* p = text.data();
    const char* const end = p + text.size();
    while (end - p >= 2) {
        const int h = kindOf(p[0]), l = kindOf(p[1]);
        if ((h | l) < 0) {
            break;
        }
        out[n++] = static_cast<uint8_t>(h << 4 | l);
        p += 2;
        if (p == end || kindOf(*p) != kBlank) {
            break; // the next character, if any, is looked at below
        }
        ++p;
    }
    int high = -1;
    for (; p != end; ++p) {
        const char c = *p;
        const int d = kindOf(c);
        if (d == kBlank) {
            if (high >= 0) {
                throw std::invalid_argument("a blank inside a hex byte");
            }
            continue;
        }
        if (d < 0) {
            throw std::invalid_argument(std::string("'") + c + "' is not a hex digit");
        }
        if (high < 0) {
            high = d;
        } else {
            out[n++] = static_cast<uint8_t>(high * 16 + d);
            high = -1;
        }
    }
    if (high >= 0) {
        throw std::invalid_argument("odd number of hex digits");
    }
    out.resize(n);
    return out;
}

std::string toHex(std::span<const uint8_t> bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size() * 3);
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i) {
            out.push_back(' ');
        }
        out.push_back(digits[bytes[i] >> 4]);
        out.push_back(digits[bytes[i] & 0x0F]);
    }
    return out;
}

std::vector<uint8_t> selRecord(const SelEventFields& f) {
    std::vector<uint8_t> r(16, 0);
    putLe16(r, 0, f.id);
    r[2] = f.type;
    putLe32(r, 3, f.timestamp);
    r[7] = f.generator;
    r[8] = f.generator2;
    r[9] = f.evmRev;
    r[10] = f.sensorType;
    r[11] = f.sensorNumber;
    r[12] = static_cast<uint8_t>((f.deassertion ? 0x80 : 0x00) | (f.eventType & 0x7F));
    r[13] = f.data[0];
    r[14] = f.data[1];
    r[15] = f.data[2];
    return r;
}

size_t selOemLength(uint8_t type) {
    if (type >= 0xE0) {
        return 13;
    }
    if (type >= 0xC0) {
        return 9;
    }
    return 0;
}

std::vector<uint8_t> selOemRecord(uint16_t id, uint8_t type, uint32_t timestamp,
                                  std::span<const uint8_t> oem) {
    size_t want = selOemLength(type);
    if (want == 0) {
        throw std::invalid_argument("record type " + toHex(std::span(&type, 1)) +
                                    "h is not an OEM type");
    }
    if (oem.size() != want) {
        throw std::invalid_argument(std::to_string(oem.size()) + " OEM bytes, a record of type " +
                                    toHex(std::span(&type, 1)) + "h carries " +
                                    std::to_string(want));
    }
    std::vector<uint8_t> r(16, 0);
    putLe16(r, 0, id);
    r[2] = type;
    size_t at = 3;
    if (want == 9) {
        putLe32(r, 3, timestamp);
        at = 7;
    }
    for (size_t i = 0; i < oem.size(); ++i) {
        r[at + i] = oem[i];
    }
    return r;
}

uint8_t Units1::pack() const {
    checkBits(analogFormat, 2, "analog format");
    checkBits(rate, 3, "rate unit");
    checkBits(modifier, 2, "modifier unit use");
    return static_cast<uint8_t>(analogFormat << 6 | rate << 3 | modifier << 1 |
                                (percentage ? 1 : 0));
}

namespace {
// Bytes 5..22 are laid out alike in full and compact sensor records.
template <class Fields> void putSensorCommon(std::vector<uint8_t>& r, const Fields& f) {
    r[5] = f.owner;
    r[6] = f.ownerLun;
    r[7] = f.number;
    r[8] = f.entityId;
    r[9] = f.entityInstance;
    r[10] = f.initialization;
    r[11] = f.capabilities;
    r[12] = f.sensorType;
    r[13] = f.eventType;
    putLe16(r, 14, f.assertionMask);
    putLe16(r, 16, f.deassertionMask);
    putLe16(r, 18, f.readingMask);
    r[20] = f.units1;
    r[21] = f.baseUnit;
    r[22] = f.modifierUnit;
}
} // namespace

std::vector<uint8_t> buildFullSensorRecord(const FullSensorFields& f) {
    checkBits(f.ownerLun, 2, "owner LUN");
    checkBits(f.tolerance, 6, "tolerance");
    checkBits(f.accuracy, 10, "accuracy");
    checkBits(f.accuracyExp, 2, "accuracy exponent");
    checkBits(f.direction, 2, "sensor direction");
    uint16_t m = tenBits(f.m, "M");
    uint16_t b = tenBits(f.b, "B");
    uint8_t rExp = nibble(f.rExp, "R exponent");
    uint8_t bExp = nibble(f.bExp, "B exponent");

    std::vector<uint8_t> r(kFullNameOffset, 0);
    header(r, f.id, f.version, 0x01);
    putSensorCommon(r, f);
    r[23] = f.linearization;
    // M and B: low 8 bits, then the top two bits in bits 7:6 of the next byte
    // beside tolerance / the low accuracy bits.
    r[24] = static_cast<uint8_t>(m & 0xFF);
    r[25] = static_cast<uint8_t>((m >> 8) << 6 | f.tolerance);
    r[26] = static_cast<uint8_t>(b & 0xFF);
    r[27] = static_cast<uint8_t>((b >> 8) << 6 | (f.accuracy & 0x3F));
    r[28] = static_cast<uint8_t>((f.accuracy >> 6) << 4 | f.accuracyExp << 2 | f.direction);
    r[29] = static_cast<uint8_t>(rExp << 4 | bExp);
    r[30] = f.analogFlags;
    r[31] = f.nominal;
    r[32] = f.normalMax;
    r[33] = f.normalMin;
    r[34] = f.sensorMax;
    r[35] = f.sensorMin;
    r[36] = f.unr;
    r[37] = f.uc;
    r[38] = f.unc;
    r[39] = f.lnr;
    r[40] = f.lc;
    r[41] = f.lnc;
    r[42] = f.hysteresisPos;
    r[43] = f.hysteresisNeg;
    r[46] = f.oem;
    appendName(r, f.name);
    finishLength(r);
    return r;
}

std::vector<uint8_t> buildCompactSensorRecord(const CompactSensorFields& f) {
    checkBits(f.ownerLun, 2, "owner LUN");
    std::vector<uint8_t> r(kCompactNameOffset, 0);
    header(r, f.id, f.version, 0x02);
    putSensorCommon(r, f);
    putLe16(r, 23, f.sharing);
    r[25] = f.hysteresisPos;
    r[26] = f.hysteresisNeg;
    r[30] = f.oem;
    appendName(r, f.name);
    finishLength(r);
    return r;
}

std::vector<uint8_t> buildFruLocatorRecord(const FruLocatorFields& f) {
    checkBits(f.accessLun, 2, "access LUN");
    checkBits(f.bus, 3, "private bus");
    checkBits(f.channel, 4, "channel");
    std::vector<uint8_t> r(kFruLocatorNameOffset, 0);
    header(r, f.id, f.version, 0x11);
    r[5] = f.deviceAddress;
    r[6] = f.fruId;
    r[7] = static_cast<uint8_t>((f.logical ? 0x80 : 0) | f.accessLun << 3 | f.bus);
    r[8] = static_cast<uint8_t>(f.channel << 4);
    r[10] = f.deviceType;
    r[11] = f.deviceTypeModifier;
    r[12] = f.entityId;
    r[13] = f.entityInstance;
    r[14] = f.oem;
    appendName(r, f.name);
    finishLength(r);
    return r;
}

std::vector<uint8_t> buildAuxEntry(const AuxEntryFields& f, uint16_t successor) {
    if (f.manufacturer > 0xFFFFFF) {
        throw std::invalid_argument("manufacturer ID over 24 bits");
    }
    size_t body = 22 + f.extendedData.size();
    if (body > 255) {
        throw std::invalid_argument(std::to_string(f.extendedData.size()) +
                                    " bytes of extended data, at most 233 fit an entry");
    }
    // Header, fixed body and extended data, sized once and filled in place.
    std::vector<uint8_t> e(10 + body, 0);
    e[0] = static_cast<uint8_t>(f.manufacturer & 0xFF);
    e[1] = static_cast<uint8_t>(f.manufacturer >> 8);
    e[2] = static_cast<uint8_t>(f.manufacturer >> 16);
    putLe16(e, 3, static_cast<uint16_t>(body));
    putLe16(e, 5, f.recordId);
    putLe16(e, 7, successor);
    e[10] = f.type;
    e[13] = f.severity;
    putLe16(e, 14, f.operation);
    e[16] = f.subClass;
    e[17] = f.cls;
    putLe32(e, 18, f.instance);
    for (size_t i = 0; i < f.callerId.size(); ++i) {
        e[22 + i] = f.callerId[i];
    }
    std::copy(f.extendedData.begin(), f.extendedData.end(), e.begin() + 32);
    return e;
}

std::vector<std::vector<uint8_t>> buildAuxLog(const std::vector<AuxEntryFields>& entries) {
    std::vector<std::vector<uint8_t>> out;
    for (size_t i = 0; i < entries.size(); ++i) {
        uint16_t next = i + 1 < entries.size() ? entries[i + 1].recordId : 0xFFFF;
        out.push_back(buildAuxEntry(entries[i], next));
    }
    return out;
}

std::vector<uint8_t> smbiosStructure(uint8_t type, uint16_t handle,
                                     std::span<const uint8_t> formatted,
                                     const std::vector<std::string>& strings) {
    if (formatted.size() + 4 > 255) {
        throw std::invalid_argument("formatted area over 255 bytes");
    }
    // Byte by byte: GCC 12 mistakes a range insert after a small vector for
    // an overrun.
    std::vector<uint8_t> s{type, static_cast<uint8_t>(4 + formatted.size()),
                           static_cast<uint8_t>(handle & 0xFF), static_cast<uint8_t>(handle >> 8)};
    for (uint8_t b : formatted) {
        s.push_back(b);
    }
    for (const auto& text : strings) {
        if (text.find('\0') != std::string::npos) {
            throw std::invalid_argument("an SMBIOS string cannot hold a NUL");
        }
        for (char c : text) {
            s.push_back(static_cast<uint8_t>(c));
        }
        s.push_back(0);
    }
    if (strings.empty()) {
        s.push_back(0);
    }
    s.push_back(0);
    return s;
}

std::vector<uint8_t> smbiosIpmiDevice(const SmbiosIpmiDevice& f) {
    std::vector<uint8_t> fm(14, 0);
    fm[0] = f.interfaceType;
    fm[1] = f.specRevision;
    fm[2] = f.i2cAddress;
    fm[3] = f.nvStorage;
    for (size_t i = 0; i < 8; ++i) {
        fm[4 + i] = static_cast<uint8_t>(f.baseAddress >> (8 * i));
    }
    fm[12] = f.baseModifier;
    fm[13] = f.interrupt;
    return smbiosStructure(38, f.handle, fm, {});
}

std::vector<uint8_t> smbiosOemStrings(uint16_t handle, const std::vector<std::string>& strings) {
    if (strings.size() > 255) {
        throw std::invalid_argument("more than 255 OEM strings");
    }
    uint8_t count = static_cast<uint8_t>(strings.size());
    return smbiosStructure(11, handle, std::span(&count, 1), strings);
}

std::vector<uint8_t> smbiosSystem(const SmbiosSystem& f) {
    std::vector<std::string> strings;
    // String numbers count only the texts present; 0 means "no string".
    auto ref = [&](const std::string& text) -> uint8_t {
        if (text.empty()) {
            return 0;
        }
        strings.push_back(text);
        return static_cast<uint8_t>(strings.size());
    };
    std::vector<uint8_t> fm(23, 0);
    fm[0] = ref(f.manufacturer);
    fm[1] = ref(f.product);
    fm[2] = ref(f.version);
    fm[3] = ref(f.serial);
    for (size_t i = 0; i < 16; ++i) {
        fm[4 + i] = f.uuid[i];
    }
    fm[20] = f.wakeUp;
    fm[21] = ref(f.sku);
    fm[22] = ref(f.family);
    return smbiosStructure(1, f.handle, fm, strings);
}

} // namespace ipmisel::sim
