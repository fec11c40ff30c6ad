// Waiting until a thread waits.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace quorltest {

// Whether the state in /proc of that thread becomes "sleeping" within the limit: it blocks.
inline bool waitUntilAsleep(pid_t thread) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < end) {
        const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
        if (FILE* file = fopen(path.c_str(), "r")) {
            char line[512] = "";
            const size_t length = fread(line, 1, sizeof line - 1, file);
            fclose(file);
            line[length] = '\0';
            const char* close = strrchr(line, ')');
            if (close != nullptr && close[1] == ' ' && close[2] == 'S') return true;
        }
        std::this_thread::yield();
    }
    return false;
}

// Threads of this process whose names begin so.
inline std::vector<pid_t> threadsNamed(std::string_view begin) {
    std::vector<pid_t> found;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "comm");
        std::string name;
        if (std::getline(file, name) && name.starts_with(begin))
            found.push_back(static_cast<pid_t>(std::stol(task.path().filename().string())));
    }
    return found;
}

}  // namespace quorltest
