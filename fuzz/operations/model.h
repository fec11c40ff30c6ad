// A message as a plain list of fields, and random operations done to a real message and to the list at once.
//
// run() reads its decisions from bytes: the fuzzer's, or a generator's in the tests. It answers what went wrong first,
// or nothing. It uses only the C interface.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quorl/private.h"
#include "quorl/quorl.h"

namespace quorl::operations {

struct Model;

struct ModelField {
    std::optional<std::string> name;
    quorl_u16 id = 0;
    quorl_u8 type = 0;
    quorl_u32 size = 0;  // as quorlMsgField.size; of messages not compared
    quorl_u32 count = 1;
    std::string bytes;  // scalars (as in quorlLocalData), numbers, strings without terminator, opaque bytes
    std::vector<std::string> texts;                      // of an array of strings
    std::vector<std::shared_ptr<const Model>> messages;  // one, or those of an array
};

struct Model {
    std::vector<ModelField> fields;
    std::string sendSubject;
    std::string replySubject;
};

// Decisions, one after the other; zeros when they are used up.
class Decisions {
  public:
    Decisions(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}
    bool empty() const { return at_ == end_; }
    uint8_t byte() { return empty() ? 0 : *at_++; }
    uint32_t below(uint32_t limit) { return (byte() | uint32_t{byte()} << 8) % limit; }
    uint64_t word() {
        uint64_t value = 0;
        for (int i = 0; i < 8; ++i) value = value << 8 | byte();
        return value;
    }
    std::string text(uint32_t length) {
        std::string text(length, '\0');
        for (char& each : text) each = static_cast<char>(byte());
        return text;
    }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
};

// A message that is destroyed at the end of its scope.
class Holder {
  public:
    Holder() { quorlMsg_Create(&message_); }
    explicit Holder(quorlMsg message) : message_(message) {}
    Holder(Holder&& other) noexcept : message_(other.message_) { other.message_ = nullptr; }
    Holder& operator=(Holder&& other) noexcept {
        std::swap(message_, other.message_);
        return *this;
    }
    ~Holder() {
        if (message_ != nullptr) quorlMsg_Destroy(message_);
    }
    quorlMsg get() const { return message_; }

  private:
    quorlMsg message_ = nullptr;
};

inline quorl_u32 elementSize(quorl_u8 type) {
    switch (type) {
        case QUORLMSG_I8:
        case QUORLMSG_U8:
            return 1;
        case QUORLMSG_I16:
        case QUORLMSG_U16:
        case QUORLMSG_IPPORT16:
            return 2;
        case QUORLMSG_BOOL:
        case QUORLMSG_I32:
        case QUORLMSG_U32:
        case QUORLMSG_F32:
        case QUORLMSG_IPADDR32:
            return 4;
        case QUORLMSG_I64:
        case QUORLMSG_U64:
        case QUORLMSG_F64:
            return 8;
        case QUORLMSG_DATETIME:
            return sizeof(quorlMsgDateTime);
        default:
            return 0;
    }
}

inline bool isNumbers(quorl_u8 type) {
    return type >= QUORLMSG_I8ARRAY && type <= QUORLMSG_F64ARRAY;
}
inline bool isBytes(quorl_u8 type) {
    return type == QUORLMSG_OPAQUE || type == QUORLMSG_XML || type >= QUORLMSG_USER_FIRST;
}

class Run {
  public:
    Run(const uint8_t* data, size_t size) : decide_(data, size) {}

    // What the operations have made of the message.
    quorlMsg message() const { return message_.get(); }

    // The first difference, or nullptr.
    const char* run() {
        while (!decide_.empty() && wrong_ == nullptr) {
            step();
            if (wrong_ == nullptr) compare(message_.get(), model_, 0);
            if (wrong_ == nullptr) compareSubjects(message_.get(), model_);
        }
        for (const auto& kept : copies_) {
            if (wrong_ == nullptr) compare(kept.first.get(), kept.second, 0);
        }
        closeBrackets();
        return wrong_;
    }

  private:
    void expect(bool holds, const char* what) {
        if (!holds && wrong_ == nullptr) wrong_ = what;
    }
    void expect(quorl_status wanted, quorl_status got, const char* what) { expect(wanted == got, what); }

    // ---- random values ------------------------------------------------------------------------------------------

