// Connections as messages in the statistics.
#include "transport/nats/connection_statistics.h"

#include <new>
#include <vector>

#include "base/status.h"
#include "message/builder.h"
#include "transport/nats/connection.h"
#include "transport/nats/port.h"
#include "transport/statistics.h"

namespace quorl::transport::nats {
namespace {

void describe(message::Builder& to, const ConnectionKey& key, const Connection::Figures& figures) noexcept {
    to.text("daemon", key.daemon)
        .text("service", key.service)
        .text("network", key.network)
        .text("phase", figures.phase)
        .text("server", figures.server)
        .text("reason", figures.reason)
        .u64("messages_out", figures.messagesOut)
        .u64("bytes_out", figures.bytesOut)
        .u64("messages_in", figures.messagesIn)
        .u64("bytes_in", figures.bytesIn)
        .u64("waiting", figures.waiting)
        .u64("reconnects", figures.reconnects)
        .u64("lost", figures.lost)
        .u64("unconfirmed", figures.unconfirmed)
        .u64("malformed", figures.malformed)
        .u64("refused", figures.refused)
        .u64("refused_patterns", figures.refusedPatterns);
}

void fill(message::Builder& message) noexcept {
    try {
        const std::vector<std::shared_ptr<Connection>> all = connections();
        uint64_t missing = missingOfEnded();
        for (const auto& connection : all) {
            if (!connection->finished()) missing += connection->figures().missing();
        }
        message.u64("messages_lost", missing);
        if (all.empty()) return;
        std::vector<message::ContentRef> described;
        described.reserve(all.size());
        for (const auto& connection : all) {
            message::Builder one;
            describe(one, connection->key(), connection->figures());
            message.fails(one.content(&described.emplace_back()));
            if (message.status() != QUORL_OK) return;
        }
        message.messages("daemons", described);
    } catch (const std::bad_alloc&) {
        message.fails(fail(QUORL_NO_MEMORY, "no memory for the statistics of connections"));
    }
}

constinit statistics::Part part{fill, nullptr};

}  // namespace

void countConnections() noexcept {
    statistics::add(part);
}

}  // namespace quorl::transport::nats
