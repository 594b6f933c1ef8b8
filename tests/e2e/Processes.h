// Child processes for the end-to-end tests: OpenIPMI's BMC simulator on a free
// loopback port, and programs run to completion with their output captured.
// Every process started here is stopped by its PID, whatever the test does.
#pragma once

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "tests/support/HostFixture.h"

namespace ipmisel::e2e {

using Env = std::map<std::string, std::string>;
using Bytes = std::vector<uint8_t>;
using json = nlohmann::ordered_json; // properties in the order they were written
constexpr auto npos = std::string::npos;

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::string trimmed(const std::string& s) {
    const size_t a = s.find_first_not_of(' '), b = s.find_last_not_of(' ');
    return a == npos ? "" : s.substr(a, b - a + 1);
}

// The properties of each instance of `className` in the collector's jsonl output.
inline std::vector<json> instancesOf(const std::string& jsonl, const std::string& className) {
    std::vector<json> out;
    std::istringstream lines(jsonl);
    for (std::string line; std::getline(lines, line);) {
        if (json i = json::parse(line); i["class"] == className) {
            out.push_back(i["properties"]);
        }
    }
    return out;
}

// Why the test cannot run: the first of `tools` not installed, or "".
inline std::string missingTool(std::initializer_list<const char*> tools) {
    for (const char* tool : tools) {
        if (std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) != 0) {
            return std::string(tool) + " not found (Debian packages openipmi, ipmitool and " +
                   "freeipmi-tools; scripts/setup.sh installs them)";
        }
    }
    return {};
}

