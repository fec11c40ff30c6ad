// The contracts of the natives that read, add and update fields of opaque bytes, XML and user types.
#include <gtest/gtest.h>
#include <cstring>

#include "com_vesma_quorl_QuorlMsg.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string family = "opaque data, XML and user types";
const std::string no_bytes = "Cannot allocate memory for message bytes.";
const std::string field_line = "quorlMsg_GetFieldByIndex(" + message_text + ", &, 3)";
constexpr jshort id = -2;  // 65534 for the library
const std::string content = std::string("<a>\0\xff</a>", 9);

// ---- reading ----

template <class Function>
void state_getter(Native native, Function* function, bool marked) {
    auto bracketed = [marked](Lines lines) {
        if (marked) {
            lines.insert(lines.begin(), "quorlMsg_MarkReferences(" + message_text + ")");
            lines.push_back("quorlMsg_ClearReferences(" + message_text + ")");
        }
        return lines;
    };
    auto with = [=](quorl_u32 size, size_t room, jint index) {
        when<&quorlMsg_GetFieldByIndex>().does = [size](quorlMsg, quorlMsgField* field, quorl_u32) {
            *field = {};
            field->size = size;
            field->count = 1;
            field->data.buf = content.data();
            field->type = QUORLMSG_BOOL;  // never looked at
            return QUORL_OK;
        };
        return call(function, message, index, jvm().bytes("bytes", std::string(room, 'z')), nullptr);
    };
    state(native,
          {.family = family,
           .invoke = [=] { return with(9, 12, 65536 + 3); },
           .lines = bracketed({field_line, "SetByteArrayRegion(bytes, 0, 9, " + quoted(content.data(), 9) + ")"}),
           .reports = LIBRARY(quorlMsg_GetFieldByIndex),
           .order = Contract::Order::build_first});
    row(native, family, "message_has_no_bytes", RowKind::failure, [=] {
        when<&quorlMsg_GetFieldByIndex>().does = [](quorlMsg, quorlMsgField* field, quorl_u32) {
            *field = {};
            field->count = 1;
            field->type = QUORLMSG_MSG;
            return QUORL_OK;
        };
        EXPECT_NE(call(function, message, 3, jvm().bytes("bytes", "zzz"), nullptr).thrown, "");
    });
    row(native, family, "field_without_bytes_writes_none", RowKind::normal, [=] {
        expect(with(0, 3, 3), {"", "", bracketed({field_line, "SetByteArrayRegion(bytes, 0, 0, nothing)"})});
    });
    row(native, family, "array_that_is_too_short_leaves_the_machines_exception", RowKind::failure, [=] {
        expect(with(9, 8, 3),
               {"", out_of_bounds, bracketed({field_line, "SetByteArrayRegion(bytes, 0, 9, out of bounds)"})});
    });
}

// ---- adding and updating ----

const Lines pin = {"GetPrimitiveArrayCritical(bytes)"};
const Lines unpin = {"ReleasePrimitiveArrayCritical(bytes, 2)"};

