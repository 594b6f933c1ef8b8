#include "collector/Fleet.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "collector/HostsFile.h"
#include "collector/Writers.h"

extern char** environ;

namespace ipmisel::collector {

namespace {

// Redrawing more often would cost more terminal time than it tells.
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);

std::string jsonString(std::string_view text) {
    std::string s = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            s += '\\';
            s += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned>(c));
            s += buf;
        } else {
            s += c;
        }
    }
    return s + "\"";
}

// A node as --host takes it, port included.
std::string addressText(const BmcHost& node) {
    bool v6 = node.host.find(':') != std::string::npos;
    return (v6 ? "[" + node.host + "]" : node.host) + ":" + std::to_string(node.port);
}

// A server's name as part of a file name: "sim:a/b.json" -> "sim_a_b.json".
std::string fileSafe(const std::string& name) {
    std::string s = name;
    for (char& c : s) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_') {
            c = '_';
        }
    }
    return s;
}

const char* formatName(Format f) {
    switch (f) {
    case Format::Jsonl:
        return "jsonl";
    case Format::Table:
        return "table";
    case Format::Csv:
        return "csv";
    }
    return "jsonl";
}

// "servers: D done, F failed, L left" on one terminal line, redrawn in place.
class FleetProgress {
  public:
    FleetProgress(std::ostream& err, bool enabled) : err_(err), enabled_(enabled) {}
    ~FleetProgress() { clear(); }

    void update(size_t done, size_t failed, size_t left, bool force) {
        auto now = std::chrono::steady_clock::now();
        if (!enabled_ || (!force && shown_ != 0 && now - lastDraw_ < kRedrawInterval)) {
            return;
        }
        lastDraw_ = now;
        std::string line = fleetProgressText(done, failed, left);
        size_t width = line.size();
        if (width < shown_) {
            line.append(shown_ - width, ' ');
        }
        err_ << '\r' << line << std::flush;
        shown_ = std::max(shown_, width);
    }

    void clear() {
        if (shown_ != 0) {
            err_ << '\r' << std::string(shown_, ' ') << '\r' << std::flush;
            shown_ = 0;
        }
    }

  private:
    std::ostream& err_;
    bool enabled_;
    size_t shown_ = 0;
    std::chrono::steady_clock::time_point lastDraw_{};
};

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) {
            std::fclose(f);
        }
    }
};

// One server being collected.
struct Child {
    size_t index = 0;
    pid_t pid = -1;
    int out = -1;
    int err = -1;
    std::string outPart, errPart; // a line not yet complete
    std::unique_ptr<ServerTagger> tagger;
    // csv and table: the server's output until it ends, so that one server's
    // sections or table stay together.
    std::unique_ptr<std::FILE, FileCloser> spool;
    bool reported = false; // one of its error lines was passed on
};

// Runs `program` with `args`, its standard output and error on the given
// pipes' write ends and its standard input empty. -1 and `error` set when it
// cannot be started.
pid_t spawn(const std::string& program, const std::vector<std::string>& args, int outFd, int errFd,
            std::string* error) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outFd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errFd, STDERR_FILENO);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const auto& a : args) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) {
        *error = "cannot run " + program + ": " + std::strerror(rc);
        return -1;
    }
    return pid;
}

class Fleet {
  public:
    Fleet(const Options& options, const Environment& env, std::vector<Server> servers,
          Format format, std::ostream& out, std::ostream& err, bool outIsTerminal)
        : options_(options), env_(env), servers_(std::move(servers)), format_(format), out_(out),
          err_(err), outIsTerminal_(outIsTerminal), codes_(servers_.size(), kExitOk),
          progress_(err, env.stderrIsTerminal) {}

    int run() {
        const size_t fanout = static_cast<size_t>(options_.fanout.value_or(1));
        size_t next = 0;
        progress_.update(0, 0, servers_.size(), true);
        while (next < servers_.size() || !running_.empty()) {
            while (running_.size() < fanout && next < servers_.size()) {
                start(next++);
            }
            if (!running_.empty()) {
                pump();
            }
        }
        progress_.clear();
        out_.flush();
        return fleetExitCode(codes_);
    }

