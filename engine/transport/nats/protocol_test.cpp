#include "transport/nats/protocol.h"

#include <gtest/gtest.h>

namespace quorl::transport::nats {
namespace {

struct Heard final : Parser::Listener {
    void onInfo(std::string_view json) noexcept override { log.push_back("info " + std::string(json)); }
    void onMessage(uint64_t subscription, std::string_view subject, const uint8_t* payload,
                   size_t size) noexcept override {
        log.push_back("message " + std::to_string(subscription) + " " + std::string(subject) + " " +
                      std::string(reinterpret_cast<const char*>(payload), size));
    }
    void onPing() noexcept override { log.push_back("ping"); }
    void onPong() noexcept override { log.push_back("pong"); }
    void onError(std::string_view text) noexcept override { log.push_back("error " + std::string(text)); }
    std::vector<std::string> log;
};

class ParserTest : public testing::Test {
  protected:
    ParserTest() { parser.allow(64); }
    size_t read(std::string_view text) {
        return parser.read(reinterpret_cast<const uint8_t*>(text.data()), text.size(), heard);
    }
    void expectFault(const std::string& text, const char* words) {
        Parser fresh;
        fresh.allow(64);
        fresh.read(reinterpret_cast<const uint8_t*>(text.data()), text.size(), heard);
        ASSERT_NE(fresh.fault(), nullptr) << text.substr(0, 80);
        EXPECT_NE(std::string(fresh.fault()).find(words), std::string::npos)
            << text.substr(0, 80) << ": " << fresh.fault();
    }
    Parser parser;
    Heard heard;
};

const std::string conversation =
    "INFO {\"max_payload\":100}\r\nPONG\r\nMSG a.b 7 5\r\nhello\r\nMSG a 8 reply.to 0\r\n\r\nPING\r\n-ERR 'Slow "
    "Consumer'\r\n+OK\r\n"
    "MSG  x\t9   3\r\n\r\n\r\r\n";
const std::vector<std::string> said = {
    "info {\"max_payload\":100}", "pong", "message 7 a.b hello", "message 8 a ", "ping", "error Slow Consumer",
    "message 9 x \r\n\r"};

TEST_F(ParserTest, readsAConversation) {
    EXPECT_EQ(read(conversation), conversation.size());
    EXPECT_EQ(parser.fault(), nullptr);
    EXPECT_EQ(heard.log, said);
}

TEST_F(ParserTest, readsItFromPiecesOfAnySize) {
    for (size_t piece = 1; piece < conversation.size(); ++piece) {
        Parser fresh;
        fresh.allow(64);
        heard.log.clear();
        std::string rest;
        for (size_t at = 0; at < conversation.size(); at += piece) {
            rest += conversation.substr(at, piece);
            rest.erase(0, fresh.read(reinterpret_cast<const uint8_t*>(rest.data()), rest.size(), heard));
            EXPECT_GT(fresh.wanted(), rest.size());
        }
        EXPECT_EQ(fresh.fault(), nullptr);
        EXPECT_TRUE(rest.empty());
        EXPECT_EQ(heard.log, said) << piece;
    }
}

TEST_F(ParserTest, saysHowMuchAMessageNeeds) {
    EXPECT_EQ(read("MSG a 1 10\r\n"), 0u);
    EXPECT_EQ(parser.wanted(), 24u);
    EXPECT_EQ(read("MSG a 1 10\r\n01234"), 0u);
    EXPECT_EQ(parser.wanted(), 24u);
    EXPECT_EQ(read("MSG a 1 10\r\n0123456789\r\n"), 24u);
    EXPECT_EQ(heard.log.size(), 1u);
}

TEST_F(ParserTest, refusesWhatIsNoProtocol) {
    for (const char* text : {"HTTP/1.1 200 OK\r\n", "MSG\r\n", "MSG a\r\n", "MSG a 1\r\n", "MSG a 1 x\r\n",
                             "MSG a -1 5\r\n", "MSG a 1 -5\r\n", "MSG a 1 b 5 6\r\n", "MSG a 1 1 1 1\r\n",
                             "MSG a 99999999999999999999 1\r\n", "MSG a 1 99999999999999999999\r\n", "HMSG a 1 5 5\r\n",
                             "\r\n", "msg a 1 0\r\n\r\n", "MSG a 1 2\r\nabc\r\n", "INFO\r\n", "PINGS\r\n"})
        expectFault(text, "no protocol");
    EXPECT_TRUE(heard.log.empty());
}

TEST_F(ParserTest, refusesWhatIsTooLarge) {
    for (const char* size : {"65", "2147483646", "2147483647", "4294967296", "18446744073709551615"})
        expectFault(std::string("MSG a 1 ") + size + "\r\nx", "larger message than it may");
    expectFault(std::string(Parser::longestLine + 1, 'x'), "line without end");
    // Before it is known what may come, nothing may.
    Parser fresh;
    const std::string text = "MSG a 1 1\r\n";
    fresh.read(reinterpret_cast<const uint8_t*>(text.data()), text.size(), heard);
    EXPECT_NE(fresh.fault(), nullptr);
}

TEST_F(ParserTest, readsNothingBehindAFault) {
    read("PONG\r\nnonsense\r\nPONG\r\n");
    EXPECT_EQ(heard.log.size(), 1u);
    EXPECT_EQ(read("PONG\r\n"), 0u);
    EXPECT_EQ(heard.log.size(), 1u);
}

TEST(Greeting, tellsOfTheDaemon) {
    Info info;
    ASSERT_TRUE(
        readInfo("{\"server_id\":\"x\",\"max_payload\":1048576,\"tls_required\":true,\"tls_verify\":true,"
                 "\"connect_urls\":[\"10.0.0.1:4222\",7,\"[::1]:4223\"],\"nested\":{\"connect_urls\":[\"no\"]}}",
                 &info));
    EXPECT_EQ(info.maxPayload, 1048576);
    EXPECT_TRUE(info.offersTls && info.demandsTls && info.demandsCertificate);
    EXPECT_EQ(info.servers, (std::vector<std::string>{"10.0.0.1:4222", "[::1]:4223"}));
    ASSERT_TRUE(readInfo("{\"max_payload\":5,\"tls_available\":true}", &info));
    EXPECT_TRUE(info.offersTls && !info.demandsTls && !info.demandsCertificate && info.servers.empty());
    for (const char* text :
         {"", "{", "[]", "{}", "nonsense", "{\"max_payload\":\"5\"}", "{\"max_payload\":1.5}", "{\"max_payload\":5}x"})
        EXPECT_FALSE(readInfo(text, &info)) << text;
}

TEST(Info, OnlyMembersOfTheOutermostObjectCountAndOfThoseTheLast) {
    Info info;
    ASSERT_TRUE(
        readInfo("{\"max_payload\":\"x\",\"max_payload\":7,\"tls_required\":true,\"tls_required\":1,"
                 "\"connect_urls\":[\"a:1\",[\"b:2\"],{\"max_payload\":9,\"tls_verify\":true},\"c:3\"],"
                 "\"other\":{\"connect_urls\":[\"d:4\"]},\"more\":[\"e:5\"]}",
                 &info));
    EXPECT_EQ(info.maxPayload, 7);
    EXPECT_FALSE(info.demandsTls);
    EXPECT_FALSE(info.demandsCertificate);
    EXPECT_EQ(info.servers, (std::vector<std::string>{"a:1", "c:3"}));
    ASSERT_TRUE(
        readInfo("{\"connect_urls\":[\"a:1\"],\"connect_urls\":null,\"max_payload\":18446744073709551615}", &info));
    EXPECT_TRUE(info.servers.empty());
    EXPECT_EQ(info.maxPayload, INT64_MAX);
    for (const char* text :
         {"[{\"max_payload\":1}]", "{\"a\":{\"max_payload\":1}}", "{\"max_payload\":1,\"max_payload\":1.5}",
          "{\"max_payload\":1} {}", "{\"max_payload\":1", "7"})
        EXPECT_FALSE(readInfo(text, &info)) << text;
}

}  // namespace
}  // namespace quorl::transport::nats
