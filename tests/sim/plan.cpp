// Drawing, shrinking and printing plans.
#include "sim/plan.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace quorl::sim {
namespace {

const char* nameOf(Fault fault) {
    switch (fault) {
        case Fault::cut:
            return "cut";
        case Fault::split:
            return "split";
        case Fault::isolate:
            return "isolate";
        case Fault::pause:
            return "pause";
        case Fault::kill:
            return "kill";
        case Fault::powerLoss:
            return "power loss";
        case Fault::killAt:
            return "kill at action";
        case Fault::wallClock:
            return "wall clock";
        case Fault::diskFull:
            return "disk full";
        case Fault::noRoom:
            return "no room";
        case Fault::lose:
            return "lose class";
        case Fault::hold:
            return "hold class";
    }
    return "?";
}

template <class... T>
std::string formatted(const char* format, T... values) {
    std::array<char, 160> line;
    std::snprintf(line.data(), line.size(), format, values...);
    return line.data();
}

double inMs(Time time) {
    return static_cast<double>(time) / static_cast<double>(millisecond);
}

// Counts the questions.
class Asker {
  public:
    Asker(const std::function<bool(const Plan&)>& fails, uint32_t tries) : fails_(fails), left_(tries) {}
    bool operator()(const Plan& plan) {
        if (left_ == 0) return false;
        --left_;
        return fails_(plan);
    }
    bool any() const { return left_ != 0; }

  private:
    const std::function<bool(const Plan&)>& fails_;
    uint32_t left_;
};

// Leaves out as many of the steps as possible, halves first, then quarters, down to single ones (Zeller and Hildebrandt:
// Simplifying and Isolating Failure-Inducing Input, 2002). Returns whether any went.
template <class Step>
bool leaveOut(Plan& plan, std::vector<Step> Plan::*steps, Asker& fails) {
    bool shorter = false;
    for (size_t chunk = std::max<size_t>((plan.*steps).size() / 2, 1); !(plan.*steps).empty();) {
        bool gone = false;
        for (size_t from = 0; from < (plan.*steps).size() && fails.any();) {
            Plan less = plan;
            auto& list = less.*steps;
            const auto first = list.begin() + static_cast<ptrdiff_t>(from);
            list.erase(first, first + static_cast<ptrdiff_t>(std::min(chunk, list.size() - from)));
            if (fails(less)) {
                plan = std::move(less);
                gone = shorter = true;
            } else {
                from += chunk;
            }
        }
        if (chunk == 1 && !gone) break;
        if (!fails.any()) break;
        if (!gone) chunk = std::max<size_t>(chunk / 2, 1);
    }
    return shorter;
}

bool calm(Plan& plan, Asker& fails) {
    bool calmer = false;
    const auto attempt = [&](auto change) {
        Plan less = plan;
        if (!change(less.rates) || !fails(less)) return;
        plan = std::move(less);
        calmer = true;
    };
    attempt([](Rates& rates) { return std::exchange(rates.loss, 0u) != 0; });
    attempt([](Rates& rates) { return std::exchange(rates.duplication, 0u) != 0; });
    attempt([](Rates& rates) { return std::exchange(rates.drift, 0) != 0; });
    attempt([](Rates& rates) { return std::exchange(rates.longest, rates.shortest) != rates.shortest; });
    attempt([](Rates& rates) { return !std::exchange(rates.inOrder, true); });
    return calmer;
}

}  // namespace

