#include "plugin/Probes.h"

#include <cctype>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "base/log.h"
#include "base/text.h"

using namespace NOXAQSV20;

namespace ipmisel {

bool g_machineTypeRead = false;

namespace {

// Closes an SMBIOS handle on every way out of the function that opened it.
class SmbiosSession {
  public:
    explicit SmbiosSession(TPluginManagerProvider* provider) {
        status_ = smBiosLoad(provider, &handle_).GetCode();
    }
    ~SmbiosSession() {
        if (status_ == QSV_SUCCESS) {
            smBiosClose(&handle_);
        }
    }
    SmbiosSession(const SmbiosSession&) = delete;
    SmbiosSession& operator=(const SmbiosSession&) = delete;
    bool Loaded() const { return status_ == QSV_SUCCESS; }
    SMBIOSHANDLE Handle() const { return handle_; }

  private:
    SMBIOSHANDLE handle_ = nullptr;
    EQSVStatusCode status_ = QSV_ERROR;
};

TPluginManagerProvider* ProviderOf(TCPluginCallbacks* cb) {
    TPluginManagerProvider* provider = nullptr;
    if (fdrGetHandle(cb, &provider) != QSV_SUCCESS) {
        provider = nullptr;
    }
    return provider;
}

void CoreLog(uint32_t messageClass, const char* text) {
    if (ILogger* logger = TRootObject::GetCoreLogger()) {
        logger->LogMessage(messageClass, text);
    }
}

// Real tables end a type with status 5 long before this; a reader that never
// does must not keep the collection here for ever.
constexpr int kMaxStructuresPerType = 4096;

constexpr uint32_t kStructureBufferSize = 4096;
constexpr size_t kStringAreaSize = 1024;
constexpr size_t kScratchSize = 100;

// Looks for the adapter's name in the OEM strings of one type 11 structure of
// `size` bytes.
bool NamesAdapter(const unsigned char* structure, uint32_t size) {
    const size_t kHeader = 5; // type, length, handle (2), string count
    if (size < kHeader) {
        return false;
    }
    const uint8_t count = structure[4];
    // The string set follows the formatted area; a length byte that points
    // beyond what was read leaves no strings to look at.
    const size_t start = structure[1];
    char area[kStringAreaSize] = {};
    if (start < size) {
        const size_t available = size - start;
        std::memcpy(area, structure + start, available < sizeof area ? available : sizeof area);
    }
    bool found = false;
    size_t pos = 0;
    for (unsigned n = 1; n <= count && pos < sizeof area; ++n) {
        char scratch[kScratchSize] = {};
        const size_t len = TextLength(area + pos, sizeof area - pos);
        std::memcpy(scratch, area + pos, len < sizeof scratch - 1 ? len : sizeof scratch - 1);
        pos += len + 1;
        const char* text = scratch;
        while (*text != '\0' && std::isspace(static_cast<unsigned char>(*text))) {
            ++text;
        }
        if (std::strstr(text, platform::kAdapterOemString) != nullptr) {
            found = true;
            CoreLog(platform::kScanMessageClass, "BasicanalHasTVK2onBoardsmBios - found a TVK2");
        }
    }
    return found;
}

} // namespace

void getMachineType(int* status, char* machineType, size_t size) {
    g_machineTypeRead = true;
    Log(SevDetail, "getMachineType() entered.");
    if (status != nullptr) {
        *status = 0;
    }
    // The core library knows the machine type from the system's identification;
    // there is no better source to fall back on, so its answer is taken as is.
    std::string type = TOSSpecific::GetMachineTypeFromID();
    if (machineType != nullptr && size > 0) {
        TextCopy(machineType, size, type.c_str());
    }
    Log(SevDetail, "getMachineType() completed.");
}

int FindSMBIOSType38(TCPluginCallbacks* cb) {
    SmbiosSession smbios(ProviderOf(cb));
    const char* text = "Did NOT find a Type 38 SMBIOS BMC record";
    bool found = false;
    if (!smbios.Loaded()) {
        text = "Unable to read BMC type from SMBIOS. Invalid Handle was encountered.";
    } else {
        const uint32_t kRecordSize = 1024;
        std::unique_ptr<unsigned char[]> record(new (std::nothrow) unsigned char[kRecordSize]());
        if (!record) {
            text = "Unable to allocate memory to hold SMBIOS BMC record";
        } else {
            uint32_t size = kRecordSize;
            TQSVStatusCode status =
                smBiosGetFirst(smbios.Handle(), platform::kSmbiosIpmiDevice, record.get(), &size);
            if (status.GetCode() == QSV_SUCCESS && size >= 1) {
                text = "Found a Type 38 SMBIOS BMC record";
                found = true;
            }
        }
    }
    Log(SevDetail, text);
    return found ? 0 : 1;
}

int HasTVK2onBoard() {
    int result = 0;
    SmbiosSession smbios(nullptr);
    if (!smbios.Loaded()) {
        return result;
    }
    // A loaded library that hands out no handle has nothing to read: an empty
    // table, rather than waiting for a handle that will not come.
    if (smbios.Handle() == nullptr) {
        return result;
    }
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kStructureBufferSize]);
    if (!buffer) {
        return result;
    }
    for (int i = 0; i < kMaxStructuresPerType; ++i) {
        const bool first = i == 0;
        CoreLog(platform::kScanMessageClass,
                first ? "BasicanalHasTVK2onBoardsmBios - Retrieving first SMBIOS structure"
                      : "BasicanalHasTVK2onBoardsmBios - Retrieving the next SMBIOS structure.");
        std::memset(buffer.get(), 0, kStructureBufferSize);
        uint32_t size = kStructureBufferSize;
        EQSVStatusCode status =
            first
                ? smBiosGetFirst(smbios.Handle(), platform::kSmbiosOemStrings, buffer.get(), &size)
                      .GetCode()
                : smBiosGetNext(smbios.Handle(), buffer.get(), &size).GetCode();
        if (status == QSV_ERROR) {
            CoreLog(platform::kScanMessageClass,
                    "BasicanalHasTVK2onBoardsmBios - smbios read operation failed! ");
        }
        if (status == QSV_NO_MORE_DATA) {
            // The text names type 0; it has always read so and log readers know it.
            CoreLog(platform::kScanMessageClass,
                    "BasicanalHasTVK2onBoardsmBios - read all smbios structures available for "
                    "type 0");
            break;
        }
        if (status != QSV_SUCCESS) {
            break;
        }
        if (size > kStructureBufferSize) {
            size = kStructureBufferSize;
        }
        if (NamesAdapter(buffer.get(), size)) {
            result = 1;
        }
    }
    return result;
}

