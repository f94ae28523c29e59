// The program's log lines keep the two forms that tools and people grep for.

#include "logging/log.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace murmela {
namespace {

TEST(Log, InfoLinesAreTheMessageAndErrorLinesNameTheirSource) {
    std::vector<std::pair<log::Level, std::string>> lines;
    {
        log::Capture capture(
            [&](log::Level level, const std::string& text) { lines.emplace_back(level, text); });
        log::info("voice ready in 12 ms");
        log::error("murmelaMain", "load failed: voice: vocab unreadable");
    }
    log::info("after the capture ended");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], std::make_pair(log::Level::info, std::string("voice ready in 12 ms")));
    EXPECT_EQ(lines[1],
              std::make_pair(log::Level::error,
                             std::string("murmelaMain: load failed: voice: vocab unreadable")));
}

TEST(Log, LinesFromManyThreadsArriveWhole) {
    std::vector<std::string> lines;
    log::Capture capture([&](log::Level, const std::string& text) { lines.push_back(text); });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i) {
                log::info("thread " + std::to_string(t) + " line " + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(lines.size(), 200u);
    for (const std::string& line : lines) {
        EXPECT_EQ(line.rfind("thread ", 0), 0u) << line;
    }
}

}  // namespace
}  // namespace murmela
