// Transports: creation from three parameters, sending, requests and inboxes, circuits, and the secure daemon's
// credentials.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "com_vesma_quorl_QuorlQrdTransport.h"
#include "com_vesma_quorl_QuorlSdContext.h"
#include "com_vesma_quorl_QuorlTransport.h"
#include "com_vesma_quorl_QuorlVcTransport.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string creation = "daemon transport creation";
const std::string sending = "sending, requests and inboxes";
const std::string circuits = "virtual circuits";
const std::string credentials = "secure daemon credentials";

const std::string no_service = "Cannot allocate memory for service parameter.";
const std::string no_network = "Cannot allocate memory for network parameter.";
const std::string no_daemon = "Cannot allocate memory for daemon parameter.";

void state_creation() {
    const Native native = {"QuorlQrdTransport_quorlTransport_1Create"};
    const Lines lines = {"GetByteArrayRegion(service, 0, 2)", "GetByteArrayRegion(network, 0, 3)",
                         "GetByteArrayRegion(daemon, 0, 4)", "quorlTransport_Create(&, \"sv\", \"net\", \"host\")"};
    auto invoke = [] {
        when<&quorlTransport_Create>().does = [](quorlTransport* transport, auto...) {
            *transport = 0x87654320u;
            return QUORL_OK;
        };
        const Bytes service = given("service", "sv"), network = given("network", "net"),
                    daemon = given("daemon", "host");
        return call(&Java_com_vesma_quorl_QuorlQrdTransport_quorlTransport_1Create, service.array, service.length,
                    network.array, network.length, daemon.array, daemon.length);
    };
    const std::set<std::string> copies = {"GetByteArrayRegion"};
    const BytesParameter service = {
        .label = "service", .canonical = "sv", .called_over_failed_copy = copies, .failed_copy_is_looked_for = true};
    const BytesParameter network = {
        .label = "network", .canonical = "net", .called_over_failed_copy = copies, .failed_copy_is_looked_for = true};
    const BytesParameter daemon = {.label = "daemon", .canonical = "host", .failed_copy_is_looked_for = true};
    state(native, {.family = creation,
                   .invoke = invoke,
                   .result = "-2023406816",
                   .lines = lines,
                   .reports = LIBRARY(quorlTransport_Create),
                   .failed_result = "0",
                   .refusals = {{out_of_memory(no_service), "0", Lines{throw_new_line(no_service)}},
                                {out_of_memory(no_network), "0", Lines{lines[0], throw_new_line(no_network)}},
                                {out_of_memory(no_daemon), "0", Lines{lines[0], lines[1], throw_new_line(no_daemon)}}},
                   .bytes = {service, network, daemon}});
    row(native, creation, "buffers_are_freed_in_order_whatever_the_status", RowKind::failure, [=] {
        for (quorl_status status : {QUORL_OK, QUORL_DAEMON_NOT_FOUND}) {
            fresh();
            when<&quorlTransport_Create>().status = status;
            Lines expected = {"alloc(3)", lines[0], "alloc(4)", lines[1],  "alloc(5)",
                              lines[2],   lines[3], "free(3)",  "free(4)", "free(5)"};
            if (status != QUORL_OK) expected.insert(expected.end(), {new_exception_line(status), throw_line});
            EXPECT_EQ(invoke().all, expected);
        }
    });
    row(native, creation, "all_null_allocates_nothing", RowKind::normal, [] {
        const Ran ran =
            call(&Java_com_vesma_quorl_QuorlQrdTransport_quorlTransport_1Create, nullptr, 5, nullptr, 5, nullptr, 5);
        EXPECT_EQ(ran.all, Lines{"quorlTransport_Create(&, null, null, null)"});
    });
    // After a failed copy the library is not called. The buffers stay until the thread creates again, or ends.
    row(native, creation, "failed_copy_ends_it_and_leaves_the_buffers", RowKind::failure, [] {
        auto create = [](jint service, jint network, jint daemon) {
            return call(&Java_com_vesma_quorl_QuorlQrdTransport_quorlTransport_1Create, jvm().bytes("service", "sv"),
                        service, jvm().bytes("network", "net"), network, jvm().bytes("daemon", "host"), daemon);
        };
        jvm().exempt("the parameters are copied before an exception is looked for", {"GetByteArrayRegion"});
        const size_t before = heap().held();
        std::thread thread([&] {
            EXPECT_EQ(heap().held(), before);
            Ran ran = create(20, 3, 4);
            EXPECT_EQ(ran.left, (std::vector<size_t>{21, 4, 5}));
            ran = create(2, 30, 4);
            EXPECT_EQ(ran.left, (std::vector<size_t>{3, 31, 5}));
            ran = create(2, 3, 50);
            EXPECT_EQ(ran.left, (std::vector<size_t>{3, 4, 51}));
            EXPECT_EQ(heap().held(), before + 3) << "those of the call before are taken back";
        });
        thread.join();
        EXPECT_EQ(heap().held(), before) << "the end of the thread takes them back";
    });
    inner_row("extract_transport_parameters", "sets_the_outputs_to_null_first", [] {
        char rubbish[3];
        jbyte* outputs[3] = {reinterpret_cast<jbyte*>(rubbish), reinterpret_cast<jbyte*>(rubbish + 1),
                             reinterpret_cast<jbyte*>(rubbish + 2)};
        observe_callback([&] {
            extract_transport_parameters(jvm().env(), nullptr, 1, nullptr, 1, nullptr, 1, &outputs[0], &outputs[1],
                                         &outputs[2]);
        });
        for (jbyte* each : outputs) EXPECT_EQ(each, nullptr);
    });
    inner_row("extract_transport_parameters", "hands_out_terminated_copies", [] {
        jbyte* outputs[3];
        jbyteArray arrays[] = {jvm().bytes("service", "sv"), jvm().bytes("network", ""), jvm().bytes("daemon", "host")};
        observe_callback([&] {
            extract_transport_parameters(jvm().env(), arrays[0], 2, arrays[1], 0, arrays[2], 3, &outputs[0],
                                         &outputs[1], &outputs[2]);
        });
        EXPECT_STREQ(reinterpret_cast<char*>(outputs[0]), "sv");
        EXPECT_STREQ(reinterpret_cast<char*>(outputs[1]), "");
        EXPECT_STREQ(reinterpret_cast<char*>(outputs[2]), "hos");
        for (jbyte* each : outputs) heap().release(each);
    });
    inner_row("extract_transport_parameters", "no_memory_takes_the_earlier_buffers_back", [] {
        jbyteArray arrays[] = {jvm().bytes("service", "sv"), jvm().bytes("network", "net"),
                               jvm().bytes("daemon", "host")};
        for (int nth = 1; nth <= 3; ++nth) {
            char rubbish = 0;
            jbyte* outputs[3] = {reinterpret_cast<jbyte*>(&rubbish), reinterpret_cast<jbyte*>(&rubbish),
                                 reinterpret_cast<jbyte*>(&rubbish)};
            heap().fail(nth);
            const Ran ran = observe_callback([&] {
                extract_transport_parameters(jvm().env(), arrays[0], 2, arrays[1], 3, arrays[2], 4, &outputs[0],
                                             &outputs[1], &outputs[2]);
            });
            for (jbyte* each : outputs) EXPECT_EQ(each, nullptr) << nth;
            EXPECT_TRUE(ran.left.empty());
            EXPECT_EQ(ran.thrown, out_of_memory(nth == 1 ? no_service : nth == 2 ? no_network : no_daemon));
        }
    });
    state(Native{"QuorlQrdTransport_quorlTransport_1SetBatchMode"},
          {.family = creation,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlQrdTransport_quorlTransport_1SetBatchMode, -9, 77); },
           .lines = {"quorlTransport_SetBatchMode(4294967287, 77)"},
           .reports = LIBRARY(quorlTransport_SetBatchMode)});
}

