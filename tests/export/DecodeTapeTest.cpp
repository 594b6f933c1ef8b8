// A repeated event is decoded once and its tape played after that. Whatever
// happens around it, what reaches the framework has to be exactly what
// decoding every record afresh gives: the same log lines in the same order,
// the same instances. Every test here exports twice, with and without tapes,
// and compares everything.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/tape.h"
#include "export/ExportSEL.h"
#include "tests/support/HostFixture.h"

using namespace ipmisel;
using ipmisel::test::HostCapture;

namespace {

struct Event {
    uint8_t generator, sensorType, sensorNumber, eventType, ed1, ed2, ed3;
};

IPMISELEntry Record(uint16_t id, uint32_t stamp, const Event& e) {
    IPMISELEntry r;
    r.bytes[0] = uint8_t(id >> 8); // the entry keeps the ID high byte first
    r.bytes[1] = uint8_t(id & 0xFF);
    r.bytes[2] = 0x02;
    std::memcpy(r.bytes + 3, &stamp, 4);
    const uint8_t rest[9] = {e.generator, 0x00,  0x04,  e.sensorType, e.sensorNumber,
                             e.eventType, e.ed1, e.ed2, e.ed3};
    std::memcpy(r.bytes + 7, rest, sizeof rest);
    return r;
}

IPMISELEntry Other(uint16_t id, uint8_t type) {
    IPMISELEntry r;
    r.bytes[0] = uint8_t(id >> 8);
    r.bytes[1] = uint8_t(id & 0xFF);
    r.bytes[2] = type;
    for (int i = 3; i < 16; ++i) {
        r.bytes[i] = uint8_t(0x30 + i);
    }
    return r;
}

IPMISDREntry* Sensor(uint8_t number, uint8_t entity, uint8_t unit, uint16_t m, uint16_t b,
                     uint8_t rexp, uint8_t bexp, const char* name) {
    auto* s = new IPMISDREntry();
    s->RecordIDLow = s->SensorNumber = number;
    s->SDRVersion = 0x51;
    s->RecordType = 1;
    s->EntityID = entity;
    s->EntityInstance = uint8_t(number & 0x7F);
    s->BaseUnit = unit;
    s->M = m;
    s->B = b;
    s->RExp = rexp;
    s->BExp = bexp;
    std::strncpy(s->IDString, name, 16);
    return s;
}

// What an export left behind, minus the lines that read the clock.
struct Seen {
    std::vector<std::string> log;
    std::vector<std::string> instances;
};

std::string Dump(const host::Instance& instance) {
    std::string out;
    for (const auto& p : instance.properties) {
        out += p.name + "=" + p.text;
        for (uint8_t b : p.bytes) {
            out += " " + std::to_string(b);
        }
        out += "\n";
    }
    return out;
}

struct DecodeTapeTest : ::testing::Test {
    HostCapture host;
    SDRCache cache;
    std::vector<AuxLogRecord> aux;
    std::shared_ptr<test::FakeTransport> bmc = std::make_shared<test::FakeTransport>(
        [](const host::IpmiRequest&) { return test::cc(0xC1); });
    std::string shippedFile;
    // Called with the number of each log line as it is written (from 1).
    std::function<void(size_t)> onLine;

    void SetUp() override {
        host.setNodes({bmc, bmc});
        std::stringstream shipped;
        shipped << std::ifstream(test::binDir() + "/ipmisel.INI", std::ios::binary).rdbuf();
        shippedFile = shipped.str();
        cache.push_back(Sensor(0x30, 0x03, 1, 1, 0, 0, 0, "CPU1 Temp"));
        cache.push_back(Sensor(0x31, 0x07, 4, 25, 0, 0, 0, "12V"));
        cache.push_back(Sensor(0x32, 0x1D, 18, 100, 0, 0, 0, "FAN1"));
        cache.push_back(Sensor(0x33, 0x0A, 4, 7, 3, 0xE, 0x1, "VRM Volt"));
        cache.push_back(Sensor(0x34, 0x30, 0, 1, 0, 0, 0, "Drive 12"));
        cache.push_back(Sensor(0x35, 0x50, 0, 1, 0, 0, 0, "HSDC Bay"));
    }
    void TearDown() override {
        DeleteSDRCache(cache);
        g_decodedEventLimit = kDefaultLimit;
    }

