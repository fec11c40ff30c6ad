// Reading greetings.
#include "transport/nats/greeting.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>

namespace quorl::transport::nats {
namespace {

// Bytes of the longest greeting that is read.
constexpr size_t longestGreeting = 64u << 10;

// The JSON string that begins behind the quote at *at, which is moved behind its end; escapes stay as they are: no address
// has any.
std::string_view stringAt(std::string_view text, size_t* at) noexcept {
    const size_t start = *at;
    while (*at < text.size() && text[*at] != '"') *at += text[*at] == '\\' ? 2 : 1;
    const size_t end = std::min(*at, text.size());
    *at = end + 1;
    return text.substr(start, end - start);
}

}  // namespace

std::vector<std::string> serversNamed(std::string_view greeting) {
    std::vector<std::string> named;
    if (!greeting.starts_with("INFO ")) return named;
    int depth = 0;        // of braces and brackets
    bool inList = false;  // of the addresses
    std::string_view last;
    for (size_t at = 5; at < greeting.size();) {
        const char byte = greeting[at++];
        if (byte == '"') {
            last = stringAt(greeting, &at);
            if (inList && depth == 2 && named.size() < mostServers) named.emplace_back(last);
        } else if (byte == '[' || byte == '{') {
            if (byte == '[' && depth == 1 && last == "connect_urls") inList = true;
            ++depth;
        } else if (byte == ']' || byte == '}') {
            --depth;
            if (depth < 2) inList = false;
        } else if (byte == ',') {
            last = {};
        }
    }
    return named;
}

std::unique_ptr<Greeting> Greeting::from(int socket) noexcept {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return nullptr;
    const int descriptor = ::socket(peer.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return nullptr;
    std::unique_ptr<Greeting> greeting(new (std::nothrow) Greeting(descriptor));
    if (greeting == nullptr) {
        close(descriptor);
        return nullptr;
    }
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&peer), size) != 0 && errno != EINPROGRESS)
        return nullptr;
    return greeting;
}

Greeting::~Greeting() {
    close(descriptor_);
}

bool Greeting::read() noexcept {
    std::array<char, 4096> bytes;
    const ssize_t got = recv(descriptor_, bytes.data(), bytes.size(), 0);
    if (got < 0) return errno != EAGAIN && errno != EINTR;
    if (got == 0 || text_.size() + static_cast<size_t>(got) > longestGreeting) return true;
    try {
        text_.append(bytes.data(), static_cast<size_t>(got));
    } catch (const std::bad_alloc&) {
        return true;
    }
    const size_t end = text_.find('\n');
    whole_ = end != std::string::npos;
    if (whole_) text_.resize(end);
    return whole_;
}

std::vector<Server> Greeting::servers(bool tls) const {
    std::vector<Server> servers;
    if (!whole_) return servers;
    for (const std::string& address : serversNamed(text_)) {
        std::vector<Server> one;
        if (parseAddress(address, &one) != QUORL_OK || one.size() != 1) continue;
        one.front().tls = tls;
        servers.push_back(std::move(one.front()));
    }
    return servers;
}

}  // namespace quorl::transport::nats
