#include "base/tape.h"

#include <cstring>

using NOXAQSV20::EQSVStatusCode;

namespace ipmisel::tape {

namespace detail {
bool g_active = false;
}

namespace {

Tape* g_recording = nullptr;
// A catch-up: the playback it follows, the calls still to pass over and the
// index in the tape of the next one.
const Playback* g_catchUp = nullptr;
size_t g_toPass = 0;
size_t g_cursor = 0;

void settle() {
    detail::g_active = g_recording != nullptr || g_toPass > 0;
}

bool passing() {
    return g_toPass > 0;
}

void passOne() {
    ++g_cursor;
    if (--g_toPass == 0) {
        settle();
    }
}

} // namespace

namespace detail {

void log(int severity, const char* text) {
    if (passing()) {
        passOne();
        return;
    }
    if (g_recording != nullptr) {
        Call& call = g_recording->calls.emplace_back();
        call.kind = Call::Kind::Log;
        call.severity = severity;
        call.text = text;
    }
    NOXAQSV20::fdrWriteLog(static_cast<NOXAQSV20::EQSVLogSeverity>(severity), text);
}

} // namespace detail

EQSVStatusCode PluginPath(NOXAQSV20::TCPluginCallbacks* cb, const char** path) {
    if (passing()) {
        // The answer the framework gave while the tape played: the taped one,
        // except at the last call played, where it differed.
        const bool last = g_cursor + 1 == g_catchUp->played_;
        const Call& taped = g_catchUp->tape_->calls[g_cursor];
        const EQSVStatusCode status = last ? g_catchUp->last_.status : taped.status;
        const bool hasText = last ? g_catchUp->last_.hasText : taped.hasText;
        const std::string& text = last ? g_catchUp->last_.text : taped.text;
        *path = hasText ? text.c_str() : nullptr;
        passOne();
        return status;
    }
    const EQSVStatusCode status = NOXAQSV20::fdrGetPluginPath(cb, path);
    if (g_recording != nullptr) {
        Call& call = g_recording->calls.emplace_back();
        call.kind = Call::Kind::PluginPath;
        call.status = status;
        call.hasText = status == NOXAQSV20::QSV_SUCCESS && *path != nullptr;
        if (call.hasText) {
            call.text = *path;
        }
    }
    return status;
}

bool Property(const char* name, const char* value) {
    if (passing()) {
        passOne();
        return false;
    }
    if (g_recording != nullptr) {
        Call& call = g_recording->calls.emplace_back();
        call.kind = Call::Kind::Property;
        call.name = name;
        call.text = value;
    }
    return true;
}

void Spoil() {
    if (g_recording != nullptr) {
        g_recording->spoiled = true;
    }
}

Recording::Recording(Tape& tape) {
    tape.calls.clear();
    tape.spoiled = false;
    g_recording = &tape;
    settle();
}

Recording::~Recording() {
    g_recording = nullptr;
    settle();
}

Pause::Pause() : paused_(g_recording) {
    g_recording = nullptr;
    settle();
}

Pause::~Pause() {
    g_recording = paused_;
    settle();
}

bool Playback::askAgain(const Call& call) {
    const char* path = nullptr;
    const EQSVStatusCode status = NOXAQSV20::fdrGetPluginPath(cb_, &path);
    const bool hasText = status == NOXAQSV20::QSV_SUCCESS && path != nullptr;
    if (status == call.status && hasText == call.hasText &&
        (!hasText || std::strcmp(path, call.text.c_str()) == 0)) {
        return true;
    }
    last_.status = status;
    last_.hasText = hasText;
    last_.text = hasText ? path : "";
    return false;
}

CatchUp::CatchUp(const Playback& playback) {
    g_catchUp = &playback;
    g_toPass = playback.played_;
    g_cursor = 0;
    settle();
}

CatchUp::~CatchUp() {
    g_catchUp = nullptr;
    g_toPass = 0;
    g_cursor = 0;
    settle();
}

} // namespace ipmisel::tape
