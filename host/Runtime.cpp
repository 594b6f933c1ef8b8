// The process-wide host state and the plug-in library: registration, the output
// of instances and properties, the plug-in's own path and the log.
#include <atomic>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

#include "host/framework.h"
#include "host/runtime.h"

namespace NOXAQSV20 {

// The host object handed to the plug-in at registration. It carries nothing:
// every service it stands for reads the process-wide configuration.
class TCPluginCallbacks {};

// What fdrGetHandle yields and smBiosLoad accepts.
class TPluginManagerProvider {};

// The output handle: at most one instance is open at a time.
class fdriIOHandle {
  public:
    bool open = false;
    ipmisel::host::Instance current;
    uint64_t opened = 0;    // fdrGetInstance calls since configure(), numbers the instances
    uint64_t committed = 0; // fdrAddInstance calls that delivered an instance
    // The first `used` properties of `current` are the open instance's; the
    // slots after them, and `spare`, hold properties of earlier instances,
    // kept with their texts' storage: a SEL of 65,535 records adds a million
    // properties, and each one reuses the buffers of one before it instead
    // of allocating its own.
    size_t used = 0;
    std::vector<ipmisel::host::Property> spare;
    // Whether the open instance's class or names may differ from those of
    // the instance delivered last, how many properties that one had, and the
    // layouts numbered so far.
    bool layoutChanged = true;
    size_t lastCount = 0;
    uint64_t layouts = 0;

    // Empties the open instance; its property slots stay for the next one.
    void recycle() { used = 0; }

    // A property slot at the end of the open instance. Inlined: from the
    // second record on, the slot is nearly always there already.
    [[gnu::always_inline]] ipmisel::host::Property& append() {
        auto& props = current.properties;
        if (used == props.size()) [[unlikely]] {
            grow();
        }
        return props[used++];
    }
    [[gnu::noinline]] void grow() {
        auto& props = current.properties;
        if (spare.empty()) {
            props.emplace_back();
        } else {
            props.push_back(std::move(spare.back()));
            spare.pop_back();
        }
    }

    // The open instance as the sink sees it: exactly its own properties.
    const ipmisel::host::Instance& sealed() {
        auto& props = current.properties;
        while (props.size() > used) {
            spare.push_back(std::move(props.back()));
            props.pop_back();
        }
        if (layoutChanged || used != lastCount) {
            current.layout = ++layouts;
        }
        layoutChanged = false;
        lastCount = used;
        return current;
    }
};

class TCIMValueArray {
  public:
    std::vector<uint8_t> bytes;
};

} // namespace NOXAQSV20

namespace ipmisel::host {

using namespace NOXAQSV20;

namespace {

struct State {
    Config config;
    std::string loadedPluginPath;
    bool registered = false;
    fdrPluginCallbacks record{};
    TCPluginCallbacks callbacks;
    TPluginManagerProvider provider;
    fdriIOHandle output;
    // Arrays handed out and not yet deleted, so that a stray or double delete is
    // refused instead of corrupting the heap. A plug-in keeps one or two at a
    // time, the newest last.
    std::vector<TCIMValueArray*> arrays;
    // Deleted arrays, kept with their storage for the next ones: every log
    // record makes and deletes one.
    std::vector<std::unique_ptr<TCIMValueArray>> spareArrays;
    // The array last found in `arrays`: a record's bytes are added one call
    // each to the same array.
    TCIMValueArray* lastArray = nullptr;

