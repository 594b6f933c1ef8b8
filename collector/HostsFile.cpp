#include "collector/HostsFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

namespace ipmisel::collector {

namespace {

// More would be a typing slip ("bmc[1-100000]"), not a fleet anyone runs
// from one command.
constexpr size_t kMaxHosts = 65536;

bool allDigits(std::string_view s) {
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string_view trim(std::string_view s) {
    const char* blanks = " \t\r";
    size_t first = s.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

// The numbers of one bracket group, "1,3,5-7" or "001-120", as texts. A
// bound written with a leading zero gives its width to every number of its
// term, as people number racks: bmc[08-10] is bmc08, bmc09, bmc10.
bool expandGroup(std::string_view body, std::vector<std::string>& out, std::string& why) {
    std::string_view rest = body;
    while (true) {
        size_t comma = rest.find(',');
        std::string_view term = rest.substr(0, comma);
        size_t dash = term.find('-');
        std::string_view lo = term.substr(0, dash);
        std::string_view hi = dash == std::string_view::npos ? lo : term.substr(dash + 1);
        if (!allDigits(lo) || !allDigits(hi) || lo.size() > 9 || hi.size() > 9) {
            why = "[" + std::string(body) + "] is not a range: numbers as in [1-64] or [1,3,5-7]";
            return false;
        }
        unsigned from = 0, to = 0;
        std::from_chars(lo.data(), lo.data() + lo.size(), from);
        std::from_chars(hi.data(), hi.data() + hi.size(), to);
        if (from > to) {
            why = "[" + std::string(body) + "] counts down from " + std::string(lo) + " to " +
                  std::string(hi);
            return false;
        }
        if (to - from >= kMaxHosts || out.size() + (to - from) >= kMaxHosts) {
            why = "expands to more than " + std::to_string(kMaxHosts) + " hosts";
            return false;
        }
        const size_t width = lo.size() > 1 && lo[0] == '0' ? lo.size() : 0;
        for (unsigned n = from; n <= to; ++n) {
            std::string digits = std::to_string(n);
            if (digits.size() < width) {
                digits.insert(0, width - digits.size(), '0');
            }
            out.push_back(std::move(digits));
        }
        if (comma == std::string_view::npos) {
            return true;
        }
        rest = rest.substr(comma + 1);
    }
}

// The text's commas outside brackets: "a[1,2],b" is two nodes.
std::vector<std::string> splitNodes(std::string_view line) {
    std::vector<std::string> items;
    int depth = 0;
    size_t start = 0;
    for (size_t i = 0; i <= line.size(); ++i) {
        if (i == line.size() || (line[i] == ',' && depth == 0)) {
            items.emplace_back(trim(line.substr(start, i - start)));
            start = i + 1;
        } else if (line[i] == '[') {
            ++depth;
        } else if (line[i] == ']' && depth > 0) {
            --depth;
        }
    }
    return items;
}

} // namespace

std::vector<std::string> expandHostRange(const std::string& text, std::string* error) {
    auto fail = [&](const std::string& why) {
        if (error) {
            *error = "\"" + text + "\": " + why;
        }
        return std::vector<std::string>{};
    };
    std::vector<std::string> hosts = {""};
    size_t at = 0;
    while (at < text.size()) {
        size_t open = text.find('[', at);
        std::string literal = text.substr(at, open == std::string::npos ? open : open - at);
        if (open == std::string::npos) {
            for (auto& h : hosts) {
                h += literal;
            }
            break;
        }
        size_t close = text.find(']', open);
        if (close == std::string::npos) {
            return fail("'[' without ']'");
        }
        std::string_view body(text.data() + open + 1, close - open - 1);
        std::vector<std::string> numbers;
        std::string why;
        if (body.find(':') != std::string_view::npos) {
            numbers.emplace_back("[" + std::string(body) + "]"); // an IPv6 address
        } else if (!expandGroup(body, numbers, why)) {
            return fail(why);
        }
        if (hosts.size() * numbers.size() > kMaxHosts) {
            return fail("expands to more than " + std::to_string(kMaxHosts) + " hosts");
        }
        std::vector<std::string> next;
        next.reserve(hosts.size() * numbers.size());
        for (const auto& h : hosts) {
            for (const auto& n : numbers) {
                next.push_back(h + literal + n);
            }
        }
        hosts = std::move(next);
        at = close + 1;
    }
    return hosts;
}

std::optional<BmcHost> parseNodeAddress(const std::string& text, std::string* why) {
    auto fail = [&](const char* problem) -> std::optional<BmcHost> {
        if (why) {
            *why = problem;
        }
        return std::nullopt;
    };
    BmcHost result;
    std::string portText;
    bool hasPort = false;
    if (!text.empty() && text.front() == '[') {
        size_t close = text.find(']');
        if (close == std::string::npos) {
            return fail("missing ']'");
        }
        result.host = text.substr(1, close - 1);
        std::string rest = text.substr(close + 1);
        if (!rest.empty()) {
            if (rest.front() != ':') {
                return fail("unexpected text after ']'");
            }
            hasPort = true;
            portText = rest.substr(1);
        }
    } else {
        size_t first = text.find(':');
        if (first != std::string::npos && text.find(':', first + 1) == std::string::npos) {
            result.host = text.substr(0, first);
            hasPort = true;
            portText = text.substr(first + 1);
        } else {
            result.host = text; // a name, or an IPv6 address without a port
        }
    }
    if (result.host.empty()) {
        return fail("no host name");
    }
    if (hasPort) {
        unsigned port = 0;
        if (allDigits(portText) && portText.size() <= 5) {
            std::from_chars(portText.data(), portText.data() + portText.size(), port);
        }
        if (port < 1 || port > 65535) {
            return fail("the port must be a number from 1 to 65535");
        }
        result.port = static_cast<uint16_t>(port);
    }
    return result;
}

std::vector<Server> serversFromNodes(const std::vector<std::string>& nodes, std::string* error) {
    auto fail = [&](const std::string& why) {
        if (error) {
            *error = why;
        }
        return std::vector<Server>{};
    };
    std::vector<std::vector<std::string>> expanded;
    for (const std::string& node : nodes) {
        std::string why;
        expanded.push_back(expandHostRange(node, &why));
        if (expanded.back().empty()) {
            return fail(why);
        }
        // A host that stood for every server of a range would be one BMC
        // collected as a node of each of them: surely a slip.
        if (expanded.back().size() != expanded.front().size()) {
            return fail("\"" + nodes.front() + "\" gives " +
                        std::to_string(expanded.front().size()) + " hosts but \"" + node + "\" " +
                        std::to_string(expanded.back().size()) +
                        "; the nodes of one server must give as many each");
        }
    }
    std::vector<Server> servers(expanded.empty() ? 0 : expanded.front().size());
    for (size_t s = 0; s < servers.size(); ++s) {
        for (const auto& hosts : expanded) {
            std::string why;
            auto node = parseNodeAddress(hosts[s], &why);
            if (!node) {
                return fail("\"" + hosts[s] + "\": " + why);
            }
            servers[s].nodes.push_back(*node);
        }
        servers[s].name = expanded.front()[s];
    }
    return servers;
}

HostsFile parseHostsFile(std::string_view text, const std::string& name,
                         const std::string& baseDir) {
    HostsFile file;
    std::map<std::string, size_t> lineOf; // server name -> its line, for duplicates
    size_t number = 0;
    auto fail = [&](const std::string& why) {
        file.servers.clear();
        file.error = name + ":" + std::to_string(number) + ": " + why;
        return file;
    };
    std::istringstream in{std::string(text)};
    for (std::string raw; std::getline(in, raw);) {
        ++number;
        std::string_view line(raw);
        line = trim(line.substr(0, line.find('#')));
        if (line.empty()) {
            continue;
        }
        std::vector<Server> servers;
        if (line.starts_with("sim:")) {
            std::string path(trim(line.substr(4)));
            if (path.empty()) {
                return fail("sim: needs a scenario file");
            }
            Server s;
            s.name = std::string(line);
            std::filesystem::path p(path);
            s.simFile = p.is_absolute() || baseDir.empty()
                            ? path
                            : (std::filesystem::path(baseDir) / p).lexically_normal().string();
            servers.push_back(std::move(s));
        } else {
            std::vector<std::string> nodes = splitNodes(line);
            for (const std::string& node : nodes) {
                if (node.empty()) {
                    return fail("an empty node: the nodes of a server are separated by one comma");
                }
                if (node.find_first_of(" \t") != std::string::npos) {
                    return fail("\"" + node +
                                "\": a node holds no blank; the nodes of a server are separated "
                                "by commas, servers by lines");
                }
            }
            std::string why;
            servers = serversFromNodes(nodes, &why);
            if (servers.empty()) {
                return fail(why);
            }
        }
        for (Server& s : servers) {
            auto [it, fresh] = lineOf.emplace(s.name, number);
            if (!fresh) {
                // Output is told apart by server name; two of one name would mix.
                return fail("server \"" + s.name + "\" is already named on line " +
                            std::to_string(it->second));
            }
            file.servers.push_back(std::move(s));
        }
    }
    if (file.servers.empty()) {
        file.error = name + ": names no server";
    }
    return file;
}

HostsFile readHostsFile(const std::string& path) {
    if (path == "-") {
        std::ostringstream text;
        text << std::cin.rdbuf();
        return parseHostsFile(text.str(), "standard input", "");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return {{}, path + ": cannot open: " + std::strerror(errno)};
    }
    std::ostringstream text;
    text << in.rdbuf();
    std::string dir = std::filesystem::path(path).parent_path().string();
    return parseHostsFile(text.str(), path, dir.empty() ? "." : dir);
}

} // namespace ipmisel::collector
