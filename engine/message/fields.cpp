// Fields as the engine's own protocols read them.
#include "message/fields.h"

#include "message/find_field.h"

namespace quorl::message {

quorl_status fieldOf(quorlMsg message, uint16_t id, quorlMsgField* field) noexcept {
    quorl_status status;
    const Found found = findField(message, nullptr, id, &status);
    return !found ? status : describe(*found.slot, found.content(), found.index(), field);
}

}  // namespace quorl::message
