// Reading lines and messages.
#include "transport/nats/protocol.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <nlohmann/json.hpp>

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

bool flag(const nlohmann::json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_boolean() && found->get<bool>();
}

}  // namespace

bool readInfo(std::string_view json, Info* info) {
    const auto object = nlohmann::json::parse(json, nullptr, false);
    if (!object.is_object()) return false;
    const auto payload = object.find("max_payload");
    if (payload == object.end() || !payload->is_number_integer()) return false;
    // A number beyond the type's range is a large one, not a negative one.
    info->maxPayload = payload->is_number_unsigned()
                           ? static_cast<int64_t>(std::min<uint64_t>(payload->get<uint64_t>(), INT64_MAX))
                           : payload->get<int64_t>();
    info->demandsTls = flag(object, "tls_required");
    info->offersTls = info->demandsTls || flag(object, "tls_available");
    info->demandsCertificate = flag(object, "tls_verify");
    info->servers.clear();
    if (const auto servers = object.find("connect_urls"); servers != object.end() && servers->is_array()) {
        for (const auto& server : *servers) {
            if (info->servers.size() == mostServers) break;
            if (server.is_string()) info->servers.push_back(server.get<std::string>());
        }
    }
    return true;
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
