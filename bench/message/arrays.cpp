// Arrays of a thousand numbers, into a message and out of it, against memcpy of the same bytes in the same run plus what an
// array of one number costs.
#include "message/arrays.h"

#include <cstring>
#include <numeric>
#include <vector>

#include "message/codec.h"
#include "support/quorl.h"

namespace bench::message {
namespace {

constexpr quorl_u32 many = 1000;

// The nanoseconds of each operation, one value for each round.
struct Times {
    std::vector<double> addMany, addOne, readMany, readOne, handOutMany, handOutOne, copy;
};

template <class T, auto add, auto get>
class Arrays {
  public:
    Arrays() : numbers_(many), out_(many) {
        std::iota(numbers_.begin(), numbers_.end(), T{1});
        need(quorlMsg_Create(&built_), "create");
        for (quorl_u32 i = 0; i < 2; ++i) {
            need(quorlMsg_Create(&read_[i]), "create");
            need(add(read_[i], "samples", numbers_.data(), i == 0 ? 1 : many, 0), "add");
        }
    }
    ~Arrays() {
        for (quorlMsg message : {built_, read_[0], read_[1]}) need(quorlMsg_Destroy(message), "destroy");
    }
    Arrays(const Arrays&) = delete;
    Arrays& operator=(const Arrays&) = delete;

    void round(Times& times) {
        times.addMany.push_back(timeOf([&](uint64_t) { addTo(many); }));
        times.copy.push_back(timeOf([&](uint64_t) { copyOut(numbers_.data(), many); }));
        times.addOne.push_back(timeOf([&](uint64_t) { addTo(1); }));
        times.readMany.push_back(timeOf([&](uint64_t) { copyOut(arrayOf(read_[1]), many); }));
        times.readOne.push_back(timeOf([&](uint64_t) { copyOut(arrayOf(read_[0]), 1); }));
        times.handOutMany.push_back(timeOf([&](uint64_t) { sum_ += static_cast<double>(*arrayOf(read_[1])); }));
        times.handOutOne.push_back(timeOf([&](uint64_t) { sum_ += static_cast<double>(*arrayOf(read_[0])); }));
        if (out_ != numbers_ || sum_ == 0) fail("an array came back with other numbers");
    }

  private:
    void addTo(quorl_u32 count) {
        need(quorlMsg_Reset(built_), "reset");
        need(add(built_, "samples", numbers_.data(), count, 0), "add");
    }
    const T* arrayOf(quorlMsg message) {
        const T* array = nullptr;
        quorl_u32 count = 0;
        need(get(message, "samples", &array, &count, 0), "get");
        return array;
    }
    [[gnu::noinline]] void copyOut(const T* from, quorl_u32 count) {
        std::memcpy(out_.data(), from, count * sizeof(T));
        asm volatile("" ::: "memory");  // each copy is made
    }

    std::vector<T> numbers_;
    std::vector<T> out_;
    quorlMsg built_ = nullptr;
    quorlMsg read_[2] = {};
    double sum_ = 0;
};

template <class T, auto add, auto get>
void reportType(const std::string& type) {
    Arrays<T, add, get> arrays;
    Times times;
    for (size_t i = 0; i < rounds(); ++i) arrays.round(times);
    const auto line = [&](const char* what, double ours, const char* peer, double theirs) {
        report("message", {std::string(what) + ".1000_" + type + ".ns", Better::lower}, ours, peer, theirs);
    };
    const double copy = median(times.copy);
    line("add_array", median(times.addMany), "one copy + an add of one", copy + median(times.addOne));
    line("read_array", median(times.readMany), "one copy + a read of one", copy + median(times.readOne));
    line("hand_out_array", median(times.handOutMany), "an array of one", median(times.handOutOne));
}

}  // namespace

void reportArrays() {
    reportType<quorl_i32, quorlMsg_AddI32ArrayEx, quorlMsg_GetI32ArrayEx>("i32");
    reportType<quorl_f64, quorlMsg_AddF64ArrayEx, quorlMsg_GetF64ArrayEx>("f64");
}

}  // namespace bench::message
