#include "host/freeipmi/FreeIpmiTransport.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace ipmisel::freeipmi {

namespace {

// A request is the command byte and up to 255 data bytes; an answer the
// command byte, the completion code and the data. LAN answers carry at most
// a few hundred bytes, so this is generous.
constexpr size_t kMaxAnswer = 1024;
constexpr size_t kMaxPassword = IPMI_2_0_MAX_PASSWORD_LENGTH;
constexpr size_t kMaxUser = IPMI_MAX_USER_NAME_LENGTH;

struct NamedFlag {
    const char* name;
    unsigned flag;
};

// The IPMI 2.0 session workarounds, by the names ipmitool's peers in
// FreeIPMI print in their manuals (ipmi-sel -W NAME).
constexpr std::array<NamedFlag, 7> kLanWorkarounds = {{
    {"authcap", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_AUTHENTICATION_CAPABILITIES},
    {"intel20", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_INTEL_2_0_SESSION},
    {"supermicro20", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_SUPERMICRO_2_0_SESSION},
    {"sun20", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_SUN_2_0_SESSION},
    {"opensesspriv", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE},
    {"integritycheckvalue", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_NON_EMPTY_INTEGRITY_CHECK_VALUE},
    {"nochecksumcheck", IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_NO_CHECKSUM_CHECK},
}};

constexpr std::array<NamedFlag, 2> kInbandWorkarounds = {{
    {"assumeio", IPMI_WORKAROUND_FLAGS_INBAND_ASSUME_IO_BASE_ADDRESS},
    {"spinpoll", IPMI_WORKAROUND_FLAGS_INBAND_SPIN_POLL},
}};

struct DriverName {
    int type;
    const char* name;
};

constexpr std::array<DriverName, 7> kDriverNames = {{
    {IPMI_DEVICE_OPENIPMI, "kernel IPMI driver"},
    {IPMI_DEVICE_KCS, "KCS"},
    {IPMI_DEVICE_SSIF, "SSIF"},
    {IPMI_DEVICE_SMIC, "SMIC"},
    {IPMI_DEVICE_BT, "BT"},
    {IPMI_DEVICE_SUNBMC, "Sun BMC driver"},
    {IPMI_DEVICE_INTELDCMI, "Intel DCMI driver"},
}};

// Errors after which the session (or driver) cannot be used any more: going
// on would only wait out the timeout again for every request.
constexpr std::array<int, 6> kFatalErrors = {
    IPMI_ERR_SESSION_TIMEOUT,      IPMI_ERR_CONNECTION_TIMEOUT, IPMI_ERR_DEVICE_NOT_OPEN,
    IPMI_ERR_IPMI_2_0_UNAVAILABLE, IPMI_ERR_CTX_INVALID,        IPMI_ERR_OUT_OF_MEMORY,
};

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Overwrites a secret before its memory is given back.
void wipe(std::string& secret) {
    volatile char* p = secret.data();
    for (size_t i = 0; i < secret.size(); ++i) {
        p[i] = 0;
    }
    secret.clear();
}

} // namespace

struct FreeIpmiTransport::Context {
    ipmi_ctx_t ctx = nullptr;
    bool open = false;
    ~Context() {
        if (ctx != nullptr) {
            if (open) {
                ipmi_ctx_close(ctx);
            }
            ipmi_ctx_destroy(ctx);
        }
    }
    // libfreeipmi's own words for the last failure of this context.
    std::string error() const {
        if (ctx == nullptr) {
            return "cannot create a libfreeipmi context";
        }
        const char* text = ipmi_ctx_errormsg(ctx);
        return text ? text : "unknown error";
    }
    int errnum() const { return ctx ? ipmi_ctx_errnum(ctx) : IPMI_ERR_OUT_OF_MEMORY; }
};

std::shared_ptr<FreeIpmiTransport> FreeIpmiTransport::lan(LanSettings settings,
                                                          ErrorReporter report) {
    return std::shared_ptr<FreeIpmiTransport>(
        new FreeIpmiTransport(true, std::move(settings), {}, std::move(report)));
}

std::shared_ptr<FreeIpmiTransport> FreeIpmiTransport::inband(InbandSettings settings,
                                                             ErrorReporter report) {
    return std::shared_ptr<FreeIpmiTransport>(
        new FreeIpmiTransport(false, {}, settings, std::move(report)));
}