    std::optional<std::string> randomName() {
        const uint8_t choice = decide_.byte();
        if (choice < 20) return std::nullopt;
        if (choice < 30) return std::string();
        if (choice < 40) return std::string(127, 'n');
        std::string name = "name" + std::to_string(choice % 24);
        if (choice > 200) name += "-which-is-rather-long-for-a-name-" + std::to_string(choice % 5);
        return name;
    }

    quorl_u16 randomId() {
        const uint8_t choice = decide_.byte();
        return choice < 150 ? 0 : static_cast<quorl_u16>(choice < 250 ? choice % 40 : 65535 - choice % 3);
    }

    quorl_u8 randomType() {
        static constexpr quorl_u8 types[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,  16,
                                             17, 18, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 47, 48, 128, 255};
        return types[decide_.byte() % sizeof types];
    }

    uint32_t randomLength() {
        const uint8_t choice = decide_.byte();
        return choice < 220 ? choice % 24 : choice < 250 ? choice : choice * 17;
    }

    std::shared_ptr<const Model> randomMessage(int level) {
        auto model = std::make_shared<Model>();
        for (uint32_t fields = decide_.byte() % 4; fields > 0; --fields) {
            ModelField field = randomField(level + 1);
            for (const auto& other : model->fields) {
                if (field.id == other.id && field.name != other.name) field.id = 0;
            }
            model->fields.push_back(std::move(field));
        }
        return model;
    }

    ModelField randomField(int level) {
        ModelField field;
        field.name = randomName();
        field.id = randomId();
        field.type = randomType();
        if (level > 3 && (field.type == QUORLMSG_MSG || field.type == QUORLMSG_MSGARRAY)) field.type = QUORLMSG_I32;
        randomValue(field, level);
        return field;
    }

    void randomValue(ModelField& field, int level) {
        field.count = 1;
        field.bytes.clear();
        field.texts.clear();
        field.messages.clear();
        if (field.type == QUORLMSG_STRING) {
            field.bytes = randomText();
            field.size = static_cast<quorl_u32>(field.bytes.size()) + 1;
        } else if (isBytes(field.type)) {
            field.bytes = decide_.text(randomLength());
            field.size = static_cast<quorl_u32>(field.bytes.size());
        } else if (field.type == QUORLMSG_MSG) {
            field.messages.push_back(randomMessage(level));
        } else if (field.type == QUORLMSG_MSGARRAY) {
            field.size = sizeof(quorlMsg);
            field.count = decide_.byte() % 4;
            for (uint32_t i = 0; i < field.count; ++i) field.messages.push_back(randomMessage(level));
        } else if (field.type == QUORLMSG_STRINGARRAY) {
            field.size = sizeof(const char*);
            field.count = decide_.byte() % 5;
            for (uint32_t i = 0; i < field.count; ++i) field.texts.push_back(randomText());
        } else if (isNumbers(field.type)) {
            field.size = elementSize(static_cast<quorl_u8>(field.type - 32));
            field.count = randomLength();
            field.bytes = decide_.text(field.size * field.count);
        } else {
            field.size = elementSize(field.type);
            quorlLocalData data;
            std::memset(&data, 0, sizeof data);
            const uint64_t value = decide_.word();
            std::memcpy(&data, &value, std::min<size_t>(sizeof value, field.size));
            if (field.type == QUORLMSG_BOOL) data.boolean = value % 2 != 0 ? QUORL_TRUE : QUORL_FALSE;
            if (field.type == QUORLMSG_DATETIME) data.date.nsec = static_cast<quorl_u32>(value % 1'000'000'000);
            field.bytes.assign(reinterpret_cast<const char*>(&data), scalarBytes(field.type));
        }
    }

    // Of a date-time without the padding behind it.
    static size_t scalarBytes(quorl_u8 type) { return type == QUORLMSG_DATETIME ? 12 : elementSize(type); }

    std::string randomText() {
        std::string text = decide_.text(randomLength());
        std::replace(text.begin(), text.end(), '\0', '0');
        return text;
    }

    // ---- from the model to a message ----------------------------------------------------------------------------

    // A field record whose pointers live as long as this.
    struct Record {
        quorlMsgField field{};
        std::vector<const char*> texts;
        std::vector<Holder> holders;
        std::vector<quorlMsg> messages;
    };

    static void fillRecord(const ModelField& from, Record& to) {
        to.field.name = from.name ? from.name->c_str() : nullptr;
        to.field.id = from.id;
        to.field.type = from.type;
        to.field.size = from.size;
        to.field.count = from.count;
        for (const auto& inner : from.messages) {
            to.holders.emplace_back();
            for (const auto& field : inner->fields) add(to.holders.back().get(), field);
            to.messages.push_back(to.holders.back().get());
        }
        for (const auto& text : from.texts) to.texts.push_back(text.c_str());
        if (from.type == QUORLMSG_STRING) {
            to.field.data.str = from.bytes.c_str();
        } else if (isBytes(from.type)) {
            to.field.data.buf = from.bytes.data();
        } else if (from.type == QUORLMSG_MSG) {
            to.field.data.msg = to.messages[0];
        } else if (from.type == QUORLMSG_MSGARRAY) {
            to.field.data.array = to.messages.data();
        } else if (from.type == QUORLMSG_STRINGARRAY) {
            to.field.data.array = to.texts.data();
        } else if (isNumbers(from.type)) {
            to.field.data.array = from.bytes.data();
        } else {
            std::memcpy(&to.field.data, from.bytes.data(), from.bytes.size());
        }
    }

    static quorl_status add(quorlMsg message, const ModelField& field) {
        Record record;
        fillRecord(field, record);
        return quorlMsg_AddField(message, &record.field);
    }

    // ---- comparing ----------------------------------------------------------------------------------------------

    void compare(quorlMsg message, const Model& model, int level) {
        quorl_u32 count = 0;
        expect(QUORL_OK, quorlMsg_GetNumFields(message, &count), "GetNumFields fails");
        expect(count == model.fields.size(), "the number of fields differs");
        for (quorl_u32 i = 0; i < count && wrong_ == nullptr; ++i) {
            quorlMsgField field;
            expect(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, i), "GetFieldByIndex fails");
            if (wrong_ == nullptr) compareField(field, model.fields[i], level);
        }
        quorlMsgField none;
        expect(QUORL_NOT_FOUND, quorlMsg_GetFieldByIndex(message, &none, count), "a field too many");
    }

