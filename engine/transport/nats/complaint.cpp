// The words of nats-server, as its versions write them.
#include "transport/nats/complaint.h"

#include <strings.h>

#include <cstring>

namespace quorl::transport::nats {
namespace {

struct Words {
    const char* begin;
    Complaint::Kind kind;
};

// The first that the text begins with counts. Letters of both cases are the same: versions differ in them.
constexpr Words known[] = {
    {"permissions violation for publish", Complaint::Kind::publishing},
    {"permissions violation for subscription", Complaint::Kind::subscribing},
    {"maximum subscriptions exceeded", Complaint::Kind::full},
    {"permissions violation", Complaint::Kind::message},
    {"invalid publish subject", Complaint::Kind::message},
    {"invalid subject", Complaint::Kind::message},
    {"authorization violation", Complaint::Kind::ends},
    {"authentication", Complaint::Kind::ends},
    {"user authentication", Complaint::Kind::ends},
    {"account authentication", Complaint::Kind::ends},
    {"maximum", Complaint::Kind::ends},  // connections, payload, control line, account connections
    {"stale connection", Complaint::Kind::ends},
    {"slow consumer", Complaint::Kind::ends},
    {"secure connection", Complaint::Kind::ends},
    {"server shutdown", Complaint::Kind::ends},
    {"parser error", Complaint::Kind::ends},
    {"unknown protocol operation", Complaint::Kind::ends},
    {"invalid client protocol", Complaint::Kind::ends},
    {"attempted to connect", Complaint::Kind::ends},
};

bool beginsWith(std::string_view text, const char* words) noexcept {
    const size_t size = std::strlen(words);
    return text.size() >= size && strncasecmp(text.data(), words, size) == 0;
}

// What stands in the first pair of quotation marks, and what is behind it, if anybody asks. A backslash stands before a quotation mark or another one; behind any
// other letter it begins a number, which no subject that is written here has.
std::string quoted(std::string_view text, std::string_view* behind = nullptr) {
    std::string inside;
    if (behind != nullptr) *behind = {};
    size_t at = text.find('"');
    if (at == std::string_view::npos) return inside;
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\') {
            if (++at == text.size() || (text[at] != '"' && text[at] != '\\')) return {};
        }
        inside += text[at];
    }
    if (at == text.size()) return {};
    if (behind != nullptr) *behind = text.substr(at + 1);
    return inside;
}

}  // namespace

Complaint readComplaint(std::string_view text) {
    Complaint complaint;
    for (const Words& words : known) {
        if (!beginsWith(text, words.begin)) continue;
        complaint.kind = words.kind;
        std::string_view behind;
        if (words.kind == Complaint::Kind::publishing || words.kind == Complaint::Kind::subscribing)
            complaint.wireSubject = quoted(text, &behind);
        if (words.kind == Complaint::Kind::subscribing && beginsWith(behind, " using queue \""))
            complaint.group = quoted(behind);
        break;
    }
    return complaint;
}

}  // namespace quorl::transport::nats
