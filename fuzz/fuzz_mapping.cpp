// The message file: any contents, any keys, any output size. Each lookup is
// checked against a plain scan of the file with 512-byte fgets pieces, which
// is what the cached lookup has to answer, also after the file is rewritten
// between lookups. Then every decoder that takes its texts (and printf
// formats) from the file runs over the fuzzed file with fuzzed event bytes.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/FuzzHost.h"
#include "fuzz/FuzzSeeds.h"
#include "host/runtime.h"
#include "mapping/IPMIMapping.h"
#include "mapping/MessageFile.h"

using namespace ipmisel;

namespace {

// The lookup as a scan from the top: the first fgets piece holding the key,
// at most `size` characters after its first '=', then CR LF or else the last
// character dropped.
message::Lookup Reference(const std::string& key, std::vector<char>& out, int32_t size) {
    FILE* f = std::fopen(fuzz::MessageFilePath().c_str(), "rb");
    if (!f) {
        return message::Lookup::OpenFailed;
    }
    char line[512];
    message::Lookup result = message::Lookup::NoMatch;
    while (std::fgets(line, sizeof line, f)) {
        if (std::strstr(line, key.c_str()) == nullptr) {
            continue;
        }
        result = message::Lookup::Found;
        const char* equals = std::strchr(line, '=');
        if (size > 0 && equals) {
            std::strncpy(out.data(), equals + 1, static_cast<size_t>(size));
            size_t n = strnlen(out.data(), static_cast<size_t>(size));
            if (n >= 2 && out[n - 2] == '\r' && out[n - 1] == '\n') {
                n -= 2;
            } else if (n >= 1) {
                n -= 1;
            }
            out[n] = '\0';
        }
        break;
    }
    std::fclose(f);
    return result;
}

std::string Contents(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
        return in.ConsumeRandomLengthString(4096);
    case 3: { // lines around the 511 characters a piece holds, then the bundled file
        std::string text;
        for (int n = in.ConsumeIntegralInRange<int>(1, 3); n > 0; --n) {
            std::string line = in.ConsumeRandomLengthString(16);
            line.append(in.ConsumeIntegralInRange<size_t>(0, 1100),
                        static_cast<char>(in.ConsumeIntegral<uint8_t>()));
            line += in.ConsumeRandomLengthString(16);
            text += line + (in.ConsumeBool() ? "\r\n" : "\n");
        }
        return text + fuzz::BundledMessageFile();
    }
    case 1: { // the bundled file with fuzzed lines in front (they win)
        std::string front = in.ConsumeRandomLengthString(1024);
        return front + fuzz::BundledMessageFile();
    }
    default: { // the bundled file cut anywhere, fuzzed text after the cut
        const std::string& all = fuzz::BundledMessageFile();
        size_t cut = in.ConsumeIntegralInRange<size_t>(0, all.size());
        return all.substr(0, cut) + in.ConsumeRandomLengthString(512);
    }
    }
}

std::string Key(FuzzedDataProvider& in, const std::string& contents) {
    std::string key;
    switch (in.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
        key = in.ConsumeRandomLengthString(24);
        break;
    case 1:
        key = std::to_string(in.ConsumeIntegralInRange<int>(0, 99999));
        break;
    default: { // a piece of the file itself, so long and odd keys match too
        if (contents.empty()) {
            break;
        }
        size_t at = in.ConsumeIntegralInRange<size_t>(0, contents.size() - 1);
        key = contents.substr(at, in.ConsumeIntegralInRange<size_t>(0, 600));
        break;
    }
    }
    // Keys are C strings to the plain scan.
    return key.substr(0, key.find('\0'));
}

void CheckLookups(FuzzedDataProvider& in, const std::string& contents) {
    const int lookups = in.ConsumeIntegralInRange<int>(1, 4);
    for (int i = 0; i < lookups; ++i) {
        const std::string key = Key(in, contents);
        const int32_t size = in.ConsumeIntegralInRange<int32_t>(-1, 600);
        // Exactly `size` bytes, so a write past them is seen.
        std::vector<char> got(size > 0 ? static_cast<size_t>(size) : 1, '\0');
        std::vector<char> want(got.size(), '\0');
        message::Lookup g = message::Find(fuzz::MessageFilePath(), key, got.data(), size);
        message::Lookup w = Reference(key, want, size);
        if (g != w || (g == message::Lookup::Found && size > 0 && got != want)) {
            std::fprintf(stderr, "lookup of \"%s\" size %d: %d \"%s\", a scan gives %d \"%s\"\n",
                         key.c_str(), size, static_cast<int>(g),
                         std::string(got.begin(), got.end()).c_str(), static_cast<int>(w),
                         std::string(want.begin(), want.end()).c_str());
            std::abort();
        }
    }
}