  private:
    void start(size_t index) {
        const Server& server = servers_[index];
        int outPipe[2], errPipe[2];
        if (::pipe2(outPipe, O_CLOEXEC) != 0) {
            return failToStart(index, std::string("no pipe: ") + std::strerror(errno));
        }
        if (::pipe2(errPipe, O_CLOEXEC) != 0) {
            ::close(outPipe[0]);
            ::close(outPipe[1]);
            return failToStart(index, std::string("no pipe: ") + std::strerror(errno));
        }
        std::string error;
        pid_t pid = spawn(env_.exePath, childArguments(options_, server, format_), outPipe[1],
                          errPipe[1], &error);
        ::close(outPipe[1]);
        ::close(errPipe[1]);
        if (pid < 0) {
            ::close(outPipe[0]);
            ::close(errPipe[0]);
            return failToStart(index, error);
        }
        auto child = std::make_unique<Child>();
        child->index = index;
        child->pid = pid;
        child->out = outPipe[0];
        child->err = errPipe[0];
        child->tagger = std::make_unique<ServerTagger>(format_, server.name);
        if (format_ != Format::Jsonl) {
            child->spool.reset(std::tmpfile());
        }
        running_.push_back(std::move(child));
    }

    void failToStart(size_t index, const std::string& why) {
        errorLine(servers_[index].name, why);
        finished(index, kExitFailure);
    }

    // Waits for output from any child and passes on what is complete.
    void pump() {
        std::vector<pollfd> fds;
        std::vector<std::pair<Child*, bool>> owners; // child, is its stdout
        for (auto& c : running_) {
            if (c->out >= 0) {
                fds.push_back({c->out, POLLIN, 0});
                owners.emplace_back(c.get(), true);
            }
            if (c->err >= 0) {
                fds.push_back({c->err, POLLIN, 0});
                owners.emplace_back(c.get(), false);
            }
        }
        if (::poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) {
                return;
            }
            throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
        }
        char buffer[65536];
        for (size_t i = 0; i < fds.size(); ++i) {
            if (fds[i].revents == 0) {
                continue;
            }
            auto [child, isOut] = owners[i];
            int& fd = isOut ? child->out : child->err;
            ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
                continue;
            }
            if (n <= 0) {
                ::close(fd);
                fd = -1;
                continue;
            }
            std::string& part = isOut ? child->outPart : child->errPart;
            part.append(buffer, static_cast<size_t>(n));
            size_t end = part.rfind('\n');
            if (end == std::string::npos) {
                continue;
            }
            std::string_view whole(part.data(), end + 1);
            isOut ? passOutput(*child, whole) : passErrors(*child, whole);
            part.erase(0, end + 1);
        }
        out_.flush();
        for (auto it = running_.begin(); it != running_.end();) {
            if ((*it)->out < 0 && (*it)->err < 0) {
                end(**it);
                it = running_.erase(it);
            } else {
                ++it;
            }
        }
    }

    void passOutput(Child& child, std::string_view lines) {
        std::string tagged;
        size_t start = 0;
        while (start < lines.size()) {
            size_t nl = lines.find('\n', start);
            tagged += child.tagger->tag(lines.substr(start, nl + 1 - start));
            start = nl + 1;
        }
        if (child.spool) {
            std::fwrite(tagged.data(), 1, tagged.size(), child.spool.get());
        } else {
            if (outIsTerminal_) {
                progress_.clear();
            }
            out_ << tagged;
        }
    }

    void passErrors(Child& child, std::string_view lines) {
        const std::string prefix = env_.program + ": ";
        size_t start = 0;
        while (start < lines.size()) {
            size_t nl = lines.find('\n', start);
            std::string_view line = lines.substr(start, nl - start);
            if (line.starts_with(prefix)) {
                line.remove_prefix(prefix.size());
            }
            errorLine(servers_[child.index].name, line);
            child.reported = true;
            start = nl + 1;
        }
    }

    void errorLine(const std::string& server, std::string_view text) {
        progress_.clear();
        err_ << env_.program << ": " << server << ": " << text << '\n';
        err_.flush();
    }

    // Both pipes are closed: the child has ended or is ending.
    void end(Child& child) {
        const std::string& name = servers_[child.index].name;
        if (!child.errPart.empty()) {
            child.errPart += '\n';
            passErrors(child, child.errPart);
        }
        int status = 0;
        while (::waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
        }
        int code = kExitFailure;
        if (WIFEXITED(status)) {
            code = WEXITSTATUS(status);
        } else if (WIFSIGNALED(status)) {
            errorLine(name, "stopped by signal " + std::to_string(WTERMSIG(status)));
            child.reported = true;
        }
        if (!child.outPart.empty()) {
            // Half a line would spoil the merged output for every server.
            errorLine(name, "its output ended in the middle of a line; that line is left out");
            child.reported = true;
            code = code == kExitOk ? kExitFailure : code;
        }
        if (code != kExitOk && !child.reported) {
            errorLine(name, "failed with exit code " + std::to_string(code));
        }
        if (child.spool) {
            writeSpool(child);
        }
        finished(child.index, code);
    }

    void writeSpool(Child& child) {
        std::FILE* f = child.spool.get();
        long size = std::ftell(f);
        if (size <= 0) {
            return;
        }
        if (outIsTerminal_) {
            progress_.clear();
        }
        if (format_ == Format::Table) {
            out_ << (wroteBlock_ ? "\n" : "") << "Server " << servers_[child.index].name << '\n';
        } else if (wroteBlock_) {
            out_ << "\r\n"; // csv sections are separated by an empty line
        }
        wroteBlock_ = true;
        std::rewind(f);
        char buffer[65536];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) {
            out_.write(buffer, static_cast<std::streamsize>(n));
        }
    }

    void finished(size_t index, int code) {
        codes_[index] = code;
        ++done_;
        failed_ += code != kExitOk;
        progress_.update(done_ - failed_, failed_, servers_.size() - done_,
                         done_ == servers_.size());
    }

    const Options& options_;
    const Environment& env_;
    std::vector<Server> servers_;
    Format format_;
    std::ostream& out_;
    std::ostream& err_;
    bool outIsTerminal_;
    std::vector<int> codes_;
    FleetProgress progress_;
    std::vector<std::unique_ptr<Child>> running_;
    size_t done_ = 0;   // ended, successfully or not
    size_t failed_ = 0; // of those, failed
    bool wroteBlock_ = false;
};

} // namespace