void state_description() {
    const Native native = {"QuorlTransport_quorlTransport_1SetDescription"};
    const std::string no_memory = "Cannot allocate memory for transport description.";
    auto invoke = [] {
        const Bytes description = given("description", "billing");
        return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1SetDescription, 6, description.array,
                    description.length);
    };
    state(native, {.family = sending,
                   .invoke = invoke,
                   .lines = {"GetByteArrayRegion(description, 0, 7)", "quorlTransport_SetDescription(6, \"billing\")"},
                   .reports = LIBRARY(quorlTransport_SetDescription),
                   .refusals = {{out_of_memory(no_memory), "", Lines{throw_new_line(no_memory)}}},
                   .bytes = {{"description", "billing", NullArray::is_not_tested}}});
    row(native, sending, "copy_is_freed_before_the_status_is_thrown", RowKind::failure, [=] {
        when<&quorlTransport_SetDescription>().status = QUORL_INVALID_ARG;
        EXPECT_EQ(invoke().all, (Lines{"alloc(8)", "GetByteArrayRegion(description, 0, 7)",
                                       "quorlTransport_SetDescription(6, \"billing\")", "free(8)",
                                       new_exception_line(3), throw_line}));
    });
}

void state_inbox() {
    const Native native = {"QuorlTransport_quorlTransport_1CreateInbox"};
    const std::string create = "quorlTransport_CreateInbox(6, &, 255)";
    auto with_inbox = [](std::string inbox) {
        when<&quorlTransport_CreateInbox>().does = [inbox](quorlTransport, char* subject, quorl_u32 limit) {
            std::memset(subject, 0, limit);
            std::memcpy(subject, inbox.data(), inbox.size());
            return QUORL_OK;
        };
    };
    auto region = [](std::string inbox) {
        inbox.resize(255, '\0');
        return "SetByteArrayRegion(inbox, 0, 255, " + quoted(inbox.data(), inbox.size()) + ")";
    };
    state(native, {.family = sending,
                   .invoke =
                       [=] {
                           with_inbox("_INBOX.17");
                           return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1CreateInbox, 6,
                                       jvm().bytes("inbox", std::string(255, 'x')));
                       },
                   .result = "9",
                   .lines = {create, region("_INBOX.17")},
                   .reports = LIBRARY(quorlTransport_CreateInbox),
                   .failed_result = "0"});
    row(native, sending, "inbox_of_any_length_is_copied_with_the_whole_buffer", RowKind::normal, [=] {
        for (size_t length : {size_t{0}, size_t{1}, size_t{254}}) {
            with_inbox(std::string(length, 'i'));
            expect(call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1CreateInbox, 6,
                        jvm().bytes("inbox", std::string(300, 'x'))),
                   {std::to_string(length), "", {create, region(std::string(length, 'i'))}});
        }
    });
    row(native, sending, "short_array_leaves_the_bounds_exception_and_gives_the_length", RowKind::failure, [=] {
        with_inbox("_INBOX.17");
        expect(call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1CreateInbox, 6,
                    jvm().bytes("inbox", std::string(254, 'x'))),
               {"9", out_of_bounds, {create, "SetByteArrayRegion(inbox, 0, 255, out of bounds)"}});
    });
}

