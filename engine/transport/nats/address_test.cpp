// Addresses of daemons: what is read from them, and what is refused with which words.
#include "transport/nats/address.h"

#include <gtest/gtest.h>

#include <fstream>

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

// c{N} is N times c.
std::string expanded(const std::string& text) {
    std::string all;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text[at] == '{' ? text.find('}', at) : std::string::npos;
        if (end == std::string::npos || all.empty()) {
            all += text[at++];
        } else {
            all.append(std::stoul(text.substr(at + 1)) - 1, all.back());
            at = end + 1;
        }
    }
    return all;
}

// The table is the quorl command's too, whose reader is written in Java.
TEST(Address, isReadAsTheTableSays) {
    std::ifstream table(QUORL_VECTORS "/daemon-addresses.txt");
    ASSERT_TRUE(table);
    const std::string arrow = " => ";
    int rows = 0;
    for (std::string line; std::getline(table, line);) {
        if (line.empty() || line.front() == '#') continue;
        const size_t at = line.find(arrow);
        ASSERT_NE(at, std::string::npos) << line;
        const std::string means = expanded(line.substr(at + arrow.size()));
        const bool refused = means.starts_with("! ");
        EXPECT_EQ(urls(expanded(line.substr(0, at))), refused ? "18 " + means.substr(2) : means + " ") << line;
        ++rows;
    }
    EXPECT_GT(rows, 60);
}

TEST(Address, refusesControlCharacters) {
    EXPECT_EQ(urls("a\n").substr(0, 3), "18 ");
    EXPECT_EQ(urls(std::string_view("a\0b", 3)).substr(0, 3), "18 ");
}

TEST(Address, keepsCredentialsOutOfItsWords) {
    const std::string text = urls("nats://user:secret@a:1");
    EXPECT_EQ(text, "18 \"nats://...@a:1\" is not a valid daemon address: credentials do not belong in it");
    for (const char* address :
         {"ftp://u:secret@h", "nats://u:sec,secret@h", "nats://u:secret,x@h", "nats://u:secret@h,b", "a,u:secret@h:0",
          "nats://u:a@secret@h", "nats://secret,secret,@", "h?password=secret", "nats://h:1?user=u&password=secret",
          "tls://h#secret", "a,b?secret,c", "h?password=a@secret", "nats://u:se?cret,secret@h#secret",
          "u:x://secret@h"})
        EXPECT_EQ(urls(address).find("secret"), std::string::npos) << urls(address);
}

}  // namespace
}  // namespace quorl::transport::nats
