// Forking, watching and reaping.
#include "support/child.h"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>
#include <utility>
#include <vector>

namespace bench {
namespace {

// Those that have not ended.
std::vector<Child*> all;

int64_t patience() {
    return static_cast<int64_t>((60 + 20 * runSeconds()) * 1e9);
}

}  // namespace

Child::Child(std::string name, const std::function<void()>& body, Ends ends) : name_(std::move(name)), ends_(ends) {
    std::fflush(nullptr);
    const pid_t parent = getpid();
    process_ = fork();
    if (process_ < 0) fail("no process for " + name_);
    if (process_ == 0) {
        all.clear();
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        body();
        _exit(0);
    }
    all.push_back(this);
    handle_ = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
}

void Child::forget() {
    std::erase(all, this);
    if (handle_ >= 0) close(handle_);
    process_ = 0;
}

void Child::kill() {
    if (ended()) return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    forget();
}

void Child::look() {
    int status = 0;
    if (waitpid(process_, &status, WNOHANG) == 0) return;
    forget();
    if (ends_ == Ends::whenKilled || !WIFEXITED(status) || WEXITSTATUS(status) != 0) failAs(status);
}

void Child::failAs(int status) const {
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        fail(name_ + " was ended by signal " + std::to_string(signal) + " (SIG" + sigabbrev_np(signal) + ")");
    }
    fail(name_ + " ended with status " + std::to_string(WEXITSTATUS(status)));
}

double Child::processorSeconds() {
    double sum = 0;
    for (const Child* child : all) {
        clockid_t clock{};
        timespec time{};
        if (clock_getcpuclockid(child->process_, &clock) != 0 || clock_gettime(clock, &time) != 0) continue;
        sum += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }
    return sum;
}

void Child::check() {
    for (Child* child : std::vector(all)) child->look();
}

void Child::until(const char* what, const std::function<bool()>& isSo) {
    const int64_t limit = nowNs() + patience();
    while (!isSo()) {
        check();
        if (nowNs() > limit) fail(std::string("waited in vain until ") + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Sleeps until one has ended, so that waiting takes no time from the run; where the system gives no handles it looks now and then.
void Child::await() {
    const int64_t limit = nowNs() + patience();
    for (;;) {
        check();
        if (ended()) return;
        const int64_t left = limit - nowNs();
        if (left <= 0) fail(name_ + " hangs");
        std::vector<pollfd> handles;
        int time = static_cast<int>(left / 1'000'000) + 1;
        for (const Child* child : all) {
            handles.push_back({child->handle_, POLLIN, 0});
            if (child->handle_ < 0) time = std::min(time, 20);
        }
        poll(handles.data(), handles.size(), time);
    }
}

}  // namespace bench
