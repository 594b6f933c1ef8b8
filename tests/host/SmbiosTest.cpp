// The SMBIOS library: structures by type with statuses 3 and 5, and the
// parsing of dump files including broken ones.
#include <gtest/gtest.h>

#include <fstream>

#include "host/framework.h"
#include "host/runtime.h"
#include "tests/support/HostFixture.h"

using namespace NOXAQSV20;
using Bytes = std::vector<uint8_t>;
using ipmisel::test::HostCapture;

namespace {

// One structure: header (type, length, handle), extra formatted bytes, strings.
Bytes structure(uint8_t type, uint16_t handle, Bytes formatted,
                std::vector<std::string> strings = {}) {
    Bytes s;
    s.reserve(64);
    for (uint8_t b : {type, static_cast<uint8_t>(4 + formatted.size()),
                      static_cast<uint8_t>(handle), static_cast<uint8_t>(handle >> 8)}) {
        s.push_back(b);
    }
    for (uint8_t b : formatted) {
        s.push_back(b);
    }
    for (const auto& str : strings) {
        s.insert(s.end(), str.begin(), str.end());
        s.push_back(0);
    }
    if (strings.empty()) {
        s.push_back(0);
    }
    s.push_back(0);
    return s;
}

Bytes concat(const std::vector<Bytes>& parts) {
    Bytes out;
    for (const auto& p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

void putLe(Bytes& b, size_t at, uint64_t v, size_t width) {
    for (size_t i = 0; i < width; ++i) {
        b[at + i] = static_cast<uint8_t>(v >> (8 * i));
    }
}

// A dump as written by dmidecode: entry point, then the table at 20h.
Bytes dump2(const Bytes& table, uint16_t count, size_t claimedLength = SIZE_MAX) {
    Bytes b(0x20, 0);
    std::copy_n("_SM_", 4, b.begin());
    std::copy_n("_DMI_", 5, b.begin() + 0x10);
    putLe(b, 0x16, claimedLength == SIZE_MAX ? table.size() : claimedLength, 2);
    putLe(b, 0x18, 0x20, 4);
    putLe(b, 0x1C, count, 2);
    b.insert(b.end(), table.begin(), table.end());
    return b;
}

Bytes dump3(const Bytes& table, size_t claimedLength = SIZE_MAX) {
    Bytes b(0x20, 0);
    std::copy_n("_SM3_", 5, b.begin());
    putLe(b, 0x0C, claimedLength == SIZE_MAX ? table.size() : claimedLength, 4);
    putLe(b, 0x10, 0x20, 8);
    b.insert(b.end(), table.begin(), table.end());
    return b;
}

std::string writeDump(const Bytes& b) {
    return ipmisel::test::writeTempFile("dump.bin", std::string(b.begin(), b.end()));
}

const Bytes kBios = structure(0, 0x0000, {1, 2, 0, 0xF0}, {"Vendor", "1.2.3"});
const Bytes kSystem = structure(1, 0x0001, {1, 2, 3, 4}, {"Maker", "Box", "v1", "SN1"});
const Bytes kOem1 = structure(11, 0x0002, {2}, {"first", "  OXA Torvik Adapter"});
const Bytes kOem2 = structure(11, 0x0003, {1}, {"second"});
const Bytes kIpmi = structure(38, 0x0004, Bytes(12, 0x20));
const Bytes kEnd = structure(127, 0xFEFF, {});

} // namespace

TEST(Smbios, StructuresByTypeThenNoMoreData) {
    HostCapture host;
    host.config().smbios =
        ipmisel::host::smbiosFromStructures({kBios, kOem1, kSystem, kOem2, kIpmi});
    SMBIOSHANDLE h = nullptr;
    ASSERT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_SUCCESS);
    ASSERT_NE(h, nullptr);

    unsigned char buf[4096];
    uint32_t size = sizeof buf;
    ASSERT_EQ(smBiosGetFirst(h, 11, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + size), kOem1);
    size = sizeof buf;
    ASSERT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + size), kOem2);
    size = sizeof buf;
    EXPECT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_NO_MORE_DATA);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_NO_MORE_DATA);

    // A new GetFirst starts over, for any type.
    size = sizeof buf;
    ASSERT_EQ(smBiosGetFirst(h, 38, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + size), kIpmi);
    for (int32_t absent : {2, 127, -1, 256 + 11}) {
        size = sizeof buf;
        EXPECT_EQ(smBiosGetFirst(h, absent, buf, &size).GetCode(), QSV_NO_MORE_DATA) << absent;
    }
    EXPECT_EQ(smBiosClose(&h).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(h, nullptr);
}

