// The SMBIOS library: structures by type from a source chosen in the
// configuration (given structures, a dump file, or the running system).
#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <unordered_set>

#include "host/framework.h"
#include "host/runtime.h"

namespace ipmisel::host {

namespace {

constexpr uint8_t kEndOfTable = 127;

uint32_t readLe(const std::vector<uint8_t>& b, size_t at, size_t width) {
    uint32_t v = 0;
    for (size_t i = width; i-- > 0;) {
        v = (v << 8) | b[at + i];
    }
    return v;
}

// Splits a structure table into structures: formatted area (length from byte 1)
// followed by its string set up to and including the double NUL. A structure
// that does not fit, or a length below the 4-byte header, ends the table.
std::vector<std::vector<uint8_t>> parseTable(const std::vector<uint8_t>& bytes, size_t begin,
                                             size_t length, size_t maxCount) {
    std::vector<std::vector<uint8_t>> out;
    if (begin >= bytes.size()) {
        return out;
    }
    const size_t end = begin + std::min(length, bytes.size() - begin);
    size_t pos = begin;
    while (pos + 4 <= end && (maxCount == 0 || out.size() < maxCount)) {
        const uint8_t type = bytes[pos];
        const size_t formatted = bytes[pos + 1];
        if (formatted < 4 || pos + formatted > end) {
            break;
        }
        size_t j = pos + formatted;
        while (j + 1 < end && !(bytes[j] == 0 && bytes[j + 1] == 0)) {
            ++j;
        }
        if (j + 1 >= end) {
            break; // string set runs past the table
        }
        out.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(pos),
                         bytes.begin() + static_cast<std::ptrdiff_t>(j + 2));
        pos = j + 2;
        if (type == kEndOfTable) {
            break;
        }
    }
    return out;
}

std::optional<std::vector<uint8_t>> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    if (in.bad()) {
        return std::nullopt;
    }
    return bytes;
}

bool startsWith(const std::vector<uint8_t>& b, const char* tag) {
    const size_t n = std::strlen(tag);
    return b.size() >= n && std::memcmp(b.data(), tag, n) == 0;
}

// A dump starts with an entry point that says where the table lies in the file.
std::optional<std::vector<std::vector<uint8_t>>> parseDump(const std::vector<uint8_t>& b) {
    if (startsWith(b, "_SM3_") && b.size() >= 0x18) {
        // 3.x: table maximum size at 0Ch (32 bits), table address at 10h (64 bits;
        // the upper half is of no use inside a file).
        if (readLe(b, 0x14, 4) != 0) {
            return std::vector<std::vector<uint8_t>>{};
        }
        return parseTable(b, readLe(b, 0x10, 4), readLe(b, 0x0C, 4), 0);
    }
    if (startsWith(b, "_SM_") && b.size() >= 0x1F) {
        // 2.x: the intermediate "_DMI_" part holds length, address and count.
        return parseTable(b, readLe(b, 0x18, 4), readLe(b, 0x16, 2), readLe(b, 0x1C, 2));
    }
    if (startsWith(b, "_DMI_") && b.size() >= 0x0F) {
        return parseTable(b, readLe(b, 0x08, 4), readLe(b, 0x06, 2), readLe(b, 0x0C, 2));
    }
    return std::nullopt;
}

class GivenStructures : public SmbiosSource {
  public:
    explicit GivenStructures(std::vector<std::vector<uint8_t>> s) : structures_(std::move(s)) {}
    std::optional<std::vector<std::vector<uint8_t>>> structures() override { return structures_; }

  private:
    std::vector<std::vector<uint8_t>> structures_;
};

class DumpFile : public SmbiosSource {
  public:
    explicit DumpFile(std::string path) : path_(std::move(path)) {}
    std::optional<std::vector<std::vector<uint8_t>>> structures() override {
        auto bytes = readFile(path_);
        if (!bytes) {
            return std::nullopt;
        }
        return parseDump(*bytes);
    }

  private:
    std::string path_;
};

class SystemTables : public SmbiosSource {
  public:
    std::optional<std::vector<std::vector<uint8_t>>> structures() override {
        // The kernel exposes the bare table, without entry point.
        auto bytes = readFile("/sys/firmware/dmi/tables/DMI");
        if (!bytes || bytes->empty()) {
            return std::nullopt;
        }
        return parseTable(*bytes, 0, bytes->size(), 0);
    }
};

} // namespace

