// A tape of the framework calls one piece of decoding makes: the log lines it
// writes, the plug-in path it asks for and the properties it adds, in order.
//
// A full SEL is mostly the same few events over and over; decoding one of
// them again gives the same calls, since the decoding depends on nothing but
// the event's bytes, the node's SDR records and the message file, which a
// pass keeps still. So the first decoding of an event is taped and later ones
// play the tape. Playing asks the framework for the plug-in path at the same
// points as decoding does; should an answer differ from the taped one, the
// decoding runs for real from there on (see Playback), so the calls the
// framework sees are always those of decoding, one for one.
//
// Only the plug-in's thread uses this, as it does everything else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/framework.h"

namespace ipmisel::tape {

struct Call {
    enum class Kind : uint8_t { Log, PluginPath, Property };
    Kind kind = Kind::Log;
    int severity = 0;                                          // Log
    NOXAQSV20::EQSVStatusCode status = NOXAQSV20::QSV_SUCCESS; // PluginPath
    bool hasText = false;       // PluginPath: whether a path came with the answer
    std::string text;           // the line, the path, or the property's value
    const char* name = nullptr; // Property: its name, a literal of the caller
};

struct Tape {
    std::vector<Call> calls;
    // Something in the decoding depended on more than its inputs (a message
    // file that could not be read may be there at the next lookup): the tape
    // must not stand in for a later decoding.
    bool spoiled = false;
};

namespace detail {
// Whether anything below is going on; Log() tests this one flag first.
extern bool g_active;
void log(int severity, const char* text);
} // namespace detail

inline bool Active() {
    return detail::g_active;
}

// fdrWriteLog, through the tape when one is running.
inline void WriteLog(int severity, const char* text) {
    if (detail::g_active) [[unlikely]] {
        detail::log(severity, text);
        return;
    }
    NOXAQSV20::fdrWriteLog(static_cast<NOXAQSV20::EQSVLogSeverity>(severity), text);
}

// fdrGetPluginPath, through the tape when one is running.
NOXAQSV20::EQSVStatusCode PluginPath(NOXAQSV20::TCPluginCallbacks* cb, const char** path);

// Whether the caller adds the property now. False only while a playback
// catches up (the property was added while the tape played). While taping,
// the call is taped and the caller adds it with taping paused, so that the
// lines adding it writes (a refusal) stay out of the tape.
bool Property(const char* name, const char* value);

// Marks the tape being made as unfit to stand in for a later decoding.
void Spoil();

// Tapes every call made while it lives, into tape (which it clears first).
class Recording {
  public:
    explicit Recording(Tape& tape);
    ~Recording();
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
};

// Pauses a recording: calls made meanwhile go to the framework untaped.
class Pause {
  public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

  private:
    Tape* paused_;
};

// Plays a tape: the log lines go to the framework, each property is handed to
// add, and the plug-in path is asked for anew where the decoding asked. When an
// answer differs from the taped one, Play returns false at once; the caller
// then runs the decoding inside a CatchUp made from this Playback, which
// passes over the calls already made (handing the decoding the answers the
// framework gave) and lets every later call through.
class Playback {
  public:
    explicit Playback(NOXAQSV20::TCPluginCallbacks* cb) : cb_(cb) {}

    template <typename AddProperty> bool Play(const Tape& tape, AddProperty&& add) {
        tape_ = &tape;
        const Call* const calls = tape.calls.data();
        for (size_t i = 0, n = tape.calls.size(); i < n; ++i) {
            const Call& call = calls[i];
            // Most calls are log lines: they go straight through.
            if (call.kind == Call::Kind::Log) [[likely]] {
                NOXAQSV20::fdrWriteLog(static_cast<NOXAQSV20::EQSVLogSeverity>(call.severity),
                                       call.text.c_str());
            } else if (call.kind == Call::Kind::Property) {
                add(call.name, call.text.c_str());
            } else if (!askAgain(call)) {
                played_ = i + 1;
                return false;
            }
        }
        return true;
    }

  private:
    friend NOXAQSV20::EQSVStatusCode PluginPath(NOXAQSV20::TCPluginCallbacks*, const char**);
    friend class CatchUp;
    struct Answer {
        NOXAQSV20::EQSVStatusCode status = NOXAQSV20::QSV_SUCCESS;
        bool hasText = false;
        std::string text;
    };
    bool askAgain(const Call& call); // false: the framework answered otherwise

    NOXAQSV20::TCPluginCallbacks* cb_;
    const Tape* tape_ = nullptr;
    size_t played_ = 0; // calls of the tape made, the differing answer's included
    Answer last_;       // the differing answer
};

class CatchUp {
  public:
    explicit CatchUp(const Playback& playback);
    ~CatchUp();
    CatchUp(const CatchUp&) = delete;
    CatchUp& operator=(const CatchUp&) = delete;
};

} // namespace ipmisel::tape