TEST(Smbios, CopyIsCutAtTheCallersSize) {
    HostCapture host;
    host.config().smbios = ipmisel::host::smbiosFromStructures({kSystem});
    SMBIOSHANDLE h = nullptr;
    ASSERT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_SUCCESS);
    unsigned char buf[16];
    std::fill(std::begin(buf), std::end(buf), 0xCC);
    uint32_t size = 5;
    ASSERT_EQ(smBiosGetFirst(h, 1, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(Bytes(buf, buf + 5), Bytes(kSystem.begin(), kSystem.begin() + 5));
    EXPECT_EQ(buf[5], 0xCC);
    size = 0;
    EXPECT_EQ(smBiosGetFirst(h, 1, nullptr, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(size, 0u);
    smBiosClose(&h);
}

TEST(Smbios, ReadFailuresAnswerStatusThree) {
    HostCapture host;
    SMBIOSHANDLE h = reinterpret_cast<SMBIOSHANDLE>(0x1);
    EXPECT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_ERROR); // no source
    EXPECT_EQ(h, nullptr);
    host.config().smbios = ipmisel::host::smbiosFromDumpFile("/nonexistent/dump.bin");
    EXPECT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_ERROR);
    EXPECT_EQ(smBiosLoad(nullptr, nullptr).GetCode(), QSV_ERROR);

    host.config().smbios = ipmisel::host::smbiosFromStructures({kOem1});
    ASSERT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_SUCCESS);
    unsigned char buf[64];
    uint32_t size = sizeof buf;
    EXPECT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_ERROR); // no type chosen yet
    EXPECT_EQ(smBiosGetFirst(h, 11, buf, nullptr).GetCode(), QSV_ERROR);
    SMBIOSHANDLE stale = h;
    ASSERT_EQ(smBiosClose(&h).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(smBiosGetFirst(stale, 11, buf, &size).GetCode(), QSV_ERROR);
    EXPECT_EQ(smBiosGetNext(stale, buf, &size).GetCode(), QSV_ERROR);
    EXPECT_EQ(smBiosClose(&stale).GetCode(), QSV_ERROR);
    EXPECT_EQ(smBiosGetFirst(nullptr, 11, buf, &size).GetCode(), QSV_ERROR);
    EXPECT_EQ(smBiosClose(nullptr).GetCode(), QSV_ERROR);
}

TEST(Smbios, EmptyTableLoadsAndHasNothing) {
    HostCapture host;
    host.config().smbios = ipmisel::host::smbiosFromStructures({});
    SMBIOSHANDLE h = nullptr;
    ASSERT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_SUCCESS);
    unsigned char buf[8];
    uint32_t size = sizeof buf;
    EXPECT_EQ(smBiosGetFirst(h, 11, buf, &size).GetCode(), QSV_NO_MORE_DATA);
    smBiosClose(&h);
}

