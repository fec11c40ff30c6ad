// Routing and answering inside the process.
#include "transport/local.h"

#include <new>

#include "base/environment.h"
#include "base/status.h"
#include "message/builder.h"
#include "transport/router.h"
#include "transport/statistics.h"

namespace quorl::transport::local {
namespace {

constexpr std::string_view systemPrefix = "_QUORL.";
constexpr std::string_view statisticsSubject = "_QUORL.STATS";
constexpr std::string_view lastErrorSubject = "_QUORL.LASTERROR";
constexpr std::string_view askPrefix = "_QUORL.ASK.";

constinit Mutex making;                          // of the router
constinit std::atomic<Router*> router{nullptr};  // made with the first listener, and kept
constinit std::atomic<uint32_t> listeners{0};
constinit std::atomic<Answers> answers{nullptr};

// Null: no memory.
Router* routerMade() noexcept {
    Router* made = router.load(std::memory_order_acquire);
    if (made != nullptr) return made;
    Lock lock(making);
    made = router.load(std::memory_order_relaxed);
    if (made != nullptr) return made;
    made = new (std::nothrow) Router;
    router.store(made, std::memory_order_release);
    return made;
}

std::string_view secondElement(std::string_view subject) noexcept {
    if (!subject.starts_with(systemPrefix)) return {};
    subject.remove_prefix(systemPrefix.size());
    return subject.substr(0, subject.find('.'));
}

bool keptHere(std::string_view element) noexcept {
    return element == "INFO" || element == "WARN" || element == "ERROR" || element == "STATS" ||
           element == "LASTERROR" || element == "ASK";
}

}  // namespace

bool staysHere(std::string_view subject) noexcept {
    return keptHere(secondElement(subject));
}

quorl_status checkReply(std::string_view replySubject) noexcept {
    if (replySubject.empty() || !staysHere(replySubject)) return QUORL_OK;
    return fail(QUORL_INVALID_SUBJECT,
                "\"%.*s\" never leaves a process: no reply from elsewhere comes there, take an inbox as reply subject",
                static_cast<int>(replySubject.size()), replySubject.data());
}

bool hearsThisProcessAlone(std::string_view pattern) noexcept {
    const std::string_view element = secondElement(pattern);
    return keptHere(element) || element == "*" || element == ">";
}

quorl_status listen(Listener& listener) noexcept {
    Router* to = routerMade();
    if (to == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a listener of the system's subjects");
    try {
        to->add(listener);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a listener of the system's subjects");
    }
    listeners.fetch_add(1, std::memory_order_relaxed);
    return QUORL_OK;
}

void unlisten(Listener& listener) noexcept {
    router.load(std::memory_order_acquire)->remove(listener);
    listeners.fetch_sub(1, std::memory_order_relaxed);
}

bool heard() noexcept {
    return listeners.load(std::memory_order_relaxed) != 0;
}

quorl_status publish(ThreadState& thread, message::ContentRef content) noexcept {
    if (!heard()) return Router::check(content.sendSubject());
    return router.load(std::memory_order_acquire)->route(thread, std::move(content));
}

void answerBy(Answers by) noexcept {
    answers.store(by, std::memory_order_release);
}

quorl_status answer(std::string_view subject, message::ContentRef* reply) noexcept {
    const bool lastError = subject == lastErrorSubject;
    const bool asks = subject.starts_with(askPrefix);
    if (!lastError && !asks && subject != statisticsSubject) return QUORL_OK;
    KeptErrorText kept;
    message::Builder message;
    if (lastError) {
        message.text("text", kept.saved());
    } else if (asks) {
        const Answers by = answers.load(std::memory_order_acquire);
        if (by == nullptr || !by(subject.substr(askPrefix.size()), message)) return QUORL_OK;
    } else {
        statistics::fill(message);
    }
    const quorl_status status = message.content(reply);
    if (status != QUORL_OK) kept.forget();
    return status;
}

}  // namespace quorl::transport::local
