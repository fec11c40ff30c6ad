// The store: names of daemons, replacement, taking away, and what a snapshot holds.
#include "secure/credentials.h"

#include <gtest/gtest.h>

#include <string>

#include "base/status.h"

namespace quorl::secure {
namespace {

Secret secretOf(std::string_view text) {
    Secret secret;
    EXPECT_TRUE(secret.assign(text));
    return secret;
}

class CredentialsStore : public testing::Test {
  protected:
    void TearDown() override { forgetCredentials(); }

    static void trust(std::string_view daemon, std::string_view pem) {
        ASSERT_EQ(setDaemonCertificates(daemon, secretOf(pem)), QUORL_OK) << lastErrorText();
    }
    static std::string trusted(std::string_view daemon) {
        Credentials found;
        EXPECT_EQ(lookup(daemon, &found), QUORL_OK) << lastErrorText();
        return found.caPem.present() ? std::string(found.caPem.text()) : "none";
    }
};

TEST_F(CredentialsStore, is_empty_at_first) {
    Credentials found;
    ASSERT_EQ(lookup("tls://somewhere:4222", &found), QUORL_OK);
    EXPECT_FALSE(found.caPem.present());
    EXPECT_FALSE(found.certPem.present());
    EXPECT_FALSE(found.keyPem.present());
    EXPECT_FALSE(found.user.present());
    EXPECT_FALSE(found.password.present());
}

TEST_F(CredentialsStore, prefers_host_and_port_to_host_to_any) {
    trust("*", "any");
    trust("db.example", "host");
    trust("db.example:4222", "port");
    EXPECT_EQ(trusted("db.example:4222"), "port");
    EXPECT_EQ(trusted("db.example:4333"), "host");
    EXPECT_EQ(trusted("db.example"), "host");
    EXPECT_EQ(trusted("other.example:4222"), "any");
}

TEST_F(CredentialsStore, takes_schemes_and_letters_in_either_case) {
    trust("TLS://DB.Example:4222", "one");
    EXPECT_EQ(trusted("nats://db.example:4222"), "one");
    EXPECT_EQ(trusted("tls://DB.EXAMPLE:4222"), "one");
    EXPECT_EQ(trusted("db.example:4222"), "one");
    EXPECT_EQ(trusted("db.example"), "none");
}

TEST_F(CredentialsStore, cuts_the_port_from_an_address_of_six_groups_only_behind_the_bracket) {
    trust("[::1]", "six");
    EXPECT_EQ(trusted("tls://[::1]:4222"), "six");
    EXPECT_EQ(trusted("[::1]"), "six");
    trust("::1", "bare");
    EXPECT_EQ(trusted("::1"), "bare");
}

TEST_F(CredentialsStore, replaces_and_takes_away_one_daemon) {
    trust("a", "first");
    trust("b", "other");
    trust("a", "second");
    EXPECT_EQ(trusted("a"), "second");
    ASSERT_EQ(setDaemonCertificates("a", Secret()), QUORL_OK);
    EXPECT_EQ(trusted("a"), "none");
    EXPECT_EQ(trusted("b"), "other");
    EXPECT_EQ(setDaemonCertificates("never set", Secret()), QUORL_INVALID_NAME);
    EXPECT_EQ(setDaemonCertificates("never.set", Secret()), QUORL_OK);
}

TEST_F(CredentialsStore, refuses_malformed_names) {
    Credentials found;
    const std::string longest(longestDaemonName, 'x');
    for (const std::string& name : {std::string(), std::string("tls://"), std::string("a b"), std::string("a,b"),
                                    std::string("a\n"), std::string("d\xc3\xa4mon"), longest + "x"}) {
        EXPECT_EQ(setDaemonCertificates(name, secretOf("pem")), QUORL_INVALID_NAME) << name;
        EXPECT_STRNE(lastErrorText(), "");
        if (name.size() <= longestDaemonName) {
            EXPECT_EQ(lookup(name, &found), QUORL_INVALID_NAME) << name;
        }
    }
    trust(longest, "long");
    EXPECT_EQ(trusted(longest), "long");
    // A connection asks with the port, however long the name of its host is.
    EXPECT_EQ(trusted(longest + ":65535"), "long");
    EXPECT_EQ(lookup(longest + ":655350", &found), QUORL_INVALID_NAME);
}

TEST_F(CredentialsStore, a_snapshot_outlives_what_it_was_taken_of) {
    ASSERT_EQ(setIdentity(secretOf("certificate"), secretOf("key")), QUORL_OK);
    ASSERT_EQ(setUser(secretOf("ada"), secretOf("countess")), QUORL_OK);
    Credentials earlier;
    ASSERT_EQ(lookup("a", &earlier), QUORL_OK);
    ASSERT_EQ(setIdentity(Secret(), Secret()), QUORL_OK);
    ASSERT_EQ(setUser(secretOf("bob"), secretOf("builder")), QUORL_OK);
    Credentials later;
    ASSERT_EQ(lookup("a", &later), QUORL_OK);
    EXPECT_STREQ(earlier.certPem.text(), "certificate");
    EXPECT_STREQ(earlier.keyPem.text(), "key");
    EXPECT_STREQ(earlier.user.text(), "ada");
    EXPECT_STREQ(earlier.password.text(), "countess");
    EXPECT_FALSE(later.certPem.present());
    EXPECT_FALSE(later.keyPem.present());
    EXPECT_STREQ(later.user.text(), "bob");
    // A snapshot that is used again keeps nothing of its first look-up.
    ASSERT_EQ(lookup("a", &earlier), QUORL_OK);
    EXPECT_FALSE(earlier.keyPem.present());
}

TEST_F(CredentialsStore, forgets_everything) {
    trust("a", "pem");
    ASSERT_EQ(setUser(secretOf("ada"), secretOf("countess")), QUORL_OK);
    forgetCredentials();
    forgetCredentials();
    EXPECT_EQ(trusted("a"), "none");
    Credentials found;
    ASSERT_EQ(lookup("a", &found), QUORL_OK);
    EXPECT_FALSE(found.user.present());
}

TEST(Secret, is_text_with_a_terminator_that_its_size_leaves_out) {
    Secret secret;
    EXPECT_EQ(secret.text(), nullptr);
    EXPECT_EQ(secret.view(), "");
    ASSERT_TRUE(secret.assign(""));
    EXPECT_TRUE(secret.present());
    EXPECT_STREQ(secret.text(), "");
    // A page's length and its neighbours: the terminator must have room.
    for (const size_t size : {size_t{1}, size_t{4095}, size_t{4096}, size_t{4097}, size_t{100000}}) {
        const std::string text(size, 's');
        ASSERT_TRUE(secret.assign(text));
        EXPECT_EQ(secret.view(), text);
        EXPECT_EQ(secret.text()[size], '\0');
    }
    Secret moved = std::move(secret);
    EXPECT_FALSE(secret.present());  // NOLINT(bugprone-use-after-move): that it is empty is the point
    EXPECT_EQ(moved.size(), 100000u);
    moved.wipe();
    EXPECT_FALSE(moved.present());
    moved.wipe();
}

}  // namespace
}  // namespace quorl::secure