    void compareField(const quorlMsgField& got, const ModelField& want, int level) {
        expect((got.name != nullptr) == want.name.has_value(), "a name is missing or too many");
        expect(!want.name || *want.name == got.name, "a name differs");
        expect(got.id == want.id, "an id differs");
        expect(got.type == want.type, "a type differs");
        expect(got.count == want.count, "a count differs");
        if (wrong_ != nullptr) return;
        if (want.type == QUORLMSG_MSG) {
            quorl_u32 size = 0;
            expect(QUORL_OK, quorlMsg_GetByteSize(got.data.msg, &size), "an inner message is dead");
            expect(size == got.size, "an inner message's size differs");
            compare(got.data.msg, *want.messages[0], level + 1);
            return;
        }
        expect(got.size == want.size, "a size differs");
        if (wrong_ != nullptr) return;
        if (want.type == QUORLMSG_MSGARRAY) {
            for (quorl_u32 i = 0; i < got.count; ++i) {
                compare(static_cast<const quorlMsg*>(got.data.array)[i], *want.messages[i], level + 1);
            }
        } else if (want.type == QUORLMSG_STRINGARRAY) {
            for (quorl_u32 i = 0; i < got.count; ++i) {
                expect(want.texts[i] == static_cast<const char* const*>(got.data.array)[i], "a text differs");
            }
        } else if (want.type == QUORLMSG_STRING) {
            expect(want.bytes == got.data.str, "a string differs");
        } else if (isBytes(want.type)) {
            expect(want.bytes.empty() || std::memcmp(want.bytes.data(), got.data.buf, got.size) == 0, "bytes differ");
        } else if (isNumbers(want.type)) {
            expect(reinterpret_cast<uintptr_t>(got.data.array) % got.size == 0, "an array is not aligned");
            expect(want.bytes.empty() || std::memcmp(want.bytes.data(), got.data.array, want.bytes.size()) == 0,
                   "an array differs");
        } else {
            expect(std::memcmp(want.bytes.data(), &got.data, want.bytes.size()) == 0, "a scalar differs");
        }
    }