    static inline const size_t kDefaultLimit = g_decodedEventLimit;

    Seen Export(const std::vector<IPMISELEntry>& records, size_t limit) {
        g_decodedEventLimit = limit;
        host.clear();
        host::configure(host::config()); // instance counts from 0 for the refusal hook
        Seen seen;
        size_t lines = 0;
        auto captured = host.config().logSink;
        host.config().logSink = [&](int severity, const std::string& text) {
            if (text.find("OSTime") == std::string::npos &&
                text.find("DiffTime") == std::string::npos) {
                seen.log.push_back(std::to_string(severity) + " " + text);
            }
            if (onLine) {
                onLine(++lines);
            }
        };
        std::vector<IPMISELEntry> copy = records;
        // Node 1: the first node's generator filter would drop some events.
        EXPECT_EQ(ExportSEL(1, host::hostCallbacks(), host::outputHandle(), cache, copy.data(),
                            static_cast<uint32_t>(copy.size()), 0, aux,
                            NOXAQSV20::SPLibrary::GetSplibraryInstance(1)),
                  0);
        host.config().logSink = captured;
        for (const auto& instance : host.instances) {
            seen.instances.push_back(Dump(instance));
        }
        return seen;
    }

    // Exports the records both ways (setUp runs before each) and expects the same.
    void ExpectSameBothWays(
        const std::vector<IPMISELEntry>& records, const std::function<void()>& setUp = [] {}) {
        setUp();
        const Seen fresh = Export(records, 0);
        setUp();
        const Seen taped = Export(records, kDefaultLimit);
        ASSERT_EQ(fresh.instances.size(), taped.instances.size());
        for (size_t i = 0; i < fresh.instances.size(); ++i) {
            ASSERT_EQ(fresh.instances[i], taped.instances[i]) << "instance " << i;
        }
        ASSERT_EQ(fresh.log.size(), taped.log.size());
        for (size_t i = 0; i < fresh.log.size(); ++i) {
            ASSERT_EQ(fresh.log[i], taped.log[i]) << "log line " << i;
        }
    }

    std::string Folder(const std::string& hint, const std::string* messageFile) {
        const std::string dir = test::makeTempDir(hint);
        if (messageFile != nullptr) {
            std::ofstream(dir + "/ipmisel.INI", std::ios::binary) << *messageFile;
        }
        return dir;
    }
};

// The events a SEL mixes: thresholds with and without units to convert,
// sensor-specific and generic offsets, OEM types, sensors without a record,
// software generators, deassertions, the drive and HSDC adjustments.
std::vector<Event> EventPool(std::mt19937& rng, size_t n) {
    const uint8_t sensors[] = {0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x40, 0x41};
    const uint8_t types[] = {0x01, 0x02, 0x04, 0x07, 0x08, 0x0C, 0x0D, 0x05, 0x10, 0xC1, 0x21};
    const uint8_t eventTypes[] = {0x01, 0x6F, 0x07, 0x03, 0x70, 0x0A};
    const uint8_t generators[] = {0x20, 0x21, 0x41, 0x2C};
    std::vector<Event> pool;
    for (size_t i = 0; i < n; ++i) {
        Event e{};
        e.generator = generators[rng() % 4];
        e.sensorType = types[rng() % sizeof types];
        e.sensorNumber = sensors[rng() % sizeof sensors];
        e.eventType = uint8_t(eventTypes[rng() % sizeof eventTypes] | (rng() % 3 == 0 ? 0x80 : 0));
        e.ed1 = uint8_t((rng() % 4) << 4 | rng() % 13);
        e.ed2 = uint8_t(rng());
        e.ed3 = uint8_t(rng());
        pool.push_back(e);
    }
    return pool;
}

// Records drawn from `distinct` events, about a third of them twins of another
// event that differ from it in one byte only, so that a tape standing in for
// an event it was not made from shows.
std::vector<IPMISELEntry> Sel(size_t records, size_t distinct, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<Event> pool = EventPool(rng, distinct - distinct / 3);
    while (pool.size() < distinct) {
        Event twin = pool[rng() % pool.size()];
        uint8_t* bytes[] = {&twin.generator, &twin.sensorType, &twin.sensorNumber, &twin.eventType,
                            &twin.ed1,       &twin.ed2,        &twin.ed3};
        *bytes[rng() % 7] ^= uint8_t(1u << (rng() % 8));
        pool.push_back(twin);
    }
    std::vector<IPMISELEntry> sel;
    uint32_t stamp = 1718092800;
    for (size_t i = 0; i < records; ++i) {
        const uint16_t id = uint16_t(i + 1);
        stamp += rng() % 4000;
        if (rng() % 23 == 0) {
            const uint8_t kinds[] = {0xC0, 0xC1, 0xDC, 0xDD, 0xE0, 0x10};
            sel.push_back(Other(id, kinds[rng() % sizeof kinds]));
        } else {
            sel.push_back(Record(id, stamp, pool[rng() % pool.size()]));
        }
    }
    return sel;
}

} // namespace

