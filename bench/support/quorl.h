// What the cases share of our own library: checked calls, and objects that live for one run.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorl/quorl.h"
#include "support/measure.h"

namespace bench {

inline void need(quorl_status status, const char* what) {
    if (status != QUORL_OK) [[unlikely]] {
        fail(std::string("quorl: ") + what + ": " + quorlStatus_GetText(status) + ": " + quorl_LastErrorText());
    }
}

// The library open, with a transport on the embedded bus. Only those of one service hear each other.
class Bus {
  public:
    explicit Bus(const char* service = nullptr) {
        need(quorl_Open(), "open");
        need(quorlTransport_Create(&transport_, service, nullptr, nullptr), "transport");
    }
    ~Bus() {
        need(quorlTransport_Destroy(transport_), "destroy transport");
        need(quorl_Close(), "close");
    }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    quorlTransport transport() const { return transport_; }

    // Creates, fills, sends and destroys a message with one opaque field.
    void publish(const char* subject, const void* bytes, size_t size) const {
        quorlMsg message;
        need(quorlMsg_Create(&message), "create message");
        need(quorlMsg_AddOpaqueEx(message, "payload", bytes, static_cast<quorl_u32>(size), 0), "add field");
        need(quorlMsg_SetSendSubject(message, subject), "set subject");
        need(quorlTransport_Send(transport_, message), "send");
        need(quorlMsg_Destroy(message), "destroy message");
    }

  private:
    quorlTransport transport_ = 0;
};

// The payload of a message that publish made.
inline std::pair<const void*, size_t> payloadOf(quorlMsg message) {
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    need(quorlMsg_GetOpaqueEx(message, "payload", &bytes, &size, 0), "get field");
    return {bytes, size};
}

class Queue {
  public:
    Queue() { need(quorlQueue_Create(&id_), "queue"); }
    ~Queue() { need(quorlQueue_DestroyEx(id_, nullptr, nullptr), "destroy queue"); }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    quorlQueue id() const { return id_; }

  private:
    quorlQueue id_ = 0;
};

class Listener {
  public:
    Listener(const Bus& bus, const Queue& queue, const char* subject, quorlEventCallback callback,
             const void* closure) {
        need(quorlEvent_CreateListener(&id_, queue.id(), callback, bus.transport(), subject, closure), "listener");
    }
    ~Listener() {
        if (id_ != 0) need(quorlEvent_DestroyEx(id_, nullptr), "destroy listener");
    }
    Listener(Listener&& other) noexcept : id_(std::exchange(other.id_, 0)) {}
    Listener& operator=(Listener&&) = delete;

  private:
    quorlEvent id_ = 0;
};

}  // namespace bench
