// Building FRU images and BMC nodes for the FRU tests.
#pragma once
// Designated initializers name only the fields a test cares about.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "fru/IPMIFRULocator.h"
#include "host/sim/Builders.h"
#include "tests/support/HostFixture.h"

namespace ipmisel::test {

using Bytes = std::vector<uint8_t>;

// An 8-bit ASCII field: type/length C0h | length, then the text.
inline Bytes Text8(const std::string& text) {
    Bytes b{static_cast<uint8_t>(0xC0 | text.size())};
    b.insert(b.end(), text.begin(), text.end());
    return b;
}

// Bytes and texts one after another: Cat(B(0x17), Text8("CP"), B(0xC1)).
template <class... Parts> Bytes Cat(const Parts&... parts) {
    Bytes out;
    (out.insert(out.end(), parts.begin(), parts.end()), ...);
    return out;
}
template <class... Values> Bytes B(Values... values) {
    return Bytes{static_cast<uint8_t>(values)...};
}

// "Name=value|Name=value" as properties.
inline std::map<std::string, std::string> Props(const std::string& text) {
    std::map<std::string, std::string> out;
    for (size_t at = 0; at < text.size();) {
        const size_t bar = std::min(text.find('|', at), text.size());
        const size_t eq = text.find('=', at);
        out[text.substr(at, eq - at)] = text.substr(eq + 1, bar - eq - 1);
        at = bar + 1;
    }
    return out;
}

inline uint8_t ZeroSum(const Bytes& b, size_t n) {
    uint8_t sum = 0;
    std::for_each(b.begin(), b.begin() + n, [&](uint8_t x) { sum = uint8_t(sum + x); });
    return uint8_t(-sum);
}

// An information area: version 01h, its length in 8-byte units, `body`, zero
// padding and the checksum (off by `skew` to spoil it).
inline Bytes Area(const Bytes& body, uint8_t skew = 0) {
    Bytes a = Cat(B(0x01, 0x00), body);
    a.resize((a.size() + 1 + 7) / 8 * 8);
    a[1] = uint8_t(a.size() / 8);
    a.back() = uint8_t(ZeroSum(a, a.size() - 1) + skew);
    return a;
}

// 528 bytes: the common header naming the areas given (empty: none), the
// areas in the order chassis, board, product, then zeros.
inline Bytes Image(const Bytes& chassis, const Bytes& board, const Bytes& product) {
    Bytes img{0x01, 0, 0, 0, 0, 0, 0, 0};
    uint8_t at = 1;
    const Bytes* areas[] = {&chassis, &board, &product};
    for (int i = 0; i < 3; ++i) {
        if (!areas[i]->empty()) {
            img[2 + i] = at;
            at = uint8_t(at + areas[i]->size() / 8);
            img.insert(img.end(), areas[i]->begin(), areas[i]->end());
        }
    }
    img[7] = ZeroSum(img, 7);
    img.resize(kFRUDataSize);
    return img;
}

// `size` zero bytes with texts written at the places given.
inline Bytes Filled(size_t size, std::initializer_list<std::pair<size_t, std::string>> texts) {
    Bytes out(size);
    for (const auto& [at, text] : texts) {
        std::copy(text.begin(), text.end(), out.begin() + at);
    }
    return out;
}

inline Bytes Locator(uint16_t id, uint8_t fruId, const char* name, bool logical = true) {
    return sim::buildFruLocatorRecord({.id = id, .fruId = fruId, .logical = logical, .name = name});
}
inline Bytes Sensor(uint16_t id, const char* name) {
    return sim::buildCompactSensorRecord({.id = id, .name = name});
}

} // namespace ipmisel::test