Rates drawRates(Random& random) {
    Rates rates;
    if (random.coin()) rates.loss = static_cast<uint32_t>(random.below(random.coin() ? 400'000 : 20'000));
    if (random.coin()) rates.duplication = static_cast<uint32_t>(random.below(300'000));
    rates.shortest = random.between(1, 20) * 100 * microsecond;
    rates.longest = rates.shortest + (random.coin() ? random.between(0, 200) * millisecond : 0);
    rates.inOrder = random.below(3) == 0;
    if (random.coin()) rates.drift = static_cast<int32_t>(random.below(2000));
    return rates;
}

std::vector<FaultStep> drawFaults(Random& random, uint32_t nodes, const FaultChoice& choice) {
    std::vector<Fault> kinds;
    for (uint32_t kind = 0; kind < faultKinds; ++kind) {
        if ((choice.kinds >> kind & 1) != 0 && random.coin()) kinds.push_back(static_cast<Fault>(kind));
    }
    std::vector<FaultStep> faults;
    if (kinds.empty()) return faults;
    const uint64_t count = random.below(choice.most + 1);
    for (uint64_t i = 0; i < count; ++i) {
        FaultStep step;
        step.at = random.between(0, choice.span);
        step.fault = kinds[random.below(kinds.size())];
        step.node = static_cast<uint32_t>(random.below(nodes));
        step.peer = nodes < 2 ? step.node : static_cast<uint32_t>((step.node + 1 + random.below(nodes - 1)) % nodes);
        // Most are short, some as long as may be.
        step.lasts = random.between(1, random.below(4) == 0 ? choice.longest : choice.longest / 20 + 1);
        if (step.fault == Fault::killAt) step.amount = random.between(1, 30);
        if (step.fault == Fault::wallClock) step.amount = random.between(-3600, 3600) * second;
        faults.push_back(step);
    }
    std::ranges::stable_sort(faults, {}, &FaultStep::at);
    return faults;
}

std::vector<FaultStep> drawSelective(Random& random, uint32_t nodes, uint32_t classes, Time span, Time longest) {
    std::vector<FaultStep> faults;
    for (uint64_t i = random.below(4) + 1; i != 0; --i) {
        FaultStep step;
        step.at = random.between(0, span);
        step.fault = random.coin() ? Fault::lose : Fault::hold;
        step.node = static_cast<uint32_t>(random.below(nodes));
        step.peer = static_cast<uint32_t>(random.below(nodes));
        step.lasts = random.between(1, random.coin() ? longest : longest / 10 + 1);
        step.amount = random.between(1, classes);
        faults.push_back(step);
    }
    return faults;
}

Plan shrink(Plan plan, const std::function<bool(const Plan&)>& asked, uint32_t tries) {
    Asker fails(asked, tries);
    while (fails.any()) {
        bool shorter = leaveOut(plan, &Plan::faults, fails);
        shorter |= leaveOut(plan, &Plan::work, fails);
        shorter |= calm(plan, fails);
        if (!shorter) break;
    }
    return plan;
}

std::string table(const Plan& plan, const std::function<std::string(const WorkStep&)>& nameOfWork) {
    const Rates& rates = plan.rates;
    std::string text = formatted(
        "seed %" PRIu64 ", %u nodes, loss %.1f %%, duplication %.1f %%, delay %.1f to %.1f ms%s, drift %d ppm\n",
        plan.seed, plan.nodes, rates.loss / 1e4, rates.duplication / 1e4, inMs(rates.shortest), inMs(rates.longest),
        rates.inOrder ? " in order" : "", rates.drift);
    text += "   at ms  node  what            peer    for ms  amount\n";
    std::vector<std::pair<Time, std::string>> lines;
    for (const FaultStep& step : plan.faults) {
        const bool selective = step.fault == Fault::lose || step.fault == Fault::hold;
        const bool pair = selective || step.fault == Fault::cut || step.fault == Fault::split;
        const std::string peer = selective && step.peer == step.node ? "all" : std::to_string(step.peer);
        lines.emplace_back(step.at,
                           formatted("%8.1f  %4u  %-14s  %4s  %8.1f  %" PRId64 "\n", inMs(step.at), step.node,
                                     nameOf(step.fault), pair ? peer.c_str() : "", inMs(step.lasts), step.amount));
    }
    for (const WorkStep& step : plan.work)
        lines.emplace_back(step.at, formatted("%8.1f  %4u  %-14s  %4s  %8s  %" PRIu64 "\n", inMs(step.at), step.node,
                                              nameOfWork(step).c_str(), "", "", step.argument));
    lines.emplace_back(plan.healedAt, formatted("%8.1f        healed\n", inMs(plan.healedAt)));
    std::ranges::stable_sort(lines, {}, [](const auto& line) { return line.first; });
    for (const auto& [at, line] : lines) text += line;
    return text;
}

}  // namespace quorl::sim
