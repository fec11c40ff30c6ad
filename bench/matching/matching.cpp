// The cost of a publish against 100 and against 100,000 subscriptions, a tenth of them with a wildcard, four elements
// deep.
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace bench;

// A bus with many listeners, and the subjects to publish on: those of the listeners without a wildcard, in random
// order, so that every publish reaches a listener, and mostly another one than all the publishes before it.
class Population {
  public:
    explicit Population(size_t size) : bus_(std::to_string(size).c_str()) {
        std::mt19937_64 random(size);
        std::vector<std::string> plain;
        for (size_t i = 0; i < size; ++i) {
            // A hundred values for each element: with one of them a wildcard, a pattern matches one in a million
            // subjects.
            std::string elements[4];
            for (std::string& element : elements) element = "part" + std::to_string(random() % 100);
            bool wild = i % 10 == 0;
            if (wild) elements[random() % 4] = std::string("*");
            std::string subject = elements[0] + "." + elements[1] + "." + elements[2] + "." + elements[3];
            listeners_.emplace_back(bus_, queue_, subject.c_str(), onMessage, this);
            if (!wild) plain.push_back(subject);
        }
        for (size_t i = 0; i < kSubjects; ++i) subjects_.push_back(plain[random() % plain.size()]);
    }

    // Nanoseconds of a publish, and of one with the dispatch of what it caused. The dispatcher runs between batches of
    // publishes, on the same thread, so that neither waits for the other.
    std::vector<double> run() {
        char payload[16] = {};
        int64_t publishing = 0;
        int64_t start = nowNs();
        int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
        uint64_t published = 0;
        uint64_t received = received_;
        int64_t now = start;
        while (now < stop) {
            for (size_t i = 0; i < kBatch; ++i) {
                bus_.publish(subjects_[next_++ % kSubjects].c_str(), payload, sizeof payload);
            }
            published += kBatch;
            publishing += nowNs() - now;
            quorl_status status = QUORL_OK;
            while (status == QUORL_OK) status = quorlQueue_TimedDispatch(queue_.id(), 0);
            if (status != QUORL_TIMEOUT) need(status, "dispatch");
            now = nowNs();
        }
        if (received_ - received < published) fail("a publish did not reach its listener");
        auto each = [&](int64_t time) { return static_cast<double>(time) / static_cast<double>(published); };
        return {each(publishing), each(now - start)};
    }

  private:
    static constexpr size_t kSubjects = 1 << 16;
    static constexpr size_t kBatch = 256;

    static void onMessage(quorlEvent, quorlMsg, void* closure) { ++static_cast<Population*>(closure)->received_; }

    Bus bus_;
    Queue queue_;
    std::vector<Listener> listeners_;
    std::vector<std::string> subjects_;
    size_t next_ = 0;
    uint64_t received_ = 0;
};

}  // namespace

int main() {
    Population few(100);
    Population many(100'000);
    compare("matching", {{"publish.100000.ns", Better::lower}, {"publish_and_dispatch.100000.ns", Better::lower}},
            {"quorl", [&] { return many.run(); }}, {{"quorl, 100 subscriptions", [&] { return few.run(); }}});
}
