// quorl-ledger: looks into the ledger of a certified name that no program has open, and changes nothing.
//
//     quorl-ledger verify FILE             says what is kept, and each damage
//     quorl-ledger export FILE [SUBJECT]   a line for each message: number, time of expiry in nanoseconds since 1970 or 0,
//                                          subject, reply subject or nothing, image in base64; between them a tab
//
// --json: verify prints JSON objects, one a line. --all: export also writes what damage has cut off from the rest, and may have
// been confirmed already; where the subject is lost, it is empty. Exit codes: 0 all is well, 1 damaged or failed, 2 called wrongly.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "certified/ledger/inspect.h"
#include "certified/protocol/subject.h"

namespace {

using quorl::certified::Finding;
using quorl::certified::InspectedMessage;
using quorl::certified::Inspection;
using quorl::certified::Inspector;
using quorl::certified::Outcome;

constexpr int failed = 1;
constexpr int calledWrongly = 2;
constexpr const char* usage =
    "usage: quorl-ledger verify [--json] FILE\n"
    "       quorl-ledger export [--all] FILE [SUBJECT]\n"
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
    std::fprintf(stderr, "quorl-ledger: %s\n", outcome.reason());
    return failed;
}

unsigned long long wide(uint64_t value) {
    return value;
}

// What both commands share: the bar, and what is wrong.
class Reader : public Inspector {
  public:
    bool progress(uint64_t done, uint64_t all) override {
        bar_.show(done, all);
        return true;
    }

  protected:
    Bar bar_;
};

class Verifying final : public Reader {
  public:
    explicit Verifying(bool json) : json_(json) {}

    void message(const InspectedMessage& message) override {
        if (!message.outOfPlace) subjects_.insert(message.subjectNumber);
    }
    void finding(const Finding& finding) override {
        bar_.end();
        if (!json_) {
            std::printf("%s\n", finding.text.c_str());
            return;
        }
        std::printf("{\"damage\":%s,\"file\":%s,\"offset\":%lld", quoted(finding.text).c_str(),
                    quoted(finding.file).c_str(), static_cast<long long>(finding.offset));
        if (!finding.subject.empty()) {
            std::printf(",\"subject\":%s,\"first\":%llu", quoted(finding.subject).c_str(), wide(finding.first));
            if (finding.last != UINT64_MAX) std::printf(",\"last\":%llu", wide(finding.last));
        }
        std::printf("}\n");
    }

    int run(const std::string& path) {
        Inspection found;
        const Outcome outcome = quorl::certified::inspect(path, *this, &found);
        bar_.end();
        if (!outcome.ok()) return complain(outcome);
        if (json_) {
            std::printf(
                "{\"ledger\":%s,\"name\":%s,\"subjects\":%zu,\"messages\":%llu,\"bytes\":%llu,\"closed\":%s,"
                "\"damages\":%llu}\n",
                quoted(path).c_str(), quoted(found.name).c_str(), subjects_.size(), wide(found.messages),
                wide(found.bytes), found.closed ? "true" : "false", wide(found.findings));
        } else {
            const std::string whose =
                found.name.empty() ? "this ledger, whose name is lost," : "the ledger of " + found.name;
            std::printf("%s: %s keeps %s of %llu bytes on %s%s; %s\n", path.c_str(), whose.c_str(),
                        counted(found.messages, "message").c_str(), wide(found.bytes),
                        counted(subjects_.size(), "subject").c_str(),
                        found.closed || found.name.empty() ? "" : ", and was not closed",
                        found.findings == 0 ? "no damage" : "it is damaged, see above");
        }
        return found.findings == 0 ? 0 : failed;
    }

  private:
    const bool json_;
    std::set<uint32_t> subjects_;
};

class Exporting final : public Reader {
  public:
    Exporting(const std::string& pattern, bool all) : pattern_(pattern), all_(all) {}

    void message(const InspectedMessage& message) override {
        if (!pattern_.empty() && !quorl::certified::matches(pattern_, message.subject)) return;
        if (message.outOfPlace && !all_) {
            ++outOfPlace_;
            return;
        }
        const int written =
            std::printf("%llu\t%lld\t%.*s\t%.*s\t%s\n", wide(message.number), static_cast<long long>(message.expires),
                        static_cast<int>(message.subject.size()), message.subject.data(),
                        static_cast<int>(message.reply.size()), message.reply.data(), base64(message.image).c_str());
        written_ = written_ && written >= 0;
    }
    void finding(const Finding& finding) override {
        bar_.end();
        std::fprintf(stderr, "quorl-ledger: %s\n", finding.text.c_str());
    }
    // A reader that has gone ends the work.
    bool progress(uint64_t done, uint64_t all) override { return Reader::progress(done, all) && written_; }

    int run(const std::string& path) {
        Inspection found;
        const Outcome outcome = quorl::certified::inspect(path, *this, &found);
        bar_.end();
        if (!written_ || std::fflush(stdout) != 0) return failed;
        if (!outcome.ok()) return complain(outcome);
        if (outOfPlace_ != 0) {
            std::fprintf(stderr, "quorl-ledger: %s: left out %s that may have been confirmed already (--all)\n",
                         path.c_str(), counted(outOfPlace_, "message").c_str());
        }
        return found.findings == 0 ? 0 : failed;
    }

  private:
    const std::string& pattern_;
    const bool all_;
    uint64_t outOfPlace_ = 0;
    bool written_ = true;
};

}  // namespace

int main(int count, char** words) {
    std::vector<std::string> arguments(words + 1, words + count);
    bool json = false;
    bool all = false;
    std::erase_if(arguments, [&](const std::string& word) {
        json = json || word == "--json";
        all = all || word == "--all";
        return word == "--json" || word == "--all";
    });
    if (arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "-h")) {
        std::fputs(usage, stdout);
        return 0;
    }
    if (arguments.size() == 2 && arguments[0] == "verify" && !all) return Verifying(json).run(arguments[1]);
    if ((arguments.size() == 2 || arguments.size() == 3) && arguments[0] == "export" && !json) {
        const std::string pattern = arguments.size() == 3 ? arguments[2] : "";
        if (pattern.empty() || quorl::certified::validPattern(pattern))
            return Exporting(pattern, all).run(arguments[1]);
        std::fprintf(stderr, "quorl-ledger: \"%s\" is no subject or pattern\n", pattern.c_str());
        return calledWrongly;
    }
    std::fputs(usage, stderr);
    return calledWrongly;
}
