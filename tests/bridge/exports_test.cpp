// Holds the symbols that the bridge's shared object exports against the natives that the Java classes declare, both ways,
// and loads and unloads it without use.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace {

using Names = std::set<std::string>;

// What the object exports besides the natives.
const Names own_names = {"listenerCallback",
                         "vectorListenerCallback",
                         "timer_callback",
                         "cmListenerCallback",
                         "ftMemberCallback",
                         "ftMonitorCallback",
                         "getContainer",
                         "extract_transport_parameters",
                         "_quorlNative_Initialize",
                         "destructor",
                         "_quorl_classes",
                         "_quorl_methods",
                         "criticalMethodsAreAvailable",
                         "_eventThreadKey",
                         "_msgThreadKey",
                         "_envThreadKey",
                         "_actionThreadKey",
                         "_activeMembersThreadKey",
                         "_msgArrayThreadKey"};

// The natives, from the headers that the Java compiler wrote.
Names declared() {
    Names names;
    const std::string mark = "JNICALL Java_";
    for (const auto& entry : std::filesystem::directory_iterator(QUORL_JNI_HEADERS)) {
        std::ifstream file(entry.path());
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
            const size_t start = at + mark.size() - 5;
            names.insert(text.substr(start, text.find_first_of(" \n(", start) - start));
        }
    }
    return names;
}

Names exported() {
    Names names;
    FILE* const listing = popen(QUORL_NM " -D --defined-only --format=posix " QUORL_BRIDGE, "r");
    if (listing == nullptr) return names;
    char line[1024];
    while (std::fgets(line, sizeof line, listing) != nullptr)
        names.insert(std::string(line).substr(0, std::string(line).find(' ')));
    pclose(listing);
    return names;
}

Names without(const Names& all, const Names& taken) {
    Names left;
    for (const std::string& name : all) {
        if (taken.count(name) == 0) left.insert(name);
    }
    return left;
}

TEST(Exports, every_declared_native_is_exported) {
    const Names natives = declared();
    EXPECT_EQ(natives.size(), 301u);
    EXPECT_EQ(without(natives, exported()), Names{});
}

TEST(Exports, nothing_else_is_exported_than_natives_and_the_own_names) {
    EXPECT_EQ(without(without(exported(), declared()), own_names), Names{});
    EXPECT_EQ(without(own_names, exported()), Names{});
}

TEST(Exports, loads_and_unloads_without_use) {
    for (int round = 0; round < 3; ++round) {
        void* const bridge = dlopen(QUORL_BRIDGE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(bridge, nullptr) << dlerror();
        int* const flag = static_cast<int*>(dlsym(bridge, "criticalMethodsAreAvailable"));
        ASSERT_NE(flag, nullptr);
        EXPECT_EQ(*flag, 0);
        EXPECT_EQ(dlclose(bridge), 0);
    }
}

}  // namespace
