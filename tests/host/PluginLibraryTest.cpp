// The plug-in library: registration, instances and properties, the LAN
// object and the plug-in's own path.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <random>

#include "host/framework.h"
#include "host/runtime.h"
#include "tests/support/HostFixture.h"

using namespace NOXAQSV20;
using ipmisel::test::HostCapture;

TEST(Registration, HostKeepsItsOwnCopy) {
    HostCapture host;
    TCPluginCallbacks* cb = nullptr;
    {
        fdrPluginCallbacks record{};
        record.size = 48;
        EXPECT_EQ(fdrRegisterPlugin(&record, &cb).GetCode(), QSV_SUCCESS);
    } // the plug-in's record is gone
    EXPECT_EQ(cb, ipmisel::host::hostCallbacks());
    ASSERT_NE(ipmisel::host::registeredCallbacks(), nullptr);
    EXPECT_EQ(ipmisel::host::registeredCallbacks()->size, 48u);
}

TEST(Instances, PropertiesKeepOrderKindAndTheArrayAsAdded) {
    HostCapture host;
    fdriIOHandle* io = ipmisel::host::outputHandle();
    TCIMDateTime when;
    when.Set(2022, 11, 30, 8, 15, 0, 0, -60);
    TCIMValueArray* array = nullptr;
    ASSERT_EQ(fdrNewCIMValueArray(&array), QSV_SUCCESS);
    for (uint8_t b : {0x00, 0x80, 0xFF}) {
        ASSERT_EQ(fdrArrayAddUint8(array, b), QSV_SUCCESS);
    }
    EXPECT_EQ(fdrAddProperty(io, "A", "x"), QSV_ERROR);      // no instance open
    ASSERT_EQ(fdrGetInstance(io, "Abandoned"), QSV_SUCCESS); // dropped by the next one
    ASSERT_EQ(fdrGetInstance(io, "OXASG_IPMILogRecord"), QSV_SUCCESS);
    EXPECT_EQ(fdrAddProperty(io, "RecordID", "1"), QSV_SUCCESS);
    EXPECT_EQ(fdrAddDateTimeProperty(io, "MessageTimestamp", &when), QSV_SUCCESS);
    EXPECT_EQ(fdrAddArrayProperty(io, "RawData", array), QSV_SUCCESS);
    EXPECT_EQ(fdrAddProperty(io, "A", nullptr), QSV_ERROR);
    EXPECT_EQ(fdrArrayAddUint8(array, 0x42), QSV_SUCCESS); // too late for the property
    EXPECT_TRUE(host.instances.empty());                   // nothing leaves before the commit
    ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    EXPECT_EQ(fdrAddInstance(io), QSV_ERROR); // already committed
    EXPECT_EQ(fdrDeleteCIMValueArray(array), QSV_SUCCESS);

    ASSERT_EQ(host.instances.size(), 1u);
    const auto& p = host.instances[0].properties;
    ASSERT_EQ(p.size(), 3u);
    EXPECT_EQ(p[0].name + p[1].name + p[2].name, "RecordIDMessageTimestampRawData");
    EXPECT_EQ(p[1].kind, ipmisel::host::PropertyKind::DateTime);
    EXPECT_EQ(p[1].text, "20221130081500.000000-060");
    EXPECT_EQ(p[2].kind, ipmisel::host::PropertyKind::Bytes);
    EXPECT_EQ(p[2].bytes, (std::vector<uint8_t>{0x00, 0x80, 0xFF}));
}

