// Connections as messages in the statistics.
#include "transport/nats/connection_statistics.h"

#include <new>
#include <vector>

#include "base/status.h"
#include "transport/nats/connection.h"
#include "transport/nats/port.h"
#include "transport/statistics.h"

namespace quorl::transport::nats {
namespace {

// Messages of one call's own.
class Described {
  public:
    ~Described() {
        for (const quorlMsg one : messages_) quorlMsg_Destroy(one);
    }
    quorl_status add(quorlMsg* added) {
        messages_.reserve(messages_.size() + 1);
        const quorl_status status = quorlMsg_Create(added);
        if (status == QUORL_OK) messages_.push_back(*added);
        return status;
    }
    const std::vector<quorlMsg>& all() const noexcept { return messages_; }

  private:
    std::vector<quorlMsg> messages_;
};

quorl_status describe(quorlMsg to, const ConnectionKey& key, const Connection::Figures& figures) noexcept {
    struct Text {
        const char* name;
        const char* value;
    };
    for (const Text& text : {Text{"daemon", key.daemon.c_str()}, Text{"service", key.service.c_str()},
                             Text{"network", key.network.c_str()}, Text{"phase", figures.phase},
                             Text{"server", figures.server.c_str()}, Text{"reason", figures.reason.c_str()}}) {
        const quorl_status status = quorlMsg_AddStringEx(to, text.name, text.value, 0);
        if (status != QUORL_OK) return status;
    }
    struct Number {
        const char* name;
        uint64_t value;
    };
    for (const Number& number :
         {Number{"messages_out", figures.messagesOut}, Number{"bytes_out", figures.bytesOut},
          Number{"messages_in", figures.messagesIn}, Number{"bytes_in", figures.bytesIn},
          Number{"waiting", figures.waiting}, Number{"reconnects", figures.reconnects}, Number{"lost", figures.lost},
          Number{"unconfirmed", figures.unconfirmed}, Number{"malformed", figures.malformed},
          Number{"refused", figures.refused}, Number{"refused_patterns", figures.refusedPatterns}}) {
        const quorl_status status = quorlMsg_AddU64Ex(to, number.name, number.value, 0);
        if (status != QUORL_OK) return status;
    }
    return QUORL_OK;
}

quorl_status fill(quorlMsg message) noexcept {
    try {
        const std::vector<std::shared_ptr<Connection>> all = connections();
        uint64_t missing = missingOfEnded();
        for (const auto& connection : all) {
            if (!connection->finished()) missing += connection->figures().missing();
        }
        const quorl_status added = quorlMsg_AddU64Ex(message, "messages_lost", missing, 0);
        if (added != QUORL_OK || all.empty()) return added;
        Described described;
        for (const auto& connection : all) {
            quorlMsg one;
            quorl_status status = described.add(&one);
            if (status == QUORL_OK) status = describe(one, connection->key(), connection->figures());
            if (status != QUORL_OK) return status;
        }
        return quorlMsg_AddMsgArrayEx(message, "daemons", described.all().data(),
                                      static_cast<quorl_u32>(described.all().size()), 0);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for the statistics of connections");
    }
}

constinit statistics::Part part{fill, nullptr};

}  // namespace

void countConnections() noexcept {
    statistics::add(part);
}

}  // namespace quorl::transport::nats
