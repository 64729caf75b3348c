#include <gmock/gmock.h>

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
