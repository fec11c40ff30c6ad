// Putting the detail texts about fields together.
#include "message/field_faults.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "base/c_locale.h"
#include "base/status.h"

namespace quorl::message {
namespace {

// What a field is called in a text: by its name, or by its id when it has none.
struct Label {
    uint16_t id;
    bool named;
    char name[QUORL_FIELD_NAME_MAX + 1];

    void set(const char* text, size_t length, uint16_t number) noexcept {
        id = number;
        named = text != nullptr;
        length = std::min<size_t>(length, QUORL_FIELD_NAME_MAX);
        if (named) std::memcpy(name, text, length);
        name[named ? length : 0] = '\0';
    }
};

// `field "name" id 7`, without what is not there.
struct LabelText {
    char text[QUORL_FIELD_NAME_MAX + 32];

    explicit LabelText(const Label& label) noexcept {
        const char* const quote = label.named ? "\"" : "";
        int used = std::snprintf(text, sizeof text, "field %s%s%s", quote, label.name, quote);
        if (label.id != 0) {
            std::snprintf(text + used, sizeof text - used, "%sid %u", label.named ? " " : "", label.id);
        } else if (!label.named) {
            std::snprintf(text + used, sizeof text - used, "without a name");
        }
    }
};

struct Missing {
    Label label;

    void write(char* text, size_t size) const noexcept {
        if (label.id != 0) {
            std::snprintf(text, size, "no field has the id %u", label.id);
        } else if (label.named) {
            std::snprintf(text, size, "no field has the name \"%s\"", label.name);
        } else {
            std::snprintf(text, size, "every field has a name");
        }
    }
};

constexpr bool isNumber(uint8_t type) {
    return type >= QUORLMSG_BOOL && type <= QUORLMSG_F64;
}

struct NoConversion {
    Label label;
    uint8_t found;
    uint8_t wanted;
    uint8_t number[sizeof(uint64_t)];  // the value, where it is a number

    void write(char* text, size_t size) const noexcept {
        const LabelText which(label);
        const TypeText is(found);
        const TypeText asked(wanted);
        char value[32];
        const CLocale locale;
        if (!isNumber(wanted) || !writeNumber(value, sizeof value)) {
            std::snprintf(text, size, "%s: it is %s, not %s", which.text, is.text, asked.text);
        } else {
            std::snprintf(text, size, "%s: %s %s does not fit %s", which.text, is.text, value, asked.text);
        }
    }

  private:
    bool writeNumber(char* text, size_t size) const noexcept {
        switch (found) {
            case QUORLMSG_I8:
                return std::snprintf(text, size, "%d", wire::load<int8_t>(number)) > 0;
            case QUORLMSG_I16:
                return std::snprintf(text, size, "%d", wire::load<int16_t>(number)) > 0;
            case QUORLMSG_I32:
                return std::snprintf(text, size, "%" PRId32, wire::load<int32_t>(number)) > 0;
            case QUORLMSG_I64:
                return std::snprintf(text, size, "%" PRId64, wire::load<int64_t>(number)) > 0;
            case QUORLMSG_BOOL:
            case QUORLMSG_U8:
                return std::snprintf(text, size, "%u", number[0]) > 0;
            case QUORLMSG_U16:
                return std::snprintf(text, size, "%u", wire::load<uint16_t>(number)) > 0;
            case QUORLMSG_U32:
                return std::snprintf(text, size, "%" PRIu32, wire::load<uint32_t>(number)) > 0;
            case QUORLMSG_U64:
                return std::snprintf(text, size, "%" PRIu64, wire::load<uint64_t>(number)) > 0;
            case QUORLMSG_F32:
                return std::snprintf(text, size, "%.9g", static_cast<double>(wire::load<float>(number))) > 0;
            case QUORLMSG_F64:
                return std::snprintf(text, size, "%.17g", wire::load<double>(number)) > 0;
            default:
                return false;
        }
    }
};

}  // namespace

TypeText::TypeText(uint8_t type) noexcept {
    if (type >= userTypeFirst) {
        std::snprintf(text, sizeof text, "USER%u", type);
    } else if (typeInfo(type).kind == Kind::none) {
        std::snprintf(text, sizeof text, "UNKNOWN%u", type);
    } else {
        std::snprintf(text, sizeof text, "%s", typeName(type));
    }
}

quorl_status missing(const char* name, uint16_t id) noexcept {
    auto& facts = failLater<Missing>();
    facts.label.set(name, name != nullptr ? strnlen(name, QUORL_FIELD_NAME_MAX) : 0, id);
    return QUORL_NOT_FOUND;
}

quorl_status noConversion(const Content& content, const Field& field, uint8_t wanted) noexcept {
    auto& facts = failLater<NoConversion>();
    facts.label.set(content.name(field), field.nameLength, field.id);
    facts.found = field.type;
    facts.wanted = wanted;
    if (isNumber(field.type)) std::memcpy(facts.number, content.value(field), typeInfo(field.type).wireSize);
    return QUORL_CONVERSION_FAILED;
}

quorl_status inField(quorl_status status, const char* name, uint16_t id) noexcept {
    Label label;
    label.set(name, name != nullptr ? strnlen(name, QUORL_FIELD_NAME_MAX + 1) : 0, id);
    return failWithin(status, "%s", LabelText(label).text);
}

}  // namespace quorl::message
