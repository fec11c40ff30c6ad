// What a daemon says, read from its bytes as they come: lines of control, and messages. Without I/O.
//
//     size_t used = parser.read(bytes, size, listener);   // calls listener for all that is whole
//     if (parser.fault() != nullptr) ...                  // the daemon does not keep to the protocol
//     ... keep bytes[used, size), and come again with more behind them
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::transport::nats {

// A daemon's greeting, or a later word about itself.
struct Info {
    int64_t maxPayload = 0;  // bytes of the largest message that it takes
    bool offersTls = false;
    bool demandsTls = false;
    bool demandsCertificate = false;   // of the program, in TLS
    std::vector<std::string> servers;  // of its cluster, as it writes them
};

// False: that is no information. Throws std::bad_alloc.
bool readInfo(std::string_view json, Info* info);

class Parser {
  public:
    // A line without end is not collected beyond this, in bytes.
    static constexpr size_t longestLine = 64u << 10;

    class Listener {
      public:
        virtual ~Listener() = default;
        virtual void onInfo(std::string_view json) noexcept = 0;
        virtual void onMessage(uint64_t subscription, std::string_view subject, const uint8_t* payload,
                               size_t size) noexcept = 0;
        virtual void onPing() noexcept = 0;
        virtual void onPong() noexcept = 0;
        virtual void onError(std::string_view text) noexcept = 0;
    };

    // A message that is larger is a fault. In the beginning none may come.
    void allow(size_t payload) noexcept { mostPayload_ = payload; }

    // Returns how many bytes were used: the rest begins with what is not whole. Stops at a fault.
    size_t read(const uint8_t* bytes, size_t size, Listener& listener) noexcept;

    // How many bytes the rest has to be before there is more to read, as far as can be seen.
    size_t wanted() const noexcept { return wanted_; }
    // What the daemon did against the protocol; null for nothing. For ever.
    const char* fault() const noexcept { return fault_; }

  private:
    void readLine(std::string_view line, Listener& listener) noexcept;
    size_t readMessage(std::string_view line, const uint8_t* bytes, size_t size, Listener& listener) noexcept;

    size_t mostPayload_ = 0;
    size_t wanted_ = 1;
    size_t searched_ = 0;  // bytes of the rest that have no end of a line
    const char* fault_ = nullptr;
};

}  // namespace quorl::transport::nats
