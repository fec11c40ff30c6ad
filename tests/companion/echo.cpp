#include "echo.h"

#include <array>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "companion/advisory.h"
#include "companion/credentials.h"
#include "companion/driver.h"
#include "companion/host.h"
#include "companion/message.h"
#include "companion/module.h"
#include "companion/object.h"
#include "companion/status.h"
#include "companion/transport.h"

namespace echo {
namespace {

using namespace quorl::companion;

constinit Figures counted;
constinit Host echoHost("echo", "quorl.echo");

// ---- the module

void close() noexcept {
    echoHost.stop();
    ++counted.modulesClosed;
}
void stopped() noexcept {
    ++counted.modulesStopped;
}
void forget() noexcept {
    ++counted.forgets;
}
void fill(Statistics& statistics) noexcept {
    statistics.u32("guests", echoHost.count())
        .u64("confirmed", static_cast<uint64_t>(counted.confirmed.load()))
        .f64("half", 0.5)
        .text("name", "echo");
}
// Says the question again; silence is answered by nobody.
bool answer(std::string_view question, Statistics& fields) noexcept {
    if (question == "silence") return false;
    fields.text("question", question);
    return true;
}

constinit Module module{
    .name = "echo", .close = close, .stopped = stopped, .forget = forget, .statistics = fill, .answer = answer};

// ---- attributes: 'E', version, the number, the time limit

constexpr size_t frameSize = 2 + 8 + 1;

std::array<uint8_t, frameSize> frameOf(uint64_t number, uint8_t limit) noexcept {
    std::array<uint8_t, frameSize> frame{'E', 1};
    std::memcpy(frame.data() + 2, &number, sizeof number);
    frame.back() = limit;
    return frame;
}

bool readFrame(const Message& message, uint64_t* number, uint8_t* limit) noexcept {
    const auto frame = message.attributes();
    if (frame.size() != frameSize || frame[0] != 'E' || frame[1] != 1) return false;
    std::memcpy(number, frame.data() + 2, sizeof *number);
    *limit = frame.back();
    return true;
}

quorl_status receivedFrame(quorlMsg handle, uint64_t* number, uint8_t* limit) noexcept {
    Message message;
    if (const quorl_status status = Message::received(handle, &message); status != QUORL_OK) return status;
    return readFrame(message, number, limit) ? QUORL_OK : fail(QUORL_NOT_FOUND, "the attributes are another library's");
}

// ---- a machine that says every so often that it is there

struct Output {
    struct Rest {
        int pings = 0;
    };
    bool ping = false;
    void clear() noexcept { ping = false; }
    Rest takeRest() const noexcept { return {ping ? 1 : 0}; }
};

class Machine {
  public:
    explicit Machine(int64_t every) noexcept : every_(every), due_(every == 0 ? INT64_MAX : 0) {}
    int64_t due() const noexcept { return due_; }
    quorl_status tick(int64_t now, Output& out) noexcept {
        if (now < due_) return QUORL_OK;
        out.ping = true;
        due_ = now + every_;
        return QUORL_OK;
    }

  private:
    int64_t every_;
    int64_t due_;
};

struct Feed {
    uint32_t listener;  // the library's
    uint32_t event;     // the program's
};

class Node final : public Driver<Machine, Output> {
  public:
    Node(uint32_t transport, std::string name, int64_t every)
        : Driver(echoHost, Machine(every)), transport_(transport), subject_("_QUORL.ECHO." + std::move(name)) {}

