// Fuzz target: texts that a program, its configuration or a daemon gives. Subjects and patterns against readers and matchers that are
// as simple as can be, subjects on the wire against themselves, settings from a call against the same ones from a file,
// addresses of daemons against what they are written as again.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "event/parameters.h"
#include "subject/subject.h"
#include "subject/trie.h"
#include "support.h"
#include "transport/circuit/parameters.h"
#include "transport/nats/address.h"
#include "transport/nats/parameters.h"
#include "transport/nats/wire_subject.h"
#include "transport/parameters.h"

namespace {

using namespace quorl;
using namespace quorl::fuzz;
using namespace quorl::transport;
using namespace quorl::transport::nats;

std::vector<std::string> split(std::string_view text, char at) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == at) {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    return pieces;
}

// ---- subjects

// Whether the text is UTF-8: by the code points that it would stand for.
bool simplyUtf8(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const auto first = static_cast<uint8_t>(text[i]);
        const size_t length = first < 0x80 ? 1 : first >> 5 == 6 ? 2 : first >> 4 == 14 ? 3 : first >> 3 == 30 ? 4 : 0;
        if (length == 0 || i + length > text.size()) return false;
        uint32_t point = length == 1 ? first : first & (0xffu >> (length + 1));
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<uint8_t>(text[i + k]);
            if (next >> 6 != 2) return false;
            point = point << 6 | (next & 0x3fu);
        }
        constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (point < smallest[length] || point > 0x10ffff || (point >= 0xd800 && point <= 0xdfff)) return false;
        i += length;
    }
    return true;
}

subject::Form simpleForm(std::string_view text) {
    if (text.empty() || text.size() > QUORL_SUBJECT_MAX || !simplyUtf8(text) ||
        text.find('\0') != std::string_view::npos)
        return subject::Form::malformed;
    subject::Form form = subject::Form::plain;
    const std::vector<std::string> elements = split(text, '.');
    for (size_t i = 0; i < elements.size(); ++i) {
        const std::string& element = elements[i];
        if (element.empty()) return subject::Form::malformed;
        if (element == "*" || (element == ">" && i + 1 == elements.size())) {
            form = subject::Form::pattern;
        } else if (element.find_first_of("*>") != std::string::npos) {
            return subject::Form::malformed;
        }
    }
    return form;
}

bool simplyMatches(const std::vector<std::string>& pattern, const std::vector<std::string>& subject) {
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (i == subject.size()) return false;
        if (pattern[i] == ">") return true;
        if (pattern[i] != "*" && pattern[i] != subject[i]) return false;
    }
    return pattern.size() == subject.size();
}

// Lines are subjects and patterns; each is held against each.
void subjects(std::string_view text) {
    std::vector<std::string> patterns;
    std::vector<std::string> plain;
    for (const std::string& line : split(text, '\n')) {
        const Block block(line);
        const std::string_view view(reinterpret_cast<const char*>(block.data()), block.size());
        const subject::Form form = subject::formOf(view);
        require(form == simpleForm(line), "two readers of a subject disagree");
        if (form == subject::Form::malformed || patterns.size() == 24) continue;
        patterns.push_back(line);
        if (form == subject::Form::plain) plain.push_back(line);
    }
    subject::Trie<std::string> trie;
    for (std::string& pattern : patterns) trie.insert(pattern, &pattern);
    for (size_t round = 0; round < 2; ++round) {
        for (const std::string& one : plain) {
            std::multiset<std::string*> found;
            trie.match(one, [&](std::string* pattern) { found.insert(pattern); });
            size_t expected = 0;
            for (std::string& pattern : patterns) {
                const bool there = round == 0 || (&pattern - patterns.data()) % 2 == 0;
                const bool matches = simplyMatches(split(pattern, '.'), split(one, '.'));
                require(subject::matches(pattern, one) == matches, "two matchers disagree");
                require(found.count(&pattern) == (there && matches), "the trie finds something else");
                expected += there && matches;
                // A daemon compares what stands on the wire.
                const auto onWire = [](std::string_view text) { return toWire("q.", text); };
                require(simplyMatches(split(onWire(pattern), '.'), split(onWire(one), '.')) == matches,
                        "a daemon would match something else");
            }
            require(found.size() == expected, "the trie finds too much");
        }
        // Half of them go.
        for (size_t i = 1; round == 0 && i < patterns.size(); i += 2)
            require(trie.remove(patterns[i], &patterns[i]), "a pattern cannot be taken away");
    }
    for (size_t i = 0; i < patterns.size(); i += 2)
        require(trie.remove(patterns[i], &patterns[i]), "a pattern is lost");
    require(trie.nodeCount() == 0, "an empty trie has nodes");
}