    // Where `array` is in `arrays` (searched from the newest), or npos.
    size_t findArray(const TCIMValueArray* array) const {
        for (size_t i = arrays.size(); i-- > 0;) {
            if (arrays[i] == array) {
                return i;
            }
        }
        return std::string::npos;
    }
    std::string logLine; // the text fdrWriteLog hands to the sink
    // Every plug-in path answered so far; the plug-in keeps the pointer it gets.
    std::set<std::string> pathAnswers;
    // Folder descriptors kept open for paths whose folders contain "ipmisel".
    std::unordered_map<std::string, int> folderFds;
};

// Made on first use and never destroyed: the plug-in may log during exit.
[[gnu::noinline]] State& makeState() {
    static State* s = new State();
    return *s;
}

// The state once made, for the plug-in's calls (dozens per record): one load
// and a test instead of the guard of a function-local static, and nothing of
// the making inlined into every call.
std::atomic<State*> g_state{nullptr};

[[gnu::noinline]] State& firstState() {
    State& s = makeState();
    g_state.store(&s, std::memory_order_release);
    return s;
}

[[gnu::always_inline]] inline State& state() {
    if (State* s = g_state.load(std::memory_order_acquire)) [[likely]] {
        return *s;
    }
    return firstState();
}

constexpr const char* kMarker = "ipmisel";

} // namespace

void configure(Config cfg) {
    State& s = state();
    s.config = std::move(cfg);
    s.registered = false;
    s.record = {};
    s.output.open = false;
    s.output.recycle();
    s.output.current.className.clear();
    s.output.opened = 0;
    s.output.committed = 0;
    s.output.layoutChanged = true;
}

Config& config() {
    return state().config;
}

void setLoadedPluginPath(const std::string& path) {
    state().loadedPluginPath = path;
}

const fdrPluginCallbacks* registeredCallbacks() {
    return state().registered ? &state().record : nullptr;
}

void clearRegistration() {
    state().registered = false;
    state().record = {};
}

TCPluginCallbacks* hostCallbacks() {
    return &state().callbacks;
}

fdriIOHandle* outputHandle() {
    return &state().output;
}

uint64_t instancesCommitted() {
    return state().output.committed;
}

const Property* Instance::find(const std::string& name) const {
    for (const Property& p : properties) {
        if (p.name == name) {
            return &p;
        }
    }
    return nullptr;
}

std::string Instance::get(const std::string& name) const {
    const Property* p = find(name);
    return p ? p->text : std::string();
}

// The answer for fdrGetPluginPath. The plug-in cuts its path at the first
// "ipmisel" and appends "ipmisel.INI", so that first occurrence has to be the
// file name itself. When a folder above also holds the word, the folder is
// reached through a descriptor kept open for the process instead, which names
// the same folder without repeating the word.
std::string pluginPathAnswer(const std::string& configured) {
    namespace fs = std::filesystem;
    if (configured.empty()) {
        return {};
    }
    std::error_code ec;
    fs::path full = fs::absolute(fs::path(configured), ec);
    if (ec) {
        full = fs::path(configured);
    }
    full = full.lexically_normal();
    std::string file = full.filename().string();
    std::string folder = full.parent_path().string();
    if (folder.find(kMarker) == std::string::npos || file.find(kMarker) == std::string::npos) {
        // Either the first "ipmisel" already is the file name, or the file does
        // not carry the name at all and no rewriting can help the plug-in.
        return full.string();
    }
    State& s = state();
    auto it = s.folderFds.find(folder);
    if (it == s.folderFds.end()) {
        int fd = ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (fd >= 0) {
            it = s.folderFds.emplace(folder, fd).first;
        }
    }
    if (it != s.folderFds.end()) {
        std::string viaFd = "/proc/self/fd/" + std::to_string(it->second);
        if (::access(viaFd.c_str(), F_OK) == 0) {
            return viaFd + "/" + file;
        }
    }
    // No descriptor path (no /proc): a path relative to the working folder still
    // works as long as it does not name the word before the file.
    fs::path rel = fs::relative(full.parent_path(), fs::current_path(ec), ec);
    if (!ec && !rel.empty() && rel.string().find(kMarker) == std::string::npos) {
        return (rel / file).string();
    }
    return full.string();
}

} // namespace ipmisel::host