    quorl_status start(const std::shared_ptr<Node>& self) noexcept {
        quorl_status status = host().add(self);
        uint32_t ear = 0;
        if (status == QUORL_OK) status = host().listen(*this, transport_, subject_, &ear);
        ear_ = ear;
        if (status == QUORL_OK) wake();
        return status;
    }
    void stop() noexcept {
        host().unlisten(ear_.exchange(0));
        host().remove(*this);
        const std::lock_guard lock(feedsLock_);
        for (const Feed& feed : feeds_) host().unlisten(feed.listener);
        feeds_.clear();
    }
    quorl_status feed(uint32_t event, const char* subject) noexcept {
        try {
            const std::lock_guard lock(feedsLock_);
            feeds_.reserve(feeds_.size() + 1);
            uint32_t listener = 0;
            const quorl_status status = host().listen(*this, transport_, subject, &listener);
            if (status == QUORL_OK) feeds_.push_back({listener, event});
            return status;
        } catch (const std::bad_alloc&) {
            return fail(QUORL_NO_MEMORY, "no memory for a listener");
        }
    }
    void starve(uint32_t event) noexcept {
        uint32_t listener = 0;
        {
            const std::lock_guard lock(feedsLock_);
            for (Feed& feed : feeds_) {
                if (feed.event != event) continue;
                listener = feed.listener;
                feed = feeds_.back();
                feeds_.pop_back();
                break;
            }
        }
        host().unlisten(listener);
    }

    void wake() noexcept override {
        step([](Machine& machine, Output& out) { return machine.tick(monotonicNow(), out); });
    }
    void received(uint32_t listener, Message&& message) noexcept override {
        if (!host().isHostThread()) std::terminate();
        if (listener == ear_.load()) {
            ++counted.heard;
            return;
        }
        uint64_t number;
        uint8_t limit;
        if (!readFrame(message, &number, &limit)) {
            ++counted.foreign;
            return;
        }
        uint32_t event = 0;
        {
            const std::lock_guard lock(feedsLock_);
            for (const Feed& feed : feeds_) {
                if (feed.listener == listener) event = feed.event;
            }
        }
        KeptErrorText kept;
        if (event != 0) post(Type::certifiedListener, event, message, static_cast<uint32_t>(number));
    }
    void persisted(uint64_t) noexcept override { ++counted.persisted; }

  protected:
    void transmit(Machine&, Output& output) noexcept override {
        if (!output.ping) return;
        KeptErrorText kept;
        Message ping;
        if (Message::empty(subject_, &ping) == QUORL_OK && ping.withAttributes(frameOf(0, 0), &ping) == QUORL_OK &&
            send(transport_, ping) == QUORL_OK)
            ++counted.pings;
    }
    void deliver(Output::Rest) noexcept override {}

  private:
    const uint32_t transport_;
    const std::string subject_;
    std::atomic<uint32_t> ear_{0};
    std::mutex feedsLock_;
    std::vector<Feed> feeds_;
};

// ---- objects

class EchoTransport final : public Object {
  public:
    EchoTransport(uint32_t transport, std::shared_ptr<Node> node) : transport_(transport), node_(std::move(node)) {
        ++counted.transports;
    }
    ~EchoTransport() override { --counted.transports; }

    Node& node() noexcept { return *node_; }
    uint32_t transport() const noexcept { return transport_; }
    uint64_t next() noexcept { return ++last_; }

    void setCompletion(uint32_t id, Completion completion, void* closure) noexcept {
        const std::lock_guard lock(lock_);
        id_ = id;
        completion_ = completion;
        closure_ = closure;
    }
    void closed() noexcept override {
        ++counted.closed;
        node_->stop();
    }
    void completed() noexcept override {
        ++counted.completed;
        const std::lock_guard lock(lock_);
        if (completion_ != nullptr) completion_(id_, closure_);
    }
    void parentCloses() noexcept override {
        ++counted.parentCloses;
        Message goodbye;
        if (Message::empty("echo.goodbye", &goodbye) == QUORL_OK &&
            quorl::companion::send(transport_, goodbye) == QUORL_OK)
            ++counted.goodbyes;
    }
    void parentClosed() noexcept override {
        ++counted.parentClosed;
        advise(Severity::warn, "echo", "orphan", {{"transport", transport_}});
    }

  private:
    const uint32_t transport_;
    const std::shared_ptr<Node> node_;
    std::atomic<uint64_t> last_{0};
    std::mutex lock_;
    uint32_t id_ = 0;
    Completion completion_ = nullptr;
    void* closure_ = nullptr;
};

class EchoListener final : public EventObject {
  public:
    EchoListener(quorlEventCallback callback, std::weak_ptr<EchoTransport> transport)
        : callback_(callback), transport_(std::move(transport)) {
        ++counted.listeners;
    }
    ~EchoListener() override { --counted.listeners; }