void Decoders(FuzzedDataProvider& in) {
    IPMIMapping m;
    TCPluginCallbacks* cb = host::hostCallbacks();
    const uint32_t size = in.ConsumeIntegralInRange<uint32_t>(1, 512);
    auto buf = [&] {
        std::unique_ptr<char[]> b(new char[size]);
        std::memset(b.get(), 0, size);
        return b;
    };
    auto u8 = [&] { return in.ConsumeIntegral<uint8_t>(); };
    SensorConversion c;
    c.RecordType = in.ConsumeBool() ? 1 : u8();
    c.SensorUnits1 = u8();
    c.BaseUnit = u8();
    c.ModifierUnit = u8();
    c.Linearization = u8();
    c.M = in.ConsumeIntegralInRange<uint16_t>(0, 1023);
    c.B = in.ConsumeIntegralInRange<uint16_t>(0, 1023);
    c.RExp = in.ConsumeIntegralInRange<uint16_t>(0, 15);
    c.BExp = in.ConsumeIntegralInRange<uint16_t>(0, 15);
    const std::string name = in.ConsumeRandomLengthString(20);

    auto b = buf();
    m.GetSensorType(cb, u8(), b.get(), static_cast<int32_t>(size), u8());
    b = buf();
    m.GetOnesComplement(cb, static_cast<int8_t>(u8()), b.get(), static_cast<int32_t>(size));
    b = buf();
    m.GetINIStringById(cb, in.ConsumeIntegral<int32_t>(), b.get(), static_cast<int32_t>(size));
    b = buf();
    m.GetThresholdOffset(cb, u8(), u8(), u8(), b.get(), size, c);
    b = buf();
    m.GetSensorUnits(cb, c, u8(), b.get(), size);
    b = buf();
    m.GetSensorOffset(cb, u8(), u8(), u8(), u8(), 0x6F, b.get(), size, name, u8());
    b = buf();
    m.GetGenericOffset(cb, u8(), u8(), u8(), in.ConsumeIntegralInRange<uint8_t>(1, 0x0D), u8(),
                       u8(), b.get(), size, name);
    b = buf();
    m.GetOEMxC0(cb, u8(), u8(), u8(), u8(), u8(), u8(), u8(), u8(), b.get(), size);
    b = buf();
    m.GetOEMxC1(cb, u8(), u8(), u8(), u8(), u8(), u8(), u8(), b.get(), size);
    uint8_t e0[10];
    uint8_t e1[13];
    for (auto& x : e0) {
        x = u8();
    }
    for (auto& x : e1) {
        x = u8();
    }
    b = buf();
    m.GetOEMxE0(cb, e0, b.get(), size);
    b = buf();
    m.GetOEMxE1(cb, e1, b.get(), size);

    // A format read from the file, with one number.
    const std::string format = in.ConsumeRandomLengthString(32);
    b = buf();
    message::FormatOneNumber(b.get(), size, format.c_str(), in.ConsumeIntegral<int>());
}

// Seeds: the bundled file looked up by its own ids, four at a time, then the
// decoders on it.
void WriteSeeds() {
    std::vector<int> ids;
    const std::string& all = fuzz::BundledMessageFile();
    for (size_t at = 0; at < all.size();) {
        size_t end = all.find('\n', at);
        end = end == std::string::npos ? all.size() : end;
        size_t digits = 0;
        while (at + digits < end && std::isdigit(static_cast<unsigned char>(all[at + digits]))) {
            ++digits;
        }
        if (digits > 0 && digits < 6 && at + digits < end && all[at + digits] == '=') {
            ids.push_back(std::stoi(all.substr(at, digits)));
        }
        at = end + 1;
    }
    const size_t step = std::max<size_t>(1, ids.size() / 120);
    for (size_t s = 0; s < 30 && s * 4 * step < ids.size(); ++s) {
        fuzz::SeedWriter w;
        w.Range(0, 2, 1);
        w.String("");
        w.Range(1, 4, 4);
        for (size_t k = 0; k < 4; ++k) {
            const size_t i = std::min(ids.size() - 1, (s * 4 + k) * step);
            w.Range(0, 2, 1);
            w.Range(0, 99999, static_cast<uint64_t>(ids[i]));
            w.Range(0, 601, 513);
        }
        w.Bool(false);
        fuzz::WriteSeed("ids-" + std::to_string(s), w.Finish());
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return fuzz::StartTarget(WriteSeeds);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    message::ClearCache();

    std::string contents = Contents(in);
    fuzz::WriteMessageFile(contents);
    CheckLookups(in, contents);
    // Rewritten in place (often to the same size): the next lookups must see
    // the new text, not what was cached.
    if (in.ConsumeBool()) {
        contents = Contents(in);
        fuzz::WriteMessageFile(contents);
        CheckLookups(in, contents);
    }
    Decoders(in);
    return 0;
}
