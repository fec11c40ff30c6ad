// Processes of a test that is one itself: they end with it.
#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace quorltest {

template <class F>
pid_t spawn(F&& body) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    return child;
}

inline void endBy(pid_t process, int number) {
    int status = 0;
    kill(process, number);
    ASSERT_EQ(waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it had ended by itself: " << WEXITSTATUS(status);
}

}  // namespace quorltest
