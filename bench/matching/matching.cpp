// The cost of a publish against 100 and against 100,000 subscriptions, a tenth of them with a wildcard, four elements deep.
#include <array>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace bench;

using Elements = std::array<std::string, 4>;

// A hundred values for each element: a pattern with one wildcard matches one in a million subjects.
Elements randomElements(std::mt19937_64& random) {
    Elements elements;
    for (std::string& element : elements) element = "part" + std::to_string(random() % 100);
    return elements;
}

std::string joined(const Elements& elements) {
    return elements[0] + "." + elements[1] + "." + elements[2] + "." + elements[3];
}

// What is published on.
enum class Subjects {
    random,  // any subject; one more listener, on ">", hears them all, and hardly any other does
    heard,   // those of the listeners without a wildcard
};

// A bus with many listeners, and many subjects to publish on, in random order, so that a publish has little in common
// with those before it.
class Population {
  public:
    Population(size_t size, Subjects kind)
        : bus_((std::to_string(size) + (kind == Subjects::random ? "-random" : "-heard")).c_str()) {
        std::mt19937_64 random(size);
        std::vector<std::string> plain;
        for (size_t i = 0; i < size; ++i) {
            Elements elements = randomElements(random);
            bool wild = i % 10 == 0;
            if (wild) elements[random() % elements.size()] = std::string("*");
            listen(joined(elements));
            if (!wild) plain.push_back(joined(elements));
        }
        if (kind == Subjects::random) listen(">");
        for (size_t i = 0; i < kSubjects; ++i) {
            std::string subject =
                kind == Subjects::random ? joined(randomElements(random)) : plain[random() % plain.size()];
            subjects_.emplace_back();
            std::memcpy(subjects_.back().data(), subject.c_str(), subject.size() + 1);
        }
    }

    // Nanoseconds of a publish, and of one with the dispatch of what it caused. The dispatcher runs between batches of
    // publishes, on the same thread, so that neither waits for the other.
    std::vector<double> run() {
        char payload[16] = {};
        int64_t publishing = 0;
        int64_t start = threadNs();
        int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
        uint64_t published = 0;
        uint64_t received = received_;
        int64_t now = start;
        while (now < stop) {
            for (size_t i = 0; i < kBatch; ++i) {
                bus_.publish(subjects_[next_++ % kSubjects].data(), payload, sizeof payload);
            }
            published += kBatch;
            publishing += threadNs() - now;
            quorl_status status = QUORL_OK;
            while (status == QUORL_OK) status = quorlQueue_TimedDispatch(queue_.id(), 0);
            if (status != QUORL_TIMEOUT) need(status, "dispatch");
            now = threadNs();
        }
        if (received_ - received < published) fail("a publish did not reach its listener");
        auto each = [&](int64_t time) { return static_cast<double>(time) / static_cast<double>(published); };
        return {each(publishing), each(now - start)};
    }

  private:
    static constexpr size_t kSubjects = 1 << 16;
    static constexpr size_t kBatch = 256;

    void listen(const std::string& pattern) { listeners_.emplace_back(bus_, queue_, pattern.c_str(), onMessage, this); }

    static void onMessage(quorlEvent, quorlMsg, void* closure) { ++static_cast<Population*>(closure)->received_; }

    Bus bus_;
    Queue queue_;
    std::vector<Listener> listeners_;
    // One after the other, so that fetching them ahead is easy: the publisher of a real program has its subject at hand.
    std::vector<std::array<char, 32>> subjects_;
    size_t next_ = 0;
    uint64_t received_ = 0;
};

void compareSizes(Subjects kind, const std::string& name) {
    Population few(100, kind);
    Population many(100'000, kind);
    compare("matching",
            {{"publish." + name + ".ns", Better::lower}, {"publish_and_dispatch." + name + ".ns", Better::lower}},
            {"quorl, 100000 subscriptions", [&] { return many.run(); }},
            {{"quorl, 100 subscriptions", [&] { return few.run(); }}});
}

}  // namespace

int main() {
    compareSizes(Subjects::random, "random");
    compareSizes(Subjects::heard, "heard");
}
