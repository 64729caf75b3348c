#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <thread>

#include "CaughtLog.h"
#include "Utils.h"

TEST(Logging, ALineCarriesBufferTagFormatFileFunctionAndMessage)
{
    const CaughtLog log;
    LOG_INFO("Failed to read file: " << std::string("/a") << ' ' << 7 << true);
    ASSERT_EQ(log.Lines().size(), 1U);
    const LogLine line = log.Lines().front();
    EXPECT_EQ(line.logId, 0);
    EXPECT_EQ(line.priority, 4);
    EXPECT_EQ(line.tag, "VORTAN");
    EXPECT_EQ(line.format, "%s: %s(%d) > \033[32m%s\033[0m");
    EXPECT_EQ(line.file, "test_logging.cpp");
    EXPECT_EQ(line.function, "TestBody");
    EXPECT_EQ(line.line, __LINE__ - 9);
    EXPECT_EQ(line.message, "Failed to read file: /a 71");
}

namespace {

template <typename T>
void ExpectWrittenAsByAStream(const T& piece)
{
    std::ostringstream stream;
    stream << piece;
    const CaughtLog log;
    LOG_DEBUG(piece);
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines().front().message, stream.str());
}

}  // namespace

TEST(Logging, AWholeNumberIsWrittenAsByAStream)
{
    ExpectWrittenAsByAStream(0);
    ExpectWrittenAsByAStream(std::numeric_limits<std::int64_t>::min());
    ExpectWrittenAsByAStream(std::numeric_limits<std::int64_t>::max());
    ExpectWrittenAsByAStream(std::numeric_limits<std::uint64_t>::max());
    ExpectWrittenAsByAStream(std::numeric_limits<std::int32_t>::min());
    ExpectWrittenAsByAStream(std::numeric_limits<std::uint32_t>::max());
    ExpectWrittenAsByAStream(std::numeric_limits<std::int16_t>::min());
}

TEST(Logging, AThreadIdentifierIsWrittenAsByAStream)
{
    ExpectWrittenAsByAStream(std::this_thread::get_id());
    ExpectWrittenAsByAStream(std::thread::id());
}

TEST(Logging, AMessageOfAnyLengthIsWrittenWhole)
{
    for (std::size_t length = 0; length < 300; ++length) {
        const CaughtLog log;
        const std::string text(length, 'a');
        LOG_DEBUG(text << 1234 << text);
        EXPECT_EQ(log.Lines().front().message, std::string(text).append("1234").append(text));
    }
}
