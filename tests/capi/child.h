// A forked child of a test, and how it ended.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "support.h"

namespace quorltest {

inline bool isForkedChild = false;

#if defined(__SANITIZE_ADDRESS__)
// Of the leak checker, which asks when a process exits. A forked child has none of the threads that hold memory.
extern "C" [[gnu::used, gnu::visibility("default")]] inline int __lsan_is_turned_off() {
    return isForkedChild ? 1 : 0;
}
#endif

enum class Leaving { withoutHandlers, withHandlers };  // _exit, exit

// Ends the calling process when it hangs: what every child of a fork begins with.
inline void endWhenHanging() {
    alarm(static_cast<unsigned>(limit));
}

// What the child has exited with; 1000 and its signal when one ended it; -1: it could not be had.
inline int outcomeOf(pid_t child) {
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

// Forks; the child exits with what body answers. 0: it ended as it should.
template <class F>
int inChild(F&& body, Leaving leaving = Leaving::withoutHandlers) {
    fflush(nullptr);  // or the child would write once more what waits to be written
    const pid_t child = fork();
    if (child == 0) {
        isForkedChild = true;
        endWhenHanging();
        const int outcome = body();
        leaving == Leaving::withHandlers ? exit(outcome) : _exit(outcome);
    }
    return outcomeOf(child);
}

}  // namespace quorltest