TEST(Instances, NothingOfAnEarlierInstanceCarriesOver) {
    // Committed and abandoned instances leave their property storage behind
    // for later ones; what a later one shows must be its own alone.
    HostCapture host;
    fdriIOHandle* io = ipmisel::host::outputHandle();
    TCIMValueArray* array = nullptr;
    ASSERT_EQ(fdrNewCIMValueArray(&array), QSV_SUCCESS);
    auto describe = [](const ipmisel::host::Instance& instance) {
        std::string s = instance.className;
        for (const auto& p : instance.properties) {
            s += " " + p.name + "=" + std::to_string(static_cast<int>(p.kind)) + "'" + p.text +
                 "'" + std::to_string(p.bytes.size());
        }
        return s;
    };
    TCIMDateTime when;
    ASSERT_EQ(fdrGetInstance(io, "First"), QSV_SUCCESS);
    fdrAddProperty(io, "Text", "a text longer than any short-string buffer holds");
    fdrAddDateTimeProperty(io, "When", &when);
    for (uint8_t b : {1, 2, 3}) {
        fdrArrayAddUint8(array, b);
    }
    fdrAddArrayProperty(io, "Raw", array);
    ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    ASSERT_EQ(fdrGetInstance(io, "Abandoned"), QSV_SUCCESS);
    fdrAddProperty(io, "Left", "behind");
    ASSERT_EQ(fdrGetInstance(io, "Second"), QSV_SUCCESS);
    TCIMValueArray* empty = nullptr;
    ASSERT_EQ(fdrNewCIMValueArray(&empty), QSV_SUCCESS);
    fdrAddArrayProperty(io, "None", empty);
    fdrAddProperty(io, "T", "");
    ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    ASSERT_EQ(fdrGetInstance(io, "Third"), QSV_SUCCESS);
    fdrAddProperty(io, "U", "u");
    fdrAddArrayProperty(io, "V", empty);
    fdrAddProperty(io, "W", "w");
    fdrAddProperty(io, "X", "x");
    ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    ASSERT_EQ(host.instances.size(), 3u);
    EXPECT_EQ(describe(host.instances[0]), "First Text=0'a text longer than any short-string "
                                           "buffer holds'0 When=1'19700101000000.000000+000'0 "
                                           "Raw=2''3");
    EXPECT_EQ(describe(host.instances[1]), "Second None=2''0 T=0''0");
    EXPECT_EQ(describe(host.instances[2]), "Third U=0'u'0 V=2''0 W=0'w'0 X=0'x'0");
    // A deleted array is refused even right after it was last used.
    EXPECT_EQ(fdrDeleteCIMValueArray(empty), QSV_SUCCESS);
    EXPECT_EQ(fdrArrayAddUint8(empty, 4), QSV_ERROR);
    EXPECT_EQ(fdrDeleteCIMValueArray(array), QSV_SUCCESS);
    EXPECT_EQ(fdrDeleteCIMValueArray(array), QSV_ERROR);
    // A new array starts empty, whatever storage it takes over.
    TCIMValueArray* fresh = nullptr;
    ASSERT_EQ(fdrNewCIMValueArray(&fresh), QSV_SUCCESS);
    ASSERT_EQ(fdrGetInstance(io, "Fourth"), QSV_SUCCESS);
    fdrAddArrayProperty(io, "Fresh", fresh);
    ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    EXPECT_EQ(describe(host.instances.back()), "Fourth Fresh=2''0");
    EXPECT_EQ(fdrDeleteCIMValueArray(fresh), QSV_SUCCESS);
}

