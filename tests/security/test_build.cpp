// How test programs are built.

#include <gtest/gtest.h>

#include <csignal>
#include <vector>

TEST(TestBuild, StopsAtAnIndexBeyondTheEnd)
{
    std::vector<int> numbers(1);
    numbers.reserve(2);  // no sanitizer minds what is in reserve
    volatile std::size_t index = 1;
    EXPECT_EXIT(numbers[index] = 1, ::testing::KilledBySignal(SIGABRT), "");
}
