// The plug-in library: registration, instances and properties, the LAN
// object and the plug-in's own path.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

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