// Many records, few distinct events, ID and time stamp different in every one:
// the tapes must not carry anything of the record they were made from.
TEST_F(DecodeTapeTest, RepeatsGiveWhatDecodingEachRecordGives) {
    for (uint32_t seed : {1u, 2u, 3u}) {
        SCOPED_TRACE(seed);
        ExpectSameBothWays(Sel(600, 25, seed));
    }
    // More distinct events than tapes are kept of: the rest decode each time.
    const std::vector<IPMISELEntry> many = Sel(400, 300, 4);
    const Seen fresh = Export(many, 0);
    const Seen few = Export(many, 7);
    EXPECT_EQ(fresh.log, few.log);
    EXPECT_EQ(fresh.instances, few.instances);
}

// A property the framework refuses while a tape plays: its own failure line,
// at its place, and nothing else changes.
TEST_F(DecodeTapeTest, RefusedPropertiesWhilePlaying) {
    const std::vector<IPMISELEntry> sel = Sel(60, 4, 5);
    host.config().failProperty = [](uint64_t instance, const std::string& name) {
        return (instance % 7 == 3 && name == "Message") ||
               (instance % 5 == 1 && name == "Source") || (instance == 11 && name == "RecordID");
    };
    ExpectSameBothWays(sel);
}

// The framework answers another plug-in path from some moment on: another
// message file, a path without the plug-in's name in it, or no answer at all;
// for good or for one line's time only. Wherever in a record the change
// falls, even between two lookups of one decoding, the lines and texts are
// those of decoding afresh.
TEST_F(DecodeTapeTest, PluginPathChangingAtEveryLineOfARepeatedRecord) {
    std::string other = shippedFile;
    for (const char* line : {"\n1003=", "\n102=", "\n1007="}) {
        const size_t at = other.find(line);
        ASSERT_NE(at, std::string::npos) << line;
        other.insert(at + std::strlen(line), "changed ");
    }
    const std::string otherDir = Folder("other", &other);
    const std::string shippedPath = test::binDir() + "/ipmisel.so";
    const Event threshold{0x20, 0x01, 0x30, 0x01, 0x52, 30, 28};
    const Event intrusion{0x20, 0x05, 0x31, 0x6F, 0x00, 0xFF, 0xFF};
    const std::vector<IPMISELEntry> sel = {
        Record(1, 1718092800, threshold), Record(2, 1718092860, intrusion),
        Record(3, 1718092920, threshold), Record(4, 1718092980, threshold),
        Record(5, 1718093040, intrusion)};

    // Where the third record's lines are, from an export without changes.
    host.config().pluginPath = shippedPath;
    const Seen plain = Export(sel, 0);
    size_t first = 0;
    size_t seenIds = 0;
    for (size_t i = 0; i < plain.log.size(); ++i) {
        if (plain.log[i] == "4 IPMISELEntry::GetRecordID() function entered." && ++seenIds == 3) {
            first = i;
            break;
        }
    }
    ASSERT_GT(first, 0u);
    const size_t last = first + (plain.log.size() - first) / 3; // into the fourth record

    const std::string changes[] = {otherDir + "/ipmisel.so", otherDir + "/plugin.so", ""};
    for (const std::string& changed : changes) {
        for (size_t at = first; at <= last; ++at) {
            for (bool forGood : {true, false}) {
                SCOPED_TRACE("path \"" + changed + "\" from line " + std::to_string(at) +
                             (forGood ? "" : " to the next"));
                ExpectSameBothWays(sel, [&] {
                    host.config().pluginPath = shippedPath;
                    onLine = [&, at, forGood](size_t line) {
                        if (line == at) {
                            host.config().pluginPath = changed;
                        } else if (line == at + 1 && !forGood) {
                            host.config().pluginPath = shippedPath;
                        }
                    };
                });
                if (HasFatalFailure()) {
                    return;
                }
            }
        }
    }
    onLine = nullptr;
}

