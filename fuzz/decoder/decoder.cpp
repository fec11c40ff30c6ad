// Fuzz target: bytes from outside as a wire image. What is accepted is read in every way there is, and must give the
// very same bytes when it is put together again field by field.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "message/attributes.h"
#include "message/delivery.h"
#include "message/wire.h"
#include "quorl/private.h"

namespace {

using namespace quorl::message;

volatile uint64_t sink;

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s (%s)\n", what, quorl_LastErrorText());
    std::abort();
}

void touch(const void* bytes, size_t size) {
    uint64_t sum = 0;
    for (size_t i = 0; i < size; ++i) sum += static_cast<const uint8_t*>(bytes)[i];
    sink = sink + sum;
}

void readAll(quorlMsg message, int level);

void readField(quorlMsg message, const quorlMsgField& field, int level) {
    if (field.name != nullptr) require(std::strlen(field.name) <= QUORL_FIELD_NAME_MAX, "a name is too long");
    switch (field.type) {
        case QUORLMSG_STRING:
            require(std::strlen(field.data.str) + 1 == field.size, "a string's size is wrong");
            break;
        case QUORLMSG_MSG:
            readAll(field.data.msg, level + 1);
            break;
        case QUORLMSG_MSGARRAY:
            for (quorl_u32 i = 0; i < field.count; ++i) {
                readAll(static_cast<const quorlMsg*>(field.data.array)[i], level + 1);
            }
            break;
        case QUORLMSG_STRINGARRAY:
            for (quorl_u32 i = 0; i < field.count; ++i) {
                const char* text = static_cast<const char* const*>(field.data.array)[i];
                touch(text, std::strlen(text) + 1);
            }
            break;
        default:
            if (field.type >= QUORLMSG_I8ARRAY && field.type <= QUORLMSG_F64ARRAY) {
                require(reinterpret_cast<uintptr_t>(field.data.array) % field.size == 0, "an array is not aligned");
                touch(field.data.array, size_t{field.size} * field.count);
            } else if (field.type == QUORLMSG_OPAQUE || field.type == QUORLMSG_XML ||
                       field.type >= QUORLMSG_USER_FIRST) {
                touch(field.data.buf, field.size);
            }
    }
    quorl_bool boolean;
    quorl_i8 small;
    quorl_u64 large;
    quorl_f32 single;
    quorl_f64 twice;
    quorlMsg_GetBoolEx(message, field.name, &boolean, field.id);
    quorlMsg_GetI8Ex(message, field.name, &small, field.id);
    quorlMsg_GetU64Ex(message, field.name, &large, field.id);
    quorlMsg_GetF32Ex(message, field.name, &single, field.id);
    quorlMsg_GetF64Ex(message, field.name, &twice, field.id);
}

void readAll(quorlMsg message, int level) {
    require(level <= QUORL_MSG_MAX_DEPTH, "messages are nested too deeply");
    quorl_u32 count = 0;
    require(quorlMsg_GetNumFields(message, &count) == QUORL_OK, "an accepted message has no fields to count");
    quorlMsg rebuilt;
    require(quorlMsg_Create(&rebuilt) == QUORL_OK, "no message can be made");
    std::map<quorl_u16, quorlMsgField> firsts;  // several fields of one name may share an id: the first is found by it
    for (quorl_u32 i = 0; i < count; ++i) {
        quorlMsgField field;
        quorlMsgField found;
        require(quorlMsg_GetFieldByIndex(message, &field, i) == QUORL_OK, "a field cannot be read");
        readField(message, field, level);
        require(quorlMsg_GetFieldEx(message, field.name, &found, field.id) == QUORL_OK, "a field cannot be found");
        require(found.id == field.id || field.id == 0, "another field is found by id");
        const quorlMsgField& first = firsts.try_emplace(field.id, field).first->second;
        require(field.id == 0 || (found.type == first.type && found.count == first.count && found.size == first.size),
                "the field that is found differs");
        require(quorlMsg_AddField(rebuilt, &field) == QUORL_OK, "a field cannot be added");
    }
    const void* bytes = nullptr;
    const void* again = nullptr;
    quorl_u32 size = 0;
    quorl_u32 sizeAgain = 0;
    quorlMsg_GetAsBytes(message, &bytes);
    quorlMsg_GetByteSize(message, &size);
    quorlMsg_GetAsBytes(rebuilt, &again);
    quorlMsg_GetByteSize(rebuilt, &sizeAgain);
    require(size == sizeAgain && std::memcmp(bytes, again, size) == 0, "an accepted image has another form");
    quorlMsg_Destroy(rebuilt);
    const char* text = nullptr;
    require(quorlMsg_ConvertToString(message, &text) == QUORL_OK, "a message cannot be printed");
    touch(text, std::strlen(text));
}

void readTrailer(const uint8_t* data, size_t size) {
    Attributes attributes;
    size_t used = 0;
    if (!trailer::read(data, size, &attributes, &used)) return;
    require(!attributes.empty() && attributes.size() <= attributesMax, "a trailer has attributes that none can have");
    require(used == trailer::sizeFor(attributes.size()) && used <= size, "a trailer claims more than there is");
    require(attributes.data() + attributes.size() == data + used, "the attributes are not at the trailer's end");
    std::vector<uint8_t> again(used);
    trailer::write(again.data(), attributes);
    require(std::memcmp(again.data(), data, used) == 0, "an accepted trailer has another form");
}

void decode(const uint8_t* data, size_t size) {
    ContentRef content;
    if (contentFromBytes(data, size, "fuzz.in", "", &content) != QUORL_OK) return;
    quorlMsg message = nullptr;
    require(deliver(content, 0, &message) == QUORL_OK, "an accepted content cannot be delivered");
    readAll(message, 0);
    const void* bytes = nullptr;
    quorlMsg_GetAsBytes(message, &bytes);
    require(std::memcmp(bytes, data, size) == 0, "an accepted image is not kept as it is");
    finishDelivery(message);

    quorlMsg read = nullptr;
    require(quorlMsg_CreateFromBytes(&read, data) == QUORL_OK, "two readers disagree");
    quorlMsg_Destroy(read);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    decode(data, size);
    readTrailer(data, size);
    // With a header that fits, so that what lies behind it is looked at however long it is.
    if (size > wire::headerSize) {
        std::vector<uint8_t> fitted(data, data + size);
        wire::store(fitted.data(), wire::magic);
        wire::store(fitted.data() + wire::sizeAt, static_cast<uint32_t>(size));
        decode(fitted.data(), size);
    }
    return 0;
}
