// Addresses of daemons: what is read from them, and what is refused with which words.
#include "transport/nats/address.h"

#include <gtest/gtest.h>

#include "base/status.h"

namespace quorl::transport::nats {
namespace {

std::string urls(std::string_view text) {
    std::vector<Server> servers;
    if (const quorl_status status = parseAddress(text, &servers); status != QUORL_OK)
        return std::to_string(status) + " " + lastErrorText();
    std::string all;
    for (const Server& server : servers) all += server.url() + " ";
    return all;
}

TEST(Address, fillsInWhatIsLeftOut) {
    EXPECT_EQ(urls("nats://a.example:7"), "nats://a.example:7 ");
    EXPECT_EQ(urls("a.example:7"), "nats://a.example:7 ");
    EXPECT_EQ(urls("10.0.0.1"), "nats://10.0.0.1:4222 ");
    EXPECT_EQ(urls("tls://a"), "tls://a:4222 ");
    EXPECT_EQ(urls("[::1]:5"), "nats://[::1]:5 ");
    EXPECT_EQ(urls("tls://[fe80::2]"), "tls://[fe80::2]:4222 ");
}

TEST(Address, namesTheServersOfAClusterInTheirOrder) {
    EXPECT_EQ(urls("nats://a:1,b:2,c"), "nats://a:1 nats://b:2 nats://c:4222 ");
    EXPECT_EQ(urls("tls://a:1,b:2,nats://c:3,d:4"), "tls://a:1 tls://b:2 nats://c:3 nats://d:4 ");
}

TEST(Address, refusesWhatIsNone) {
    for (const char* text : {"",      ",",    "a,",     ",a",         "a:",       "a:0",     "a:65536",  "a:1x",
                             "a:-1",  "a:+1", "a b",    "http://a:1", "NATS://a", "nats:/a", "nats://",  "://a",
                             "a:1:2", "[::1", "[::1]5", "[::1]:",     "[a]",      "[]",      "::1",      ".a",
                             "-a",    "a..b", "a/b",    "a?b",        "a%41",     "a\n",     "tls://:1", "a:4222/"}) {
        EXPECT_EQ(urls(text).substr(0, 3), "18 ") << text;
    }
    EXPECT_EQ(urls(std::string(254, 'a')).substr(0, 3), "18 ");
    EXPECT_EQ(urls(std::string(1024, 'a')).substr(0, 3), "18 ");
    std::string many = "a";
    for (size_t i = 1; i < mostServers; ++i) many += ",a";
    EXPECT_EQ(urls(many).substr(0, 5), "nats:");
    EXPECT_EQ(urls(many + ",a"), "18 \"a\" is no address of a daemon: it is one server too many");
}

TEST(Address, keepsCredentialsOutOfItsWords) {
    const std::string text = urls("nats://user:secret@a:1");
    EXPECT_EQ(text, "18 \"a:1\" is no address of a daemon: credentials are not part of one");
    for (const char* address :
         {"ftp://u:secret@h", "nats://u:sec,secret@h", "nats://u:secret,x@h", "nats://u:secret@h,b", "a,u:secret@h:0",
          "nats://u:a@secret@h", "nats://secret,secret,@"})
        EXPECT_EQ(urls(address).find("secret"), std::string::npos) << urls(address);
}

}  // namespace
}  // namespace quorl::transport::nats