std::vector<Server> fleetServers(const Options& options, std::string* error) {
    if (options.hostsFile) {
        HostsFile file = readHostsFile(*options.hostsFile);
        if (!file.error.empty()) {
            *error = file.error;
        }
        return file.servers;
    }
    if (!options.hostServers.empty()) {
        return options.hostServers;
    }
    Server one; // --sim with --fanout
    one.name = "sim:" + options.simFile.value_or("");
    one.simFile = options.simFile.value_or("");
    return {one};
}

std::vector<std::string> childArguments(const Options& options, const Server& server,
                                        Format format) {
    // Joined forms throughout: a value starting with "--" stays a value.
    std::vector<std::string> args;
    auto add = [&](const char* name, const std::string& value) {
        args.push_back(std::string(name) + "=" + value);
    };
    if (server.nodes.empty()) {
        add("--sim", server.simFile);
    } else {
        for (const BmcHost& node : server.nodes) {
            add("--host", addressText(node));
        }
        if (options.user) {
            add("--user", *options.user);
        }
        if (options.passwordFile) {
            add("--password-file", *options.passwordFile);
        }
        if (options.cipherSuite) {
            add("--cipher-suite", std::to_string(*options.cipherSuite));
        }
        if (options.privilege) {
            add("--privilege", *options.privilege);
        }
        if (options.timeoutSeconds) {
            add("--timeout", std::to_string(*options.timeoutSeconds));
        }
        if (options.retries) {
            add("--retries", std::to_string(*options.retries));
        }
    }
    for (const auto& w : options.workarounds) {
        add("--workaround", w);
    }
    for (const auto& c : options.classes) {
        add("--class", c);
    }
    add("--format", formatName(format));
    if (options.logFile) {
        add("--log", *options.logFile + "." + fileSafe(server.name));
    }
    if (options.logLevel) {
        add("--log-level", std::to_string(*options.logLevel));
    }
    if (options.recordFile) {
        add("--record", *options.recordFile + "." + fileSafe(server.name));
    }
    if (options.pluginPath) {
        add("--plugin", *options.pluginPath);
    }
    return args;
}