    void run(const Delivery& delivery) noexcept override {
        callback_(delivery.event, delivery.handle, const_cast<void*>(delivery.closure));
        ++counted.confirmed;
    }
    void dropped(const Message& message, uint32_t tag) noexcept override {
        uint64_t number = 0;
        uint8_t limit;
        if (message && readFrame(message, &number, &limit) && number == tag) ++counted.dropped;
    }
    void published(uint32_t id) noexcept { id_ = id; }
    void setCompletion(Completion completion, void* closure) noexcept {
        completion_ = completion;
        closure_ = closure;
    }
    void closed() noexcept override {
        ++counted.closed;
        if (const auto transport = transport_.lock()) transport->node().starve(id_);
    }
    void completed() noexcept override {
        ++counted.completed;
        if (const Completion completion = completion_.load(); completion != nullptr) completion(id_, closure_);
    }

  private:
    const quorlEventCallback callback_;
    const std::weak_ptr<EchoTransport> transport_;
    std::atomic<uint32_t> id_{0};
    std::atomic<Completion> completion_{nullptr};
    std::atomic<void*> closure_{nullptr};
};

class EchoMember final : public EventObject {
  public:
    using Callback = void (*)(uint32_t id, uint32_t action, void* closure);
    explicit EchoMember(Callback callback) : callback_(callback) {}
    void run(const Delivery& delivery) noexcept override {
        callback_(delivery.event, delivery.tag, const_cast<void*>(delivery.closure));
    }

  private:
    const Callback callback_;
};

quorl_status noMemory() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for an echo");
}

}  // namespace

Figures& figures() noexcept {
    return counted;
}