// A message file missing at first and put in place while records are read:
// decodings that could not read it are never replayed, so the records after
// its arrival read it.
TEST_F(DecodeTapeTest, MessageFileAppearingDuringTheExport) {
    const std::vector<IPMISELEntry> sel = Sel(40, 3, 6);
    const std::string dir = Folder("late", nullptr);
    const std::string file = dir + "/ipmisel.INI";
    for (size_t at : {150u, 400u, 900u}) {
        SCOPED_TRACE(at);
        ExpectSameBothWays(sel, [&] {
            std::remove(file.c_str());
            host.config().pluginPath = dir + "/ipmisel.so";
            onLine = [&, at](size_t line) {
                if (line == at) {
                    std::ofstream(file, std::ios::binary) << shippedFile;
                }
            };
        });
    }
    onLine = nullptr;
}

// The tape itself: calls in order, a pause kept out, a catch-up passing over
// exactly the calls played and handing over the answer that differed.
TEST(Tape, RecordsPlaysAndCatchesUp) {
    HostCapture host;
    host.config().pluginPath = test::binDir() + "/ipmisel.so";
    auto decode = [](std::vector<std::string>& added) {
        Log(SevTrace, "one");
        const char* path = nullptr;
        const bool ok = tape::PluginPath(host::hostCallbacks(), &path) == NOXAQSV20::QSV_SUCCESS;
        Log(SevTrace, ok ? std::string("path ") + path : "no path");
        if (tape::Property("A", "a")) {
            const tape::Pause untaped;
            Log(SevFailure, "adding A");
            added.push_back("A");
        }
        Log(SevTrace, "two");
    };

    tape::Tape made;
    std::vector<std::string> added;
    {
        const tape::Recording recording(made);
        decode(added);
    }
    ASSERT_EQ(made.calls.size(), 5u); // one, the path, "path ...", A, two
    EXPECT_EQ(made.calls[1].kind, tape::Call::Kind::PluginPath);
    EXPECT_EQ(made.calls[3].kind, tape::Call::Kind::Property);
    EXPECT_EQ(made.calls[3].text, "a");
    EXPECT_FALSE(made.spoiled);
    EXPECT_FALSE(tape::Active());

    // Played with the same answer: the same lines, the property handed over.
    host.clear();
    std::vector<std::string> played;
    tape::Playback same(host::hostCallbacks());
    ASSERT_TRUE(same.Play(made, [&](const char* name, const char*) { played.push_back(name); }));
    ASSERT_EQ(host.logs.size(), 3u);
    EXPECT_EQ(host.logs[1].text, "path " + test::binDir() + "/ipmisel.so");
    EXPECT_EQ(played, std::vector<std::string>{"A"});

    // Another answer: playing stops after asking; the catch-up passes over
    // "one" and the path question, then the decoding carries on for real with
    // the answer the framework gave.
    host.clear();
    host.config().pluginPath = "";
    tape::Playback differs(host::hostCallbacks());
    EXPECT_FALSE(differs.Play(made, [&](const char*, const char*) { ADD_FAILURE(); }));
    ASSERT_EQ(host.logs.size(), 1u);
    // The question is not asked again: what it answered then is what counts.
    host.config().pluginPath = test::binDir() + "/ipmisel.so";
    {
        const tape::CatchUp catchUp(differs);
        added.clear();
        decode(added);
    }
    ASSERT_EQ(host.logs.size(), 4u);
    EXPECT_EQ(host.logs[0].text, "one");
    EXPECT_EQ(host.logs[1].text, "no path");
    EXPECT_EQ(host.logs[2].text, "adding A");
    EXPECT_EQ(host.logs[3].text, "two");
    EXPECT_EQ(added, std::vector<std::string>{"A"});
    EXPECT_FALSE(tape::Active());
}