ServerTagger::ServerTagger(Format format, std::string server)
    : format_(format), jsonPrefix_("{\"server\":" + jsonString(server) + ","),
      csvCell_(csvField(server) + ",") {}

std::string ServerTagger::tag(std::string_view line) {
    switch (format_) {
    case Format::Jsonl:
        // Every object the writer makes has members: the class comes first.
        return line.starts_with("{") ? jsonPrefix_ + std::string(line.substr(1))
                                     : std::string(line);
    case Format::Csv: {
        std::string tagged;
        if (!inQuotes_) {
            if (line.find_first_not_of("\r\n") == std::string_view::npos) {
                atHeader_ = true; // an empty line ends a section
                return std::string(line);
            }
            tagged = atHeader_ ? "server," : csvCell_;
            atHeader_ = false;
        }
        // A doubled quote inside a field counts twice and changes nothing.
        if (std::count(line.begin(), line.end(), '"') % 2 != 0) {
            inQuotes_ = !inQuotes_;
        }
        return tagged + std::string(line);
    }
    case Format::Table:
        break;
    }
    return std::string(line);
}

std::string fleetProgressText(size_t done, size_t failed, size_t left) {
    return "servers: " + std::to_string(done) + " done, " + std::to_string(failed) + " failed, " +
           std::to_string(left) + " left";
}

int fleetExitCode(const std::vector<int>& codes) {
    size_t failed = static_cast<size_t>(
        std::count_if(codes.begin(), codes.end(), [](int c) { return c != kExitOk; }));
    if (failed == 0) {
        return kExitOk;
    }
    if (failed < codes.size()) {
        return kExitSomeServers;
    }
    return codes.front();
}

int runFleet(const Options& options, const Environment& env, std::ostream& out, std::ostream& err) {
    auto fail = [&](int code, const std::string& text) {
        err << env.program << ": " << text << '\n';
        return code;
    };
    std::string error;
    std::vector<Server> servers = fleetServers(options, &error);
    if (!error.empty()) {
        return fail(kExitUsage, error);
    }
    if (env.exePath.empty()) {
        return fail(kExitFailure, "cannot find this program's own file to run each server with");
    }
    // What every child would refuse alike is said once, not once per server.
    std::vector<std::string> looked;
    std::string plugin = pluginPathFor(options, env, &looked);
    std::error_code ec;
    if (plugin.empty() || !std::filesystem::is_regular_file(plugin, ec)) {
        std::string places;
        for (const auto& p : looked) {
            places += (places.empty() ? "" : ", ") + p;
        }
        return fail(kExitPlugin, "plug-in not found: " + places);
    }
    if (!std::filesystem::is_regular_file(messageFileFor(plugin), ec)) {
        return fail(kExitPlugin,
                    "the plug-in's message file is missing: looked for " + messageFileFor(plugin));
    }
    const bool lan = std::any_of(servers.begin(), servers.end(),
                                 [](const Server& s) { return !s.nodes.empty(); });
    if (lan && !options.passwordFile && !std::getenv("IPMISEL_PASSWORD")) {
        return fail(kExitUsage, "no password given: the servers' BMCs need --password-file FILE "
                                "or the IPMISEL_PASSWORD environment variable (an empty one for a "
                                "user without a password)");
    }
    std::ofstream outFile;
    std::ostream* sink = &out;
    bool toTerminal = env.stdoutIsTerminal;
    if (options.outFile) {
        outFile.open(*options.outFile, std::ios::out | std::ios::trunc | std::ios::binary);
        if (!outFile) {
            return fail(kExitOutput,
                        "cannot write " + *options.outFile + ": " + std::strerror(errno));
        }
        sink = &outFile;
        toTerminal = false;
    }
    // Chosen here: each child writes to a pipe and would pick jsonl.
    Format format = options.format.value_or(toTerminal ? Format::Table : Format::Jsonl);
    int code = Fleet(options, env, std::move(servers), format, *sink, err, toTerminal).run();
    sink->flush();
    if (!*sink) {
        return fail(kExitOutput,
                    "writing " + options.outFile.value_or("standard output") + " failed");
    }
    return code;
}

} // namespace ipmisel::collector
