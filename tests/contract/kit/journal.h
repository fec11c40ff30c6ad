// The journal: every call that the bridge makes, in order, as text that holds the arguments by value.
#ifndef QUORL_CONTRACT_JOURNAL_H
#define QUORL_CONTRACT_JOURNAL_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace contract {

// Heap lines are kept apart: most rows do not fix where a buffer is made, only that it is gone at the end.
enum class LineKind { call, heap };

struct Line {
    LineKind kind;
    std::string text;
};

class Journal {
  public:
    void add(LineKind kind, std::string text);
    void clear();
    std::vector<std::string> calls() const;
    std::vector<std::string> everything() const;

  private:
    mutable std::mutex mutex_;
    std::vector<Line> lines_;  // guarded by mutex_
};

Journal& journal();

// Reports a broken rule of the interface: the running row fails, with the journal so far.
void violation(const std::string& what);
// How many violations were reported so far in the process.
int violations();

// Text in double quotes with unprintable bytes as \xNN; "null" for a null pointer.
std::string quoted(const char* text);
std::string quoted(const void* bytes, size_t size);
// The shortest form that reads back as the same number.
std::string number(double value);
std::string number(float value);
// A message handle: #hex.
std::string handle(const void* message);

}  // namespace contract

#endif