// ---- subjects on the wire

bool fitForTheWire(std::string_view text) {
    const std::vector<std::string> elements = split(text, '.');
    return std::none_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c <= 0x20) || c == 0x7f; }) &&
           std::none_of(elements.begin(), elements.end(), [](const std::string& element) { return element.empty(); });
}

void wireSubjects(std::string_view text) {
    const std::vector<std::string> lines = split(text, '\n');
    const std::string network = lines.size() > 1 && transport::parameters::validBusName(lines[1]) ? lines[1] : "";
    const std::string service = lines.size() > 2 && transport::parameters::validBusName(lines[2]) ? lines[2] : "";
    const std::string prefix = wirePrefix(network, service);
    require(fitForTheWire(prefix + "x") && split(prefix, '.').size() == 4, "a bus's prefix is no subject's beginning");
    require(prefix.find_first_of("*>") == std::string::npos, "a bus's prefix has a wildcard");
    require((prefix == wirePrefix(service, network)) == (network == service), "two buses have one prefix");
    require((prefix == wirePrefix("", "")) == (network.empty() && service.empty()), "a bus has the prefix of none");

    const std::string& given = lines[0];
    ReadSubject read;
    if (const subject::Form form = subject::formOf(given); form != subject::Form::malformed) {
        const std::string wire = toWire(prefix, given);
        require(fitForTheWire(wire), "a subject on the wire is none");
        require((subject::formOf(wire) == subject::Form::pattern) == (form == subject::Form::pattern) ||
                    wire.size() > QUORL_SUBJECT_MAX,
                "a subject gets wildcards on its way, or loses them");
        require(fromWire(prefix, wire, &read) && read.view() == given, "a subject is another one when it is read back");
    }
    const Block block(given);
    const std::string_view any(reinterpret_cast<const char*>(block.data()), block.size());
    if (fromWire(prefix, any, &read)) require(read.size <= QUORL_SUBJECT_MAX, "a subject is too long");
    if (fromWire("", any, &read)) {
        require(read.size <= any.size() && read.size <= QUORL_SUBJECT_MAX, "a subject grows when it is read");
        if (subject::wellFormed(read.view())) {
            ReadSubject again;
            const std::string kept(read.view());
            require(fromWire("", toWire("", kept), &again) && again.view() == kept, "a subject that was read is lost");
        }
    }
}

// ---- settings

// A file in memory.
class File {
  public:
    static const char* holding(std::string_view text) {
        static const int file = memfd_create("settings", MFD_CLOEXEC);
        static const std::string path = "/proc/self/fd/" + std::to_string(file);
        require(file >= 0 && ftruncate(file, 0) == 0 &&
                    pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
                "no file for the fuzz target");
        return path.c_str();
    }
};

// Those of all modules, as the library knows them.
const std::vector<const Parameter*>& known() {
    static const std::vector<const Parameter*> all = [] {
        std::vector<const Parameter*> found;
        const auto add = [&](const auto& some) { found.insert(found.end(), std::begin(some), std::end(some)); };
        add(event::parameters::all);
        add(transport::parameters::all);
        add(transport::nats::parameters::all);
        add(transport::circuit::parameters::all);
        return found;
    }();
    return all;
}

void requireSane(const Parameters& values) {
    const double connectTimeout = values.of(nats::parameters::connectTimeout);
    const double circuitTimeout = values.of(circuit::parameters::timeout);
    const std::string& daemon = values.of(transport::parameters::daemon);
    require(std::isfinite(connectTimeout) && connectTimeout >= 0, "connect.timeout is no time");
    require(std::isfinite(circuitTimeout) && circuitTimeout >= 0.1, "circuit.timeout is no time");
    require(values.of(event::parameters::dispatchSpin) <= 1000, "dispatch.spin is too long");
    require(daemon.size() <= longestAddress, "a daemon's address is too long");
    require(transport::parameters::validBusName(values.of(transport::parameters::service)) &&
                transport::parameters::validBusName(values.of(transport::parameters::network)),
            "a bus has a name that is none");
    for (const char c : daemon) require(c > ' ' && c < 0x7f, "a daemon's address is not printable");
}