namespace NOXAQSV20 {

using ipmisel::host::config;
using ipmisel::host::state;

TQSVStatusCode fdrRegisterPlugin(fdrPluginCallbacks* callbacks, TCPluginCallbacks** host) {
    if (config().registerFails || callbacks == nullptr) {
        return TQSVStatusCode(QSV_ERROR);
    }
    // A copy: the plug-in's record may live on its stack.
    state().record = *callbacks;
    state().registered = true;
    if (host != nullptr) {
        *host = ipmisel::host::hostCallbacks();
    }
    return TQSVStatusCode(QSV_SUCCESS);
}

EQSVStatusCode fdrGetHandle(TCPluginCallbacks* host, TPluginManagerProvider** provider) {
    if (host != ipmisel::host::hostCallbacks() || provider == nullptr) {
        return QSV_ERROR;
    }
    *provider = &state().provider;
    return QSV_SUCCESS;
}

EQSVStatusCode fdrGetPluginPath(TCPluginCallbacks* host, const char** path) {
    auto& s = state();
    if (host != &s.callbacks || path == nullptr) {
        return QSV_ERROR;
    }
    const std::string& source =
        s.config.pluginPath.empty() ? s.loadedPluginPath : s.config.pluginPath;
    // The plug-in asks for every message it looks up; an absolute path gives
    // the same answer every time, so it is worked out once.
    static std::string lastSource;
    static const char* lastAnswer = nullptr;
    if (lastAnswer != nullptr && !source.empty() && source[0] == '/' && source == lastSource) {
        *path = lastAnswer;
        return QSV_SUCCESS;
    }
    std::string answer = ipmisel::host::pluginPathAnswer(source);
    if (answer.empty()) {
        return QSV_ERROR;
    }
    *path = state().pathAnswers.insert(std::move(answer)).first->c_str();
    lastSource = source;
    lastAnswer = *path;
    return QSV_SUCCESS;
}

namespace {

inline bool ours(fdriIOHandle* io) {
    return io != nullptr && io == &state().output;
}

// Out of line: the hook is for tests, and asking it makes a string.
[[gnu::noinline]] bool refusedByHook(const fdriIOHandle* io, const char* name) {
    return state().config.failProperty(io->opened - 1, name);
}

// Whether a property may be added to the open instance: usable arguments,
// and the test hook does not refuse it. Inlined, as the next one: a SEL
// record adds seventeen properties.
[[gnu::always_inline]] inline bool canAdd(fdriIOHandle* io, const char* name) {
    if (!ours(io) || name == nullptr || !io->open) {
        return false;
    }
    return !state().config.failProperty || !refusedByHook(io, name);
}

// Copies a C text into s. Through append rather than assign: the slot's
// buffer is nearly always big enough, and append then is one length check
// and a copy.
[[gnu::always_inline]] inline void setText(std::string& s, const char* text) {
    s.clear();
    s.append(text, std::strlen(text));
}

[[gnu::always_inline]] inline ipmisel::host::Property&
addProperty(fdriIOHandle* io, const char* name, ipmisel::host::PropertyKind kind) {
    ipmisel::host::Property& p = io->append();
    // A slot reused for the same property of the next record (a SEL's records
    // bring the same names in the same order) already holds the name.
    if (std::strcmp(p.name.c_str(), name) != 0) {
        setText(p.name, name);
        io->layoutChanged = true;
    }
    p.kind = kind;
    p.text.clear();
    p.bytes.clear();
    return p;
}

[[gnu::always_inline]] inline bool knownArray(TCIMValueArray* array) {
    auto& s = state();
    if (array == nullptr || (array != s.lastArray && s.findArray(array) == std::string::npos)) {
        return false;
    }
    s.lastArray = array;
    return true;
}

} // namespace

EQSVStatusCode fdrGetInstance(fdriIOHandle* io, const char* className) {
    if (!ours(io) || className == nullptr) {
        return QSV_ERROR;
    }
    // An instance left open (abandoned by the plug-in) is dropped here. Any
    // name it put in a slot marked the layout changed until the next commit.
    if (std::strcmp(io->current.className.c_str(), className) != 0) {
        io->layoutChanged = true;
    }
    io->recycle();
    io->current.className.assign(className);
    io->open = true;
    ++io->opened;
    return QSV_SUCCESS;
}

EQSVStatusCode fdrAddProperty(fdriIOHandle* io, const char* name, const char* value) {
    if (value == nullptr || !canAdd(io, name)) {
        return QSV_ERROR;
    }
    setText(addProperty(io, name, ipmisel::host::PropertyKind::Text).text, value);
    return QSV_SUCCESS;
}

EQSVStatusCode fdrAddDateTimeProperty(fdriIOHandle* io, const char* name, TCIMDateTime* value) {
    if (value == nullptr || !canAdd(io, name)) {
        return QSV_ERROR;
    }
    addProperty(io, name, ipmisel::host::PropertyKind::DateTime).text = value->ToString();
    return QSV_SUCCESS;
}

EQSVStatusCode fdrSetDateTime(TCIMDateTime* value, uint16_t year, uint16_t month, uint32_t day,
                              uint16_t hour, uint16_t minute, uint16_t second,
                              uint32_t microseconds, int16_t utcOffset) {
    if (value == nullptr) {
        return QSV_ERROR;
    }
    value->Set(year, month, day, hour, minute, second, microseconds, utcOffset);
    return QSV_SUCCESS;
}

EQSVStatusCode fdrNewCIMValueArray(TCIMValueArray** array) {
    if (array == nullptr) {
        return QSV_ERROR;
    }
    auto& s = state();
    std::unique_ptr<TCIMValueArray> a;
    if (s.spareArrays.empty()) {
        a = std::make_unique<TCIMValueArray>();
    } else {
        a = std::move(s.spareArrays.back());
        s.spareArrays.pop_back();
        a->bytes.clear();
    }
    s.arrays.push_back(a.get());
    *array = a.release();
    return QSV_SUCCESS;
}

EQSVStatusCode fdrArrayAddUint8(TCIMValueArray* array, uint8_t value) {
    if (!knownArray(array)) {
        return QSV_ERROR;
    }
    array->bytes.push_back(value);
    return QSV_SUCCESS;
}

EQSVStatusCode fdrAddArrayProperty(fdriIOHandle* io, const char* name, TCIMValueArray* array) {
    if (!knownArray(array) || !canAdd(io, name)) {
        return QSV_ERROR;
    }
    // A copy: the array stays the plug-in's.
    addProperty(io, name, ipmisel::host::PropertyKind::Bytes)
        .bytes.assign(array->bytes.begin(), array->bytes.end());
    return QSV_SUCCESS;
}

EQSVStatusCode fdrDeleteCIMValueArray(TCIMValueArray* array) {
    auto& s = state();
    const size_t at = array == nullptr ? std::string::npos : s.findArray(array);
    if (at == std::string::npos) {
        return QSV_ERROR;
    }
    s.arrays.erase(s.arrays.begin() + static_cast<std::ptrdiff_t>(at));
    if (s.lastArray == array) {
        s.lastArray = nullptr;
    }
    s.spareArrays.emplace_back(array);
    return QSV_SUCCESS;
}

EQSVStatusCode fdrAddInstance(fdriIOHandle* io) {
    if (!ours(io) || !io->open) {
        return QSV_ERROR;
    }
    io->open = false;
    ++io->committed;
    if (const auto& sink = state().config.instanceSink) {
        sink(io->sealed());
    }
    io->recycle();
    return QSV_SUCCESS;
}

namespace {

// Out of line, so that the lines nobody keeps (most of them, at the default
// level) cost a compare and a return: the plug-in writes some fifty a record.
[[gnu::noinline]] void deliverLog(int severity, const char* text) {
    auto& s = state();
    // One buffer for every line: the plug-in logs several lines per record.
    s.logLine.assign(text ? text : "(null)");
    s.config.logSink(severity, s.logLine);
}

} // namespace

void fdrWriteLog(EQSVLogSeverity severity, const char* text) {
    const auto& config = state().config;
    if (static_cast<int>(severity) <= config.logLevel && config.logSink) {
        deliverLog(static_cast<int>(severity), text);
    }
}

} // namespace NOXAQSV20