    void compareSubjects(quorlMsg message, const Model& model) {
        const char* subject = nullptr;
        quorl_status status = quorlMsg_GetSendSubject(message, &subject);
        expect(
            model.sendSubject.empty() ? status == QUORL_NOT_FOUND : status == QUORL_OK && model.sendSubject == subject,
            "the send subject differs");
        status = quorlMsg_GetReplySubject(message, &subject);
        expect(model.replySubject.empty() ? status == QUORL_NOT_FOUND
                                          : status == QUORL_OK && model.replySubject == subject,
               "the reply subject differs");
    }

    // ---- operations ---------------------------------------------------------------------------------------------

    // The field that name and id mean, as the header says it.
    quorl_status locate(const std::optional<std::string>& name, quorl_u16 id, size_t* index) const {
        for (size_t i = 0; i < model_.fields.size(); ++i) {
            const ModelField& field = model_.fields[i];
            if (id != 0 ? field.id != id : field.name != name) continue;
            if (id != 0 && name && field.name != name) return QUORL_ID_CONFLICT;
            *index = i;
            return QUORL_OK;
        }
        return QUORL_NOT_FOUND;
    }

    static const char* text(const std::optional<std::string>& name) { return name ? name->c_str() : nullptr; }

    void step() {
        switch (decide_.byte() % 16) {
            case 0:
            case 1:
            case 2:
            case 3:
                return addField();
            case 4:
            case 5:
                return updateField();
            case 6:
                return updateSameType();
            case 7:
                return removeField();
            case 8:
                return removeInstance();
            case 9:
                return find();
            case 10:
                return keepCopy();
            case 11:
                return throughBytes();
            case 12:
                return setSubject();
            case 13:
                return bracket();
            case 14:
                return addOwnInner();
            default:
                return rarely();
        }
    }

    void addField() {
        const ModelField field = randomField(0);
        const bool taken =
            field.id != 0 && std::any_of(model_.fields.begin(), model_.fields.end(), [&](const ModelField& each) {
                return each.id == field.id && each.name != field.name;
            });
        expect(taken ? QUORL_ID_IN_USE : QUORL_OK, add(message_.get(), field), "AddField answers otherwise");
        if (!taken) model_.fields.push_back(field);
    }

    void put(const ModelField& field) {
        Record record;
        fillRecord(field, record);
        size_t index = 0;
        quorl_status wanted = locate(field.name, field.id, &index);
        if (wanted == QUORL_NOT_FOUND) {
            wanted = QUORL_OK;
            index = model_.fields.size();
        } else if (wanted == QUORL_OK && model_.fields[index].type != field.type) {
            wanted = QUORL_INVALID_TYPE;
        }
        expect(wanted, quorlMsg_UpdateField(message_.get(), &record.field), "UpdateField answers otherwise");
        if (wanted != QUORL_OK) return;
        if (index == model_.fields.size()) {
            model_.fields.push_back(field);
        } else {
            ModelField changed = field;
            changed.name = model_.fields[index].name;
            changed.id = model_.fields[index].id;
            model_.fields[index] = changed;
        }
    }

    void updateField() { put(randomField(0)); }

    void updateSameType() {
        if (model_.fields.empty()) return;
        ModelField field = model_.fields[decide_.below(static_cast<uint32_t>(model_.fields.size()))];
        randomValue(field, 0);
        put(field);
    }

    void removeField() {
        const auto name = randomName();
        const quorl_u16 id = randomId();
        size_t index = 0;
        const quorl_status wanted = locate(name, id, &index);
        expect(wanted, quorlMsg_RemoveFieldEx(message_.get(), text(name), id), "RemoveFieldEx answers otherwise");
        if (wanted == QUORL_OK) model_.fields.erase(model_.fields.begin() + static_cast<std::ptrdiff_t>(index));
    }

    // The instance-th field of that name, or the number of fields.
    size_t instanceOf(const std::optional<std::string>& name, quorl_u32 instance) const {
        size_t index = 0;
        for (; index < model_.fields.size(); ++index) {
            if (model_.fields[index].name == name && --instance == 0) break;
        }
        return index;
    }