TEST(SmbiosDump, EntryPointFormatsAndTableEnd) {
    const Bytes table = concat({kBios, kSystem, kIpmi, kEnd});
    const Bytes trailing = structure(2, 9, {0});
    struct Case {
        const char* name;
        Bytes file;
        std::vector<Bytes> expected;
    } cases[] = {
        {"2.x", dump2(table, 4), {kBios, kSystem, kIpmi, kEnd}},
        {"3.x", dump3(table), {kBios, kSystem, kIpmi, kEnd}},
        // Type 127 ends the table even when more bytes follow inside it.
        {"after end", dump3(concat({table, trailing})), {kBios, kSystem, kIpmi, kEnd}},
        // The 2.x structure count is honoured.
        {"count", dump2(table, 2), {kBios, kSystem}},
        // A table length beyond the file is cut at the file's end.
        {"claimed too long", dump3(table, 0x10000), {kBios, kSystem, kIpmi, kEnd}},
        // A table length that ends inside a structure drops that structure.
        {"claimed too short", dump3(table, kBios.size() + 3), {kBios}},
        // Truncated file: the second structure's strings are cut off.
        {"truncated",
         [&] {
             Bytes f = dump2(table, 4);
             f.resize(0x20 + kBios.size() + kSystem.size() - 2);
             return f;
         }(),
         {kBios}},
        {"header only",
         [&] {
             Bytes f = dump3(table);
             f.resize(0x20 + 3);
             return f;
         }(),
         {}},
        // A length byte below the header size ends the parse.
        {"bad length",
         [&] {
             Bytes bad = kSystem;
             bad[1] = 2;
             return dump3(concat({kBios, bad, kIpmi}));
         }(),
         {kBios}},
        // Formatted area running past the table.
        {"huge length",
         [&] {
             Bytes bad = kSystem;
             bad[1] = 0xFF;
             return dump3(concat({kBios, bad}));
         }(),
         {kBios}},
        {"table past the file",
         [&] {
             Bytes f = dump3(table);
             putLe(f, 0x10, 0x100000, 8);
             return f;
         }(),
         {}},
    };
    for (const auto& c : cases) {
        auto parsed = ipmisel::host::smbiosFromDumpFile(writeDump(c.file))->structures();
        ASSERT_TRUE(parsed.has_value()) << c.name;
        EXPECT_EQ(*parsed, c.expected) << c.name;
    }
}

TEST(SmbiosDump, UnrecognisedFilesCannotBeRead) {
    for (const Bytes& file : {Bytes{}, Bytes{'_', 'S', 'M'}, Bytes(64, 0), concat({kBios, kEnd})}) {
        EXPECT_FALSE(ipmisel::host::smbiosFromDumpFile(writeDump(file))->structures().has_value());
    }
}

TEST(SmbiosDump, ServesTheLibraryThroughTheConfiguration) {
    HostCapture host;
    host.config().smbios =
        ipmisel::host::smbiosFromDumpFile(writeDump(dump2(concat({kOem1, kOem2, kEnd}), 3)));
    SMBIOSHANDLE h = nullptr;
    ASSERT_EQ(smBiosLoad(nullptr, &h).GetCode(), QSV_SUCCESS);
    unsigned char buf[256];
    uint32_t size = sizeof buf;
    ASSERT_EQ(smBiosGetFirst(h, 11, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + size), kOem1);
    size = sizeof buf;
    ASSERT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + size), kOem2);
    size = sizeof buf;
    EXPECT_EQ(smBiosGetNext(h, buf, &size).GetCode(), QSV_NO_MORE_DATA);
    smBiosClose(&h);
}

TEST(SmbiosSystem, ReadsTheRunningSystemWhenAllowed) {
    // Usually readable by root only; either way the answer must be well formed.
    auto parsed = ipmisel::host::smbiosFromSystem()->structures();
    if (!parsed) {
        GTEST_SKIP() << "system tables not readable here";
    }
    for (const auto& s : *parsed) {
        ASSERT_GE(s.size(), 6u);
        EXPECT_GE(s[1], 4);
        EXPECT_EQ(s[s.size() - 1], 0);
        EXPECT_EQ(s[s.size() - 2], 0);
    }
}
