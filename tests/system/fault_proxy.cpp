// A proxy of TCP connections that does to them what networks do: cuts, freezes, delays, inserts bytes, limits the rate.
//
//     fault_proxy PORT                listens on a free port of 127.0.0.1, in front of 127.0.0.1:PORT
//     fault_proxy --print SEED MS N   prints the first N commands of a schedule, and ends
//
// It prints "port N" first. Then it reads commands from its standard input, one a line, and ends with it, with all its
// connections. Each command is answered by a line: "ok", "ok" with what was asked for, or "error" with the reason. Other lines
// say what happens, and begin with "at", the seconds since the start, and what: connections ("link 1 open"), and the commands
// of a schedule.
//
// Links are the connections that came in, counted from 1. Up is from the client to the server, down is back; WAY is up, down
// or both.
//
//     freeze WAY          nothing is read or written that way; the other side sees a network that is silent
//     thaw WAY            goes on, with what was waiting
//     delay WAY MS        what is read that way is written so much later
//     rate WAY BYTES      at most so many bytes a second; 0: no limit
//     hold BYTES          of each way of each link are read while it cannot be written (1 MiB at first): the network's buffers
//     cut                 resets both sides of a link
//     close               ends both sides in order, after what is on its way
//     cut-after WAY BYTES resets the link once so many further bytes have gone that way
//     forsake             resets the client's side; what the client had sent goes on to the server when it may
//     insert WAY TEXT     puts bytes between what has gone and what will go; \r \n \\ and \xHH stand for bytes
//     refuse on|off       whether connections that come are reset at once
//     report              "ok links 2 ever 3 up 1000 down 2000": open, ever, and bytes that have gone each way in all
//     wait MS             the next command is taken after that time
//     random SEED MS      obeys a schedule drawn from the seed, with faults and pauses up to MS long, and prints each command
//     calm                ends the schedule and all faults
//
// freeze, thaw, delay, rate, cut-after, cut, close, forsake and insert are about all links. freeze, delay, rate and hold also about those
// that come later. "link N" in front of a command: about that link alone; "open" in front: about those that are open.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <list>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "fault_schedule.h"

namespace {

using quorltest::Schedule;
using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using std::chrono::milliseconds;

constexpr size_t readSize = 64 << 10;

const Time start = Clock::now();

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}
void note(const std::string& what) {
    std::array<char, 32> at;
    std::snprintf(at.data(), at.size(), "at %.3f ", std::chrono::duration<double>(Clock::now() - start).count());
    say(at.data() + what);
}

struct Faults {
    bool frozen = false;
    milliseconds delay{0};
    uint64_t rate = 0;  // bytes a second; 0: no limit
    size_t hold = 1 << 20;
};

// One direction of a link.
struct Way {
    struct Chunk {
        Time due;
        std::string bytes;
    };

    int from = -1;
    int to = -1;
    Faults faults;
    std::deque<Chunk> waiting;
    size_t waitingBytes = 0;
    double credit = 0;  // bytes that the rate allows now
    Time creditAt = start;
    std::optional<uint64_t> cutAfter;
    bool readEnd = false;   // from has ended
    bool writeEnd = false;  // and to was told
    uint64_t gone = 0;

    bool wantsToRead() const noexcept { return !readEnd && !faults.frozen && waitingBytes < faults.hold; }
    bool nothingLeft() const noexcept { return readEnd && waiting.empty(); }

    // How many bytes may be written now; 0 and *next says when to look again, if the time alone decides.
    size_t allowed(Time now, Time* next) {
        if (faults.frozen || waiting.empty()) return 0;
        if (waiting.front().due > now) {
            *next = std::min(*next, waiting.front().due);
            return 0;
        }
        size_t most = waiting.front().bytes.size();
        if (faults.rate != 0) {
            const auto rate = static_cast<double>(faults.rate);
            const double burst = std::max(rate / 50, 1.0);
            credit = std::min(credit + rate * std::chrono::duration<double>(now - creditAt).count(), burst);
            creditAt = now;
            const double wanted = std::min(burst, static_cast<double>(most));
            if (credit < wanted) {
                *next = std::min(*next, now + std::chrono::ceil<milliseconds>(
                                                  std::chrono::duration<double>((wanted - credit) / rate)));
                return 0;
            }
            most = std::min(most, static_cast<size_t>(credit));
        }
        if (cutAfter) most = static_cast<size_t>(std::min<uint64_t>(most, *cutAfter));
        return most;
    }
};

