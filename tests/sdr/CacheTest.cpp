// Building, searching and deleting the SDR cache, from hand-made blocks and
// from a walk over a fake repository.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "plugin/text.h"
#include "sdr/SDRCache.h"
#include "tests/ipmi/FakeStorage.h"

namespace ipmisel {
namespace {

using namespace test;

const char* const kInfo = "00 51 05 00 40 00 11 22 33 44 55 66 77 88 0F ";

std::string hex(std::vector<uint8_t> bytes) {
    return HexBytes(bytes.data(), bytes.size());
}

// A block as the walk leaves it for a full sensor record.
SDRTextBlock block(uint16_t id, uint8_t sensor, uint8_t entity, const std::string& name,
                   uint8_t version = 0x51) {
    SDRTextBlock b{};
    const std::string header =
        hex({0x00, 0xFF, 0xFF, static_cast<uint8_t>(id & 0xFF), static_cast<uint8_t>(id >> 8),
             version, 0x01, 0x40, 0x20, 0x00, sensor, entity, 0x01});
    const std::string units =
        hex({0x00, 0xFF, 0xFF, 0x80, 0x01, 0x00, 0x00, 0x10, 0xC0, 0x00, 0x00, 0x00, 0xF1});
    std::vector<uint8_t> str{0x00, 0xFF, 0xFF, static_cast<uint8_t>(0xC0 | name.size())};
    str.insert(str.end(), name.begin(), name.end());
    CopyOut(b.text, 64, header.c_str());
    CopyOut(b.text + 64, 96, units.c_str());
    CopyOut(b.text + 160, 64, hex(str).c_str());
    return b;
}

// One owner for the cache in every test, so the sanitizer build reports any
// entry that is leaked or freed twice.
class Cache : public ::testing::Test {
  protected:
    ~Cache() override { DeleteSDRCache(cache); }
    HostCapture cap;
    SDRCache cache;
};

TEST_F(Cache, BuiltInRepositoryOrder) {
    const std::vector<SDRTextBlock> blocks = {
        block(1, 0x30, 3, "CPU 1 Temp"), block(2, 0x31, 3, "Fan-1"), block(3, 0x32, 7, "PS 1")};
    ASSERT_EQ(0, CreateSDRCache(new IPMISDREntry, cache, blocks, kInfo));
    ASSERT_EQ(3u, cache.size());
    std::vector<std::string> names;
    for (const IPMISDREntry* e : cache) {
        names.push_back(e->IDString);
    }
    EXPECT_EQ((std::vector<std::string>{"CPU 1 Temp", "Fan", "PS 1"}), names);
    EXPECT_EQ(0x31, FindSDR(cache, 0x31)->SensorNumber);
    EXPECT_EQ(nullptr, FindSDR(cache, 0x99));
    EXPECT_TRUE(cap.hasLog(4, "CreateSDRCache() function entered."));
    EXPECT_EQ("CreateSDRCache() function completed.", cap.logs.back().text);
}

TEST_F(Cache, EmptyBlockListGivesEmptyCache) {
    EXPECT_EQ(0, CreateSDRCache(new IPMISDREntry, cache, {}, kInfo));
    EXPECT_TRUE(cache.empty());
    EXPECT_EQ(nullptr, FindSDR(cache, 0x30));
}

TEST_F(Cache, RejectedInfoLeavesItEmpty) {
    const std::vector<SDRTextBlock> blocks = {block(1, 0x30, 3, "A")};
    for (const char* info : {"00 02 05 00 ", "", static_cast<const char*>(nullptr)}) {
        cap.clear();
        // `first` is the cache's from the call on: it is destroyed here too.
        EXPECT_EQ(1, CreateSDRCache(new IPMISDREntry, cache, blocks, info));
        EXPECT_TRUE(cache.empty());
        EXPECT_TRUE(cap.hasLog(0, "Failed to obtain correct SDR info."));
        EXPECT_FALSE(cap.hasLog("CreateSDRCache() function completed."));
    }
}

TEST_F(Cache, FirstOfTwoSensorsWithOneNumberWins) {
    const std::vector<SDRTextBlock> blocks = {block(1, 0x30, 3, "Temp A"),
                                              block(2, 0x30, 7, "Temp B")};
    ASSERT_EQ(0, CreateSDRCache(new IPMISDREntry, cache, blocks, kInfo));
    ASSERT_EQ(2u, cache.size());
    const IPMISDREntry* found = FindSDR(cache, 0x30);
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(3, found->EntityID);
    EXPECT_STREQ("Temp A", found->IDString);
}

TEST_F(Cache, VersionMismatchIsCachedAndFound) {
    const std::vector<SDRTextBlock> blocks = {block(0x0105, 0x44, 9, "Old", 0x02),
                                              block(0x0106, 0x45, 9, "New")};
    ASSERT_EQ(0, CreateSDRCache(new IPMISDREntry, cache, blocks, kInfo));
    ASSERT_EQ(2u, cache.size());
    const IPMISDREntry* old = FindSDR(cache, 0x44);
    ASSERT_NE(nullptr, old);
    EXPECT_EQ(0, old->RecordIDHigh);
    EXPECT_EQ(0, old->RecordIDLow);
    EXPECT_EQ(0x02, old->SDRVersion);
    EXPECT_EQ(9, old->EntityID);
    EXPECT_STREQ("", old->IDString);
    // The next block starts from a fresh entry, not from the mismatched one.
    EXPECT_EQ(0x01, cache.back()->RecordIDHigh);
    EXPECT_EQ(0x06, cache.back()->RecordIDLow);
}

TEST_F(Cache, FailureOnTheThirdOfFiveKeepsTwo) {
    std::vector<SDRTextBlock> blocks;
    for (uint16_t id = 1; id <= 5; ++id) {
        blocks.push_back(block(id, static_cast<uint8_t>(0x30 + id), 3, "S"));
    }
    std::memset(blocks[2].text + 160, 0, 64); // the third's string piece is unreadable
    EXPECT_EQ(0, CreateSDRCache(new IPMISDREntry, cache, blocks, kInfo));
    EXPECT_EQ(2u, cache.size());
    EXPECT_TRUE(cap.hasLog(1, "Failed to scan all SDRs from buffer."));
    EXPECT_EQ(nullptr, FindSDR(cache, 0x34));
    EXPECT_TRUE(cap.hasLog("CreateSDRCache() function completed."));
}

TEST_F(Cache, DeleteTwiceIsSafe) {
    const std::vector<SDRTextBlock> blocks = {block(1, 0x30, 3, "A"), block(2, 0x31, 3, "B")};
    ASSERT_EQ(0, CreateSDRCache(new IPMISDREntry, cache, blocks, kInfo));
    cap.clear();
    EXPECT_EQ(0, DeleteSDRCache(cache));
    EXPECT_TRUE(cache.empty());
    EXPECT_EQ(0, DeleteSDRCache(cache));
    EXPECT_EQ(2u, cap.countLog("DeleteSDRCacheSDRCache() function entered."));
    EXPECT_EQ(2u, cap.countLog("DeleteSDRCacheSDRCache() function completed."));
}

// ---- from the BMC to the cache ---------------------------------------------------

class WalkAndCache : public Cache {
  protected:
    void SetUp() override { cap.setNodes({transportFor(repo)}); }
    int walkAndBuild() {
        IPMIRequestSDR sdr(NOXAQSV20::SPLibrary::GetSplibraryInstance(0));
        char info[SDRInfoTextSize] = {};
        std::vector<SDRTextBlock> blocks;
        const int walked = sdr.IPMIGetSDREntry(blocks, info);
        EXPECT_EQ(0, CreateSDRCache(new IPMISDREntry, cache, blocks, info));
        return walked;
    }
    FakeRepository repo;
};

TEST_F(WalkAndCache, FullAndCompactSensorsBetweenOtherRecords) {
    repo.records = {fullSensor(0x0010, {.sensor = 0x30, .name = "CPU 1 Temp"}),
                    otherRecord(0x0011, 0x11),
                    compactSensor(0x0012, {.sensor = 0x50, .entity = 0x1D, .name = "Fan-1 Tach"}),
                    otherRecord(0x0013, 0x12)};
    ASSERT_EQ(0, walkAndBuild());
    ASSERT_EQ(2u, cache.size());
    const IPMISDREntry* cpu = FindSDR(cache, 0x30);
    ASSERT_NE(nullptr, cpu);
    EXPECT_STREQ("CPU 1 Temp", cpu->IDString);
    EXPECT_EQ(0x10, cpu->RecordIDLow);
    EXPECT_EQ(784, cpu->M);
    EXPECT_EQ(15, cpu->RExp);
    EXPECT_EQ(1, cpu->BExp);
    const IPMISDREntry* fan = FindSDR(cache, 0x50);
    ASSERT_NE(nullptr, fan);
    EXPECT_EQ(2, fan->RecordType);
    EXPECT_EQ(0x1D, fan->EntityID);
    EXPECT_STREQ("Fan", fan->IDString);
}

TEST_F(WalkAndCache, BMCThatRefusesCountFFhKeepsTheRecordsBefore) {
    // This BMC answers CAh to a read of the rest of a record when that rest
    // is longer than 12 bytes: the third record's long name stops the walk,
    // the two before it reach the cache and the SEL can still name them.
    repo.records = {fullSensor(0x0001, {.sensor = 0x30, .name = "CPU"}),
                    compactSensor(0x0002, {.sensor = 0x31, .name = "Fan"}),
                    fullSensor(0x0003, {.sensor = 0x32, .name = "System Board Temp"}),
                    fullSensor(0x0004, {.sensor = 0x33, .name = "PS"})};
    repo.hook = [this](const host::IpmiRequest& r, int) -> std::optional<host::IpmiResponse> {
        if (r.cmd == 0x23 && r.data[5] == 0xFF) {
            const uint16_t id = static_cast<uint16_t>(r.data[3] << 8 | r.data[2]);
            for (const auto& rec : repo.records) {
                if (rec.id == id && rec.bytes.size() - r.data[4] > 12) {
                    return cc(0xCA);
                }
            }
        }
        return std::nullopt;
    };
    EXPECT_EQ(1, walkAndBuild());
    EXPECT_TRUE(cap.hasLog(1, "IPMI error in obtaining sensor data record string: Cannot return "
                              "number of requested data bytes."));
    ASSERT_EQ(2u, cache.size());
    EXPECT_STREQ("CPU", FindSDR(cache, 0x30)->IDString);
    EXPECT_STREQ("Fan", FindSDR(cache, 0x31)->IDString);
    EXPECT_EQ(nullptr, FindSDR(cache, 0x32));
    EXPECT_EQ(nullptr, FindSDR(cache, 0x33));
}

} // namespace
} // namespace ipmisel
