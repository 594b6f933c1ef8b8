#include "mapping/MessageFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include "base/text.h"

namespace ipmisel::message {

namespace {

// The file used to be read with a 512-byte line buffer: a longer line arrives
// as several pieces of 511 characters, each matched on its own, and a NUL byte
// ends what the matching sees of a piece. The cache keeps exactly those pieces.
constexpr size_t kPieceLength = 511;
// Distinct keys remembered per file before the memory is dropped and rebuilt.
constexpr size_t kMemoLimit = 65536;
// Data ids below this are remembered by number (they all are: the highest in
// use is 1255).
constexpr int32_t kRememberedIds = 2048;
constexpr int32_t kNotLookedUp = -2;
// A file whose change time is this close to the moment we began reading it is
// read again at every lookup until it is older: a change made right after our
// read can get the same time stamp, and with the same size and inode nothing
// in stat() would show it. File systems with nanosecond times stamp a change
// at most one clock tick early; those that keep whole seconds (a zero
// nanosecond part) up to two seconds early.
constexpr int64_t kRacyNanoseconds = 100'000'000;
constexpr int64_t kRacyWholeSecondNanoseconds = 3'000'000'000;

int64_t nanoseconds(const timespec& ts) {
    return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

int64_t realtimeNow() {
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return nanoseconds(ts);
}

struct Signature {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = -1;
    timespec mtime{};
    timespec ctime{};

    bool operator==(const Signature& o) const {
        return dev == o.dev && ino == o.ino && size == o.size && mtime.tv_sec == o.mtime.tv_sec &&
               mtime.tv_nsec == o.mtime.tv_nsec && ctime.tv_sec == o.ctime.tv_sec &&
               ctime.tv_nsec == o.ctime.tv_nsec;
    }
};

struct Piece {
    std::string text; // up to the first NUL
    size_t equals;    // position of the first '=', or npos
};

struct CachedFile {
    Signature signature;
    bool racy = false;           // changed too shortly before it was read to trust stat()
    uint64_t lookedAtInPass = 0; // the pass in which stat() last vouched for it
    std::string content;         // as read, to tell a real change from a touch
    std::vector<Piece> pieces;
    // key -> index of the first piece containing it, -1 for none. The answer
    // only depends on the pieces, so it is remembered until they change.
    std::unordered_map<std::string, int32_t> firstMatch;
    // The same for the data ids below kRememberedIds, by id (kNotLookedUp
    // until asked for); empty until the first lookup by id.
    std::vector<int32_t> idMatch;
};

std::mutex& cacheMutex() {
    static std::mutex m;
    return m;
}

std::unordered_map<std::string, CachedFile>& caches() {
    static std::unordered_map<std::string, CachedFile> c;
    return c;
}

// Open passes and the number of the current outermost one (0: none yet).
// Guarded by cacheMutex().
int g_passDepth = 0;
uint64_t g_passNumber = 0;

// The file most recently looked up, so that the lookups of a record, which
// all go to the same file, skip hashing its path. Cleared with the cache.
CachedFile* g_lastFile = nullptr;
std::string g_lastPath;

void forgetLastFile() {
    g_lastFile = nullptr;
    g_lastPath.clear();
}

Signature signatureOf(const struct stat& st) {
    Signature s;
    s.dev = st.st_dev;
    s.ino = st.st_ino;
    s.size = st.st_size;
    s.mtime = st.st_mtim;
    s.ctime = st.st_ctim;
    return s;
}

// Reads the whole file; the descriptor is closed on every path.
bool readAll(const std::string& path, std::string& content, Signature& signature) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return false;
    }
    signature = signatureOf(st);
    content.clear();
    char chunk[16384];
    for (;;) {
        ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            ::close(fd);
            return false;
        }
        if (n == 0) {
            break;
        }
        content.append(chunk, static_cast<size_t>(n));
    }
    ::close(fd);
    return true;
}

