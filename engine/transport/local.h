// The subjects that never leave the process: advisories, and questions that the engine itself answers.
#pragma once

#include <string_view>

#include "base/thread_state.h"
#include "message/builder.h"
#include "message/delivery.h"
#include "transport/listener.h"

namespace quorl::transport::local {

// Whether messages on the subject stay in the process: its second element is INFO, WARN, ERROR, STATS, LASTERROR or
// ASK.
bool staysHere(std::string_view subject) noexcept;

// Whether what leaves the process may ask for replies there. QUORL_INVALID_SUBJECT.
quorl_status checkReply(std::string_view replySubject) noexcept;

// Whether a listener to the pattern hears such messages and no others, so that no backend has to know of it. A wildcard
// stands for their second element alone: what the system sends for its protocols is heard by whoever names it.
bool hearsThisProcessAlone(std::string_view pattern) noexcept;

// Starts and stops feeding a listener of such a pattern, whichever transport it belongs to. QUORL_NO_MEMORY.
quorl_status listen(Listener& listener) noexcept;
void unlisten(Listener& listener) noexcept;

// Whether any listener is fed.
bool heard() noexcept;

// Puts a message into the queues of the listeners that match. Under a read guard. QUORL_INVALID_SUBJECT, QUORL_NO_MEMORY.
quorl_status publish(ThreadState& thread, message::ContentRef content) noexcept;

// Who answers the questions on _QUORL.ASK.: given what follows, adds the answer's fields and says true, or false for no answer.
// On any thread. One at most, which answers for ever.
using Answers = bool (*)(std::string_view question, message::Builder& reply) noexcept;
void answerBy(Answers answers) noexcept;

// The engine's answer to a question on that subject, without subjects; empty when it is no question. The calling thread's
// detail text stays as it is, and is what _QUORL.LASTERROR asks for. QUORL_NO_MEMORY.
quorl_status answer(std::string_view subject, message::ContentRef* reply) noexcept;

}  // namespace quorl::transport::local
