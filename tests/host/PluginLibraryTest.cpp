// The plug-in library: registration, instances and properties, the failure
// hook, the log filter and the plug-in's own path.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/framework.h"
#include "host/runtime.h"
#include "tests/support/HostFixture.h"

using namespace NOXAQSV20;
using ipmisel::host::PropertyKind;
using ipmisel::test::HostCapture;

namespace {

TQSVStatusCode initStub(TCPluginCallbacks*) {
    return TQSVStatusCode();
}
PluginInfo infoStub() {
    return PluginInfo{"X", "1", "1", 0};
}

} // namespace

TEST(Registration, RecordIsKeptAndTheHostObjectHandedOut) {
    HostCapture host;
    EXPECT_EQ(ipmisel::host::registeredCallbacks(), nullptr);
    TCPluginCallbacks* cb = nullptr;
    {
        fdrPluginCallbacks record{};
        record.size = 48;
        record.initialize = initStub;
        record.getInfo = infoStub;
        EXPECT_EQ(fdrRegisterPlugin(&record, &cb).GetCode(), QSV_SUCCESS);
    } // the record the plug-in passed is gone; the host kept its own copy
    EXPECT_EQ(cb, ipmisel::host::hostCallbacks());
    const fdrPluginCallbacks* kept = ipmisel::host::registeredCallbacks();
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->size, 48u);
    EXPECT_EQ(kept->initialize, &initStub);
    EXPECT_EQ(kept->getInfo, &infoStub);

    TPluginManagerProvider* provider = nullptr;
    EXPECT_EQ(fdrGetHandle(cb, &provider), QSV_SUCCESS);
    EXPECT_NE(provider, nullptr);
    EXPECT_EQ(fdrGetHandle(nullptr, &provider), QSV_ERROR);

    ipmisel::host::configure({});
    EXPECT_EQ(ipmisel::host::registeredCallbacks(), nullptr);
}

TEST(Registration, RefusedWhenConfiguredToFail) {
    HostCapture host;
    host.config().registerFails = true;
    fdrPluginCallbacks record{};
    TCPluginCallbacks* cb = nullptr;
    EXPECT_NE(fdrRegisterPlugin(&record, &cb).GetCode(), QSV_SUCCESS);
    EXPECT_EQ(ipmisel::host::registeredCallbacks(), nullptr);
}

TEST(Instances, PropertiesKeepTheirOrderAndKind) {
    HostCapture host;
    fdriIOHandle* io = ipmisel::host::outputHandle();
    TCIMDateTime when;
    when.Set(2022, 11, 30, 8, 15, 0, 0, -60);
    TCIMValueArray* array = nullptr;
    ASSERT_EQ(fdrNewCIMValueArray(&array), QSV_SUCCESS);
    for (uint8_t b : {0x00, 0x80, 0xFF}) {
        ASSERT_EQ(fdrArrayAddUint8(array, b), QSV_SUCCESS);
    }

    ASSERT_EQ(fdrGetInstance(io, "OXASG_IPMILogRecord"), QSV_SUCCESS);
    EXPECT_EQ(fdrAddProperty(io, "RecordID", "1"), QSV_SUCCESS);
    EXPECT_EQ(fdrAddDateTimeProperty(io, "MessageTimestamp", &when), QSV_SUCCESS);
    EXPECT_EQ(fdrAddArrayProperty(io, "RawData", array), QSV_SUCCESS);
    EXPECT_EQ(fdrAddProperty(io, "Message", ""), QSV_SUCCESS);
    // The array is still the plug-in's: later bytes do not reach the property.
    EXPECT_EQ(fdrArrayAddUint8(array, 0x42), QSV_SUCCESS);
    EXPECT_TRUE(host.instances.empty()); // nothing leaves before the commit
    ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    EXPECT_EQ(fdrDeleteCIMValueArray(array), QSV_SUCCESS);

    ASSERT_EQ(host.instances.size(), 1u);
    const auto& inst = host.instances[0];
    EXPECT_EQ(inst.className, "OXASG_IPMILogRecord");
    ASSERT_EQ(inst.properties.size(), 4u);
    const char* names[] = {"RecordID", "MessageTimestamp", "RawData", "Message"};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(inst.properties[i].name, names[i]);
    }
    EXPECT_EQ(inst.properties[1].kind, PropertyKind::DateTime);
    EXPECT_EQ(inst.get("MessageTimestamp"), "20221130081500.000000-060");
    EXPECT_EQ(inst.properties[2].kind, PropertyKind::Bytes);
    EXPECT_EQ(inst.properties[2].bytes, (std::vector<uint8_t>{0x00, 0x80, 0xFF}));
    EXPECT_EQ(inst.find("Absent"), nullptr);
    EXPECT_EQ(inst.get("Absent"), "");
    EXPECT_EQ(ipmisel::host::instancesCommitted(), 1u);
}