// Sinks settle what they derive from the names once per layout, so two
// delivered instances with one layout must have the same class and names in
// the same order. Random runs of instances that keep, swap, add or drop
// names, change class, refuse a property or are abandoned halfway.
TEST(Instances, OneLayoutMeansTheSameClassAndNames) {
    HostCapture host;
    host.config().failProperty = [](uint64_t instance, const std::string& name) {
        return instance % 11 == 5 && name == "B";
    };
    fdriIOHandle* io = ipmisel::host::outputHandle();
    std::mt19937 rng(7);
    const char* names[] = {"A", "B", "C", "D"};
    std::vector<std::string> list = {"A", "B", "C"};
    for (int i = 0; i < 3000; ++i) {
        switch (rng() % 8) {
        case 0:
            list[rng() % list.size()] = names[rng() % 4];
            break;
        case 1:
            if (list.size() < 6)
                list.push_back(names[rng() % 4]);
            break;
        case 2:
            if (list.size() > 1)
                list.pop_back();
            break;
        default:
            break; // most instances look like the one before
        }
        ASSERT_EQ(fdrGetInstance(io, rng() % 16 == 0 ? "Other" : "Log"), QSV_SUCCESS);
        const bool abandon = rng() % 16 == 0;
        for (size_t k = 0; k < list.size() && !(abandon && k == 1); ++k) {
            fdrAddProperty(io, list[k].c_str(), "v");
        }
        if (!abandon) {
            ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
        }
    }
    auto shape = [](const ipmisel::host::Instance& instance) {
        std::string s = instance.className;
        for (const auto& p : instance.properties) {
            s += "," + p.name;
        }
        return s;
    };
    std::map<uint64_t, std::string> shapes;
    size_t repeats = 0;
    for (const auto& instance : host.instances) {
        ASSERT_NE(instance.layout, 0u);
        auto [it, added] = shapes.emplace(instance.layout, shape(instance));
        EXPECT_EQ(it->second, shape(instance)) << "layout " << instance.layout;
        repeats += added ? 0 : 1;
    }
    // And the layout is worth having: most instances repeat the one before.
    EXPECT_GT(repeats, host.instances.size() / 2);
}

TEST(CoreServices, NullLogTextAndNoLanObjectWithoutALanSetting) {
    HostCapture host;
    fdrWriteLog(QSV_LOG_FAILURE, nullptr);
    EXPECT_TRUE(host.hasLog(1, "(null)"));
    EXPECT_EQ(TRootObject::GetipmiLanIns(), nullptr);
    host.config().lan = false;
    ASSERT_NE(TRootObject::GetipmiLanIns(), nullptr);
    EXPECT_FALSE(TRootObject::GetipmiLanIns()->getipmiLanStatus());
}

namespace {

// The message file the plug-in opens: its path cut at the first "ipmisel".
bool findsMessageFileIn(const std::string& answer, const std::string& folder) {
    std::error_code ec;
    return std::filesystem::equivalent(answer.substr(0, answer.find("ipmisel")) + "ipmisel.INI",
                                       folder + "/ipmisel.INI", ec);
}

const char* askPath() {
    const char* answer = nullptr;
    EXPECT_EQ(fdrGetPluginPath(ipmisel::host::hostCallbacks(), &answer), QSV_SUCCESS);
    return answer ? answer : "";
}

} // namespace

TEST(PluginPath, MessageFileIsFoundBesideThePluginAndAnswersStayValid) {
    HostCapture host;
    const std::string base = ipmisel::test::makeTempDir("hostpath");
    for (const std::string& folder :
         {base + "/lib", base + "/ipmisel-1.0/lib", base + "/ipmisel/ipmisel-2/ipmisel.d",
          ipmisel::test::makeTempDir("ipmisel")}) {
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/ipmisel.INI").put(0);
        host.config().pluginPath = folder + "/ipmisel.so";
        const std::string answer = askPath();
        EXPECT_TRUE(findsMessageFileIn(answer, folder)) << answer;
        EXPECT_EQ(std::filesystem::path(answer).filename(), "ipmisel.so");
    }
    // Without a configured path the loaded file answers; earlier answers stay valid.
    host.config().pluginPath.clear();
    ipmisel::host::setLoadedPluginPath(base + "/lib/ipmisel.so");
    const char* first = askPath();
    const std::string copy = first;
    EXPECT_TRUE(findsMessageFileIn(first, base + "/lib"));
    host.config().pluginPath = "/elsewhere/ipmisel.so";
    EXPECT_STREQ(askPath(), "/elsewhere/ipmisel.so");
    EXPECT_EQ(std::string(first), copy); // the plug-in keeps the earlier pointer

    host.config().pluginPath.clear();
    ipmisel::host::setLoadedPluginPath("");
    const char* none = nullptr;
    EXPECT_EQ(fdrGetPluginPath(ipmisel::host::hostCallbacks(), &none), QSV_ERROR);
}
