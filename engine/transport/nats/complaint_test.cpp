// The complaints of nats-server 2.9, word for word.
#include "transport/nats/complaint.h"

#include <gtest/gtest.h>

namespace quorl::transport::nats {
namespace {

using Kind = Complaint::Kind;

TEST(Complaint, saysWhetherTheConnectionGoesOn) {
    struct Case {
        const char* text;
        Kind kind;
    };
    for (const Case& one : {
             Case{"Permissions Violation for Publish to \"a.b\"", Kind::publishing},
             Case{"Permissions Violation for Subscription to \"a.>\"", Kind::subscribing},
             Case{"Permissions Violation for Subscription to \"a\" using queue \"q\"", Kind::subscribing},
             Case{"Permissions Violation for Publish with Reply of \"a\"", Kind::publishing},
             Case{"maximum subscriptions exceeded", Kind::full},
             Case{"Invalid Publish Subject", Kind::message},
             Case{"Invalid Subject", Kind::message},
             Case{"Authorization Violation", Kind::ends},
             Case{"Authentication Timeout", Kind::ends},
             Case{"User Authentication Timeout", Kind::ends},
             Case{"User Authentication Expired", Kind::ends},
             Case{"User Authentication Revoked", Kind::ends},
             Case{"Account Authentication Expired", Kind::ends},
             Case{"maximum connections exceeded", Kind::ends},
             Case{"maximum account active connections exceeded", Kind::ends},
             Case{"Maximum Payload Violation", Kind::ends},
             Case{"maximum control line exceeded", Kind::ends},
             Case{"Stale Connection", Kind::ends},
             Case{"Slow Consumer", Kind::ends},
             Case{"Secure Connection - TLS Required", Kind::ends},
             Case{"Server Shutdown", Kind::ends},
             Case{"Parser Error", Kind::ends},
             Case{"Unknown Protocol Operation", Kind::ends},
             Case{"Attempted To Connect To Route Port", Kind::ends},
             Case{"something of a later version", Kind::unknown},
             Case{"", Kind::unknown},
         }) {
        EXPECT_EQ(readComplaint(one.text).kind, one.kind) << one.text;
    }
}

TEST(Complaint, namesTheSubject) {
    const auto subjectOf = [](const char* text) { return readComplaint(text).wireSubject; };
    EXPECT_EQ(subjectOf("Permissions Violation for Publish to \"quorl.default.default.a%20b\""),
              "quorl.default.default.a%20b");
    EXPECT_EQ(subjectOf("Permissions Violation for Subscription to \"a.>\" using queue \"q\""), "a.>");
    const auto groupOf = [](const char* text) { return readComplaint(text).group; };
    EXPECT_EQ(groupOf("Permissions Violation for Subscription to \"a.>\" using queue \"crew\""), "crew");
    EXPECT_EQ(groupOf(R"(Permissions Violation for Subscription to "a" using queue "\"\\")"), R"("\)");
    for (const char* text : {"Permissions Violation for Subscription to \"a\"",
                             "Permissions Violation for Subscription to \"a\" using queue",
                             "Permissions Violation for Subscription to \"a\" \"b\"",
                             "Permissions Violation for Publish to \"a\" using queue \"b\""})
        EXPECT_EQ(groupOf(text), "") << text;
    EXPECT_EQ(subjectOf(R"(Permissions Violation for Publish to "a\"b\\c")"), R"(a"b\c)");
    for (const char* text : {"Permissions Violation for Publish to \"a", "Permissions Violation for Publish to \"a\\",
                             "Permissions Violation for Publish", "Permissions Violation for Publish to \"a\\x01\"",
                             "Authorization Violation \"a\""})
        EXPECT_EQ(subjectOf(text), "") << text;
}

}  // namespace
}  // namespace quorl::transport::nats