TEST(Instances, EachCommitStreamsOutAtOnce) {
    HostCapture host;
    fdriIOHandle* io = ipmisel::host::outputHandle();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(fdrGetInstance(io, "C"), QSV_SUCCESS);
        ASSERT_EQ(fdrAddProperty(io, "N", std::to_string(i).c_str()), QSV_SUCCESS);
        ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
        ASSERT_EQ(host.instances.size(), static_cast<size_t>(i + 1));
        ASSERT_EQ(host.instances.back().get("N"), std::to_string(i));
        ASSERT_EQ(host.instances.back().properties.size(), 1u); // no carry-over
    }
    EXPECT_EQ(ipmisel::host::instancesCommitted(), 1000u);
    host.instances.clear();
    ipmisel::host::configure({});
    EXPECT_EQ(ipmisel::host::instancesCommitted(), 0u);
}

TEST(Instances, MisuseAnswersStatusThree) {
    HostCapture host;
    fdriIOHandle* io = ipmisel::host::outputHandle();
    TCIMDateTime when;
    TCIMValueArray* array = nullptr;
    ASSERT_EQ(fdrNewCIMValueArray(&array), QSV_SUCCESS);

    // Nothing open yet.
    EXPECT_EQ(fdrAddProperty(io, "A", "x"), QSV_ERROR);
    EXPECT_EQ(fdrAddDateTimeProperty(io, "A", &when), QSV_ERROR);
    EXPECT_EQ(fdrAddArrayProperty(io, "A", array), QSV_ERROR);
    EXPECT_EQ(fdrAddInstance(io), QSV_ERROR);

    ASSERT_EQ(fdrGetInstance(io, "C"), QSV_SUCCESS);
    EXPECT_EQ(fdrAddProperty(io, nullptr, "x"), QSV_ERROR);
    EXPECT_EQ(fdrAddProperty(io, "A", nullptr), QSV_ERROR);
    EXPECT_EQ(fdrAddDateTimeProperty(io, "A", nullptr), QSV_ERROR);
    EXPECT_EQ(fdrAddArrayProperty(io, "A", nullptr), QSV_ERROR);
    EXPECT_EQ(fdrAddProperty(nullptr, "A", "x"), QSV_ERROR);
    EXPECT_EQ(fdrGetInstance(nullptr, "C"), QSV_ERROR);
    EXPECT_EQ(fdrGetInstance(io, nullptr), QSV_ERROR);
    EXPECT_EQ(fdrNewCIMValueArray(nullptr), QSV_ERROR);
    ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    EXPECT_TRUE(host.instances[0].properties.empty());
    EXPECT_EQ(fdrAddInstance(io), QSV_ERROR); // already committed

    EXPECT_EQ(fdrDeleteCIMValueArray(array), QSV_SUCCESS);
    EXPECT_EQ(fdrDeleteCIMValueArray(array), QSV_ERROR); // deleted twice
    EXPECT_EQ(fdrArrayAddUint8(array, 1), QSV_ERROR);
    EXPECT_EQ(fdrDeleteCIMValueArray(nullptr), QSV_ERROR);
}

TEST(Instances, AbandonedInstanceIsDroppedByTheNextOne) {
    HostCapture host;
    fdriIOHandle* io = ipmisel::host::outputHandle();
    ASSERT_EQ(fdrGetInstance(io, "First"), QSV_SUCCESS);
    ASSERT_EQ(fdrAddProperty(io, "A", "1"), QSV_SUCCESS);
    ASSERT_EQ(fdrGetInstance(io, "Second"), QSV_SUCCESS);
    ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    ASSERT_EQ(host.instances.size(), 1u);
    EXPECT_EQ(host.instances[0].className, "Second");
    EXPECT_TRUE(host.instances[0].properties.empty());
}

TEST(Instances, FailPropertyHookCountsInstancesAsOpened) {
    HostCapture host;
    std::vector<std::pair<uint64_t, std::string>> asked;
    host.config().failProperty = [&](uint64_t instance, const std::string& name) {
        asked.emplace_back(instance, name);
        return instance == 1 && name == "B";
    };
    fdriIOHandle* io = ipmisel::host::outputHandle();
    TCIMDateTime when;
    std::vector<EQSVStatusCode> results;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(fdrGetInstance(io, "C"), QSV_SUCCESS);
        results.push_back(fdrAddProperty(io, "A", "a"));
        results.push_back(fdrAddDateTimeProperty(io, "B", &when));
        if (i == 1) {
            continue; // the plug-in abandons the record whose property failed
        }
        ASSERT_EQ(fdrAddInstance(io), QSV_SUCCESS);
    }
    EXPECT_EQ(results, (std::vector<EQSVStatusCode>{0, 0, 0, QSV_ERROR, 0, 0}));
    ASSERT_EQ(host.instances.size(), 2u);
    EXPECT_EQ(host.instances[1].properties.size(), 2u);
    // The third instance opened is number 2 even though only one was committed before it.
    EXPECT_EQ(asked.back(), (std::pair<uint64_t, std::string>{2, "B"}));
}