class Link {
  public:
    Link(int client, int server, uint64_t number, const std::array<Faults, 2>& faults) : number_(number) {
        for (size_t i = 0; i < 2; ++i) ways[i].faults = faults[i];
        ways[0].from = ways[1].to = client;
        ways[0].to = ways[1].from = server;
    }
    ~Link() {
        close(ways[0].from);
        close(ways[0].to);
    }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    uint64_t number() const noexcept { return number_; }

    void reset() noexcept {
        const linger now{1, 0};
        for (const int one : {ways[0].from, ways[0].to}) setsockopt(one, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        over = true;
    }

    void forsake() {
        if (ways[0].from < 0) return;
        // Whatever is there, however much of it may be held.
        ways[0].faults.hold = SIZE_MAX;
        size_t before = 0;
        do {
            before = ways[0].waitingBytes;
            read(ways[0]);
        } while (ways[0].waitingBytes != before);
        const linger now{1, 0};
        setsockopt(ways[0].from, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        ::close(ways[0].from);
        ways[0].from = ways[1].to = -1;
        ways[0].readEnd = ways[1].readEnd = ways[1].writeEnd = true;
        ways[1].waiting.clear();
    }

    void read(Way& way) {
        std::array<char, readSize> bytes;
        const size_t room = std::min(bytes.size(), way.faults.hold - way.waitingBytes);
        const ssize_t count = recv(way.from, bytes.data(), room, MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (count <= 0) {
            // What a side sent before it reset the connection has been read by now; the reset itself is passed on as an end.
            way.readEnd = true;
            return;
        }
        way.waiting.push_back({Clock::now() + way.faults.delay, {bytes.data(), static_cast<size_t>(count)}});
        way.waitingBytes += static_cast<size_t>(count);
    }

    void write(Way& way, Time now, Time* next) {
        while (const size_t most = way.allowed(now, next)) {
            std::string& bytes = way.waiting.front().bytes;
            const ssize_t count = send(way.to, bytes.data(), most, MSG_DONTWAIT | MSG_NOSIGNAL);
            if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
            if (count < 0) {
                // Nobody takes it: what comes that way goes nowhere, as in a network.
                way.waiting.clear();
                way.waitingBytes = 0;
                way.readEnd = true;
                return;
            }
            const auto sent = static_cast<size_t>(count);
            way.gone += sent;
            way.waitingBytes -= sent;
            way.credit -= static_cast<double>(sent);
            bytes.erase(0, sent);
            if (bytes.empty()) way.waiting.pop_front();
            if (way.cutAfter && (*way.cutAfter -= sent) == 0) {
                note("link " + std::to_string(number_) + " cut");
                return reset();
            }
        }
    }

    void finish() noexcept {
        for (Way& way : ways) {
            if (way.nothingLeft() && !way.faults.frozen && !way.writeEnd) {
                shutdown(way.to, SHUT_WR);
                way.writeEnd = true;
            }
        }
        if (ways[0].writeEnd && ways[1].writeEnd) over = true;
    }

    std::array<Way, 2> ways;  // up, down
    bool over = false;

  private:
    const uint64_t number_;
};

// What a command names: the numbers of ways, from and to.
struct Ways {
    size_t first = 0;
    size_t last = 1;
};

class Proxy {
  public:
    explicit Proxy(int port) : serverPort_(port), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener_, 64) != 0 ||
            getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            std::perror("fault_proxy: no port to listen on");
            std::exit(1);
        }
        say("port " + std::to_string(ntohs(address.sin_port)));
    }
    ~Proxy() { close(listener_); }

    void run() {
        while (!ended_) {
            Time next = Clock::now() + std::chrono::hours(1);
            commands(&next);
            for (auto& link : links_) {
                for (Way& way : link->ways) {
                    if (!link->over) link->write(way, Clock::now(), &next);
                }
                link->finish();
            }
            std::erase_if(links_, [this](const auto& link) {
                if (!link->over) return false;
                for (size_t i = 0; i < 2; ++i) gone_[i] += link->ways[i].gone;
                note("link " + std::to_string(link->number()) + " over");
                return true;
            });
            wait(next);
        }
    }