int SMBIOSInfo::getSMBIOSInfo(platform::SMBIOSDataKind kind, std::vector<uint8_t>* selectors) {
    Log(SevTrace, "SMBIOSInfo::getSMBIOSInfo() function entered.");
    const platform::SMBIOSProbe* probe = nullptr;
    for (const auto& p : platform::kSmbiosProbes) {
        if (p.kind == kind) {
            probe = &p;
        }
    }
    if (selectors != nullptr) {
        selectors->clear();
    }
    if (probe == nullptr) {
        return 1;
    }
    SmbiosSession smbios(ProviderOf(cb_));
    if (!smbios.Loaded()) {
        LogF(SevTrace, "SMBIOSInfo::getSMBIOSInfo() could not read SMBIOS for %s data.",
             probe->name);
        return 1;
    }
    std::unique_ptr<unsigned char[]> buffer(
        new (std::nothrow) unsigned char[kStructureBufferSize]());
    if (!buffer) {
        return 1;
    }
    uint32_t size = kStructureBufferSize;
    TQSVStatusCode status =
        smBiosGetFirst(smbios.Handle(), probe->structureType, buffer.get(), &size);
    if (status.GetCode() != QSV_SUCCESS || size == 0) {
        LogF(SevTrace, "SMBIOSInfo::getSMBIOSInfo() found no %s data.", probe->name);
        return 1;
    }
    if (size > kStructureBufferSize) {
        size = kStructureBufferSize;
    }
    if (selectors != nullptr && size > platform::kProbeCountOffset) {
        // The selectors belong to the formatted area: never read them from the
        // string set, whatever the count byte claims.
        const size_t formatted = buffer[1] < size ? buffer[1] : size;
        const size_t count = buffer[platform::kProbeCountOffset];
        for (size_t i = 0; i < count && platform::kProbeSelectorOffset + i < formatted; ++i) {
            selectors->push_back(buffer[platform::kProbeSelectorOffset + i]);
        }
    }
    Log(SevTrace, "SMBIOSInfo::getSMBIOSInfo() function completed.");
    return 0;
}

} // namespace ipmisel