std::vector<Piece> splitPieces(const std::string& content) {
    std::vector<Piece> pieces;
    size_t pos = 0;
    while (pos < content.size()) {
        size_t limit = std::min(content.size(), pos + kPieceLength);
        size_t end = pos;
        while (end < limit) {
            if (content[end++] == '\n') {
                break;
            }
        }
        std::string text = content.substr(pos, end - pos);
        size_t nul = text.find('\0');
        if (nul != std::string::npos) {
            text.resize(nul);
        }
        size_t equals = text.find('=');
        pieces.push_back(Piece{std::move(text), equals});
        pos = end;
    }
    return pieces;
}

// The cached pieces of path, read again when the file changed; null when the
// file cannot be read (and nothing of it is kept then). Every call looks at the
// file (one stat()), so what a lookup sees is what a fresh scan would see.
CachedFile* lookAt(const std::string& path);

// The cached pieces of path, looked at as Find's comment says: once per pass
// inside a pass, at every call outside one.
CachedFile* load(const std::string& path) {
    CachedFile* file = g_lastFile != nullptr && g_lastPath == path ? g_lastFile : nullptr;
    if (file == nullptr) {
        auto it = caches().find(path);
        file = it != caches().end() ? &it->second : nullptr;
    }
    if (file == nullptr || g_passDepth == 0 || file->lookedAtInPass != g_passNumber) {
        file = lookAt(path);
        if (file != nullptr && g_passDepth > 0) {
            file->lookedAtInPass = g_passNumber;
        }
    }
    if (file != g_lastFile) {
        g_lastFile = file;
        g_lastPath = file != nullptr ? path : std::string();
    }
    return file;
}

// One stat() of path, and a new read when the file changed.
CachedFile* lookAt(const std::string& path) {
    auto& all = caches();
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        forgetLastFile();
        all.erase(path);
        return nullptr;
    }
    auto it = all.find(path);
    if (it != all.end() && !it->second.racy && it->second.signature == signatureOf(st)) {
        return &it->second;
    }
    const int64_t readStart = realtimeNow();
    std::string content;
    Signature signature;
    if (!readAll(path, content, signature)) {
        forgetLastFile();
        all.erase(path);
        return nullptr;
    }
    const int64_t changed = nanoseconds(signature.ctime);
    const int64_t margin =
        signature.ctime.tv_nsec == 0 ? kRacyWholeSecondNanoseconds : kRacyNanoseconds;
    const bool racy = changed > readStart - margin;
    if (it != all.end() && it->second.content == content) {
        // Touched or rewritten with the same text: the pieces and the
        // remembered matches still hold.
        it->second.signature = signature;
        it->second.racy = racy;
        return &it->second;
    }
    CachedFile fresh;
    fresh.signature = signature;
    fresh.racy = racy;
    fresh.pieces = splitPieces(content);
    fresh.content = std::move(content);
    auto& slot = all[path];
    slot = std::move(fresh);
    return &slot;
}

int32_t firstMatch(CachedFile& file, const std::string& key) {
    auto it = file.firstMatch.find(key);
    if (it != file.firstMatch.end()) {
        return it->second;
    }
    int32_t found = -1;
    for (size_t i = 0; i < file.pieces.size(); ++i) {
        if (file.pieces[i].text.find(key) != std::string::npos) {
            found = static_cast<int32_t>(i);
            break;
        }
    }
    if (file.firstMatch.size() >= kMemoLimit) {
        file.firstMatch.clear();
    }
    file.firstMatch.emplace(key, found);
    return found;
}

} // namespace

namespace {

// The answer of the piece at index (-1: no piece holds the key).
Lookup textOf(const CachedFile& file, int32_t index, char* out, int32_t size) {
    if (index < 0) {
        return Lookup::NoMatch;
    }
    if (size <= 0) {
        return Lookup::Found;
    }
    const Piece& piece = file.pieces[static_cast<size_t>(index)];
    // A line without '=' has no text to give.
    if (piece.equals == std::string::npos) {
        return Lookup::Found;
    }
    // At most size characters of the text, then the line end goes: CR LF as a
    // pair, otherwise the last character whatever it is (so a last line without
    // a line end loses its last letter). Removing at least one character of a
    // full-size copy is also what leaves room for the terminator.
    size_t available = piece.text.size() - piece.equals - 1;
    size_t n = std::min(available, static_cast<size_t>(size));
    std::memcpy(out, piece.text.data() + piece.equals + 1, n);
    if (n >= 2 && out[n - 2] == '\r' && out[n - 1] == '\n') {
        n -= 2;
    } else if (n >= 1) {
        n -= 1;
    }
    out[n] = '\0';
    return Lookup::Found;
}

} // namespace

