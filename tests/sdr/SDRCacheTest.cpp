// Scanning the SDR text pieces into an IPMISDREntry, and the cache built,
// searched and deleted from such pieces as the SDR walk leaves them.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/text.h"
#include "sdr/SDRCache.h"
#include "tests/support/HostFixture.h"

namespace ipmisel {
namespace {

using test::HostCapture;

// A Get SDR answer as text: cc, next record ID 0002h, then the bytes.
std::string answer(std::vector<uint8_t> bytes) {
    bytes.insert(bytes.begin(), {0x00, 0x02, 0x00});
    return HexBytes(bytes.data(), bytes.size());
}
// Record bytes 0..9 of a full sensor record, ID 01xxh; 20..29; the ID string.
std::string header(uint8_t sensor = 0x30, uint8_t entity = 3, uint8_t id = 7, uint8_t v = 0x51) {
    return answer({id, 0x01, v, 0x01, 0x40, 0x20, 0x00, sensor, entity, 0x01});
}
std::string units(uint8_t m, uint8_t mTop, uint8_t b, uint8_t bTop, uint8_t exponents) {
    return answer({0x80, 0x01, 0x02, 0x07, m, mTop, b, bTop, 0x00, exponents});
}
std::string idString(const std::string& name) {
    std::vector<uint8_t> bytes{static_cast<uint8_t>(0xC0 | name.size())};
    bytes.insert(bytes.end(), name.begin(), name.end());
    return answer(bytes);
}
int scan(IPMISDREntry& e, const std::string& h, const std::string& u, const std::string& s) {
    return e.ScanSDRDataFile(h.c_str(), u.c_str(), s.c_str());
}
const std::string kUnits = units(0x10, 0xC0, 0x05, 0x40, 0xF1);

// ---- scanning ----------------------------------------------------------------

TEST(ScanSDR, FieldsFactorsAndLogLines) {
    HostCapture cap;
    IPMISDREntry entry;
    ASSERT_EQ(0, scan(entry, header(), kUnits, idString("CPU 1 Temp")));
    // M 310h is 784, not a negative number; exponents F1h are 15 and 1.
    EXPECT_TRUE(cap.hasLog(3, "M = 784. B = 261. Rexp = 15. Bexp = 1. Lin = 7"));
    EXPECT_TRUE(cap.hasLog(3, "Results of ScanSDRDataFile:  7 1 81 1 64 48 3 1 128 1 2 202"));
    // Only the top two bits of the next byte count; each stays raw, also in
    // what the reading conversion is handed.
    ASSERT_EQ(0, scan(entry, header(), units(0xFF, 0x3F, 0x00, 0x80, 0x8E), idString("T")));
    const SensorConversion c = entry.Conversion();
    EXPECT_EQ((std::vector<int>{1, 0x80, 1, 2, 7, 255, 512, 8, 14}),
              (std::vector<int>{c.RecordType, c.SensorUnits1, c.BaseUnit, c.ModifierUnit,
                                c.Linearization, c.M, c.B, c.RExp, c.BExp}));
}

TEST(ScanSDR, IDStringCleaningAndUnreadablePieces) {
    const std::string s = idString("A");
    const struct {
        std::string head, unitsText, str;
        int rc;
        const char* text; // the ID string kept, or the error line
    } cases[] = {
        {header(), kUnits, idString("Fan-1"), 0, "Fan"},
        {header(), kUnits, idString("Sys.Temp_2\xFF\xFF"), 0, "Sys.Temp_2"},       // top bit set
        {header(), kUnits, idString("AZ az 09._ABCDEFGH"), 0, "AZ az 09._ABCDEF"}, // 16 read
        // The type/length byte says 3 characters; it does not cut the string.
        {header(), kUnits, answer({0xC3, 'F', 'a', 'n', '1', '2'}), 0, "Fan12"},
        {"", kUnits, s, 1, "Error in reading data file for SDRHeaderData."},
        {header(), kUnits, "", 1, "Error reading data file for SDRIDStringData."},
        {header(), "\n", s, 1, "Error reading data file for SDRUnitsData."},
    };
    HostCapture cap;
    for (const auto& c : cases) {
        cap.clear();
        IPMISDREntry entry;
        EXPECT_EQ(c.rc, scan(entry, c.head, c.unitsText, c.str)) << c.text;
        EXPECT_TRUE(c.rc == 0 ? entry.IDString == std::string(c.text) : cap.hasLog(0, c.text))
            << c.text;
        EXPECT_EQ(c.rc == 0, cap.hasLog("IPMISDREntry::ScanSDRDataFile() function completed."));
    }
    // The factor line is written before the units are looked at.
    EXPECT_TRUE(cap.hasLog(3, "M = 0. B = 0. Rexp = 0. Bexp = 0. Lin = 0"));
}

// ---- the cache -----------------------------------------------------------------

// A block as the walk may leave it: each piece fills its width, blank-padded
// and unterminated. Each piece must be read within its width; a read past
// the last block shows in the sanitizer build.
SDRTextBlock block(uint8_t sensor, uint8_t entity, const std::string& name, uint8_t id,
                   uint8_t version = 0x51) {
    SDRTextBlock b;
    std::memset(b.text, ' ', sizeof b.text);
    for (const auto& [at, text] :
         {std::pair{0, header(sensor, entity, id, version)}, {64, kUnits}, {160, idString(name)}}) {
        std::memcpy(b.text + at, text.data(), text.size());
    }
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

TEST_F(Cache, RepositoryOrderFirstOfOneNumberWinsStopsAtAnUnreadableBlock) {
    // The info text fills its 64 characters with no terminator, on the heap.
    auto info = std::make_unique<char[]>(SDRInfoTextSize);
    std::memcpy(info.get(), ("00 51" + std::string(SDRInfoTextSize, ' ')).data(), SDRInfoTextSize);
    std::vector<SDRTextBlock> blocks = {block(0x30, 3, "Temp A", 1),    block(0x31, 3, "Fan-1", 2),
                                        block(0x44, 9, "Old", 3, 0x02), block(0x30, 7, "Temp B", 4),
                                        block(0x45, 3, "Lost", 5),      block(0x46, 3, "After", 6)};
    std::memset(blocks[4].text + 160, 0, 64); // its string piece is unreadable
    ASSERT_EQ(0, CreateSDRCache(new IPMISDREntry, cache, blocks, info.get()));
    std::vector<std::string> names;
    for (const IPMISDREntry* e : cache) {
        names.push_back(e->IDString);
    }
    EXPECT_EQ((std::vector<std::string>{"Temp A", "Fan", "", "Temp B"}), names);
    EXPECT_TRUE(cap.hasLog(1, "Failed to scan all SDRs from buffer."));
    EXPECT_EQ(3u, cap.countLog("strlen(SDRstring) = 64")); // each one read within its width
    ASSERT_NE(nullptr, FindSDR(cache, 0x30));
    EXPECT_EQ(3, FindSDR(cache, 0x30)->EntityID);
    EXPECT_EQ(nullptr, FindSDR(cache, 0x46));
    // A version-02h record: header fields only, record ID 0, found by its number.
    EXPECT_TRUE(cap.hasLog(1, "This SDR entry (ID 259, vers 0x2) does not match the current IPMI "
                              "Version (0x51).\n"));
    const IPMISDREntry* old = FindSDR(cache, 0x44);
    ASSERT_NE(nullptr, old);
    EXPECT_EQ((std::vector<int>{0, 0, 2, 9, 0}),
              (std::vector<int>{old->RecordIDHigh, old->RecordIDLow, old->SDRVersion, old->EntityID,
                                old->M}));
    // Emptied, so the second delete when the test ends frees nothing twice.
    EXPECT_EQ(0, DeleteSDRCache(cache));
    EXPECT_TRUE(cache.empty());
}

TEST_F(Cache, RejectedInfoLeavesItEmptyAndFreesTheFirstEntry) {
    EXPECT_EQ(1, CreateSDRCache(new IPMISDREntry, cache, {block(0x30, 3, "A", 1)}, "00 02 05 "));
    EXPECT_TRUE(cache.empty());
    EXPECT_TRUE(
        cap.hasLog(1, "This SDR Version (0x2) does not match the current IPMI Version (0x51).\n"));
    EXPECT_TRUE(cap.hasLog(0, "Failed to obtain correct SDR info."));
    EXPECT_EQ(1, CreateSDRCache(nullptr, cache, {}, nullptr));
    EXPECT_TRUE(cap.hasLog(0, "Error in reading data file for SDRInfostring"));
}

} // namespace
} // namespace ipmisel