    void removeInstance() {
        const auto name = randomName();
        const quorl_u32 instance = decide_.byte() % 4;
        const size_t index = instance == 0 ? 0 : instanceOf(name, instance);
        const quorl_status wanted = instance == 0                   ? QUORL_INVALID_INSTANCE
                                    : index == model_.fields.size() ? QUORL_NOT_FOUND
                                                                    : QUORL_OK;
        expect(wanted, quorlMsg_RemoveFieldInstance(message_.get(), text(name), instance),
               "RemoveFieldInstance answers otherwise");
        if (wanted == QUORL_OK) model_.fields.erase(model_.fields.begin() + static_cast<std::ptrdiff_t>(index));
    }

    void find() {
        const auto name = randomName();
        const quorl_u16 id = randomId();
        size_t index = 0;
        const quorl_status wanted = locate(name, id, &index);
        quorlMsgField field;
        expect(wanted, quorlMsg_GetFieldEx(message_.get(), text(name), &field, id), "GetFieldEx answers otherwise");
        if (wanted == QUORL_OK && wrong_ == nullptr) compareField(field, model_.fields[index], 0);
        quorl_u64 indexAndType = 0;
        expect(wanted, _quorlMsg_GetFieldIndexAndType(message_.get(), text(name), &indexAndType, id),
               "GetFieldIndexAndType answers otherwise");
        if (wanted == QUORL_OK) {
            expect(indexAndType == ((index + 1) | quorl_u64{model_.fields[index].type} << 32), "another index or type");
        }
        const quorl_u32 instance = 1 + decide_.byte() % 3;
        index = instanceOf(name, instance);
        const bool there = index < model_.fields.size();
        expect(there ? QUORL_OK : QUORL_NOT_FOUND,
               quorlMsg_GetFieldInstance(message_.get(), text(name), &field, instance),
               "GetFieldInstance answers otherwise");
        if (there && wrong_ == nullptr) compareField(field, model_.fields[index], 0);
    }

    // Copies share the content until one side changes.
    void keepCopy() {
        quorlMsg copy = nullptr;
        expect(QUORL_OK, quorlMsg_CreateCopy(message_.get(), &copy), "CreateCopy fails");
        if (copies_.size() == 3) copies_.erase(copies_.begin());
        copies_.emplace_back(Holder(copy), model_);
    }

    void throughBytes() {
        const void* bytes = nullptr;
        quorl_u32 size = 0;
        expect(QUORL_OK, quorlMsg_GetAsBytes(message_.get(), &bytes), "GetAsBytes fails");
        expect(QUORL_OK, quorlMsg_GetByteSize(message_.get(), &size), "GetByteSize fails");
        const std::string image(static_cast<const char*>(bytes), size);
        quorlMsg read = nullptr;
        expect(QUORL_OK, quorlMsg_CreateFromBytes(&read, image.data()), "the image is refused");
        if (wrong_ != nullptr) return;
        Holder holder(read);
        expect(QUORL_OK, quorlMsg_GetAsBytes(read, &bytes), "GetAsBytes fails");
        expect(std::memcmp(bytes, image.data(), size) == 0, "the image changes on its way");
        compare(read, model_, 0);

        // The same fields added one by one give the same bytes, whatever changes led here.
        Holder rebuilt;
        for (const auto& field : model_.fields) add(rebuilt.get(), field);
        quorl_u32 again = 0;
        quorlMsg_GetByteSize(rebuilt.get(), &again);
        expect(QUORL_OK, quorlMsg_GetAsBytes(rebuilt.get(), &bytes), "GetAsBytes fails");
        expect(again == size && std::memcmp(bytes, image.data(), size) == 0, "the image depends on its history");

        if (decide_.byte() % 2 == 0) {  // go on with the one that was read
            closeBrackets();
            message_ = std::move(holder);
            model_.sendSubject.clear();
            model_.replySubject.clear();
        }
    }

    void setSubject() {
        static const std::string lengthy = "a." + std::string(250, 'b');
        const uint8_t choice = decide_.byte();
        const std::string subject = choice % 5 == 0   ? ""
                                    : choice % 5 == 1 ? lengthy
                                                      : "subject." + std::to_string(choice);
        const bool reply = decide_.byte() % 2 != 0;
        const char* given = subject.empty() ? nullptr : subject.c_str();
        expect(QUORL_OK,
               reply ? quorlMsg_SetReplySubject(message_.get(), given) : quorlMsg_SetSendSubject(message_.get(), given),
               "setting a subject fails");
        (reply ? model_.replySubject : model_.sendSubject) = subject;
    }

