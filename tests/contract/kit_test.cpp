// The kit itself: natives made for the purpose break each rule that it claims to hold, and each must be reported.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "kit/contract.h"
#include "kit/rows.h"

extern "C" {
// What the bridge's objects call for malloc and free.
void* bridge_malloc(size_t size);
void* bridge_calloc(size_t count, size_t size);
void* bridge_realloc(void* block, size_t size);
void bridge_free(void* block);
}

namespace contract {

namespace {

using Reports = std::vector<std::string>;

// Runs what must fail and gives what was reported; its failures are not those of the running test.
Reports reports_of(const std::function<void()>& run) {
    ::testing::TestPartResultArray results;
    {
        ::testing::ScopedFakeTestPartResultReporter reporter(
            ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        run();
    }
    Reports reports;
    for (int i = 0; i < results.size(); ++i) reports.emplace_back(results.GetTestPartResult(i).message());
    return reports;
}

bool mentions(const Reports& reports, const std::string& text) {
    return std::any_of(reports.begin(), reports.end(),
                       [&](const std::string& report) { return report.find(text) != std::string::npos; });
}

// A native of the test's own, run as the bridge's are.
Ran run(const std::function<void(JNIEnv*)>& native) {
    return observe_callback([&] { native(jvm().env()); });
}

// Whether a native is reported, with that text, and nothing else is.
void expect_reported(const std::function<void(JNIEnv*)>& native, const std::string& text) {
    const Reports reports = reports_of([&] { run(native); });
    ASSERT_EQ(reports.size(), 1u) << text;
    EXPECT_TRUE(mentions(reports, text)) << reports[0];
}

class Kit : public ::testing::Test {
  protected:
    void SetUp() override { fresh(); }
};

const char* const klass = "com/vesma/quorl/QuorlException";

jbyteArray four_bytes() {
    return jvm().bytes("bytes", "abcd");
}

void leave_exception(JNIEnv* env) {
    env->ThrowNew(jvm().klass(klass), "left pending");
}

TEST_F(Kit, lets_a_native_without_fault_pass) {
    const jbyteArray bytes = four_bytes();
    const Reports reports = reports_of([&] {
        run([&](JNIEnv* env) {
            void* const block = bridge_calloc(2, 2);
            env->GetByteArrayRegion(bytes, 0, 4, static_cast<jbyte*>(block));
            bridge_free(block);
            void* const pin = env->GetPrimitiveArrayCritical(bytes, nullptr);
            env->ReleasePrimitiveArrayCritical(bytes, pin, JNI_ABORT);
            leave_exception(env);
        });
    });
    EXPECT_EQ(reports, Reports{});
}

// ---- calls that the machine does not allow ----

TEST_F(Kit, reports_a_call_with_an_exception_pending) {
    const jbyteArray bytes = four_bytes();
    const jstring string = jvm().string("string", "text");
    const jobject object = jvm().object("object", klass);
    jbyte room[4];
    const std::vector<std::function<void(JNIEnv*)>> forbidden = {
        [&](JNIEnv* env) { env->NewGlobalRef(object); },
        [&](JNIEnv* env) { env->GetByteArrayRegion(bytes, 0, 4, room); },
        [&](JNIEnv* env) { env->SetByteArrayRegion(bytes, 0, 4, room); },
        [&](JNIEnv* env) { env->NewByteArray(4); },
        [&](JNIEnv* env) { env->GetArrayLength(bytes); },
        [&](JNIEnv* env) { env->NewStringUTF("text"); },
        [&](JNIEnv* env) { env->FindClass(klass); },
        [&](JNIEnv* env) { env->IsInstanceOf(object, jvm().klass(klass)); },
        [&](JNIEnv* env) { env->ThrowNew(jvm().klass(klass), "another"); },
        [&](JNIEnv* env) { env->ReleaseStringUTFChars(string, env->GetStringUTFChars(string, nullptr)); },
        [&](JNIEnv* env) {
            env->ReleasePrimitiveArrayCritical(bytes, env->GetPrimitiveArrayCritical(bytes, nullptr), JNI_ABORT);
        },
        [&](JNIEnv* env) {
            env->ReleaseByteArrayElements(bytes, env->GetByteArrayElements(bytes, nullptr), JNI_ABORT);
        }};
    for (const auto& call : forbidden) {
        expect_reported(
            [&](JNIEnv* env) {
                leave_exception(env);
                call(env);
            },
            "with an exception pending");
    }
}

TEST_F(Kit, reports_a_call_after_a_copy_that_failed) {
    const jbyteArray bytes = four_bytes();
    jbyte room[8];
    expect_reported(
        [&](JNIEnv* env) {
            env->GetByteArrayRegion(bytes, 0, 5, room);
            env->NewByteArray(1);
        },
        "NewByteArray is called with an exception pending (" + out_of_bounds);
}

TEST_F(Kit, lets_a_row_exempt_a_call_with_a_reason) {
    jvm().exempt("the contract wants it", {"NewByteArray"});
    EXPECT_EQ(reports_of([] {
                  run([](JNIEnv* env) {
                      leave_exception(env);
                      env->NewByteArray(4);
                  });
              }),
              Reports{});
    EXPECT_TRUE(mentions(reports_of([] { jvm().exempt("", {"FindClass"}); }), "needs a reason"));
}

TEST_F(Kit, reports_more_local_references_than_are_reserved) {
    const jobjectArray strings = jvm().objects("strings", {jvm().string("each", "text")});
    auto take = [=](JNIEnv* env, int count, bool give_back) {
        for (int i = 0; i < count; ++i) {
            const jobject taken = env->GetObjectArrayElement(strings, 0);
            if (give_back) env->DeleteLocalRef(taken);
        }
    };
    expect_reported([&](JNIEnv* env) { take(env, 33, false); }, "more local references at a time than the 32 reserved");
    expect_reported(
        [&](JNIEnv* env) {
            env->PushLocalFrame(40);
            take(env, 41, false);
            env->PopLocalFrame(nullptr);
        },
        "more local references at a time than the 40 reserved");
    EXPECT_EQ(reports_of([&] {
                  run([&](JNIEnv* env) {
                      take(env, 1000, true);
                      take(env, 30, false);
                      EXPECT_EQ(env->PushLocalFrame(65537), JNI_ERR);
                      EXPECT_EQ(env->PushLocalFrame(100), JNI_OK);
                      take(env, 100, false);
                      env->PopLocalFrame(nullptr);
                  });
              }),
              Reports{});
}

TEST_F(Kit, reports_frames_that_do_not_pair) {
    expect_reported([](JNIEnv* env) { env->PushLocalFrame(1); }, "a frame of local references is not popped");
    expect_reported([](JNIEnv* env) { env->PopLocalFrame(nullptr); }, "PopLocalFrame is called without a frame");
}

TEST_F(Kit, reports_a_call_inside_a_critical_section) {
    const jbyteArray bytes = four_bytes();
    expect_reported(
        [&](JNIEnv* env) {
            void* const pin = env->GetPrimitiveArrayCritical(bytes, nullptr);
            env->NewByteArray(1);
            env->ReleasePrimitiveArrayCritical(bytes, pin, JNI_ABORT);
        },
        "NewByteArray is called inside a critical section");
}

TEST_F(Kit, reports_a_function_that_the_bridge_has_no_use_for) {
    Ran ran;
    const Reports reports = reports_of([&] { ran = run([](JNIEnv* env) { env->ExceptionClear(); }); });
    EXPECT_TRUE(mentions(reports, "calls ExceptionClear, which the bridge has no use for"));
    EXPECT_EQ(ran.result, "does not return");
}

TEST_F(Kit, reports_another_threads_environment) {
    JNIEnv other = *jvm().env();
    expect_reported([&](JNIEnv*) { other.NewByteArray(1); }, "another thread's environment");
}

// ---- what is not given back, or twice ----

TEST_F(Kit, reports_an_unreleased_critical_section) {
    const jbyteArray bytes = four_bytes();
    expect_reported([&](JNIEnv* env) { env->GetPrimitiveArrayCritical(bytes, nullptr); },
                    "still pinned critically: bytes");
}

TEST_F(Kit, reports_elements_and_texts_that_are_still_held) {
    const jbyteArray bytes = four_bytes();
    const jstring string = jvm().string("name", "text");
    expect_reported([&](JNIEnv* env) { env->GetByteArrayElements(bytes, nullptr); }, "elements are still held: bytes");
    fresh();
    expect_reported([&](JNIEnv* env) { env->GetStringUTFChars(jvm().string("name", "text"), nullptr); },
                    "text is still held: name");
    (void)string;
}

TEST_F(Kit, reports_a_release_made_twice_or_of_another_array) {
    const jbyteArray bytes = four_bytes();
    const jbyteArray others = jvm().bytes("others", "efgh");
    expect_reported(
        [&](JNIEnv* env) {
            jbyte* const pin = env->GetByteArrayElements(bytes, nullptr);
            env->ReleaseByteArrayElements(bytes, pin, JNI_ABORT);
            env->ReleaseByteArrayElements(bytes, pin, JNI_ABORT);
        },
        "not held for bytes");
    expect_reported(
        [&](JNIEnv* env) {
            jbyte* const pin = env->GetByteArrayElements(bytes, nullptr);
            env->ReleaseByteArrayElements(others, pin, JNI_ABORT);
            env->ReleaseByteArrayElements(bytes, pin, JNI_ABORT);
        },
        "not held for others");
    // Pinned in one way, released in the other.
    EXPECT_TRUE(mentions(reports_of([&] {
                             run([&](JNIEnv* env) {
                                 void* const pin = env->GetPrimitiveArrayCritical(bytes, nullptr);
                                 env->ReleaseByteArrayElements(bytes, static_cast<jbyte*>(pin), JNI_ABORT);
                                 env->ReleasePrimitiveArrayCritical(bytes, pin, JNI_ABORT);
                             });
                         }),
                         "inside a critical section"));
}

TEST_F(Kit, reports_a_write_to_pinned_elements) {
    const jbyteArray bytes = four_bytes();
    expect_reported(
        [&](JNIEnv* env) {
            jbyte* const pin = env->GetByteArrayElements(bytes, nullptr);
            pin[3] ^= 1;
            env->ReleaseByteArrayElements(bytes, pin, JNI_ABORT);
        },
        "the pinned elements of bytes were written to");
}

TEST_F(Kit, reports_references_that_are_stale_wild_null_or_of_the_other_kind) {
    jobject kept = nullptr;
    run([&](JNIEnv* env) { kept = env->NewByteArray(1); });
    expect_reported([&](JNIEnv* env) { env->GetArrayLength(static_cast<jarray>(kept)); }, "given a stale reference");
    int wild = 0;
    expect_reported([&](JNIEnv* env) { env->NewGlobalRef(reinterpret_cast<jobject>(&wild)); },
                    "given a wild reference");
    expect_reported([](JNIEnv* env) { env->GetStringUTFChars(nullptr, nullptr); }, "given a null reference");
    const jobject object = jvm().object("object", klass);
    expect_reported([&](JNIEnv* env) { env->DeleteGlobalRef(object); }, "a local reference to object");
    fresh();
    expect_reported([](JNIEnv* env) { env->DeleteLocalRef(env->NewGlobalRef(jvm().object("object", klass))); },
                    "a global reference to object");
    expect_reported(
        [](JNIEnv* env) {
            const jobject global = env->NewGlobalRef(jvm().object("object", klass));
            env->DeleteGlobalRef(global);
            env->DeleteGlobalRef(global);
        },
        "given a stale reference");
}

TEST_F(Kit, reports_arguments_of_another_kind) {
    const jlongArray longs = static_cast<jlongArray>(jvm().numbers("longs", 'J', std::vector<jlong>(2)));
    jbyte room[4];
    expect_reported([&](JNIEnv* env) { env->GetByteArrayRegion(reinterpret_cast<jbyteArray>(longs), 0, 1, room); },
                    "given longs, an array of another kind");
    expect_reported([&](JNIEnv* env) { env->Throw(static_cast<jthrowable>(jvm().object("object", "[B"))); },
                    "which is no exception");
    const jclass made_of = jvm().klass(klass);
    expect_reported([&](JNIEnv* env) { env->NewObject(made_of, nullptr, 1); }, "no constructor");
}

// ---- the heap ----

TEST_F(Kit, counts_blocks_that_are_left) {
    void* left = nullptr;
    const Ran ran = run([&](JNIEnv*) {
        left = bridge_malloc(24);
        bridge_free(bridge_calloc(3, 5));
    });
    EXPECT_EQ(ran.left, std::vector<size_t>{24});
    EXPECT_EQ(ran.all, (Lines{"alloc(24)", "alloc(15)", "free(15)"}));
    EXPECT_EQ(reports_of([&] { expect(ran, {}); }).size(), 1u) << "a contract that leaves nothing is not kept";
    bridge_free(left);
}

TEST_F(Kit, reports_a_block_freed_twice) {
    expect_reported(
        [](JNIEnv*) {
            void* const block = bridge_malloc(8);
            bridge_free(block);
            bridge_free(block);
        },
        "freed that the bridge does not hold");
}

TEST_F(Kit, refuses_the_allocation_that_it_is_told_to) {
    heap().fail(2);
    std::vector<bool> given;
    run([&](JNIEnv*) {
        for (int i = 0; i < 3; ++i) {
            void* const block = i == 1 ? bridge_calloc(1, 8) : bridge_malloc(8);
            given.push_back(block != nullptr);
            bridge_free(block);
        }
    });
    EXPECT_EQ(given, (std::vector<bool>{true, false, true}));
    EXPECT_EQ(heap().asked(), 3);
}

TEST_F(Kit, shows_memory_that_is_not_zeroed) {
    run([](JNIEnv*) {
        unsigned char* const plain = static_cast<unsigned char*>(bridge_malloc(2));
        unsigned char* const zeroed = static_cast<unsigned char*>(bridge_calloc(2, 1));
        EXPECT_NE(plain[0], 0);
        EXPECT_EQ(zeroed[1], 0);
        bridge_free(plain);
        bridge_free(bridge_realloc(zeroed, 4));
    });
}

TEST_F(Kit, reports_a_block_that_is_not_wiped_where_a_row_wants_it) {
    auto free_one = [](int fill) {
        return [fill](JNIEnv*) {
            void* const block = bridge_malloc(8);
            std::memset(block, fill, 8);
            bridge_free(block);
        };
    };
    heap().want_wiped_blocks();
    expect_reported(free_one('x'), "freed with its content");
    heap().want_wiped_blocks();
    EXPECT_EQ(reports_of([&] { run(free_one(0)); }), Reports{});
    EXPECT_EQ(reports_of([&] { run(free_one('x')); }), Reports{}) << "the next call is not asked";
}

void write_past(size_t size) {
    run([size](JNIEnv*) {
        volatile char* const block = static_cast<char*>(bridge_malloc(size));
        block[size] = '\0';
        bridge_free(const_cast<char*>(block));
    });
}

TEST_F(Kit, reports_a_write_past_a_block) {
#ifdef __SANITIZE_ADDRESS__
    EXPECT_DEATH(write_past(255), "heap-buffer-overflow");
#else
    const Reports reports = reports_of([] { write_past(255); });
    EXPECT_TRUE(mentions(reports, "a block of 255 bytes was written to past its end"));
    // Also when it is not freed.
    void* left = nullptr;
    EXPECT_TRUE(mentions(reports_of([&] {
                             run([&](JNIEnv*) {
                                 left = bridge_calloc(1, 7);
                                 std::memset(left, 'x', 8);
                             });
                         }),
                         "a block of 7 bytes"));
    reports_of([&] { bridge_free(left); });
#endif
}

#ifdef __SANITIZE_ADDRESS__
TEST_F(Kit, leaves_reads_past_pinned_elements_to_the_sanitizer) {
    const jbyteArray bytes = four_bytes();
    EXPECT_DEATH(run([&](JNIEnv* env) {
                     const volatile jbyte* const pin = env->GetByteArrayElements(bytes, nullptr);
                     (void)pin[4];
                 }),
                 "heap-buffer-overflow");
}
#endif

// ---- contracts that are not kept ----

TEST_F(Kit, reports_another_order_result_exception_or_count_of_references) {
    const jobject object = jvm().object("object", klass);
    auto native = [&](JNIEnv* env) {
        env->NewGlobalRef(object);
        env->NewByteArray(2);
        leave_exception(env);
    };
    const std::string thrown = std::string(klass) + ": left pending";
    const Lines lines = {"NewGlobalRef(object)", "NewByteArray(2)",
                         "ThrowNew(" + std::string(klass) + ", \"left pending\")"};
    const Expected kept = {.thrown = thrown, .lines = lines, .globals = 1};
    EXPECT_EQ(reports_of([&] { expect(run(native), kept); }), Reports{});
    std::vector<Expected> broken(4, kept);
    broken[0].lines = {lines[1], lines[0], lines[2]};
    broken[1].result = "1";
    broken[2].thrown = "";
    broken[3].globals = 0;
    for (const Expected& each : broken) {
        EXPECT_EQ(reports_of([&] { expect(run(native), each); }).size(), 1u);
    }
}

TEST_F(Kit, fails_the_call_that_it_is_told_to) {
    jvm().fail("NewByteArray", 2);
    std::vector<bool> made;
    const Ran ran = run([&](JNIEnv* env) {
        made.push_back(env->NewByteArray(1) != nullptr);
        made.push_back(env->NewByteArray(1) != nullptr);
    });
    EXPECT_EQ(made, (std::vector<bool>{true, false}));
    EXPECT_EQ(ran.thrown, machine_out_of_memory);
    EXPECT_TRUE(jvm().fault_reached());
    jvm().fail("NewByteArray", 1);
    run([](JNIEnv*) {});
    EXPECT_FALSE(jvm().fault_reached());
}

TEST_F(Kit, knows_natives_without_rows_or_failure_rows) {
    const std::vector<std::string> declared = {"Whole", "Quiet", "Bare_1Of", "Absent"};
    Register natives;
    natives["Whole"] = {.family = "f", .rows = 2, .failures = 1};
    natives["Quiet"] = {.family = "f", .rows = 1, .cannot_fail = "no status"};
    EXPECT_EQ(gaps(natives, {"Whole", "Quiet"}), std::vector<std::string>{});
    natives["Bare_1Of"] = {.family = "f", .rows = 3};
    natives["Foreign"] = {.family = "f", .rows = 2, .failures = 1};
    natives["Whole"].cannot_fail = "no status";
    std::vector<std::string> found = gaps(natives, declared);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<std::string>{"Absent has no rows", "Bare_Of has no failure row",
                                               "Foreign is no native", "Whole can fail after all"}));
}

}  // namespace

}  // namespace contract
