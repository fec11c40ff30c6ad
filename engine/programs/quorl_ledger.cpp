// quorl-ledger: looks into the ledger of a certified name that no program has open, and changes nothing.
//
//     quorl-ledger verify FILE             says what is kept, and each damage
//     quorl-ledger export FILE [SUBJECT]   a line for each message: number, time of expiry in nanoseconds since 1970 or 0,
//                                          subject, reply subject or nothing, image in base64; between them a tab
//
// --json: verify prints JSON objects, one a line. Exit codes: 0 all is well, 1 damaged or failed, 2 called wrongly.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "certified/ledger/inspection.h"
#include "certified/protocol/subject.h"

namespace {

using quorl::certified::Inspection;
using quorl::certified::Outcome;

constexpr int failed = 1;
constexpr int calledWrongly = 2;
constexpr const char* usage =
    "usage: quorl-ledger verify [--json] FILE\n"
    "       quorl-ledger export FILE [SUBJECT]\n"
    "Looks into the ledger of a program that does not run, and changes nothing.\n";

// A line on the terminal that is written over.
class Bar {
  public:
    void show(uint64_t done, uint64_t all) {
        if (!shown_ || (done & 0xff) != 0) return;
        const auto now = std::chrono::steady_clock::now();
        if (now - last_ < std::chrono::milliseconds(100)) return;
        last_ = now;
        drawn_ = true;
        const auto part = all == 0 ? width : static_cast<size_t>(double(width) * double(done) / double(all));
        std::fprintf(stderr, "\r[%s%s] %3u %%\033[K", std::string(part, '#').c_str(),
                     std::string(width - part, '.').c_str(), static_cast<unsigned>(100 * part / width));
    }
    void end() {
        if (drawn_) std::fprintf(stderr, "\r\033[K");
        drawn_ = false;
    }

  private:
    static constexpr size_t width = 40;
    const bool shown_ = isatty(2) != 0;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point last_{};
};

// A text as a JSON string.
std::string quoted(std::string_view text) {
    std::string json = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            json += {'\\', c};
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", c);
            json += escape;
        } else {
            json += c;
        }
    }
    return json += '"';
}

std::string base64(std::string_view bytes) {
    static constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t at = 0; at < bytes.size(); at += 3) {
        uint32_t three = 0;
        for (size_t i = 0; i < 3; ++i) {
            three = three << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        }
        for (size_t i = 0; i < 4; ++i) text += at + i > bytes.size() ? '=' : digits[three >> (18 - 6 * i) & 63];
    }
    return text;
}

// "1 message", "2 messages".
std::string counted(uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

int complain(const Outcome& outcome) {
    std::fprintf(stderr, "quorl-ledger: %s\n", outcome.text.empty() ? "no memory" : outcome.text.c_str());
    return failed;
}

int verify(const std::string& path, bool json) {
    std::unique_ptr<Inspection> ledger;
    Outcome outcome = Inspection::open(path, &ledger);
    if (!outcome.ok()) return complain(outcome);
    Bar bar;
    std::vector<Inspection::Damage> found;
    Inspection::Totals totals;
    outcome = ledger->verify([&](uint64_t done, uint64_t all) { bar.show(done, all); },
                             [&](const Inspection::Damage& damage) { found.push_back(damage); }, &totals);
    bar.end();
    if (!outcome.ok()) return complain(outcome);
    for (const auto& damage : found) {
        if (!json) {
            std::printf("%s: %s\n", path.c_str(), damage.text.c_str());
            continue;
        }
        std::printf("{\"damage\":%s", quoted(damage.text).c_str());
        if (damage.offset >= 0) std::printf(",\"offset\":%lld", static_cast<long long>(damage.offset));
        if (damage.first != 0) {
            std::printf(",\"subject\":%s,\"first\":%llu,\"last\":%llu", quoted(damage.subject).c_str(),
                        static_cast<unsigned long long>(damage.first), static_cast<unsigned long long>(damage.last));
        }
        std::printf("}\n");
    }
    const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    if (json) {
        std::printf(
            "{\"ledger\":%s,\"name\":%s,\"subjects\":%llu,\"messages\":%llu,\"bytes\":%llu,\"closed\":%s,\"damages\":%"
            "zu}\n",
            quoted(path).c_str(), quoted(ledger->name()).c_str(), number(totals.subjects), number(totals.messages),
            number(totals.bytes), ledger->wasClosed() ? "true" : "false", found.size());
    } else {
        std::printf("%s: the ledger of %s keeps %s of %llu bytes on %s%s; %s\n", path.c_str(), ledger->name().c_str(),
                    counted(totals.messages, "message").c_str(), number(totals.bytes),
                    counted(totals.subjects, "subject").c_str(), ledger->wasClosed() ? "" : ", and was not closed",
                    found.empty() ? "no damage" : "it is damaged, see above");
    }
    return found.empty() ? 0 : failed;
}

int exportMessages(const std::string& path, const std::string& pattern) {
    std::unique_ptr<Inspection> ledger;
    Outcome outcome = Inspection::open(path, &ledger);
    if (!outcome.ok()) return complain(outcome);
    Bar bar;
    size_t damaged = 0;
    bool written = true;
    outcome = ledger->forEach(
        [&](const std::string& subject) { return pattern.empty() || quorl::certified::matches(pattern, subject); },
        [&](uint64_t done, uint64_t all) { bar.show(done, all); },
        [&](const Inspection::Message& message) {
            written = std::printf("%llu\t%lld\t%.*s\t%.*s\t%s\n", static_cast<unsigned long long>(message.number),
                                  static_cast<long long>(message.expires), static_cast<int>(message.subject.size()),
                                  message.subject.data(), static_cast<int>(message.reply.size()), message.reply.data(),
                                  base64(message.image).c_str()) >= 0;
            return written;
        },
        [&](const Inspection::Damage& damage) {
            bar.end();
            ++damaged;
            std::fprintf(stderr, "quorl-ledger: %s: %s; left out\n", path.c_str(), damage.text.c_str());
        });
    bar.end();
    if (!outcome.ok()) return complain(outcome);
    if (std::fflush(stdout) != 0 || !written) return failed;
    return damaged == 0 ? 0 : failed;
}

}  // namespace

int main(int count, char** words) {
    std::vector<std::string> arguments(words + 1, words + count);
    bool json = false;
    std::erase_if(arguments, [&](const std::string& word) {
        if (word != "--json") return false;
        json = true;
        return true;
    });
    if (arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "-h")) {
        std::fputs(usage, stdout);
        return 0;
    }
    if (arguments.size() == 2 && arguments[0] == "verify") return verify(arguments[1], json);
    if ((arguments.size() == 2 || arguments.size() == 3) && arguments[0] == "export" && !json) {
        const std::string pattern = arguments.size() == 3 ? arguments[2] : "";
        if (pattern.empty() || quorl::certified::validPattern(pattern)) return exportMessages(arguments[1], pattern);
        std::fprintf(stderr, "quorl-ledger: \"%s\" is no subject or pattern\n", pattern.c_str());
        return calledWrongly;
    }
    std::fputs(usage, stderr);
    return calledWrongly;
}
