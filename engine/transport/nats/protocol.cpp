// Reading lines and messages.
#include "transport/nats/protocol.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "transport/nats/address.h"

namespace quorl::transport::nats {
namespace {

constexpr const char* noProtocol = "the daemon speaks no protocol that is known here";

// The word at the front of the line, which is taken off with what separates it from the next.
std::string_view takeWord(std::string_view* line) noexcept {
    const size_t end = std::min(line->find_first_of(" \t"), line->size());
    const std::string_view word = line->substr(0, end);
    line->remove_prefix(std::min(line->find_first_not_of(" \t", end), line->size()));
    return word;
}

bool readNumber(std::string_view text, uint64_t* number) noexcept {
    const char* end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, *number);
    return error == std::errc() && at == end;
}

// Takes what is wanted of the outermost object as it is read. No tree is built of the text: destroying one takes memory, and
// ends the process when there is none. Of members of the same name the last one counts.
class InfoReader final : public nlohmann::json_sax<nlohmann::json> {
  public:
    // False: it was no object, or one without a limit for messages.
    bool take(Info* info) noexcept {
        if (!isObject_ || !hasPayload_) return false;
        found_.offersTls = found_.offersTls || found_.demandsTls;
        *info = std::move(found_);
        return true;
    }

    bool null() override { return value(); }
    bool boolean(bool is) override {
        value();
        if (flag_ != nullptr && depth_ == 1) *flag_ = is;
        return true;
    }
    bool number_integer(number_integer_t number) override {
        value();
        if (depth_ == 1 && member_ == Member::payload) payload(number);
        return true;
    }
    bool number_unsigned(number_unsigned_t number) override {
        value();
        // A number beyond the type's range is a large one, not a negative one.
        if (depth_ == 1 && member_ == Member::payload)
            payload(static_cast<int64_t>(std::min<uint64_t>(number, INT64_MAX)));
        return true;
    }
    bool number_float(number_float_t, const string_t&) override { return value(); }
    bool string(string_t& text) override {
        value();
        if (depth_ == 2 && inServers_ && found_.servers.size() < mostServers) found_.servers.push_back(std::move(text));
        return true;
    }
    bool binary(binary_t&) override { return value(); }
    bool start_object(std::size_t) override {
        if (depth_ == 0) isObject_ = true;
        return enter(false);
    }
    bool end_object() override { return leave(); }
    bool start_array(std::size_t) override { return enter(member_ == Member::servers); }
    bool end_array() override { return leave(); }
    bool key(string_t& name) override {
        if (depth_ != 1) return true;
        member_ = name == "max_payload" ? Member::payload : name == "connect_urls" ? Member::servers : Member::other;
        flag_ = name == "tls_required"    ? &found_.demandsTls
                : name == "tls_available" ? &found_.offersTls
                : name == "tls_verify"    ? &found_.demandsCertificate
                                          : nullptr;
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

  private:
    enum class Member : uint8_t { other, payload, servers };

    // A value begins: an earlier one of the member counts no more.
    bool value() noexcept {
        if (depth_ != 1) return true;
        if (flag_ != nullptr) *flag_ = false;
        if (member_ == Member::payload) hasPayload_ = false;
        if (member_ == Member::servers) found_.servers.clear();
        return true;
    }
    void payload(int64_t bytes) noexcept {
        found_.maxPayload = bytes;
        hasPayload_ = true;
    }
    bool enter(bool servers) noexcept {
        value();
        if (depth_++ == 1) inServers_ = servers;
        return true;
    }
    bool leave() noexcept {
        if (--depth_ == 1) inServers_ = false;
        return true;
    }

    Info found_;
    size_t depth_ = 0;
    Member member_ = Member::other;  // whose value is read, of the outermost object
    bool* flag_ = nullptr;           // which it sets
    bool inServers_ = false;
    bool isObject_ = false;
    bool hasPayload_ = false;
};

}  // namespace

bool readInfo(std::string_view json, Info* info) {
    InfoReader reader;
    return nlohmann::json::sax_parse(json, &reader) && reader.take(info);
}

size_t Parser::read(const uint8_t* bytes, size_t size, Listener& listener) noexcept {
    size_t at = 0;
    while (fault_ == nullptr) {
        const uint8_t* rest = bytes + at;
        const size_t left = size - at;
        const void* end = left > searched_ ? std::memchr(rest + searched_, '\n', left - searched_) : nullptr;
        if (end == nullptr) {
            if (left > longestLine) fault_ = "the daemon sends a line without end";
            searched_ = left;
            wanted_ = left + 1;
            break;
        }
        const auto length = static_cast<size_t>(static_cast<const uint8_t*>(end) - rest);
        std::string_view line(reinterpret_cast<const char*>(rest), length);
        if (line.ends_with('\r')) line.remove_suffix(1);
        size_t used = length + 1;
        if (line.starts_with("MSG ")) {
            const size_t payload = readMessage(line.substr(4), rest + used, left - used, listener);
            if (payload == 0 && fault_ == nullptr) {  // it is not whole
                searched_ = length;
                wanted_ += used;
                break;
            }
            used += payload;
        } else {
            readLine(line, listener);
        }
        at += used;
        searched_ = 0;
    }
    return at;
}

// Behind the word: subject, subscription, perhaps a reply subject, size. Gives the bytes of the payload and of the end of its
// line; 0 when they are not all there, and wanted_ then says how many they are.
size_t Parser::readMessage(std::string_view line, const uint8_t* bytes, size_t size, Listener& listener) noexcept {
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const std::string_view subject = takeWord(&line);
    const std::string_view number = takeWord(&line);
    std::string_view length = takeWord(&line);
    if (!line.empty()) length = takeWord(&line);
    uint64_t subscription;
    uint64_t payload;
    if (subject.empty() || !line.empty() || !readNumber(number, &subscription) || !readNumber(length, &payload)) {
        fault_ = noProtocol;
        return 0;
    }
    if (payload > mostPayload_) {
        fault_ = "the daemon sends a larger message than it may";
        return 0;
    }
    const size_t whole = payload + 2;
    if (size < whole) {
        wanted_ = whole;
        return 0;
    }
    if (bytes[payload] != '\r' || bytes[payload + 1] != '\n') {
        fault_ = noProtocol;
        return 0;
    }
    listener.onMessage(subscription, subject, bytes, payload);
    return whole;
}

void Parser::readLine(std::string_view line, Listener& listener) noexcept {
    if (line == "PING") {
        listener.onPing();
    } else if (line == "PONG") {
        listener.onPong();
    } else if (line.starts_with("INFO ")) {
        listener.onInfo(line.substr(5));
    } else if (line.starts_with("-ERR")) {
        line.remove_prefix(4);
        while (!line.empty() && (line.front() == ' ' || line.front() == '\'')) line.remove_prefix(1);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\'')) line.remove_suffix(1);
        listener.onError(line);
    } else if (line != "+OK") {
        fault_ = noProtocol;
    }
}

}  // namespace quorl::transport::nats