void settings(std::string_view text) {
    const std::vector<std::string> lines = split(text, '\n');
    std::vector<std::string_view> views(lines.begin(), lines.end());
    ParameterSet called(known());
    const quorl_status byCall = called.set(views);
    require(byCall == QUORL_OK || byCall == QUORL_INVALID_ARG, "settings have a status that they cannot have");
    requireSane(called.values());
    if (byCall != QUORL_OK) require(called.values() == Parameters(known()), "refused settings hold");

    ParameterSet filed(known());
    const quorl_status byFile = filed.read(File::holding(text), false);
    require(byFile == QUORL_OK || byFile == QUORL_INVALID_FILE, "a file has a status that it cannot have");
    requireSane(filed.values());
    if (byFile != QUORL_OK) require(filed.values() == Parameters(known()), "a refused file's settings hold");
    // A file has comments, lines that are blank, and a bound for lines.
    const bool plain = text.find('#') == std::string_view::npos && text.size() < 4000 &&
                       std::all_of(lines.begin(), lines.end(), [](const std::string& line) {
                           return line.find_first_not_of(" \t\r") != std::string::npos;
                       });
    if (plain) {
        require((byCall == QUORL_OK) == (byFile == QUORL_OK), "a call and a file disagree about settings");
        require(called.values() == filed.values(), "settings have other values from a file");
    }
    if (byFile != QUORL_OK) return;
    // The same file changes nothing and contradicts nothing; without it all is as before.
    const Parameters before = filed.values();
    require(filed.read(File::holding(""), true) == QUORL_OK && filed.values() == before,
            "an empty file changes a value");
    filed.forgetFiles();
    require(filed.values() == Parameters(known()), "what a file set is kept without it");
    // What was set by a call does not give way to a file.
    if (byCall == QUORL_OK && plain) {
        const quorl_status again = called.read(File::holding(text), false);
        require(again == QUORL_OK || again == QUORL_ARG_CONFLICT, "settings are refused the second time");
        require(called.values() == before, "a file changes what a call has set");
    }
}

// ---- addresses of daemons

void addresses(std::string_view text) {
    const Block block(text);
    const std::string_view given(reinterpret_cast<const char*>(block.data()), block.size());
    std::vector<Server> servers;
    const quorl_status status = parseAddress(given, &servers);
    if (status != QUORL_OK) {
        require(status == QUORL_DAEMON_NOT_FOUND && servers.empty(), "an address is refused in another way");
        require(quorl_LastErrorText()[0] != '\0', "an address is refused without a reason");
        return;
    }
    require(!servers.empty() && servers.size() <= mostServers, "a daemon has no server, or too many");
    std::string written;
    for (const Server& server : servers) {
        require(!server.host.empty() && server.port != 0, "a server has no host or no port");
        for (const char c : server.host)
            require(c > ' ' && c < 0x7f && c != '@' && c != '/', "a host is no name of one");
        if (!written.empty()) written += ',';
        written += server.url();
    }
    std::vector<Server> again;
    if (written.size() <= longestAddress)
        require(parseAddress(written, &again) == QUORL_OK && again == servers,
                "an address is another one when written");
}

// ---- credentials

// Whatever stands around it, and wherever it is cut: what precedes an "@" is a credential, and is not repeated.
void credentialsInAddresses(std::string_view text) {
    constexpr std::string_view secret = "S3kr1tW0rd";
    const size_t middle = text.find('@');
    if (middle == std::string_view::npos || text.find(secret) != std::string_view::npos) return;
    std::string with(text.substr(0, middle));
    with += secret;
    with += text.substr(middle);
    std::vector<Server> servers;
    require(parseAddress(with, &servers) != QUORL_OK, "an address with credentials is one");
    require(std::string_view(quorl_LastErrorText()).find(secret) == std::string_view::npos,
            "the text of a failure repeats a credential");
    ParameterSet set(known());
    const std::string setting = "daemon=" + with;
    if (set.set({setting}) != QUORL_OK)
        require(std::string_view(quorl_LastErrorText()).find(secret) == std::string_view::npos,
                "the text of a refused setting repeats a credential");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 5) {
        case 0:
            subjects(text);
            break;
        case 1:
            wireSubjects(text);
            break;
        case 2:
            settings(text);
            break;
        default:
            addresses(text);
            credentialsInAddresses(text);
    }
    return 0;
}