FreeIpmiTransport::FreeIpmiTransport(bool lan, LanSettings lanSettings,
                                     InbandSettings inbandSettings, ErrorReporter report)
    : lan_(lan), lanSettings_(std::move(lanSettings)), wire_(wireTiming(lanSettings_.timing)),
      inbandSettings_(inbandSettings), report_(std::move(report)) {}

FreeIpmiTransport::~FreeIpmiTransport() {
    close();
    if (lanSettings_.password) {
        wipe(*lanSettings_.password);
    }
}

std::string FreeIpmiTransport::hostArgument(const std::string& host, uint16_t port) {
    const bool v6 = host.find(':') != std::string::npos;
    return (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string FreeIpmiTransport::describe() const {
    if (lan_) {
        return "lanplus " + hostArgument(lanSettings_.host, lanSettings_.port);
    }
    std::string driver = driverName();
    return driver.empty() ? std::string("in-band") : "in-band (" + driver + ")";
}

std::string FreeIpmiTransport::driverName() const {
    for (const auto& d : kDriverNames) {
        if (d.type == driverType_) {
            return d.name;
        }
    }
    return {};
}

bool FreeIpmiTransport::isOpen() const {
    return context_ && context_->open;
}

void FreeIpmiTransport::fail(const std::string& what) {
    if (!failure_.empty()) {
        return;
    }
    failure_ = what;
    context_.reset(); // closes the session: nothing more will be sent on it
    if (report_) {
        report_(what);
    }
}

bool FreeIpmiTransport::open(std::string* error) {
    auto result = [&](bool ok) {
        if (!ok && error) {
            *error = failure_;
        }
        return ok;
    };
    if (isOpen()) {
        return true;
    }
    if (failed()) {
        return result(false);
    }
    if (closed_) {
        failure_ = "the session was closed";
        return result(false);
    }
    context_ = std::make_unique<Context>();
    context_->ctx = ipmi_ctx_create();
    if (context_->ctx == nullptr) {
        fail("cannot create a libfreeipmi context");
        return result(false);
    }
    if (lan_) {
        const LanSettings& s = lanSettings_;
        if (s.user && s.user->size() > kMaxUser) {
            fail("the user name is longer than " + std::to_string(kMaxUser) + " characters");
            return result(false);
        }
        if (s.password && s.password->size() > kMaxPassword) {
            fail("the password is longer than " + std::to_string(kMaxPassword) + " characters");
            return result(false);
        }
        const std::string hostname = hostArgument(s.host, s.port);
        auto attempt = [&](unsigned flags) {
            if (!context_->ctx) {
                context_ = std::make_unique<Context>();
                context_->ctx = ipmi_ctx_create();
                if (!context_->ctx) {
                    return false;
                }
            }
            return ipmi_ctx_open_outofband_2_0(
                       context_->ctx, hostname.c_str(), s.user ? s.user->c_str() : nullptr,
                       s.password ? s.password->c_str() : nullptr, nullptr, 0, s.privilege,
                       s.cipherSuite, wire_.sessionTimeoutMs, wire_.resendMs, flags,
                       IPMI_FLAGS_DEFAULT) == 0;
        };
        constexpr unsigned kOpenSessPriv =
            IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE;
        if (!attempt(s.workaroundFlags)) {
            int errnum = context_->errnum();
            std::string text = context_->error();
            // Some BMCs (OpenIPMI's simulator among them) refuse the privilege
            // asked for in the open-session request although the user has it;
            // asking for it after the session is up, as FreeIPMI's
            // "opensesspriv" workaround does, satisfies them. Tried once, on
            // a fresh context, so such a BMC works without the user knowing
            // the workaround's name. The BMC answered, so this costs a round
            // trip, not a timeout.
            const bool retry = errnum == IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED &&
                               !(s.workaroundFlags & kOpenSessPriv);
            if (retry) {
                context_ = std::make_unique<Context>();
                if (attempt(s.workaroundFlags | kOpenSessPriv)) {
                    lanSettings_.workaroundFlags |= kOpenSessPriv;
                    context_->open = true;
                    lastAnswer_ = std::chrono::steady_clock::now();
                    ++sessionsOpened_;
                    return true;
                }
                // The second try gets further into the login, so its reason
                // is the true one: such a BMC answers a wrong password or an
                // unknown user with the privilege refusal the first time.
                errnum = context_->errnum();
                text = context_->error();
            }
            std::string why =
                "cannot open an IPMI 2.0 session: " + sessionOpenFailure(errnum, text, s);
            if (retry && errnum == IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED) {
                why += " (also with the opensesspriv workaround)";
            }
            fail(why);
            return result(false);
        }
    } else {
        ipmi_driver_type_t type = IPMI_DEVICE_UNKNOWN;
        int rc = ipmi_ctx_find_inband(context_->ctx, &type, 0, 0, 0, nullptr,
                                      inbandSettings_.workaroundFlags, IPMI_FLAGS_DEFAULT);
        if (rc <= 0) {
            fail(rc == 0 ? std::string("no in-band IPMI driver answers (is the kernel's ipmi_si "
                                       "and ipmi_devintf loaded, and are you root?)")
                         : "cannot open an in-band IPMI driver: " + context_->error());
            return result(false);
        }
        driverType_ = type;
    }
    context_->open = true;
    lastAnswer_ = std::chrono::steady_clock::now();
    sessionsOpened_ += lan_ ? 1 : 0;
    return true;
}

void FreeIpmiTransport::close() {
    closed_ = true;
    context_.reset();
}

host::IpmiResponse FreeIpmiTransport::send(const host::IpmiRequest& request) {
    host::IpmiResponse response;
    if (lan_ && isOpen() &&
        std::chrono::steady_clock::now() - lastAnswer_ >
            std::chrono::milliseconds(wire_.idleLimitMs)) {
        // After such a pause libfreeipmi would send the request and give it
        // up at once, or after too few resends, as its session timeout
        // counts from the last answer. Log in again before sending instead:
        // sending again after such a give-up would have the BMC run the
        // request twice, and some (a read that moves a register pointer on)
        // must not.
        context_.reset();
    }
    if (!open()) {
        return response;
    }
    std::vector<uint8_t> rq;
    rq.reserve(1 + request.data.size());
    rq.push_back(request.cmd);
    rq.insert(rq.end(), request.data.begin(), request.data.end());
    std::array<uint8_t, kMaxAnswer> rs{};
    int got =
        ipmi_cmd_raw(context_->ctx, request.lun & 0x03, request.netfn, rq.data(),
                     static_cast<unsigned>(rq.size()), rs.data(), static_cast<unsigned>(rs.size()));
    if (got < 0) {
        const int errnum = context_->errnum();
        if (std::find(kFatalErrors.begin(), kFatalErrors.end(), errnum) != kFatalErrors.end() ||
            (lan_ && errnum == IPMI_ERR_SYSTEM_ERROR)) {
            fail("the BMC stopped answering: " + context_->error());
        }
        return response;
    }
    lastAnswer_ = std::chrono::steady_clock::now();
    // The answer starts with the command byte and the completion code; one
    // without a completion code is no answer at all.
    if (got < 2) {
        return response;
    }
    const size_t length = std::min<size_t>(static_cast<size_t>(got), rs.size());
    response.sent = true;
    response.cc = rs[1];
    response.data.assign(rs.begin() + 2, rs.begin() + static_cast<std::ptrdiff_t>(length));
    return response;
}

WireTiming wireTiming(const Timing& timing) {
    const unsigned retries = std::clamp(timing.retries, 1u, 10u);
    const unsigned timeout = std::max(timing.timeoutMs, 100u);
    // The wake-up that gives up, in intervals after the first send.
    unsigned wakeUps = 0;
    for (unsigned resent = 0; resent <= retries; ++resent) {
        wakeUps += resent / 2 + 1;
    }
    WireTiming wire;
    wire.resendMs = (timeout + wakeUps - 1) / wakeUps;
    // Below the timeout by more than a wall clock correction is likely to
    // be, so that the wake-up on the timeout is past it. The one before lies
    // at most 5/6 of the way (30 and 36 intervals with ten retries): the
    // session timeout counts from the last answer, which came before the
    // send, and that leaves room for a slow caller in between.
    wire.sessionTimeoutMs = timeout - std::max(1u, std::min(timeout / 50, 20u));
    const unsigned lastResendAt = wakeUps - (retries / 2 + 1); // in intervals
    wire.idleLimitMs = (wire.sessionTimeoutMs - lastResendAt * wire.resendMs) / 2;
    return wire;
}

std::string sessionOpenFailure(int errnum, const std::string& text, const LanSettings& s) {
    const bool named = s.user && !s.user->empty();
    const std::string user = named ? "user \"" + *s.user + "\"" : "the anonymous (null) user";
    const std::string refused = "the BMC refused the login: ";
    const std::string own = " (" + text + ")";
    switch (errnum) {
    case IPMI_ERR_CONNECTION_TIMEOUT:
    case IPMI_ERR_SESSION_TIMEOUT: {
        const unsigned ms = s.timing.timeoutMs;
        const std::string wait =
            ms % 1000 == 0 ? std::to_string(ms / 1000) + " s" : std::to_string(ms) + " ms";
        return "the BMC did not answer within " + wait + own +
               "; is the address right and IPMI over LAN enabled on it?";
    }
    case IPMI_ERR_HOSTNAME_INVALID:
        return "cannot find the host \"" + s.host + "\"" + own;
    case IPMI_ERR_USERNAME_INVALID:
        return refused + (named ? "it does not know " + user : "it does not take " + user) + own;
    case IPMI_ERR_PASSWORD_INVALID:
    case IPMI_ERR_PASSWORD_VERIFICATION_TIMEOUT:
        // Never the password itself; only whether it was the empty one.
        return refused +
               (s.password && !s.password->empty() ? "wrong password for " + user
                                                   : "the empty password is wrong for " + user) +
               own;
    case IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED:
    case IPMI_ERR_PRIVILEGE_LEVEL_INSUFFICIENT: {
        const char* level = s.privilege == IPMI_PRIVILEGE_LEVEL_USER       ? "user"
                            : s.privilege == IPMI_PRIVILEGE_LEVEL_OPERATOR ? "operator"
                                                                           : "admin";
        return refused + user + " may not have the " + level + " privilege" + own;
    }
    case IPMI_ERR_CIPHER_SUITE_ID_UNAVAILABLE:
        return "the BMC does not offer cipher suite " + std::to_string(s.cipherSuite) + own;
    case IPMI_ERR_IPMI_2_0_UNAVAILABLE:
        return "the BMC does not offer IPMI 2.0 sessions" + own;
    default:
        return text;
    }
}

std::optional<unsigned> workaroundFlag(const std::string& name, bool lan, std::string* error) {
    const std::string key = lower(name);
    std::string known;
    auto search = [&](const auto& table) -> std::optional<unsigned> {
        for (const auto& w : table) {
            if (key == w.name) {
                return w.flag;
            }
            known += known.empty() ? "" : ", ";
            known += w.name;
        }
        return std::nullopt;
    };
    auto flag = lan ? search(kLanWorkarounds) : search(kInbandWorkarounds);
    if (!flag && error) {
        *error = "unknown workaround \"" + name + "\" for " +
                 (lan ? std::string("IPMI 2.0 LAN sessions") : std::string("in-band drivers")) +
                 " (known: " + known + ")";
    }
    return flag;
}

std::optional<unsigned> workaroundFlags(const std::vector<std::string>& names, bool lan,
                                        std::string* error) {
    unsigned flags = 0;
    for (const auto& name : names) {
        auto flag = workaroundFlag(name, lan, error);
        if (!flag) {
            return std::nullopt;
        }
        flags |= *flag;
    }
    return flags;
}

std::optional<uint8_t> privilegeLevel(const std::string& name) {
    static const std::array<std::pair<const char*, uint8_t>, 4> levels = {{
        {"user", IPMI_PRIVILEGE_LEVEL_USER},
        {"operator", IPMI_PRIVILEGE_LEVEL_OPERATOR},
        {"admin", IPMI_PRIVILEGE_LEVEL_ADMIN},
        {"administrator", IPMI_PRIVILEGE_LEVEL_ADMIN},
    }};
    const std::string key = lower(name);
    for (const auto& [text, level] : levels) {
        if (key == text) {
            return level;
        }
    }
    return std::nullopt;
}

std::optional<std::string> readPasswordFile(const std::string& path, std::string* error) {
    auto fail = [&](const std::string& why) -> std::optional<std::string> {
        if (error) {
            *error = "password file " + path + ": " + why;
        }
        return std::nullopt;
    };
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return fail(std::strerror(errno));
    }
    // Only the first line counts, so a file written by `echo` works; its
    // line end (LF or CRLF) is not part of the password.
    std::string password;
    std::getline(in, password);
    if (in.bad()) {
        wipe(password);
        return fail("cannot be read");
    }
    if (!password.empty() && password.back() == '\r') {
        password.pop_back();
    }
    if (password.size() > kMaxPassword) {
        wipe(password);
        return fail("the password is longer than " + std::to_string(kMaxPassword) + " characters");
    }
    return password;
}

} // namespace ipmisel::freeipmi