Lines joined_lines(const std::vector<Lines>& parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

using CallWithBytes = std::function<Ran(const std::string& bytes, jint length)>;

// What all eight adders and updaters, and the four of user types, have in common.
void state_setter(const Native& native, const Library& library, const CallWithBytes& with, const std::string& line,
                  bool utf) {
    const Lines before = {utf ? "GetStringUTFChars(name)" : "GetByteArrayRegion(name, 0, 5)"};
    const Lines after = utf ? Lines{"ReleaseStringUTFChars(name)"} : Lines{};
    Contract contract = {.family = family,
                         .invoke = [=] { return with(content + "beyond", 9); },
                         .lines = joined_lines({before, pin, {line}, unpin, after}),
                         .reports = library,
                         .element = "Byte"};
    contract.faults = {{.function = "GetPrimitiveArrayCritical",
                        .thrown = out_of_memory(no_bytes),
                        .lines = joined_lines({before, pin, after, {throw_new_line(no_bytes)}})}};
    if (utf) {
        contract.faults.push_back({.function = "GetStringUTFChars",
                                   .thrown = out_of_memory(no_bytes),
                                   .lines = Lines{before[0], throw_new_line(no_bytes)}});
    } else {
        contract.bytes = {
            {.label = "name", .canonical = "price", .called_over_failed_copy = {"GetPrimitiveArrayCritical"}}};
    }
    state(native, contract);
}

template <class Function>
void state_block(Native native, Function* function, Library library) {
    constexpr bool utf =
        std::is_invocable_v<Function, JNIEnv*, jclass, jlong, jstring, jbyteArray, jint, jshort, jobject>;
    const CallWithBytes with = [=](const std::string& bytes, jint length) {
        const jbyteArray array = jvm().bytes("bytes", bytes);
        if constexpr (utf) {
            return call(function, message, jvm().string("name", "price"), array, length, id, nullptr);
        } else {
            const Bytes name = given("name", "price");
            return call(function, message, name.array, name.length, array, length, id, nullptr);
        }
    };
    auto line = [library](const std::string& bytes, const std::string& size) {
        return library.name + "(" + message_text + ", \"price\", " + bytes + ", " + size + ", 65534)";
    };
    state_setter(native, library, with, line(quoted(content.data(), 9), "9"), utf);
    row(native, family, "length_is_the_one_given", RowKind::normal, [=] {
        Ran ran = with("abc", 0);
        EXPECT_EQ(ran.lines[2], line("\"\"", "0"));
        ran = with("abc", 2);
        EXPECT_EQ(ran.lines[2], line("\"ab\"", "2"));
        ran = with("abc", -1);
        EXPECT_EQ(ran.lines[2], line("unread", "4294967295"));
    });
}

template <class Function>
void state_user_type(Native native, Function* function, Library library) {
    constexpr bool utf =
        std::is_invocable_v<Function, JNIEnv*, jclass, jlong, jshort, jstring, jbyteArray, jint, jshort, jobject>;
    auto with_type = [=](jshort type, const std::string& bytes, jint length) {
        const jbyteArray array = jvm().bytes("bytes", bytes);
        if constexpr (utf) {
            return call(function, message, type, jvm().string("name", "price"), array, length, id, nullptr);
        } else {
            const Bytes name = given("name", "price");
            return call(function, message, type, name.array, name.length, array, length, id, nullptr);
        }
    };
    auto line = [library](int type, const std::string& bytes, quorl_u32 size) {
        quorlMsgField record = {};
        record.name = "price";
        record.size = size;
        record.count = 1;
        record.data.buf = bytes.data();
        record.id = 65534;
        record.type = static_cast<quorl_u8>(type);
        return library.name + "(" + message_text + ", " + field(&record) + ")";
    };
    state_setter(
        native, library, [=](const std::string& bytes, jint length) { return with_type(200, bytes, length); },
        line(200, content, 9), utf);
    row(native, family, "type_is_used_by_its_low_8_bits", RowKind::normal, [=] {
        for (const auto& [type, used] :
             std::map<int, int>{{0, 0}, {255, 255}, {256, 0}, {0x1FF, 255}, {-1, 255}, {-32768, 0}}) {
            EXPECT_EQ(with_type(static_cast<jshort>(type), "abc", 3).lines[2], line(used, "abc", 3)) << type;
        }
    });
    row(native, family, "bytes_of_a_numbers_code_are_the_number", RowKind::normal, [=] {
        for (const auto& [type, size] :
             std::map<int, quorl_u32>{{QUORLMSG_I64, 8}, {QUORLMSG_DATETIME, sizeof(quorlMsgDateTime)}}) {
            quorlMsgField record = {};
            record.name = "price";
            record.size = size;
            record.count = 1;
            record.id = 65534;
            record.type = static_cast<quorl_u8>(type);
            // The recorder takes every value for an address: a number that is one.
            record.data.buf = content.data();
            std::string bytes(size, '\0');
            std::memcpy(bytes.data(), &record.data.buf, sizeof record.data.buf);
            EXPECT_EQ(with_type(static_cast<jshort>(type), bytes, static_cast<jint>(size)).lines[2],
                      library.name + "(" + message_text + ", " + field(&record) + ")")
                << type;
        }
    });
    row(native, family, "bytes_of_another_size_are_bytes", RowKind::normal, [=] {
        for (const int type : {QUORLMSG_BOOL, QUORLMSG_I8, QUORLMSG_U16, QUORLMSG_I32}) {
            EXPECT_EQ(with_type(static_cast<jshort>(type), "abc", 3).lines[2], line(type, "abc", 3)) << type;
        }
    });
    row(native, family, "no_bytes", RowKind::normal,
        [=] { EXPECT_EQ(with_type(130, "abc", 0).lines[2], line(130, "", 0)); });
}

void state_handlers() {
    const auto [native, function] = std::pair{NATIVE(QuorlMsg_quorlMsg_1SetOpaqueHandlers)};
    state(native, {.family = family,
                   .invoke = [function = function] { return call(function, 0x1FE); },
                   .lines = {"quorlMsg_SetOpaqueHandlers(254)"},
                   .reports = LIBRARY(quorlMsg_SetOpaqueHandlers)});
    row(native, family, "type_is_used_by_its_low_8_bits", RowKind::normal, [function = function] {
        for (const auto& [type, used] : std::map<int, std::string>{{0, "0"}, {255, "255"}, {256, "0"}, {-1, "255"}}) {
            expect(call(function, type), {"", "", {"quorlMsg_SetOpaqueHandlers(" + used + ")"}});
        }
    });
}

}  // namespace