quorl_status createTransport(uint32_t* id, quorlTransport transport, const char* name, double pingEvery,
                             const void* closure) noexcept {
    if (const quorl_status status = use(module); status != QUORL_OK) return status;
    try {
        std::string inbox;
        if (const quorl_status status = createInbox(transport, &inbox); status != QUORL_OK)
            return failWithin(status, "creating an echo transport");
        const auto node = std::make_shared<Node>(transport, name, static_cast<int64_t>(pingEvery * 1e9));
        const auto object = std::make_shared<EchoTransport>(transport, node);
        quorl_status status = node->start(node);
        uint32_t made = 0;
        if (status == QUORL_OK)
            status =
                publish(object, {.type = Type::certifiedTransport, .closure = closure, .transport = transport}, &made);
        if (status != QUORL_OK) {
            KeptErrorText kept;
            node->stop();
            return status;
        }
        *id = made;
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
}

quorl_status destroyTransport(uint32_t id, Completion completion, void* closure) noexcept {
    {
        const Hold<EchoTransport> transport(Type::certifiedTransport, id);
        if (!transport) return transport.status();
        transport->setCompletion(id, completion, closure);
    }
    return quorl::companion::close(Type::certifiedTransport, id);
}

quorl_status send(uint32_t id, quorlMsg message) noexcept {
    const Hold<EchoTransport> transport(Type::certifiedTransport, id);
    if (!transport) return transport.status();
    Message data;
    std::span<const uint8_t> own;
    quorl_status status = Message::of(message, &data);
    if (status == QUORL_OK) status = checkSubject(transport->transport(), data.subject());
    if (status == QUORL_OK) status = handleAttributes(message, &own);
    if (status == QUORL_OK) status = data.withAttributes(frameOf(transport->next(), own.empty() ? 0 : own[0]), &data);
    if (status != QUORL_OK) return status;
    for (;;) {
        const uint32_t seen = roomReports(transport->transport());
        status = quorl::companion::send(transport->transport(), data);
        if (status != noRoom) return status;
        status = awaitRoom(transport->transport(), seen, deadlineAfter(60));
        if (status != QUORL_OK) return status;
    }
}

quorl_status persist(uint32_t id) noexcept {
    const Hold<EchoTransport> transport(Type::certifiedTransport, id);
    if (!transport) return transport.status();
    return echoHost.post(transport->node(), 1) ? QUORL_OK : noMemory();
}

quorl_status createListener(uint32_t* id, quorlQueue queue, quorlEventCallback callback, uint32_t transport,
                            const char* subject, const void* closure) noexcept {
    try {
        const Hold<EchoTransport> owner(Type::certifiedTransport, transport);
        if (!owner) return owner.status();
        const auto object = std::make_shared<EchoListener>(callback, owner.shared());
        uint32_t made = 0;
        quorl_status status = publishEvent(object,
                                           {.type = Type::certifiedListener,
                                            .queue = queue,
                                            .closure = closure,
                                            .source = subject,
                                            .owner = transport},
                                           &made);
        if (status != QUORL_OK) return status;
        object->published(made);
        status = owner->node().feed(made, subject);
        if (status != QUORL_OK) {
            KeptErrorText kept;
            quorl::companion::close(Type::certifiedListener, made);
            return status;
        }
        *id = made;
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
}

quorl_status destroyListener(uint32_t id, Completion completion) noexcept {
    {
        const Hold<EchoListener> listener(Type::certifiedListener, id);
        if (!listener) return listener.status();
        listener->setCompletion(completion, const_cast<void*>(listener.closure()));
    }
    return quorl::companion::close(Type::certifiedListener, id);
}

quorl_status createMember(uint32_t* id, quorlQueue queue, EchoMember::Callback callback, const void* closure) noexcept {
    if (const quorl_status status = use(module); status != QUORL_OK) return status;
    try {
        return publishEvent(std::make_shared<EchoMember>(callback),
                            {.type = Type::member, .queue = queue, .closure = closure, .source = "a group"}, id);
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
}

quorl_status act(uint32_t id, uint32_t action) noexcept {
    return post(Type::member, id, {}, action);
}

quorl_status destroyMember(uint32_t id) noexcept {
    return quorl::companion::close(Type::member, id);
}

quorl_status numberOf(quorlMsg message, uint64_t* number) noexcept {
    uint8_t limit;
    return receivedFrame(message, number, &limit);
}

quorl_status timeLimitOf(quorlMsg message, uint8_t* limit) noexcept {
    uint64_t number;
    return receivedFrame(message, &number, limit);
}

quorl_status setTimeLimit(quorlMsg message, uint8_t limit) noexcept {
    return setHandleAttributes(message, {&limit, 1});
}

int firstNotRefused(uint32_t transport, uint32_t echoTransport, quorlMsg message) noexcept {
    Message of;
    std::span<const uint8_t> own;
    std::string inbox;
    Passage known;
    uint32_t id = 0;
    quorlMsg handle = nullptr;
    static const auto node = std::make_shared<Node>(transport, "child", 0);
    static const auto object = std::make_shared<EchoTransport>(transport, node);
    static const auto member = std::make_shared<EchoMember>([](uint32_t, uint32_t, void*) {});
    Pin pin(Type::certifiedTransport, echoTransport);
    const quorl_status statuses[] = {
        use(module),
        Message::of(message, &of),
        Message::received(message, &of),
        handleAttributes(message, &own),
        setHandleAttributes(message, {}),
        publish(object, {.type = Type::certifiedTransport, .transport = transport}, &id),
        publishEvent(member, {.type = Type::member, .queue = QUORL_DEFAULT_QUEUE}, &id),
        post(Type::member, 1, of),
        quorl::companion::close(Type::certifiedTransport, echoTransport),
        pin.status(),
        echoHost.add(node),
        echoHost.listen(*node, transport, "a", &id),
        awaitRoom(transport, roomReports(transport), 0),
        checkSubject(transport, "a"),
        createInbox(transport, &inbox),
        passage(transport, "_INBOX.x", &known),
        failWithin(fail(QUORL_OK, "a"), "b"),
        setUser("name", "password"),
        createTransport(&id, transport, "child", 0, nullptr),
        destroyTransport(echoTransport, nullptr, nullptr),
        echo::send(echoTransport, message),
        Message::empty("a", &of) == QUORL_OK ? of.handOver(&handle) : QUORL_NOT_PERMITTED,
    };
    int call = 0;
    for (const quorl_status status : statuses) {
        ++call;
        if (status != QUORL_NOT_PERMITTED) return call;
    }
    advise(Severity::info, "echo", "child", {});  // nothing happens, and nothing hangs
    return 0;
}

}  // namespace echo
