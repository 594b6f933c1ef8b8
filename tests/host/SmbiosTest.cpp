// The SMBIOS library: structures by type with statuses 3 and 5, the copy cut
// at the caller's size, and dump files including broken ones.
#include <gtest/gtest.h>

#include "host/framework.h"
#include "host/runtime.h"
#include "host/sim/Builders.h"
#include "tests/support/HostFixture.h"

using namespace NOXAQSV20;
using Bytes = std::vector<uint8_t>;

namespace {

Bytes st(uint8_t type, uint16_t handle, Bytes formatted, std::vector<std::string> strings = {}) {
    return ipmisel::sim::smbiosStructure(type, handle, formatted, strings);
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

// A dump as dmidecode writes it: a 3.x entry point (or 2.x with a structure
// count), then the table at 20h; `claimed` is the table length it announces.
Bytes dump(const Bytes& table, int count2x = -1, size_t claimed = SIZE_MAX) {
    Bytes b(0x20, 0);
    auto put = [&](size_t at, uint64_t v, size_t width) {
        for (size_t i = 0; i < width; ++i) {
            b[at + i] = static_cast<uint8_t>(v >> (8 * i));
        }
    };
    claimed = claimed == SIZE_MAX ? table.size() : claimed;
    if (count2x < 0) {
        std::copy_n("_SM3_", 5, b.begin());
        put(0x0C, claimed, 4), put(0x10, 0x20, 8);
    } else {
        std::copy_n("_SM_", 4, b.begin());
        std::copy_n("_DMI_", 5, b.begin() + 0x10);
        put(0x16, claimed, 2), put(0x18, 0x20, 4), put(0x1C, static_cast<uint64_t>(count2x), 2);
    }
    return concat({b, table});
}

std::string writeDump(const Bytes& b) {
    return ipmisel::test::writeTempFile("dump.bin", std::string(b.begin(), b.end()));
}

const Bytes kBios = st(0, 0, {1, 2, 0, 0xF0}, {"Vendor", "1.2.3"});
const Bytes kSystem = st(1, 1, {1, 2, 3, 4}, {"Maker", "Box", "v1", "SN1"});
const Bytes kOem1 = st(11, 2, {2}, {"first", "  OXA Torvik Adapter"});
const Bytes kOem2 = st(11, 3, {1}, {"second"});
const Bytes kIpmi = st(38, 4, Bytes(12, 0x20));
const Bytes kEnd = st(127, 0xFEFF, {});

} // namespace

TEST(Smbios, StructuresByTypeThenStatusFiveAndMisuseStatusThree) {
    ipmisel::test::HostCapture host;
    SMBIOSHANDLE h = reinterpret_cast<SMBIOSHANDLE>(0x1);
    EXPECT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_ERROR); // no source
    EXPECT_EQ(h, nullptr);
    host.config().smbios = ipmisel::host::smbiosFromDumpFile("/nonexistent/dump.bin");
    EXPECT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_ERROR); // status 3

    host.config().smbios = ipmisel::host::smbiosFromStructures({kOem1, kSystem, kOem2});
    ASSERT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_SUCCESS);
    unsigned char buf[64] = {0};
    uint32_t size = sizeof buf;
    EXPECT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_ERROR); // no type chosen yet
    ASSERT_EQ(smBiosGetFirst(h, 11, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + size), kOem1);
    size = sizeof buf;
    ASSERT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + size), kOem2);
    EXPECT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_NO_MORE_DATA);
    EXPECT_EQ(size, 0u);
    // Types outside 0..255 match nothing (267 must not read as 11).
    for (int32_t absent : {2, -1, 256 + 11}) {
        EXPECT_EQ(smBiosGetFirst(h, absent, buf, &size).GetCode(), QSV_NO_MORE_DATA) << absent;
    }
    // The copy is cut at the caller's size; a new GetFirst starts over.
    std::fill(std::begin(buf), std::end(buf), 0);
    size = 5;
    ASSERT_EQ(smBiosGetFirst(h, 1, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(Bytes(buf, buf + 6), concat({Bytes(kSystem.begin(), kSystem.begin() + 5), {0}}));
    EXPECT_EQ(smBiosGetFirst(h, 1, buf, nullptr).GetCode(), QSV_ERROR);
    SMBIOSHANDLE stale = h;
    ASSERT_EQ(smBiosClose(&h).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(smBiosGetFirst(stale, 1, buf, &size).GetCode(), QSV_ERROR);
    EXPECT_EQ(smBiosClose(&stale).GetCode(), QSV_ERROR);
}

TEST(SmbiosDump, EntryPointsTableEndAndBrokenTables) {
    const Bytes table = concat({kBios, kSystem, kIpmi, kEnd});
    const std::vector<Bytes> all = {kBios, kSystem, kIpmi, kEnd};
    auto withSystemLength = [](uint8_t length) {
        Bytes bad = kSystem;
        bad[1] = length;
        return dump(concat({kBios, bad, kIpmi}));
    };
    Bytes cut = dump(table, 4);
    cut.resize(0x20 + kBios.size() + kSystem.size() - 2); // the second one's strings cut off
    Bytes farTable = dump(table);
    farTable[0x12] = 0x10; // table address 100020h, past the file
    const std::tuple<const char*, Bytes, std::vector<Bytes>> cases[] = {
        {"3.x", dump(table), all},
        {"after the end structure", dump(concat({table, st(2, 9, {0})})), all},
        {"2.x count", dump(table, 2), {kBios, kSystem}},
        {"claimed too short", dump(table, -1, kBios.size() + 3), {kBios}},
        {"truncated", cut, {kBios}},
        {"length below the header", withSystemLength(2), {kBios}},
        {"length past the table", withSystemLength(0xFF), {kBios}},
        {"table past the file", farTable, {}},
    };
    for (const auto& [name, file, expected] : cases) {
        auto parsed = ipmisel::host::smbiosFromDumpFile(writeDump(file))->structures();
        ASSERT_TRUE(parsed.has_value()) << name;
        EXPECT_EQ(*parsed, expected) << name;
    }
    for (const Bytes& file : {Bytes{}, Bytes{'_', 'S', 'M'}, Bytes(64, 0), table}) {
        EXPECT_FALSE(ipmisel::host::smbiosFromDumpFile(writeDump(file))->structures().has_value());
    }
}