// Starts argv through env(1), which adds `env` to our environment, with stdin
// from /dev/null and stdout and stderr into files. The arguments are built
// before fork: the child only calls exec. It is killed when this process
// dies, so no simulator outlives a crashed test.
inline pid_t spawn(const std::vector<std::string>& argv, const Env& env, const std::string& out,
                   const std::string& err) {
    std::vector<std::string> texts = {"env"};
    for (const auto& [name, value] : env) {
        texts.push_back(name + "=" + value);
    }
    texts.insert(texts.end(), argv.begin(), argv.end());
    std::vector<char*> args;
    for (auto& t : texts) {
        args.push_back(t.data());
    }
    args.push_back(nullptr);
    const pid_t parent = ::getpid();
    if (const pid_t pid = ::fork(); pid != 0) {
        return pid;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int in = ::open("/dev/null", O_RDONLY), o = ::open(out.c_str(), O_WRONLY | O_CREAT, 0600);
    int e = err == out ? o : ::open(err.c_str(), O_WRONLY | O_CREAT, 0600);
    if (::getppid() == parent && in >= 0 && o >= 0 && e >= 0) {
        ::dup2(in, 0), ::dup2(o, 1), ::dup2(e, 2);
        ::execvp(args[0], args.data());
    }
    ::_exit(127);
}

// Waits for the child at most `limit`, then kills it by its PID. Its exit
// code, or -1 when it died of a signal or had to be killed.
inline int reap(pid_t pid, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    int status = 0;
    pid_t r;
    while ((r = ::waitpid(pid, &status, WNOHANG)) == 0 || (r < 0 && errno == EINTR)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return r == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct RunResult {
    int code = -1;
    std::string out, err;
};

// Every run is in UTC so the tools agree on how to show a time stamp. In a
// sanitizer build the collector's leak checker is told not to scan
// thread-local storage: with Debian 12's glibc the ASan runtime of GCC 12 at
// times reads a bogus range for the dynamic TLS of the plug-in (opened with
// dlopen) and crashes at exit ("Tracer caught signal 11"). Leaks are still
// looked for, with our suppression list of system libraries unless the caller
// named one; other builds ignore the variable.
inline RunResult runProgram(const std::vector<std::string>& argv, Env env = {}) {
    const char* lsanEnv = std::getenv("LSAN_OPTIONS");
    std::string lsan = lsanEnv ? lsanEnv : "";
    if (lsan.find("suppressions=") == npos) {
        lsan += ":suppressions=" IPMISEL_SOURCE_DIR "/tests/sanitizer/lsan.supp";
    }
    env["LSAN_OPTIONS"] = lsan + ":use_tls=0:print_suppressions=0";
    env["TZ"] = "UTC";
    const std::string dir = test::makeTempDir("ipmisel-run");
    RunResult r;
    if (pid_t pid = spawn(argv, env, dir + "/out", dir + "/err"); pid > 0) {
        r.code = reap(pid, std::chrono::seconds(30));
    }
    r.out = readFile(dir + "/out"), r.err = readFile(dir + "/err");
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return r;
}

// Binds a UDP socket to 127.0.0.1:port (0: any) for a moment: the port it
// got, or 0 when the port is taken.
inline uint16_t bindLoopback(uint16_t port) {
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{.sin_family = AF_INET,
                  .sin_port = htons(port),
                  .sin_addr = {htonl(0x7F000001)},
                  .sin_zero = {}};
    socklen_t size = sizeof a;
    bool ok = fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
              ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &size) == 0;
    ::close(fd);
    return ok ? ntohs(a.sin_port) : 0;
}

// One ipmi_sim serving a BMC of tests/e2e/bmc/ on 127.0.0.1 with the given
// SEL. The SEL is written into its state folder before it starts, so the
// records keep the time stamps given here (records added through the
// simulator's commands would get its clock instead).
class IpmiSim {
  public:
    static constexpr const char* kUser = "ipmiusr";
    static constexpr const char* kPassword = "e2e-Secret-42";

    explicit IpmiSim(const std::vector<Bytes>& sel, const std::string& emu = "bmc.emu")
        : dir_(test::makeTempDir("ipmisel-sim")),
          emu_(test::sourceDir() + "/tests/e2e/bmc/" + emu) {
        std::filesystem::create_directories(dir_ + "/state/ipmi_sim/ipmisel");
        // "ID:d:" and the bytes as \hh, newest first as ipmi_sim 2.0 keeps them.
        std::ofstream state(dir_ + "/state/ipmi_sim/ipmisel/sel.20");
        for (auto r = sel.rbegin(); r != sel.rend(); ++r) {
            state << ((*r)[0] | ((*r)[1] << 8)) << ":d:";
            for (uint8_t b : *r) {
                state << '\\' << "0123456789abcdef"[b >> 4] << "0123456789abcdef"[b & 15];
            }
            state << '\n';
        }
        state.close();
        // Another process may take the port between our look and the
        // simulator's bind: a few tries with fresh ports.
        for (int attempt = 0; attempt < 3 && !start(); ++attempt) {
        }
        if (pid_ <= 0) {
            throw std::runtime_error("ipmi_sim did not start: " + readFile(dir_ + "/sim.log"));
        }
    }
    ~IpmiSim() {
        stop();
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
    IpmiSim(const IpmiSim&) = delete;
    IpmiSim& operator=(const IpmiSim&) = delete;

    uint16_t port() const { return port_; }
    std::string hostArg() const { return "127.0.0.1:" + std::to_string(port_); }
    // SIGTERM, and SIGKILL when it has not gone after two seconds; idempotent.
    void stop() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            reap(pid_, std::chrono::seconds(2));
        }
        pid_ = -1;
    }
    // ipmitool against this BMC, the password from IPMI_PASSWORD (-E), not
    // from the command line.
    RunResult ipmitool(std::vector<std::string> args) const {
        args.insert(args.begin(), {"ipmitool", "-I", "lanplus", "-C", "3", "-H", "127.0.0.1", "-p",
                                   std::to_string(port_), "-U", kUser, "-E"});
        return runProgram(args, {{"IPMI_PASSWORD", kPassword}});
    }

  private:
    bool start() {
        port_ = bindLoopback(0);
        std::string conf = readFile(test::sourceDir() + "/tests/e2e/bmc/lan.conf");
        for (size_t at; (at = conf.find("@PORT@")) != npos;) {
            conf.replace(at, 6, std::to_string(port_));
        }
        std::ofstream(dir_ + "/lan.conf") << conf;
        pid_ =
            spawn({"ipmi_sim", "-c", dir_ + "/lan.conf", "-f", emu_, "-s", dir_ + "/state", "-n"},
                  {}, dir_ + "/sim.log", dir_ + "/sim.log");
        // It binds its LAN port once it has read the command file: a bound
        // port means it is ready. At most five seconds.
        for (int i = 0; i < 250 && pid_ > 0; ++i) {
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1; // it gave up
            } else if (bindLoopback(port_) == 0) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        stop();
        return false;
    }

    std::string dir_, emu_;
    pid_t pid_ = -1;
    uint16_t port_ = 0;
};

inline const std::string kCollector = test::binDir() + "/ipmisel-collect";

// ipmisel-collect against the simulators, in order. No --workaround: the
// session falls back to opensesspriv by itself when the simulator refuses the
// privilege, as a user's first try needs. Without a password file the
// password comes from IPMISEL_PASSWORD.
inline RunResult collect(const std::vector<const IpmiSim*>& sims, std::vector<std::string> args,
                         const std::string& password = IpmiSim::kPassword, bool viaFile = true) {
    args.insert(args.begin(),
                {kCollector, "--user", IpmiSim::kUser, "--timeout", "2", "--retries", "1"});
    for (const IpmiSim* s : sims) {
        args.insert(args.end(), {"--host", s->hostArg()});
    }
    if (!viaFile) {
        return runProgram(args, {{"IPMISEL_PASSWORD", password}});
    }
    args.insert(args.end(), {"--password-file", test::writeTempFile("pw", password + "\n")});
    return runProgram(args);
}

} // namespace ipmisel::e2e