TEST(Log, SeverityFilterAndNullText) {
    HostCapture host;
    host.config().logLevel = 2;
    fdrWriteLog(QSV_LOG_ERROR, "error");
    fdrWriteLog(QSV_LOG_NOTICE, "notice");
    fdrWriteLog(QSV_LOG_DETAIL, "detail");
    fdrWriteLog(QSV_LOG_TRACE, "trace");
    fdrWriteLog(QSV_LOG_FAILURE, nullptr);
    ASSERT_EQ(host.logs.size(), 3u);
    EXPECT_TRUE(host.hasLog(0, "error"));
    EXPECT_TRUE(host.hasLog(2, "notice"));
    EXPECT_EQ(host.logs[2].severity, 1);

    host.config().logSink = nullptr; // no sink: lines go nowhere, quietly
    fdrWriteLog(QSV_LOG_ERROR, "dropped");
    EXPECT_EQ(host.logs.size(), 3u);
}

TEST(CoreServices, LoggerLanAndMachineFacts) {
    HostCapture host;
    TRootObject::GetCoreLogger()->LogMessage(101, "plain");
    ASSERT_EQ(host.coreLogs.size(), 1u);
    EXPECT_EQ(host.coreLogs[0], (std::pair<uint32_t, std::string>{101, "plain"}));

    EXPECT_EQ(TRootObject::GetipmiLanIns(), nullptr);
    host.config().lan = false;
    ASSERT_NE(TRootObject::GetipmiLanIns(), nullptr);
    EXPECT_FALSE(TRootObject::GetipmiLanIns()->getipmiLanStatus());
    host.config().lan = true;
    EXPECT_TRUE(TRootObject::GetipmiLanIns()->getipmiLanStatus());

    host.config().machineType = "7X06";
    host.config().machineTypeFromID = "7X07";
    host.config().biosID = "TEE1";
    EXPECT_EQ(TOSSpecific::GetMachineType(), "7X06");
    EXPECT_EQ(TOSSpecific::GetMachineTypeFromID(), "7X07");
    EXPECT_EQ(TOSSpecific::GetBiosID(), "TEE1");
}

// ---- the plug-in's own path -------------------------------------------------

namespace {

// What the plug-in does with the answer: cut at the first "ipmisel" and name
// the message file there.
std::string messageFileFrom(const char* answer) {
    std::string path(answer);
    auto at = path.find("ipmisel");
    return at == std::string::npos ? std::string() : path.substr(0, at) + "ipmisel.INI";
}

std::string readAll(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return in ? s.str() : std::string("<unreadable>");
}

std::string askPath() {
    const char* answer = nullptr;
    EXPECT_EQ(fdrGetPluginPath(ipmisel::host::hostCallbacks(), &answer), QSV_SUCCESS);
    return answer ? answer : "";
}

} // namespace

TEST(PluginPath, MessageFileIsFoundBesideThePlugin) {
    HostCapture host;
    const std::string base = ipmisel::test::makeTempDir("hostpath");
    const std::string folders[] = {
        base + "/lib",
        base + "/ipmisel-1.0/lib",
        base + "/ipmisel/ipmisel-2/ipmisel.d",
        ipmisel::test::makeTempDir("ipmisel"),
    };
    for (const auto& folder : folders) {
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/ipmisel.INI") << folder;
        host.config().pluginPath = folder + "/ipmisel.so";
        const std::string answer = askPath();
        EXPECT_EQ(readAll(messageFileFrom(answer.c_str())), folder) << answer;
        // The answer still names the plug-in's file.
        EXPECT_EQ(std::filesystem::path(answer).filename(), "ipmisel.so");
    }
}

TEST(PluginPath, AnswersStayValidAndFallBackToTheLoadedFile) {
    HostCapture host;
    const std::string folder = ipmisel::test::makeTempDir("hostpath");
    std::ofstream(folder + "/ipmisel.INI") << "loaded";
    host.config().pluginPath.clear();
    ipmisel::host::setLoadedPluginPath(folder + "/ipmisel.so");

    const char* first = nullptr;
    ASSERT_EQ(fdrGetPluginPath(ipmisel::host::hostCallbacks(), &first), QSV_SUCCESS);
    const std::string copy = first;
    EXPECT_EQ(readAll(messageFileFrom(first)), "loaded");

    host.config().pluginPath = "/elsewhere/ipmisel.so";
    const char* second = nullptr;
    ASSERT_EQ(fdrGetPluginPath(ipmisel::host::hostCallbacks(), &second), QSV_SUCCESS);
    EXPECT_STREQ(second, "/elsewhere/ipmisel.so");
    EXPECT_EQ(std::string(first), copy); // the earlier answer was not overwritten

    host.config().pluginPath.clear();
    ipmisel::host::setLoadedPluginPath("");
    const char* none = nullptr;
    EXPECT_EQ(fdrGetPluginPath(ipmisel::host::hostCallbacks(), &none), QSV_ERROR);
    EXPECT_EQ(fdrGetPluginPath(ipmisel::host::hostCallbacks(), nullptr), QSV_ERROR);
}