void state_vector_send() {
    const Native native = {"QuorlTransport_quorlTransport_1Sendv"};
    const std::string first = "Cannot allocate memory for array processing. (1)";
    const std::string second = "Cannot allocate memory for array processing. (2)";
    auto send = [](std::vector<jlong> handles, jint count) {
        return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1Sendv, 6,
                    jvm().numbers("handles", 'J', handles), count, nullptr);
    };
    const Lines lines = {"GetPrimitiveArrayCritical(handles)", "ReleasePrimitiveArrayCritical(handles, 2)",
                         "quorlTransport_Sendv(6, [" + message_text + ", #0, " + other_message_text + "], 3)"};
    state(
        native,
        {.family = sending,
         .invoke =
             [=] {
                 return send({message, 0, other_message}, 3);
             },
         .lines = lines,
         .left = {3 * sizeof(quorlMsg)},
         .reports = LIBRARY(quorlTransport_Sendv),
         .failed_left = {3 * sizeof(quorlMsg)},
         .faults = {{"GetPrimitiveArrayCritical", out_of_memory(second), "", Lines{lines[0], throw_new_line(second)}}},
         .refusals = {{out_of_memory(first), "", Lines{throw_new_line(first)}}},
         .element = "Long"});
    row(native, sending, "no_messages", RowKind::normal, [=] {
        const Ran ran = send({message}, 0);
        EXPECT_EQ(ran.thrown, "");
        EXPECT_EQ(ran.lines, (Lines{lines[0], lines[1], "quorlTransport_Sendv(6, [], 0)"}));
    });
    row(native, sending, "more_messages_than_16_bits_count", RowKind::normal, [=] {
        EXPECT_EQ(send(std::vector<jlong>(70'000), 70'000).lines.back(), "quorlTransport_Sendv(6, unread, 70000)");
    });
    row(native, sending, "negative_count_is_no_memory", RowKind::failure, [=] {
        for (jint count : {-1, INT32_MIN}) {
            expect(send({message}, count), {"", out_of_memory(first), {throw_new_line(first)}});
        }
    });
    // The vector outlives the call. The next one on the thread, or the thread's end, takes it back.
    row(native, sending, "vector_stays_until_the_next_call_on_the_thread", RowKind::failure, [=] {
        const size_t before = heap().held();
        std::thread thread([&] {
            EXPECT_EQ(send({1, 2}, 2).left, std::vector<size_t>{2 * sizeof(quorlMsg)});
            when<&quorlTransport_Sendv>().status = QUORL_INVALID_MSG;
            EXPECT_EQ(send({1, 2, 3, 4}, 4).left, std::vector<size_t>{4 * sizeof(quorlMsg)});
            EXPECT_EQ(heap().held(), before + 1);
            jvm().fail("GetPrimitiveArrayCritical", 1);
            const Ran ran = send({1, 2, 3}, 3);
            EXPECT_TRUE(ran.left.empty()) << "freed at once when the pin fails";
            EXPECT_EQ(ran.all.back(), throw_new_line(second));
        });
        thread.join();
        EXPECT_EQ(heap().held(), before);
    });
}

