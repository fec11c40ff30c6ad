#include "transport/nats/greeting.h"

#include <gtest/gtest.h>

namespace quorl::transport::nats {
namespace {

using Names = std::vector<std::string>;

TEST(Greeting, namesTheServersOfItsCluster) {
    EXPECT_EQ(serversNamed(R"(INFO {"server_id":"x","connect_urls":["10.0.0.1:4222","[::1]:4223"],"max_payload":1})"),
              (Names{"10.0.0.1:4222", "[::1]:4223"}));
    EXPECT_EQ(serversNamed(R"(INFO {"connect_urls" : [ "a:1" , "b:2" ] })"), (Names{"a:1", "b:2"}));
    EXPECT_EQ(serversNamed(R"(INFO {"connect_urls":[]})"), Names{});
    EXPECT_EQ(serversNamed(R"(INFO {"server_id":"x"})"), Names{});
}

TEST(Greeting, isReadWhereTheNameIsTheObjectsOwn) {
    EXPECT_EQ(serversNamed(R"(INFO {"name":"connect_urls","other":["c:1"]})"), Names{});
    EXPECT_EQ(serversNamed(R"(INFO {"inner":{"connect_urls":["c:1"]}})"), Names{});
    EXPECT_EQ(serversNamed(R"(INFO {"name":"\"connect_urls\":[\"c:1\"]","connect_urls":["a:1"]})"), Names{"a:1"});
    EXPECT_EQ(serversNamed(R"(INFO {"connect_urls":["a:1"],"ws_connect_urls":["b:1"]})"), Names{"a:1"});
    EXPECT_EQ(serversNamed(R"(INFO {"connect_urls":["a:1",["b:1"]],"x":["c:1"]})"), Names{"a:1"});
}

TEST(Greeting, thatIsNoneNamesNobody) {
    for (const char* text : {"", "INFO", "INFO ", "PING", "-ERR 'no'", "INFO ]]}}", "INFO {\"connect_urls", "INFO \"\\",
                             R"({"connect_urls":["a:1"]})"})
        EXPECT_EQ(serversNamed(text), Names{}) << text;
    // Cut off, it may name what it has named so far.
    EXPECT_LE(serversNamed(R"(INFO {"connect_urls":["a:1","b)").size(), 2u);
}

TEST(Greeting, namesNoMoreServersThanAnAddressMay) {
    std::string text = "INFO {\"connect_urls\":[";
    for (int i = 0; i < 1000; ++i) text += "\"a:" + std::to_string(i + 1) + "\",";
    EXPECT_EQ(serversNamed(text + "\"z:1\"]}").size(), mostServers);
}

}  // namespace
}  // namespace quorl::transport::nats
