#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "base/LibraryLog.h"
#include "base/Text.h"

using namespace VORTAN_TRANSFER;

extern "C" int __dlog_print(int, int, const char*, const char*, ...);  // NOLINT: the log's name

TEST(LibraryLog, RemembersTheErrorsOfEachThreadApart)
{
    __dlog_print(0, 6, "VORTAN", "%s", "mine");
    std::string atFirst = "?";
    std::string atLast;
    std::thread([&] {
        atFirst = LastLibraryError();
        __dlog_print(0, 6, "VORTAN", "%s", "theirs");
        atLast = LastLibraryError();
    }).join();
    EXPECT_EQ(atFirst, "");
    EXPECT_EQ(atLast, "theirs");
    EXPECT_EQ(LastLibraryError(), "mine");
}

TEST(ErrorText, IsThatOfItsNumberOnAnyThread)
{
    EXPECT_EQ(ErrorText(ENOENT), "No such file or directory");
    constexpr int rounds = 20000;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> running;
    for (int number = 100000; number < 100004; ++number) {
        running.emplace_back([&wrong, number] {
            const std::string expected = "Unknown error " + std::to_string(number);
            for (int round = 0; round < rounds; ++round) {
                wrong += ErrorText(number) == expected ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}