// clang-format off
void state_opaque() {
    row({"QuorlMsg_quorlMsg_1GetString"}, family, "message_is_no_string", RowKind::failure, [] {
        when<&quorlMsg_GetFieldByIndex>().does = [](quorlMsg, quorlMsgField* field, quorl_u32) {
            *field = {};
            field->count = 1;
            field->type = QUORLMSG_MSG;
            return QUORL_OK;
        };
        EXPECT_NE(call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetString, message, 3, jvm().bytes("bytes", "zzz"),
                       nullptr).thrown, "");
    });
    state_getter(NATIVE(QuorlMsg_quorlMsg_1GetOpaque),   false);
    state_getter(NATIVE(QuorlMsg_quorlMsg_1GetXml),      true);
    state_getter(NATIVE(QuorlMsg_quorlMsg_1GetUserType), false);

    state_block(NATIVE(QuorlMsg_quorlMsg_1AddOpaque),       LIBRARY(quorlMsg_AddOpaqueEx));
    state_block(NATIVE(QuorlMsg_quorlMsg_1UpdateOpaque),    LIBRARY(quorlMsg_UpdateOpaqueEx));
    state_block(NATIVE(QuorlMsg_quorlMsg_1AddOpaqueUTF),    LIBRARY(quorlMsg_AddOpaqueEx));
    state_block(NATIVE(QuorlMsg_quorlMsg_1UpdateOpaqueUTF), LIBRARY(quorlMsg_UpdateOpaqueEx));
    state_block(NATIVE(QuorlMsg_quorlMsg_1AddXml),          LIBRARY(quorlMsg_AddXmlEx));
    state_block(NATIVE(QuorlMsg_quorlMsg_1UpdateXml),       LIBRARY(quorlMsg_UpdateXmlEx));
    state_block(NATIVE(QuorlMsg_quorlMsg_1AddXmlUTF),       LIBRARY(quorlMsg_AddXmlEx));
    state_block(NATIVE(QuorlMsg_quorlMsg_1UpdateXmlUTF),    LIBRARY(quorlMsg_UpdateXmlEx));

    state_user_type(NATIVE(QuorlMsg_quorlMsg_1AddUserType),       LIBRARY(quorlMsg_AddField));
    state_user_type(NATIVE(QuorlMsg_quorlMsg_1UpdateUserType),    LIBRARY(quorlMsg_UpdateField));
    state_user_type(NATIVE(QuorlMsg_quorlMsg_1AddUserTypeUTF),    LIBRARY(quorlMsg_AddField));
    state_user_type(NATIVE(QuorlMsg_quorlMsg_1UpdateUserTypeUTF), LIBRARY(quorlMsg_UpdateField));

    state_handlers();
}
// clang-format on

}  // namespace contract
