// Processes of distributed queues: starting and killing them, and asking the scheduler how the queue is.
#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <utility>

#include "quorl/quorlcmq.h"
#include "support.h"

namespace quorltest {

// The parent has no threads when it forks: the library is not open there.
template <class F>
pid_t spawn(F&& body) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    return child;
}

inline void endNow(pid_t process) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

// 0: the process has ended well; otherwise what it said.
inline int outcomeOf(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

// What the scheduler of the queue "crew" says.
struct QueueStatus {
    quorl_u64 assigned = 0, unassigned = 0, completed = 0, reassigned = 0;
    quorl_u32 ready = 0;  // workers that take tasks
};

inline bool askStatus(quorlTransport transport, QueueStatus* status) {
    quorlMsg question = newMessage("_QUORL.DQ.STATUS.crew");
    quorlMsg answer = nullptr;
    const bool answered = quorlTransport_SendRequest(transport, question, &answer, 0.2) == QUORL_OK;
    quorlMsg_Destroy(question);
    if (!answered) return false;
    *status = {};
    for (const auto& [name, into] :
         {std::pair("assigned", &status->assigned), std::pair("unassigned", &status->unassigned),
          std::pair("completed", &status->completed), std::pair("reassigned", &status->reassigned)})
        quorlMsg_GetU64Ex(answer, name, into, 0);
    const quorlMsg* workers = nullptr;
    quorl_u32 count = 0;
    quorlMsg_GetMsgArrayEx(answer, "workers", &workers, &count, 0);
    for (quorl_u32 i = 0; i < count; ++i) {
        quorl_u32 tasks = 0;
        status->ready += quorlMsg_GetU32Ex(workers[i], "tasks", &tasks, 0) == QUORL_OK && tasks != 0;
    }
    quorlMsg_Destroy(answer);
    return true;
}

// Asks until wanted(status), or false when the limit has passed. between is called before each question.
template <class F, class G>
bool untilStatus(quorlTransport transport, F&& wanted, G&& between) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (std::chrono::steady_clock::now() < end) {
        QueueStatus status;
        between();
        if (askStatus(transport, &status) && wanted(status)) return true;
    }
    return false;
}
template <class F>
bool untilStatus(quorlTransport transport, F&& wanted) {
    return untilStatus(transport, std::forward<F>(wanted), [] {});
}

// The same from a process of its own.
template <class F>
bool untilStatusOver(const std::string& daemon, F&& wanted) {
    return outcomeOf(spawn([&] {
               quorlTransport transport = 0;
               if (quorl_Open() != QUORL_OK) return 1;
               if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 2;
               return untilStatus(transport, std::forward<F>(wanted)) ? 0 : 3;
           })) == 0;
}

}  // namespace quorltest
