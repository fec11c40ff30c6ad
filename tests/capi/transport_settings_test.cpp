// What can be set on a transport, and its inboxes: the same answers from a port, from a daemon's transport, and from a circuit.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "support.h"

namespace quorltest {
namespace {

class EveryTransport : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        below_ = newTransport();
        const char* subject = nullptr;
        ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor_, &subject, below_), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorlTransport_CreateConnectVc(&connector_, subject, below_), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorlTransport_WaitForVcConnection(connector_, limit), QUORL_OK) << quorl_LastErrorText();
    }
    std::vector<quorlTransport> all() const { return {below_, acceptor_, connector_}; }

    static void refused(quorl_status expected, quorl_status got, const char* says) {
        EXPECT_EQ(got, expected) << quorl_LastErrorText();
        EXPECT_NE(strstr(quorl_LastErrorText(), says), nullptr) << quorl_LastErrorText();
    }

    quorlTransport below_ = 0;
    quorlTransport acceptor_ = 0;
    quorlTransport connector_ = 0;
};

TEST_F(EveryTransport, hasADescription) {
    const std::string longest(255, 'd');
    for (const quorlTransport each : all()) {
        for (const char* text :
             {"", "order entry", "\"quoted\" \\ {}\r\n\t\x01", "gr\xc3\xbc\xc3\x9f", longest.c_str()})
            EXPECT_EQ(quorlTransport_SetDescription(each, text), QUORL_OK) << quorl_LastErrorText();
        refused(QUORL_INVALID_ARG, quorlTransport_SetDescription(each, nullptr), "is null");
        refused(QUORL_INVALID_ARG, quorlTransport_SetDescription(each, "\xff\xfe"), "not UTF-8");
        refused(QUORL_INVALID_ARG, quorlTransport_SetDescription(each, (longest + "d").c_str()), "255 bytes");
    }
    refused(QUORL_INVALID_TRANSPORT, quorlTransport_SetDescription(999, "x"), "999");
    // Whatever it is called, it carries messages.
    settle();
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, below_, "a", onNumber, &numbers);
    EXPECT_EQ(sendNumber(below_, "a", 1), QUORL_OK);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 1);
}

TEST_F(EveryTransport, isAskedForReliability) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const quorlTransport each : all()) {
        for (const double seconds : {0.0, -0.0, 5e-324, 60.5, 1e300})
            EXPECT_EQ(quorlTransport_RequestReliability(each, seconds), QUORL_OK) << seconds;
        for (const double seconds : {-1.0, -5e-324, infinity, -infinity, std::nan("")})
            refused(QUORL_INVALID_TIME_INTERVAL, quorlTransport_RequestReliability(each, seconds),
                    "not a valid interval");
    }
    refused(QUORL_INVALID_TRANSPORT, quorlTransport_RequestReliability(999, 1), "999");
    // What is worth nothing to a lost daemon goes out all the same while nothing is lost.
    for (const quorlTransport each : all()) ASSERT_EQ(quorlTransport_RequestReliability(each, 1e-9), QUORL_OK);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, below_, "a", onNumber, &numbers);
    listen(QUORL_DEFAULT_QUEUE, acceptor_, "a", onNumber, &numbers);
    EXPECT_EQ(sendNumber(below_, "a", 1), QUORL_OK);
    EXPECT_EQ(sendNumber(connector_, "a", 2), QUORL_OK);
    while (numbers.came.size() < 2) ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
}