    // Pointers that were handed out in a bracket show what they showed, whatever changes.
    void bracket() {
        if (decide_.byte() % 3 == 0) return closeBrackets();
        expect(QUORL_OK, quorlMsg_MarkReferences(message_.get()), "MarkReferences fails");
        ++brackets_;
        remember();
    }

    void remember() {
        const void* bytes = nullptr;
        quorl_u32 size = 0;
        const char* printed = nullptr;
        expect(QUORL_OK, quorlMsg_GetAsBytes(message_.get(), &bytes), "GetAsBytes fails");
        expect(QUORL_OK, quorlMsg_GetByteSize(message_.get(), &size), "GetByteSize fails");
        expect(QUORL_OK, quorlMsg_ConvertToString(message_.get(), &printed), "ConvertToString fails");
        if (wrong_ != nullptr) return;
        remembered_.push_back({bytes, std::string(static_cast<const char*>(bytes), size), {}, {}});
        remembered_.push_back({printed, std::string(printed, std::strlen(printed) + 1), {}, {}});
        for (quorl_u32 i = 0; i < model_.fields.size(); ++i) {
            if (model_.fields[i].type != QUORLMSG_MSG) continue;
            quorlMsgField field;
            expect(QUORL_OK, quorlMsg_GetFieldByIndex(message_.get(), &field, i), "GetFieldByIndex fails");
            remembered_.push_back({nullptr, {}, field.data.msg, model_.fields[i].messages[0]});
        }
    }

    void closeBrackets() {
        for (const auto& each : remembered_) {
            if (each.bytes != nullptr) {
                expect(std::memcmp(each.bytes, each.showed.data(), each.showed.size()) == 0, "a bracket did not keep");
            } else {
                compare(each.inner, *each.model, 1);
            }
        }
        remembered_.clear();
        for (; brackets_ > 0; --brackets_) {
            expect(QUORL_OK, quorlMsg_ClearReferences(message_.get()), "ClearReferences fails");
        }
        expect(QUORL_OK, quorlMsg_ClearReferences(message_.get()), "one ClearReferences too many does harm");
    }