void state_sending() {
    state(Native{"QuorlTransport_quorlTransport_1RequestReliability"},
          {.family = sending,
           .invoke =
               [] { return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1RequestReliability, -6, 1.5); },
           .lines = {"quorlTransport_RequestReliability(4294967290, 1.5)"},
           .reports = LIBRARY(quorlTransport_RequestReliability)});
    state(
        Native{"QuorlTransport_quorlTransport_1Send"},
        {.family = sending,
         .invoke = [] { return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1Send, -6, message, nullptr); },
         .lines = {"quorlTransport_Send(4294967290, " + message_text + ")"},
         .reports = LIBRARY(quorlTransport_Send)});
    state(Native{"QuorlTransport_quorlTransport_1SendReply"},
          {.family = sending,
           .invoke =
               [] {
                   return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1SendReply, 6, message,
                               other_message, nullptr, nullptr);
               },
           .lines = {"quorlTransport_SendReply(6, " + message_text + ", " + other_message_text + ")"},
           .reports = LIBRARY(quorlTransport_SendReply)});
    state(Native{"QuorlTransport_quorlTransport_1Destroy"},
          {.family = sending,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1Destroy, -6); },
           .lines = {"quorlTransport_Destroy(4294967290)"},
           .reports = LIBRARY(quorlTransport_Destroy),
           .every_status_is_quiet = true});
    state(Native{"QuorlTransport_quorlTransport_1SetBatchSize"},
          {.family = sending,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1SetBatchSize, 6, -1); },
           .lines = {"quorlTransport_SetBatchSize(6, 4294967295)"},
           .reports = LIBRARY(quorlTransport_SetBatchSize)});

    const Native request = {"QuorlTransport_quorlTransport_1SendRequest"};
    const std::string line = "quorlTransport_SendRequest(6, " + message_text + ", &, -1)";
    auto send = [] {
        return call(&Java_com_vesma_quorl_QuorlTransport_quorlTransport_1SendRequest, 6, message, -1.0, nullptr);
    };
    state(request, {.family = sending,
                    .invoke =
                        [=] {
                            when<&quorlTransport_SendRequest>().does = [](quorlTransport, quorlMsg, quorlMsg* reply,
                                                                          double) {
                                EXPECT_EQ(*reply, nullptr);
                                *reply = to_message(other_message);
                                return QUORL_OK;
                            };
                            return send();
                        },
                    .result = std::to_string(other_message),
                    .lines = {line},
                    .reports = LIBRARY(quorlTransport_SendRequest),
                    .failed_result = "0",
                    .quiet = {{QUORL_TIMEOUT, "0"}}});
    row(request, sending, "timeout_gives_the_reply_variable", RowKind::failure, [=] {
        when<&quorlTransport_SendRequest>().does = [](quorlTransport, quorlMsg, quorlMsg* reply, double) {
            *reply = to_message(-5);
            return QUORL_TIMEOUT;
        };
        expect(send(), {"-5", "", {line}});
    });
}

