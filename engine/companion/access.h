// Between a message of the border and a content of the core; for the border's own sources, and not for companions.
#pragma once

#include <utility>

#include "companion/message.h"
#include "message/content.h"
#include "message/delivery.h"

namespace quorl::companion {

struct Access {
    static Message wrap(message::ContentRef content) noexcept {
        Message message;
        message.content_ = content.release();
        return message;
    }
    static message::ContentRef content(const Message& message) noexcept {
        if (message.content_ != nullptr) message.content_->retain();
        return message::ContentRef::adopt(message.content_);
    }
    static message::ContentRef take(Message&& message) noexcept {
        return message::ContentRef::adopt(std::exchange(message.content_, nullptr));
    }
};

}  // namespace quorl::companion