Lookup Find(const std::string& path, const std::string& key, char* out, int32_t size) {
    std::lock_guard<std::mutex> lock(cacheMutex());
    CachedFile* file = load(path);
    if (file == nullptr) {
        return Lookup::OpenFailed;
    }
    return textOf(*file, firstMatch(*file, key), out, size);
}

Lookup FindId(const std::string& path, int32_t id, char* out, int32_t size) {
    std::lock_guard<std::mutex> lock(cacheMutex());
    CachedFile* file = load(path);
    if (file == nullptr) {
        return Lookup::OpenFailed;
    }
    if (id < 0 || id >= kRememberedIds) {
        return textOf(*file, firstMatch(*file, std::to_string(id)), out, size);
    }
    if (file->idMatch.empty()) {
        file->idMatch.assign(kRememberedIds, kNotLookedUp);
    }
    int32_t& index = file->idMatch[static_cast<size_t>(id)];
    if (index == kNotLookedUp) {
        index = firstMatch(*file, std::to_string(id));
    }
    return textOf(*file, index, out, size);
}

void ClearCache() {
    std::lock_guard<std::mutex> lock(cacheMutex());
    forgetLastFile();
    caches().clear();
}

Pass::Pass() {
    std::lock_guard<std::mutex> lock(cacheMutex());
    if (g_passDepth++ == 0) {
        ++g_passNumber;
    }
}

Pass::~Pass() {
    std::lock_guard<std::mutex> lock(cacheMutex());
    --g_passDepth;
}

namespace {

// Parses one conversion after '%'; returns the position after it, or npos when
// it is not an integer conversion this code accepts.
size_t parseIntegerConversion(const char* f, size_t i) {
    while (f[i] != '\0' && std::strchr("-+ #0", f[i]) != nullptr) {
        ++i;
    }
    int digits = 0;
    while (f[i] >= '0' && f[i] <= '9') {
        ++i;
        if (++digits > 2) {
            return std::string::npos;
        }
    }
    if (f[i] == '.') {
        ++i;
        digits = 0;
        while (f[i] >= '0' && f[i] <= '9') {
            ++i;
            if (++digits > 2) {
                return std::string::npos;
            }
        }
    }
    if (f[i] == 'h') {
        ++i;
        if (f[i] == 'h') {
            ++i;
        }
    }
    if (f[i] != '\0' && std::strchr("diuxXo", f[i]) != nullptr) {
        return i + 1;
    }
    return std::string::npos;
}

} // namespace

bool IsOneNumberFormat(const char* format) {
    if (format == nullptr) {
        return false;
    }
    int conversions = 0;
    for (size_t i = 0; format[i] != '\0';) {
        if (format[i] != '%') {
            ++i;
            continue;
        }
        if (format[i + 1] == '%') {
            i += 2;
            continue;
        }
        size_t next = parseIntegerConversion(format, i + 1);
        if (next == std::string::npos) {
            return false;
        }
        ++conversions;
        i = next;
    }
    return conversions == 1;
}

size_t FormatOneNumber(char* out, size_t size, const char* format, int value) {
    if (format == nullptr) {
        format = "";
    }
    if (IsOneNumberFormat(format)) {
        // The format was checked above: one integer conversion, one int given.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        return TextFormat(out, size, format, value);
#pragma GCC diagnostic pop
    }
    if (format[0] == '\0') {
        return TextFormat(out, size, "%s", "");
    }
    return TextFormat(out, size, "%s %d", format, value);
}

} // namespace ipmisel::message
