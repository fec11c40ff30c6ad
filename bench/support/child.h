// The processes of a run: forked from a parent that has no threads, watched, and gone when it is.
//
//     Shared<State> state;
//     Child worker("the worker", [&] { work(*state); });
//     Child sender("the sender", [&] { send(*state); });
//     sender.await();
//
// One that ends in another way than its owner expects, or hangs, ends the benchmark with a word on who it was: whoever waits
// for one of them watches all.
#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <new>
#include <string>

#include "support/measure.h"

namespace bench {

class Child {
  public:
    enum class Ends : bool { byItself, whenKilled };

    // name: for people. The process ends when body returns, without destructors of the parent's.
    Child(std::string name, const std::function<void()>& body, Ends ends = Ends::byItself);
    ~Child() { kill(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Waits until it has ended.
    void await();
    // Ends it at once; it is gone when this returns. Without effect when it is gone already.
    void kill();
    pid_t id() const { return process_; }

    // What those that have not ended have used.
    static double processorSeconds();

    // Fails when one of them has ended as it should not.
    static void check();
    // Waits until something is so, which they bring about. what: for people, as in "the listener is ready".
    static void until(const char* what, const std::function<bool()>& isSo);

  private:
    bool ended() const { return process_ == 0; }
    void look();
    void forget();
    [[noreturn]] void failAs(int status) const;

    std::string name_;
    Ends ends_;
    pid_t process_ = 0;  // 0: it has ended
    int handle_ = -1;    // can be read from when it has; -1: there is none
};

// Memory that a process shares with those that it forks.
template <class T>
class Shared {
  public:
    Shared() {
        void* place = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (place == MAP_FAILED) fail("no shared memory");
        value_ = new (place) T;
    }
    ~Shared() {
        value_->~T();
        munmap(value_, sizeof(T));
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    T& operator*() const { return *value_; }
    T* operator->() const { return value_; }

  private:
    T* value_;
};

}  // namespace bench