void state_circuits() {
    const Native accept = {"QuorlVcTransport_quorlTransport_1CreateAcceptVc"};
    auto accept_with = [](quorlTransport id, std::string subject, size_t room) {
        static std::string kept;
        kept = subject;
        when<&quorlTransport_CreateAcceptVc>().does = [id](quorlTransport* circuit, const char** connect,
                                                           quorlTransport) {
            *circuit = id;
            *connect = kept.c_str();
            return QUORL_OK;
        };
        return call(&Java_com_vesma_quorl_QuorlVcTransport_quorlTransport_1CreateAcceptVc, -8,
                    jvm().bytes("subject", std::string(room, 'x')));
    };
    const std::string line = "quorlTransport_CreateAcceptVc(&, &, 4294967288)";
    auto packed = [](quorl_u32 id, quorl_u32 length) {
        return std::to_string(static_cast<jlong>((static_cast<quorl_u64>(id) << 32) | length));
    };
    const std::string twenty = "_INBOX.abcdefgh.1234";
    state(accept, {.family = circuits,
                   .invoke = [=] { return accept_with(77, twenty, 255); },
                   .result = packed(77, 20),
                   .lines = {line, "SetByteArrayRegion(subject, 0, 20, \"" + twenty + "\")"},
                   .reports = LIBRARY(quorlTransport_CreateAcceptVc),
                   .failed_result = "0"});
    row(accept, circuits, "any_id_and_length_are_packed", RowKind::normal, [=] {
        for (quorl_u32 id : {1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            for (size_t length : {size_t{0}, size_t{1}, size_t{254}, size_t{400}, size_t{70'000}}) {
                const Ran ran = accept_with(id, std::string(length, 's'), 70'000);
                EXPECT_EQ(ran.result, packed(id, static_cast<quorl_u32>(length)));
                EXPECT_EQ(ran.thrown, "");
            }
        }
    });
    row(accept, circuits, "short_array_leaves_the_bounds_exception_and_gives_both_values", RowKind::failure, [=] {
        expect(accept_with(77, twenty, 19),
               {packed(77, 20), out_of_bounds, {line, "SetByteArrayRegion(subject, 0, 20, out of bounds)"}});
    });
    row(accept, circuits, "failure_gives_0_whatever_was_written", RowKind::failure, [] {
        when<&quorlTransport_CreateAcceptVc>().does = [](quorlTransport* circuit, const char** connect,
                                                         quorlTransport) {
            *circuit = 9;
            *connect = "abc";
            return QUORL_VC_NOT_CONNECTED;
        };
        const Ran ran = call(&Java_com_vesma_quorl_QuorlVcTransport_quorlTransport_1CreateAcceptVc, -8,
                             jvm().bytes("subject", "xxxxxxxx"));
        EXPECT_EQ(ran.result, "0");
    });

    state(
        Native{"QuorlVcTransport_quorlTransport_1CreateConnectVc"},
        {.family = circuits,
         .invoke =
             [] {
                 when<&quorlTransport_CreateConnectVc>().does = [](quorlTransport* circuit, auto...) {
                     *circuit = 0x87654326u;
                     return QUORL_OK;
                 };
                 const Bytes subject = given("subject", "_INBOX.9");
                 return call(&Java_com_vesma_quorl_QuorlVcTransport_quorlTransport_1CreateConnectVc, -8, subject.array,
                             subject.length);
             },
         .result = "-2023406810",
         .lines = {"GetByteArrayRegion(subject, 0, 8)", "quorlTransport_CreateConnectVc(&, \"_INBOX.9\", 4294967288)"},
         .reports = LIBRARY(quorlTransport_CreateConnectVc),
         .failed_result = "0",
         .bytes = {{"subject", "_INBOX.9"}}});
    state(Native{"QuorlVcTransport_quorlTransport_1WaitForVcConnection"},
          {.family = circuits,
           .invoke =
               [] { return call(&Java_com_vesma_quorl_QuorlVcTransport_quorlTransport_1WaitForVcConnection, -8, 0.5); },
           .lines = {"quorlTransport_WaitForVcConnection(4294967288, 0.5)"},
           .reports = LIBRARY(quorlTransport_WaitForVcConnection)});
}

// The four setters: two texts, the first of one of them in binary form.
void state_credentials(const Native& native, void (*function)(JNIEnv*, jclass, jbyteArray, jint, jbyteArray, jint),
                       const Library& library, bool binary) {
    const std::string first = "certificate", second = "secret";
    const std::string first_text = quoted(first.c_str()) + (binary ? ", 11" : "");
    auto invoke = [=] {
        const Bytes one = given("one", first), two = given("two", second);
        return call(function, one.array, one.length, two.array, two.length);
    };
    const Lines lines = {"GetByteArrayRegion(one, 0, 11)", "GetByteArrayRegion(two, 0, 6)",
                         library.name + "(" + first_text + ", \"secret\")"};
    state(
        native,
        {.family = credentials,
         .invoke = invoke,
         .lines = lines,
         .reports = library,
         .refusals = {{out_of_memory(no_service), "", Lines{throw_new_line(no_service)}},
                      {out_of_memory(no_service), "", Lines{lines[0], throw_new_line(no_service)}}},
         .bytes = {
             {.label = "one", .canonical = first, .binary = binary, .called_over_failed_copy = {"GetByteArrayRegion"}},
             {.label = "two", .canonical = second}}});
    row(native, credentials, "no_memory_after_a_failed_copy_leaves_its_exception", RowKind::failure, [=] {
        heap().fail(2);
        const Ran ran = call(function, jvm().bytes("one", "abc"), 4, jvm().bytes("two", second), 6);
        expect(ran, {"", out_of_bounds, {"GetByteArrayRegion(one, 0, 4)"}});
    });
    row(native, credentials, "both_null", RowKind::normal, [=] {
        const Ran ran = call(function, nullptr, 12, nullptr, 34);
        EXPECT_EQ(ran.all, Lines{library.name + (binary ? "(null, 12, null)" : "(null, null)")});
    });
    row(native, credentials, "no_memory_for_the_second_alone", RowKind::failure, [=] {
        heap().fail(1);
        const Ran ran = call(function, nullptr, 0, jvm().bytes("two", second), 6);
        expect(ran, {"", out_of_memory(no_service), {throw_new_line(no_service)}});
    });
    row(native, credentials, "blocks_are_wiped_before_they_are_freed", RowKind::failure, [=] {
        for (quorl_status status : {QUORL_OK, QUORL_USERPASS_MISMATCH}) {
            library.function->status = status;
            heap().want_wiped_blocks();
            EXPECT_EQ(invoke().lines[2], lines[2]) << "the library sees them whole";
        }
        heap().fail(2);
        heap().want_wiped_blocks();
        EXPECT_EQ(invoke().thrown, out_of_memory(no_service));
    });
    row(native, credentials, "blocks_are_freed_before_the_status_is_thrown", RowKind::failure, [=] {
        library.function->status = QUORL_USERPASS_MISMATCH;
        const Lines all = invoke().all;
        ASSERT_EQ(all.size(), 9u);
        EXPECT_EQ(all[0], binary ? "alloc(11)" : "alloc(12)");
        EXPECT_EQ(all[2], "alloc(7)");
        EXPECT_EQ(all[4], lines[2]);
        EXPECT_EQ((std::set<std::string>{all[5], all[6]}),
                  (std::set<std::string>{binary ? "free(11)" : "free(12)", "free(7)"}));
        EXPECT_EQ(all[7], new_exception_line(81));
    });
}

}  // namespace

void state_transports() {
    state_creation();
    state_description();
    state_inbox();
    state_vector_send();
    state_sending();
    state_circuits();
    state_credentials(NATIVE(QuorlSdContext_quorlSecureDaemon_1SetDaemonCert), LIBRARY(quorlSecureDaemon_SetDaemonCert),
                      false);
    state_credentials(NATIVE(QuorlSdContext_quorlSecureDaemon_1SetUserCertWithKey),
                      LIBRARY(quorlSecureDaemon_SetUserCertWithKey), false);
    state_credentials(NATIVE(QuorlSdContext_quorlSecureDaemon_1SetUserCertWithKeyBin),
                      LIBRARY(quorlSecureDaemon_SetUserCertWithKeyBin), true);
    state_credentials(NATIVE(QuorlSdContext_quorlSecureDaemon_1SetUserNameWithPassword),
                      LIBRARY(quorlSecureDaemon_SetUserNameWithPassword), false);
    const Native binary = {"QuorlSdContext_quorlSecureDaemon_1SetUserCertWithKeyBin"};
    row(binary, credentials, "zero_bytes_arrive_with_the_rest", RowKind::normal, [] {
        const std::string content("a\0b\0\0c", 6);
        expect(call(&Java_com_vesma_quorl_QuorlSdContext_quorlSecureDaemon_1SetUserCertWithKeyBin,
                    jvm().bytes("one", content), 6, nullptr, 0),
               {"",
                "",
                {"GetByteArrayRegion(one, 0, 6)",
                 "quorlSecureDaemon_SetUserCertWithKeyBin(\"a\\x00b\\x00\\x00c\", 6, null)"}});
    });
}

}  // namespace contract
