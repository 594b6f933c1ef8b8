#include "tests/e2e/Processes.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/support/HostFixture.h"

extern char** environ;

namespace ipmisel::e2e {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The environment for a child: ours with `extra` set over it. Built before
// fork so the child only calls exec.
std::vector<std::string> childEnvironment(const std::map<std::string, std::string>& extra) {
    std::vector<std::string> env;
    for (char** e = environ; e && *e; ++e) {
        std::string entry(*e);
        std::string name = entry.substr(0, entry.find('='));
        if (extra.find(name) == extra.end()) {
            env.push_back(entry);
        }
    }
    for (const auto& [name, value] : extra) {
        env.push_back(name + "=" + value);
    }
    return env;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> p;
    for (auto& t : texts) {
        p.push_back(t.data());
    }
    p.push_back(nullptr);
    return p;
}

// Starts argv with stdin from /dev/null and stdout and stderr into the given
// files. The child is killed when this process dies, so no simulator
// outlives a crashed test.
pid_t spawn(std::vector<std::string> argv, std::vector<std::string> env, const std::string& out,
            const std::string& err) {
    std::string program = argv.at(0);
    if (program.find('/') == std::string::npos) {
        program = findProgram(program);
        if (program.empty()) {
            return -1;
        }
    }
    auto args = pointers(argv);
    auto envp = pointers(env);
    const pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid != 0) {
        return pid;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(127);
    }
    int in = ::open("/dev/null", O_RDONLY);
    int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int e = err == out ? o : ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in < 0 || o < 0 || e < 0) {
        ::_exit(127);
    }
    ::dup2(in, 0);
    ::dup2(o, 1);
    ::dup2(e, 2);
    ::execve(program.c_str(), args.data(), envp.data());
    ::_exit(127);
}

// Waits for the child at most `limit`; kills it by its PID after that.
// Returns its exit code, or -1 when it had to be killed or died of a signal.
int reap(pid_t pid, std::chrono::milliseconds limit, bool* timedOut) {
    const auto deadline = Clock::now() + limit;
    int status = 0;
    for (;;) {
        pid_t r = ::waitpid(pid, &status, WNOHANG);
        if (r == pid) {
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        if (r < 0 && errno != EINTR) {
            return -1;
        }
        if (Clock::now() >= deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            if (timedOut) {
                *timedOut = true;
            }
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool portInUse(uint16_t port) {
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        return false;
    }
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    bool used = ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 && errno == EADDRINUSE;
    ::close(fd);
    return used;
}

} // namespace

std::string findProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::stringstream dirs(path ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

RunResult runProgram(const std::vector<std::string>& argv,
                     const std::map<std::string, std::string>& env,
                     std::chrono::milliseconds limit) {
    RunResult result;
    std::string dir = test::makeTempDir("ipmisel-run");
    std::string out = dir + "/out", err = dir + "/err";
    pid_t pid = spawn(argv, childEnvironment(env), out, err);
    if (pid > 0) {
        result.code = reap(pid, limit, &result.timedOut);
        result.out = readFile(out);
        result.err = readFile(err);
    } else {
        result.err = "cannot start " + argv.at(0);
    }
    std::error_code ec;
    fs::remove_all(dir, ec);
    return result;
}

uint16_t freeUdpPort() {
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        throw std::runtime_error(std::string("socket: ") + std::strerror(errno));
    }
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof a;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &size) != 0) {
        ::close(fd);
        throw std::runtime_error(std::string("no free UDP port: ") + std::strerror(errno));
    }
    ::close(fd);
    return ntohs(a.sin_port);
}

std::string selStateFile(const std::vector<SelBytes>& sel) {
    std::string text;
    for (auto it = sel.rbegin(); it != sel.rend(); ++it) {
        const SelBytes& r = *it;
        text += std::to_string(r[0] | (r[1] << 8)) + ":d:";
        char hex[4];
        for (uint8_t b : r) {
            std::snprintf(hex, sizeof hex, "\\%02x", b);
            text += hex;
        }
        text += '\n';
    }
    return text;
}

IpmiSim::IpmiSim(const std::vector<SelBytes>& sel) {
    dir_ = test::makeTempDir("ipmisel-sim");
    fs::create_directories(dir_ + "/state/ipmi_sim/ipmisel");
    std::ofstream(dir_ + "/state/ipmi_sim/ipmisel/sel.20", std::ios::binary) << selStateFile(sel);
    // Another process may take the port between our look and the simulator's
    // bind: a few tries with fresh ports.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (start(dir_)) {
            return;
        }
    }
    std::string log = readFile(dir_ + "/sim.log");
    std::error_code ec;
    fs::remove_all(dir_, ec);
    throw std::runtime_error("ipmi_sim did not start: " + log);
}

bool IpmiSim::start(const std::string& folder) {
    port_ = freeUdpPort();
    std::string conf = readFile(test::sourceDir() + "/tests/e2e/bmc/lan.conf");
    const std::string mark = "@PORT@";
    for (size_t at = conf.find(mark); at != std::string::npos; at = conf.find(mark, at)) {
        conf.replace(at, mark.size(), std::to_string(port_));
    }
    std::ofstream(folder + "/lan.conf") << conf;
    pid_ = spawn({"ipmi_sim", "-c", folder + "/lan.conf", "-f",
                  test::sourceDir() + "/tests/e2e/bmc/bmc.emu", "-s", folder + "/state", "-n"},
                 childEnvironment({}), folder + "/sim.log", folder + "/sim.log");
    if (pid_ <= 0) {
        return false;
    }
    // It binds its LAN port after it has read the command file: a bound port
    // means it is ready. At most five seconds.
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (Clock::now() < deadline) {
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return false;
        }
        if (portInUse(port_)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    stop();
    return false;
}

void IpmiSim::stop() {
    if (pid_ <= 0) {
        return;
    }
    ::kill(pid_, SIGTERM);
    bool timedOut = false;
    reap(pid_, std::chrono::seconds(2), &timedOut); // kills it outright after that
    pid_ = -1;
}

IpmiSim::~IpmiSim() {
    stop();
    std::error_code ec;
    fs::remove_all(dir_, ec);
}

} // namespace ipmisel::e2e