TEST_F(EveryTransport, gathersBatches) {
    for (const quorlTransport each : all()) {
        for (const int mode : {-1, 2, 1000, std::numeric_limits<int>::min()})
            refused(QUORL_INVALID_ARG, quorlTransport_SetBatchMode(each, static_cast<quorlTransportBatchMode>(mode)),
                    "does not exist");
        EXPECT_EQ(quorlTransport_SetBatchMode(each, QUORLTRANSPORT_TIMER_BATCH), QUORL_OK);
        for (const quorl_u32 size : {0u, 1u, 65536u, UINT32_MAX})
            EXPECT_EQ(quorlTransport_SetBatchSize(each, size), QUORL_OK);
    }
    refused(QUORL_INVALID_TRANSPORT, quorlTransport_SetBatchMode(999, QUORLTRANSPORT_TIMER_BATCH), "999");
    refused(QUORL_INVALID_TRANSPORT, quorlTransport_SetBatchSize(999, 1), "999");
    // A batch of any size goes out in the end, and so does what waits when the mode changes.
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, below_, "a", onNumber, &numbers);
    listen(QUORL_DEFAULT_QUEUE, acceptor_, "a", onNumber, &numbers);
    size_t sent = 0;
    for (const quorl_u32 size : {0u, 1u, 300u, UINT32_MAX}) {
        for (const quorlTransport each : all()) ASSERT_EQ(quorlTransport_SetBatchSize(each, size), QUORL_OK);
        for (int i = 0; i < 10; ++i, sent += 2) {
            ASSERT_EQ(sendNumber(below_, "a", i), QUORL_OK);
            ASSERT_EQ(sendNumber(connector_, "a", i), QUORL_OK);
        }
        while (numbers.came.size() < sent) ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    }
    ASSERT_EQ(sendNumber(below_, "a", 0), QUORL_OK);
    for (const quorlTransport each : all())
        EXPECT_EQ(quorlTransport_SetBatchMode(each, QUORLTRANSPORT_DEFAULT_BATCH), QUORL_OK);
    while (numbers.came.size() < sent + 1) ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
}

TEST_F(EveryTransport, makesInboxesOfItsOwn) {
    for (const quorlTransport each : all()) {
        char inbox[QUORL_SUBJECT_MAX + 1] = "untouched";
        refused(QUORL_INVALID_ARG, quorlTransport_CreateInbox(each, nullptr, 255), "is null");
        for (const quorl_u32 room : {0u, 1u, 32u})
            refused(QUORL_INSUFFICIENT_BUFFER, quorlTransport_CreateInbox(each, inbox, room),
                    "the buffer for an inbox needs");
        EXPECT_STREQ(inbox, "untouched");
        ASSERT_EQ(quorlTransport_CreateInbox(each, inbox, sizeof inbox), QUORL_OK);
        char next[QUORL_SUBJECT_MAX + 1];
        ASSERT_EQ(quorlTransport_CreateInbox(each, next, sizeof next), QUORL_OK);
        EXPECT_STRNE(inbox, next);
        for (const quorlTransport other : all()) {
            quorlEvent event = 0;
            EXPECT_EQ(quorlEvent_CreateListener(&event, QUORL_DEFAULT_QUEUE, onNumber, other, inbox, nullptr),
                      other == each ? QUORL_OK : QUORL_INVALID_SUBJECT);
        }
    }
    char inbox[QUORL_SUBJECT_MAX + 1];
    refused(QUORL_INVALID_TRANSPORT, quorlTransport_CreateInbox(999, inbox, sizeof inbox), "999");
}

TEST_F(EveryTransport, isRefusedOnceItIsClosed) {
    for (const quorlTransport each : {connector_, acceptor_, below_}) {
        ASSERT_EQ(quorlTransport_Destroy(each), QUORL_OK);
        char inbox[QUORL_SUBJECT_MAX + 1];
        EXPECT_EQ(quorlTransport_SetDescription(each, "x"), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(quorlTransport_RequestReliability(each, 1), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(quorlTransport_SetBatchMode(each, QUORLTRANSPORT_TIMER_BATCH), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(quorlTransport_SetBatchSize(each, 1), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(quorlTransport_CreateInbox(each, inbox, sizeof inbox), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(sendNumber(each, "a", 1), QUORL_INVALID_TRANSPORT);
    }
}

}  // namespace
}  // namespace quorltest
