// Fuzz target: the bytes of a daemon. Read in one piece they must say the same as read in pieces of any size, within what is
// there, and a greeting must be read or refused.
#include "support.h"
#include "transport/nats/protocol.h"

namespace {

using namespace quorl::fuzz;
using namespace quorl::transport::nats;

constexpr size_t mostPayload = 4096;

// What was heard, as text.
struct Heard final : Parser::Listener {
    void onInfo(std::string_view json) noexcept override {
        log += "I" + std::string(json) + "\n";
        Info info;
        if (readInfo(json, &info))
            log += std::to_string(info.maxPayload) + " " + std::to_string(info.servers.size()) + "\n";
    }
    void onMessage(uint64_t subscription, std::string_view subject, const uint8_t* payload,
                   size_t size) noexcept override {
        require(size <= mostPayload, "a message is larger than it may be");
        log += "M" + std::to_string(subscription) + std::string(subject) +
               std::string(reinterpret_cast<const char*>(payload), size) + "\n";
    }
    void onPing() noexcept override { log += "P\n"; }
    void onPong() noexcept override { log += "Q\n"; }
    void onError(std::string_view text) noexcept override { log += "E" + std::string(text) + "\n"; }
    std::string log;
};

std::string readInPieces(std::string_view text, size_t piece) {
    Parser parser;
    parser.allow(mostPayload);
    Heard heard;
    std::string rest;
    for (size_t at = 0; at < text.size() && parser.fault() == nullptr; at += piece) {
        rest += text.substr(at, piece);
        const Block block(rest);
        const size_t used = parser.read(block.data(), rest.size(), heard);
        require(used <= rest.size(), "more was used than is there");
        rest.erase(0, used);
        if (parser.fault() == nullptr) {
            require(parser.wanted() > rest.size(), "what is whole was not read");
            require(rest.size() <= Parser::longestLine + mostPayload + 2 + piece, "more is kept than may be");
        }
    }
    return heard.log + (parser.fault() != nullptr ? parser.fault() : "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    require(readInPieces(text, text.size()) == readInPieces(text, 1 + data[0]), "pieces say something else");
    return 0;
}