std::shared_ptr<SmbiosSource> smbiosFromStructures(std::vector<std::vector<uint8_t>> structures) {
    return std::make_shared<GivenStructures>(std::move(structures));
}

std::shared_ptr<SmbiosSource> smbiosFromDumpFile(const std::string& path) {
    return std::make_shared<DumpFile>(path);
}

std::shared_ptr<SmbiosSource> smbiosFromSystem() {
    return std::make_shared<SystemTables>();
}

} // namespace ipmisel::host

namespace NOXAQSV20 {

namespace {

// One opened table: a snapshot of the structures and a cursor for GetNext.
struct SmbiosTable {
    std::vector<std::vector<uint8_t>> structures;
    bool typeChosen = false;
    int32_t type = 0;
    size_t next = 0;
};

std::mutex& tablesLock() {
    static auto* m = new std::mutex();
    return *m;
}

// Handles handed out and not yet closed; anything else is refused.
std::unordered_set<SmbiosTable*>& openTables() {
    static auto* s = new std::unordered_set<SmbiosTable*>();
    return *s;
}

SmbiosTable* lookup(SMBIOSHANDLE handle) {
    auto* t = static_cast<SmbiosTable*>(handle);
    return openTables().contains(t) ? t : nullptr;
}

// Copies the next structure of the table's type from its cursor on.
TQSVStatusCode copyNext(SmbiosTable& t, unsigned char* buffer, uint32_t* size) {
    for (; t.next < t.structures.size(); ++t.next) {
        const auto& s = t.structures[t.next];
        if (s.empty() || s[0] != t.type) {
            continue;
        }
        ++t.next;
        const size_t n = std::min<size_t>(s.size(), *size);
        if (n > 0) {
            std::memcpy(buffer, s.data(), n);
        }
        *size = static_cast<uint32_t>(n);
        return TQSVStatusCode(QSV_SUCCESS);
    }
    *size = 0;
    return TQSVStatusCode(QSV_NO_MORE_DATA);
}

} // namespace

TQSVStatusCode smBiosLoad(TPluginManagerProvider* /*provider*/, SMBIOSHANDLE* handle) {
    // The provider only proves the caller went through the framework; the host
    // has one SMBIOS source whoever asks.
    if (handle == nullptr) {
        return TQSVStatusCode(QSV_ERROR);
    }
    *handle = nullptr;
    auto source = ipmisel::host::config().smbios;
    if (!source) {
        return TQSVStatusCode(QSV_ERROR);
    }
    auto structures = source->structures();
    if (!structures) {
        return TQSVStatusCode(QSV_ERROR);
    }
    auto* t = new SmbiosTable();
    t->structures = std::move(*structures);
    std::lock_guard<std::mutex> guard(tablesLock());
    openTables().insert(t);
    *handle = t;
    return TQSVStatusCode(QSV_SUCCESS);
}

TQSVStatusCode smBiosGetFirst(SMBIOSHANDLE handle, int32_t type, unsigned char* buffer,
                              uint32_t* size) {
    std::lock_guard<std::mutex> guard(tablesLock());
    SmbiosTable* t = lookup(handle);
    if (t == nullptr || size == nullptr || (buffer == nullptr && *size != 0)) {
        return TQSVStatusCode(QSV_ERROR);
    }
    t->typeChosen = true;
    t->type = type;
    t->next = 0;
    return copyNext(*t, buffer, size);
}

TQSVStatusCode smBiosGetNext(SMBIOSHANDLE handle, unsigned char* buffer, uint32_t* size) {
    std::lock_guard<std::mutex> guard(tablesLock());
    SmbiosTable* t = lookup(handle);
    if (t == nullptr || size == nullptr || (buffer == nullptr && *size != 0) || !t->typeChosen) {
        return TQSVStatusCode(QSV_ERROR);
    }
    return copyNext(*t, buffer, size);
}

TQSVStatusCode smBiosClose(SMBIOSHANDLE* handle) {
    if (handle == nullptr) {
        return TQSVStatusCode(QSV_ERROR);
    }
    std::lock_guard<std::mutex> guard(tablesLock());
    SmbiosTable* t = lookup(*handle);
    if (t == nullptr) {
        return TQSVStatusCode(QSV_ERROR);
    }
    openTables().erase(t);
    delete t;
    *handle = nullptr;
    return TQSVStatusCode(QSV_SUCCESS);
}

} // namespace NOXAQSV20