    // An inner message, and the message itself, as values of new fields.
    void addOwnInner() {
        quorl_u32 size = 0;
        quorlMsg_GetByteSize(message_.get(), &size);
        if (size > 20'000 || depth(model_) > 20) return;
        ModelField field;
        field.name = "inner";
        field.type = QUORLMSG_MSG;
        quorlMsg value = message_.get();
        auto shape = std::make_shared<Model>();
        shape->fields = model_.fields;
        for (quorl_u32 i = 0; i < model_.fields.size(); ++i) {
            if (model_.fields[i].type != QUORLMSG_MSG || decide_.byte() % 2 == 0) continue;
            quorlMsgField inner;
            expect(QUORL_OK, quorlMsg_GetFieldByIndex(message_.get(), &inner, i), "GetFieldByIndex fails");
            value = inner.data.msg;
            *shape = *model_.fields[i].messages[0];
            break;
        }
        field.messages.push_back(shape);
        expect(QUORL_OK, quorlMsg_AddMsgEx(message_.get(), "inner", value, 0), "AddMsgEx of an own message fails");
        model_.fields.push_back(field);
    }

    static int depth(const Model& model) {
        int deepest = 0;
        for (const auto& field : model.fields) {
            for (const auto& inner : field.messages) deepest = std::max(deepest, 1 + depth(*inner));
        }
        return deepest;
    }

    // Several fields that are there, from the front, the back or anywhere.
    void removeSome() {
        const uint8_t from = decide_.byte() % 3;
        for (uint32_t i = decide_.below(12); i > 0 && !model_.fields.empty() && wrong_ == nullptr; --i) {
            const size_t last = model_.fields.size() - 1;
            const size_t index = from == 0 ? 0 : from == 1 ? last : decide_.below(static_cast<uint32_t>(last + 1));
            const auto at = model_.fields.begin() + static_cast<std::ptrdiff_t>(index);
            const auto before =
                std::count_if(model_.fields.begin(), at, [&](const ModelField& each) { return each.name == at->name; });
            expect(QUORL_OK,
                   quorlMsg_RemoveFieldInstance(message_.get(), text(at->name), static_cast<quorl_u32>(before) + 1),
                   "a field that is there cannot be removed");
            model_.fields.erase(at);
            if (decide_.byte() % 2 == 0) lookUpAll();
        }
    }

    // Every field by its name, its id and its instance.
    void lookUpAll() {
        for (size_t i = 0; i < model_.fields.size() && wrong_ == nullptr; ++i) {
            const ModelField& each = model_.fields[i];
            for (const quorl_u16 id : {quorl_u16{0}, each.id}) {
                size_t index = 0;
                quorl_u64 found = 0;
                expect(locate(each.name, id, &index),
                       _quorlMsg_GetFieldIndexAndType(message_.get(), text(each.name), &found, id),
                       "a field that is there is not found");
                expect(static_cast<quorl_u32>(found) == index + 1, "another field is found");
            }
        }
        std::vector<std::optional<std::string>> seen;
        for (size_t i = model_.fields.size(); i-- > 0 && seen.size() < 3;) {
            seen.push_back(model_.fields[i].name);
            const auto same = std::count_if(model_.fields.begin(), model_.fields.end(),
                                            [&](const ModelField& each) { return each.name == seen.back(); });
            quorl_u64 found = 0;
            for (auto instance = static_cast<quorl_u32>(same); instance > 0 && wrong_ == nullptr; --instance) {
                expect(QUORL_OK,
                       _quorlMsg_GetFieldInstanceIndexAndType(message_.get(), text(seen.back()), instance, &found),
                       "an instance that is there is not found");
                expect(static_cast<quorl_u32>(found) == instanceOf(seen.back(), instance) + 1,
                       "another instance is found");
            }
        }
    }

    // A field gets the value of another one of its type, straight from the message.
    void updateFromOwnValue() {
        if (model_.fields.empty()) return;
        const size_t to = decide_.below(static_cast<uint32_t>(model_.fields.size()));
        const size_t from = decide_.below(static_cast<uint32_t>(model_.fields.size()));
        ModelField changed = model_.fields[from];
        if (changed.type != model_.fields[to].type) return;
        changed.name = model_.fields[to].name;
        changed.id = model_.fields[to].id;
        size_t index = 0;
        if (locate(changed.name, changed.id, &index) != QUORL_OK || model_.fields[index].type != changed.type) return;
        quorlMsgField field;
        expect(QUORL_OK, quorlMsg_GetFieldByIndex(message_.get(), &field, static_cast<quorl_u32>(from)),
               "GetFieldByIndex fails");
        field.name = text(changed.name);
        field.id = changed.id;
        expect(QUORL_OK, quorlMsg_UpdateField(message_.get(), &field), "an update from an own value fails");
        changed.id = model_.fields[index].id;  // a field that was found by its name keeps its id
        model_.fields[index] = changed;
    }

    void rarely() {
        switch (decide_.byte() % 8) {
            case 0:
                closeBrackets();
                expect(QUORL_OK, quorlMsg_Reset(message_.get()), "Reset fails");
                model_ = {};
                return;
            case 1: {
                quorlMsg envelope = nullptr;
                expect(QUORL_OK, quorlMsg_GetEnvelope(message_.get(), &envelope), "GetEnvelope fails");
                Holder holder(envelope);
                Model subjects = model_;
                subjects.fields.clear();
                compare(envelope, subjects, 0);
                compareSubjects(envelope, subjects);
                return;
            }
            case 2:  // many fields, so that the index comes into play
                for (uint32_t i = decide_.below(40); i > 0; --i) addField();
                return;
            case 3:
            case 4:
                return removeSome();
            case 5:
                return lookUpAll();
            case 6:
                return updateFromOwnValue();
            default: {
                const char* printed = nullptr;
                expect(QUORL_OK, quorlMsg_ConvertToString(message_.get(), &printed), "ConvertToString fails");
                expect(wrong_ != nullptr || printed[0] == '{', "the printed form does not begin with a brace");
                return;
            }
        }
    }

    struct Remembered {
        const void* bytes;
        std::string showed;
        quorlMsg inner;
        std::shared_ptr<const Model> model;
    };

    Decisions decide_;
    const char* wrong_ = nullptr;
    Holder message_;
    Model model_;
    std::vector<std::pair<Holder, Model>> copies_;
    std::vector<Remembered> remembered_;
    int brackets_ = 0;
};

}  // namespace quorl::operations
