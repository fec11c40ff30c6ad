// What quorlcm.h asks of any certified transport and of any certified listener, whichever library made it: a distributed queue is
// a certified transport too, and made by another library.
#pragma once

#include <cstdint>
#include <tuple>
#include <utility>

#include "companion/object.h"
#include "quorl/quorlcm.h"

namespace quorl::companion {

class CertifiedTransport : public Object {
  public:
    // Objects of the type certifiedTransport are all of this class. QUORL_NOT_INITIALIZED, QUORL_INVALID_TRANSPORT.
    // The completion runs when the library has finished with the transport; null for none.
    static quorl_status closeWith(uint32_t id, quorlcmTransportOnComplete completion, const void* closure) noexcept {
        std::pair<quorlcmTransportOnComplete, const void*> wanted(completion, closure);
        return close(
            Type::certifiedTransport, id,
            [](Object& object, void* given) {
                auto& transport = static_cast<CertifiedTransport&>(object);
                std::tie(transport.completion_, transport.closure_) = *static_cast<decltype(wanted)*>(given);
            },
            &wanted);
    }

    // Starts the end of a distributed queue, which first waits for what its program holds; of others closeWith is.
    virtual quorl_status leave(quorlcmTransportOnComplete, const void*) noexcept { return QUORL_NOT_PERMITTED; }
    // Whether it is a distributed queue, which hands out tasks and sends nothing. Otherwise it is libquorlcm's own.
    virtual bool isQueue() const noexcept = 0;
    // Statuses have a detail text.
    virtual quorl_status listen(uint32_t queue, quorlcmEventCallback callback, const char* pattern, const void* closure,
                                uint32_t* id) noexcept = 0;

  protected:
    // While the object is held.
    void completeWith(quorlcmTransportOnComplete completion, const void* closure) noexcept {
        completion_ = completion;
        closure_ = closure;
    }
    // Last in completed.
    void complete(uint32_t id) noexcept {
        if (completion_ != nullptr) completion_(id, const_cast<void*>(closure_));
    }

  private:
    // Set by whoever closes it, before completed().
    quorlcmTransportOnComplete completion_ = nullptr;
    const void* closure_ = nullptr;
};

class CertifiedListener : public EventObject {
  public:
    // Objects of the type certifiedListener are all of this class. cancel: the senders forget it. The completion runs when the
    // library has finished with it; null for none.
    static quorl_status closeWith(uint32_t id, bool cancel, quorlcmEventOnComplete completion) noexcept {
        std::pair<bool, quorlcmEventOnComplete> wanted(cancel, completion);
        return close(
            Type::certifiedListener, id,
            [](Object& object, void* given) {
                auto& listener = static_cast<CertifiedListener&>(object);
                std::tie(listener.cancel_, listener.completion_) = *static_cast<decltype(wanted)*>(given);
            },
            &wanted);
    }

    // Whether it is one of a distributed queue.
    virtual bool takesTasks() const noexcept { return false; }
    // From now on the program says itself when it is done with a certified message, or with one that is not certified.
    virtual void setExplicitConfirm() noexcept = 0;
    virtual void setExplicitComplete() noexcept {}
    virtual quorl_status confirm(quorlMsg handle) noexcept = 0;

  protected:
    bool cancels() const noexcept { return cancel_; }
    // Last in completed.
    void complete(uint32_t id, const void* closure) noexcept {
        if (completion_ != nullptr) completion_(id, const_cast<void*>(closure));
    }

  private:
    // Set by whoever closes it, before closed().
    bool cancel_ = false;
    quorlcmEventOnComplete completion_ = nullptr;
};

}  // namespace quorl::companion