  private:
    static sockaddr_in loopback(int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    void wait(Time next) {
        std::vector<pollfd> waited{{listener_, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
        for (const auto& link : links_) {
            for (Way& way : link->ways) {
                waited.push_back({way.wantsToRead() ? way.from : -1, POLLIN, 0});
                // Only when it is the socket that it waits for.
                waited.push_back({way.allowed(Clock::now(), &next) != 0 ? way.to : -1, POLLOUT, 0});
            }
        }
        const auto left = std::chrono::ceil<milliseconds>(next - Clock::now()).count();
        poll(waited.data(), waited.size(), static_cast<int>(std::clamp<int64_t>(left, 0, 3'600'000)));
        size_t at = 2;
        for (auto& link : links_) {
            for (Way& way : link->ways) {
                if (waited[at].revents != 0) link->read(way);
                at += 2;
            }
        }
        if (waited[0].revents != 0) accept();
        if (waited[1].revents != 0) hear();
    }

    void accept() {
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (client < 0) return;
        const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(serverPort_);
        const bool good =
            !refusing_ && connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        fcntl(server, F_SETFL, O_NONBLOCK);
        const int yes = 1;
        for (const int one : {client, server}) setsockopt(one, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        auto link = std::make_unique<Link>(client, server, good ? ++lastNumber_ : 0, faults_);
        if (!good) {
            note("link refused");
            return link->reset();
        }
        note("link " + std::to_string(link->number()) + " open");
        links_.push_back(std::move(link));
    }

    void hear() {
        std::array<char, 4096> bytes;
        const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count <= 0) {
            ended_ = true;
            return;
        }
        heard_.append(bytes.data(), static_cast<size_t>(count));
        for (size_t end; (end = heard_.find('\n')) != std::string::npos; heard_.erase(0, end + 1))
            lines_.push_back(heard_.substr(0, end));
    }

    void commands(Time* next) {
        const Time now = Clock::now();
        while (!lines_.empty() && now >= waitUntil_) {
            const std::string line = std::move(lines_.front());
            lines_.pop_front();
            say(obey(line, &waitUntil_));
        }
        if (!lines_.empty()) *next = std::min(*next, waitUntil_);
        while (schedule_ && now >= scheduleUntil_) {
            const std::string line = schedule_->next();
            note(line);
            obey(line, &scheduleUntil_);
        }
        if (schedule_) *next = std::min(*next, scheduleUntil_);
    }

    std::string obey(const std::string& line, Time* waitUntil) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        uint64_t only = 0;  // 0: all
        const bool openOnly = word == "open";
        if (word == "link" && !(words >> only)) return "error \"link\" needs the number of a link";
        if (word == "link" || openOnly) words >> word;
        std::vector<Link*> chosen;
        for (const auto& link : links_) {
            if (only == 0 || link->number() == only) chosen.push_back(link.get());
        }
        if (only != 0 && chosen.empty()) return "error there is no link " + std::to_string(only);
        const bool later = only == 0 && !openOnly;
        const auto change = [&](Ways ways, auto&& set) {
            for (size_t i = ways.first; i <= ways.last; ++i) {
                for (Link* link : chosen) set(link->ways[i].faults);
                if (later) set(faults_[i]);
            }
            return std::string("ok");
        };

        if (word == "cut" || word == "close") {
            for (Link* link : chosen) {
                if (word == "cut") link->reset();
                if (word == "close") link->ways[0].readEnd = link->ways[1].readEnd = true;
            }
            return "ok";
        }
        if (word == "forsake") {
            for (Link* link : chosen) link->forsake();
            return "ok";
        }
        if (word == "report") {
            uint64_t up = gone_[0];
            uint64_t down = gone_[1];
            for (const auto& link : links_) {
                up += link->ways[0].gone;
                down += link->ways[1].gone;
            }
            return "ok links " + std::to_string(links_.size()) + " ever " + std::to_string(lastNumber_) + " up " +
                   std::to_string(up) + " down " + std::to_string(down);
        }
        if (word == "calm") {
            schedule_.reset();
            refusing_ = false;
            return change({}, [](Faults& faults) { faults = Faults(); });
        }
        if (word == "refuse") {
            words >> word;
            refusing_ = word == "on";
            return word == "on" || word == "off" ? "ok" : "error \"refuse\" is on or off";
        }
        uint64_t number = 0;
        if (word == "wait") {
            if (!(words >> number)) return "error \"wait\" needs milliseconds";
            *waitUntil = Clock::now() + milliseconds(number);
            return "ok";
        }
        if (word == "hold") {
            if (!(words >> number) || number == 0) return "error \"hold\" needs a number of bytes";
            return change({}, [number](Faults& faults) { faults.hold = number; });
        }
        if (word == "random") {
            uint64_t longest = 0;
            if (!(words >> number >> longest)) return "error \"random\" needs a seed and milliseconds";
            schedule_.emplace(number, longest);
            scheduleUntil_ = Clock::now();
            return "ok";
        }

        const std::string what = word;
        words >> word;
        Ways ways;
        if (word == "up") {
            ways.last = 0;
        } else if (word == "down") {
            ways.first = 1;
        } else if (word != "both") {
            return "error no command, or a command without up, down or both: " + line;
        }
        if (what == "freeze" || what == "thaw")
            return change(ways, [frozen = what == "freeze"](Faults& faults) { faults.frozen = frozen; });
        if (what == "insert") {
            std::string text;
            std::getline(words >> std::ws, text);
            if (!unescape(&text)) return "error an escape in what is to be inserted is none";
            for (Link* link : chosen) {
                for (size_t i = ways.first; i <= ways.last; ++i) {
                    link->ways[i].waiting.push_front({Clock::now(), text});
                    link->ways[i].waitingBytes += text.size();
                }
            }
            return "ok";
        }
        if (!(words >> number)) return "error a number is missing: " + line;
        if (what == "delay") return change(ways, [number](Faults& faults) { faults.delay = milliseconds(number); });
        if (what == "rate") return change(ways, [number](Faults& faults) { faults.rate = number; });
        if (what == "cut-after") {
            if (number == 0) return "error \"cut-after\" needs a number of bytes, or it is \"cut\"";
            for (Link* link : chosen) {
                for (size_t i = ways.first; i <= ways.last; ++i) link->ways[i].cutAfter = number;
            }
            return "ok";
        }
        return "error no such command: " + what;
    }

    static bool unescape(std::string* text) {
        std::string plain;
        for (size_t i = 0; i < text->size(); ++i) {
            if ((*text)[i] != '\\') {
                plain += (*text)[i];
                continue;
            }
            const char kind = ++i < text->size() ? (*text)[i] : '\0';
            if (kind == 'r' || kind == 'n' || kind == '\\') {
                plain += kind == 'r' ? '\r' : kind == 'n' ? '\n' : '\\';
            } else if (kind == 'x' && i + 2 < text->size()) {
                char* end = nullptr;
                const std::string digits = text->substr(i + 1, 2);
                plain += static_cast<char>(std::strtoul(digits.c_str(), &end, 16));
                if (*end != '\0') return false;
                i += 2;
            } else {
                return false;
            }
        }
        text->swap(plain);
        return true;
    }

    const int serverPort_;
    const int listener_;
    std::array<Faults, 2> faults_;  // of links to come: up, down
    bool refusing_ = false;
    std::list<std::unique_ptr<Link>> links_;
    uint64_t lastNumber_ = 0;
    std::array<uint64_t, 2> gone_{};  // bytes of links that are over
    std::string heard_;
    std::deque<std::string> lines_;
    Time waitUntil_ = start;
    std::optional<Schedule> schedule_;
    Time scheduleUntil_ = start;
    bool ended_ = false;
};

}  // namespace

int main(int count, char** arguments) {
    if (count == 5 && std::string(arguments[1]) == "--print") {
        Schedule schedule(std::strtoull(arguments[2], nullptr, 10), std::strtoull(arguments[3], nullptr, 10));
        for (int i = 0; i < std::atoi(arguments[4]); ++i) say(schedule.next());
        return 0;
    }
    const int port = count == 2 ? std::atoi(arguments[1]) : 0;
    if (port <= 0 || port > 65535) {
        std::fprintf(stderr, "fault_proxy PORT, or fault_proxy --print SEED MS N; see the head of fault_proxy.cpp\n");
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    Proxy(port).run();
    return 0;
}
