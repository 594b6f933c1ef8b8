// Real BMCs through libfreeipmi: the machine's own BMC through whichever
// in-band driver libfreeipmi finds (the kernel's IPMI device first, then
// KCS, SSIF and the rest), or a remote BMC over an IPMI 2.0 (lanplus)
// session. One object is one BMC node with at most one open session.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/runtime.h"

namespace ipmisel::freeipmi {

// How long one request may take over the LAN, and how many times its packet
// is sent again inside that time (1 to 10) before the node is given up.
struct Timing {
    unsigned timeoutMs = 10000;
    unsigned retries = 2;
};

// The two times libfreeipmi is given for a Timing, and the longest pause
// the transport lets a session sit between two requests.
//
// libfreeipmi sends a request, waits one resend interval, and on silence
// sends it again; after every second resend the wait grows by one interval
// (1, 1, 2, 2, 3, 3, ... intervals). Only right after such a resend does it
// look at the clock (the wall clock), and it gives up once its session
// timeout has passed since the last answer. Handed the user's timeout and
// timeout/(N+1), it gives up at the first wake-up after the timeout: 4/3 of
// it with two retries, 6/5 with four. With one or three retries that
// wake-up falls on the timeout, and only the microseconds between the last
// answer and the send put it past: a wall clock set back by that much
// makes it wait on to the next wake-up, twice the timeout with one retry.
// With none it refuses to open a session, as its interval must be shorter
// than its timeout.
//
// So the interval is chosen to make the (N+1)th wake-up fall on the timeout
// (never before it: the interval is rounded up), and the session timeout
// sits 20 ms below it, so that this wake-up is past it and the Nth is well
// short of it.
//
// Because the timeout counts from the last answer, time the caller spends
// between two requests is taken off the next one: after a pause as long as
// the timeout (output blocked by a pager, say) libfreeipmi gives the
// request up at once, after it has sent it. `idleLimitMs` is the longest
// pause that still leaves the request its N resends and its whole timeout:
// half the room between the Nth wake-up and the session timeout. After a
// longer one the transport logs in again before it sends.
struct WireTiming {
    unsigned sessionTimeoutMs = 0;
    unsigned resendMs = 0;
    unsigned idleLimitMs = 0;
};
WireTiming wireTiming(const Timing& timing);

struct LanSettings {
    std::string host; // a name, an IPv4 address or an IPv6 address without brackets
    uint16_t port = 623;
    std::optional<std::string> user;     // none: the anonymous (null) user
    std::optional<std::string> password; // none: the empty password; never logged
    uint8_t cipherSuite = 3;
    uint8_t privilege = 4; // 2 user, 3 operator, 4 administrator
    unsigned workaroundFlags = 0;
    Timing timing;
};

struct InbandSettings {
    unsigned workaroundFlags = 0;
};

// Called once, with what went wrong (one line, without the BMC's name:
// the caller knows the node), when a node cannot be reached or stops
// answering; the transport then fails every later send at once instead of
// waiting out the timeout again for each of them.
using ErrorReporter = std::function<void(const std::string& line)>;

class FreeIpmiTransport : public host::Transport {
  public:
    static std::shared_ptr<FreeIpmiTransport> lan(LanSettings settings,
                                                  ErrorReporter report = nullptr);
    static std::shared_ptr<FreeIpmiTransport> inband(InbandSettings settings = {},
                                                     ErrorReporter report = nullptr);
    ~FreeIpmiTransport() override;
    FreeIpmiTransport(const FreeIpmiTransport&) = delete;
    FreeIpmiTransport& operator=(const FreeIpmiTransport&) = delete;

    // Opens the session (LAN) or the driver (in-band) unless it is open
    // already. The first send opens it too; calling this first lets a caller
    // learn early whether the BMC answers. After a failure it is not tried
    // again: false at once, and `error` receives the first failure's text.
    bool open(std::string* error = nullptr);
    // Closes the session; a later send does not reopen it.
    void close();

    host::IpmiResponse send(const host::IpmiRequest& request) override;
    // "lanplus HOST:PORT" or "in-band (DRIVER)". Never the user or password.
    std::string describe() const override;

    bool isOpen() const;
    bool failed() const { return !failure_.empty(); }
    const std::string& failure() const { return failure_; }
    // How many LAN sessions this node has opened: one, and one more after
    // every pause longer than the timeout allows (see WireTiming).
    unsigned sessionsOpened() const { return sessionsOpened_; }
    // The in-band driver that opened ("kernel IPMI driver", "KCS", ...), or "".
    std::string driverName() const;

    // The text libfreeipmi's host argument takes: HOST:PORT, [V6]:PORT.
    static std::string hostArgument(const std::string& host, uint16_t port);

  private:
    struct Context;
    FreeIpmiTransport(bool lan, LanSettings lanSettings, InbandSettings inbandSettings,
                      ErrorReporter report);
    void fail(const std::string& what);

    bool lan_;
    LanSettings lanSettings_;
    WireTiming wire_;
    // When the BMC last answered on the open session.
    std::chrono::steady_clock::time_point lastAnswer_;
    unsigned sessionsOpened_ = 0;
    InbandSettings inbandSettings_;
    ErrorReporter report_;
    std::unique_ptr<Context> context_;
    int driverType_ = 0;
    bool closed_ = false;
    std::string failure_;
};

// Why a LAN session could not be opened, from libfreeipmi's error number and
// its text for it, in words that tell a BMC that never answered from one that
// answered and refused the login (user, password, privilege). The user name
// is named, the password never.
std::string sessionOpenFailure(int errnum, const std::string& text, const LanSettings& settings);

// The names FreeIPMI's own tools take for libfreeipmi's workaround flags.
// Returns the flag, or none with `error` naming the ones that exist.
std::optional<unsigned> workaroundFlag(const std::string& name, bool lan, std::string* error);
// All names at once, OR-ed; none on the first unknown name.
std::optional<unsigned> workaroundFlags(const std::vector<std::string>& names, bool lan,
                                        std::string* error);

// "user", "operator", "admin"/"administrator" (any case) to the IPMI level.
std::optional<uint8_t> privilegeLevel(const std::string& name);

// The first line of a password file, without its line end. None with `error`
// set when it cannot be read or the password is longer than IPMI allows
// (20 bytes). The password itself never appears in an error.
std::optional<std::string> readPasswordFile(const std::string& path, std::string* error);

} // namespace ipmisel::freeipmi
