#include <gmock/gmock.h>

#include <cstdint>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CaughtLog.h"
#include "Utils.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;

// The message of a line that has this one piece.
template <typename T>
std::string Logged(const T& piece)
{
    const CaughtLog log;
    LOG_DEBUG(piece);
    return log.Lines().size() == 1 ? log.Lines().front().message : "not one line";
}

// As a stream writes it that was never told otherwise.
template <typename T>
std::string Streamed(const T& piece)
{
    std::ostringstream stream;
    stream << piece;
    return stream.str();
}

auto LineOf(int priority, const std::string& format, const std::string& message)
{
    return AllOf(Field(&LogLine::logId, 0), Field(&LogLine::priority, priority),
                 Field(&LogLine::tag, "VORTAN"), Field(&LogLine::format, format),
                 Field(&LogLine::message, message));
}

class Speaker
{
public:
    Speaker() { LOG_DEBUG("constructed"); }
    Speaker(const Speaker&) = delete;
    Speaker& operator=(const Speaker&) = delete;
    ~Speaker() { LOG_DEBUG("destroyed"); }
    void Speak() const { LOG_DEBUG("asked"); }
};

// Numbers as some countries write them: 1.234.567,5.
class OtherNumbers : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override { return '.'; }
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
    std::string do_truename() const override { return "wahr"; }
};

class GlobalLocale
{
public:
    explicit GlobalLocale(const std::locale& locale) : m_Before(std::locale::global(locale)) {}
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;
    ~GlobalLocale() { std::locale::global(m_Before); }

private:
    std::locale m_Before;
};

}  // namespace

TEST(Logging, EachLevelHasItsPriorityAndFormat)
{
    const CaughtLog log;
    LOG_DEBUG("a");
    LOG_INFO("b");
    LOG_WARN("c");
    LOG_ERROR("d");
    EXPECT_THAT(log.Lines(), ElementsAre(LineOf(3, "%s: %s(%d) > %s", "a"),
                                         LineOf(4, "%s: %s(%d) > \033[32m%s\033[0m", "b"),
                                         LineOf(5, "%s: %s(%d) > \033[33m%s\033[0m", "c"),
                                         LineOf(6, "%s: %s(%d) > \033[31m%s\033[0m", "d")));
}

TEST(Logging, ALineNamesTheFileWithoutItsFolderTheFunctionAndTheLine)
{
    const CaughtLog log;
    LOG_INFO("text");
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_EQ(log.Lines().front().file, "test_logging.cpp");
    EXPECT_EQ(log.Lines().front().function, "TestBody");
    EXPECT_EQ(log.Lines().front().line, __LINE__ - 4);
}

TEST(Logging, TheBaseNameIsWhatFollowsTheLastSlash)
{
    using VORTAN_MW::UTILS::FileBaseName;
    EXPECT_STREQ(FileBaseName("/a/b.d/c.cpp"), "c.cpp");
    EXPECT_STREQ(FileBaseName("c.cpp"), "c.cpp");
    EXPECT_STREQ(FileBaseName("/"), "");
    EXPECT_STREQ(FileBaseName(""), "");
    static_assert(*FileBaseName("/a/c.cpp") == 'c', "computed when the program is compiled");
}

TEST(Logging, TheFunctionsNameIsUnqualified)
{
    const CaughtLog log;
    Speaker().Speak();
    [] { LOG_DEBUG("in a lambda"); }();
    EXPECT_EQ(log.MessagesOf("Speaker"), std::vector<std::string>{"constructed"});
    EXPECT_EQ(log.MessagesOf("Speak"), std::vector<std::string>{"asked"});
    EXPECT_EQ(log.MessagesOf("~Speaker"), std::vector<std::string>{"destroyed"});
    EXPECT_EQ(log.MessagesOf("operator()"), std::vector<std::string>{"in a lambda"});
}

TEST(Logging, PiecesAreJoinedInOrder)
{
    const CaughtLog log;
    LOG_INFO("Failed to read file: " << std::string("/a") << ' ' << 7 << true << "" << 'x');
    EXPECT_EQ(log.Lines().front().message, "Failed to read file: /a 71x");
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

TEST(Logging, AnEmptyTextIsAnEmptyMessage)
{
    EXPECT_EQ(Logged(""), "");
    EXPECT_EQ(Logged(std::string()), "");
}

TEST(Logging, ANullTextIsEmpty)
{
    const char* const constant = nullptr;
    char* const changeable = nullptr;
    EXPECT_EQ(Logged(constant), "");
    EXPECT_EQ(Logged(changeable), "");
    const CaughtLog log;
    LOG_DEBUG("a" << constant << 1.5 << constant << changeable << "b");
    EXPECT_EQ(log.Lines().front().message, "a1.5b");
}

TEST(Logging, AManipulatorAffectsThePiecesAfterIt)
{
    const CaughtLog log;
    LOG_DEBUG(std::hex << 255);
    LOG_DEBUG(255 << ' ' << std::hex << 255 << ' ' << std::uint64_t{255} << std::dec << ' ' << 255);
    LOG_DEBUG(std::setw(6) << std::setfill('.') << "ab" << std::string("c") << 'd' << std::endl);
    LOG_DEBUG("to the end" << std::boolalpha << std::endl
                           << true << std::setprecision(3) << 3.14159);
    LOG_DEBUG(255 << true);
    EXPECT_EQ(log.Count("ff"), 1U);
    EXPECT_EQ(log.Count("255 ff ff 255"), 1U);
    EXPECT_EQ(log.Count("....abcd\n"), 1U);
    EXPECT_EQ(log.Count("to the end\ntrue3.14"), 1U);
    EXPECT_EQ(log.Count("2551"), 1U);
}

TEST(Logging, ASingleBlankIsAMessage)
{
    EXPECT_EQ(Logged(" "), " ");
}

TEST(Logging, APercentSignIsPrintedAsItIs)
{
    const CaughtLog log;
    LOG_WARN("100% %s %n");
    EXPECT_EQ(log.Lines().front().message, "100% %s %n");
    EXPECT_EQ(log.Lines().front().format, "%s: %s(%d) > \033[33m%s\033[0m");
}

TEST(Logging, TruthValuesAreOneAndZero)
{
    EXPECT_EQ(Logged(true), "1");
    EXPECT_EQ(Logged(false), "0");
    EXPECT_EQ(Logged(std::vector<bool>{true}[0]), "1");
}

TEST(Logging, NumbersAreDecimalOverTheirWholeRange)
{
    EXPECT_EQ(Logged(0), "0");
    EXPECT_EQ(Logged(-7), "-7");
    EXPECT_EQ(Logged(std::int16_t{-32768}), "-32768");
    EXPECT_EQ(Logged(std::numeric_limits<std::uint32_t>::max()), "4294967295");
    EXPECT_EQ(Logged(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(Logged(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(Logged(std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
}

TEST(Logging, SizesAreUnsigned)
{
    const std::string largest = std::to_string(std::numeric_limits<std::size_t>::max());
    EXPECT_NE(largest.front(), '-');
    EXPECT_EQ(Logged(std::numeric_limits<std::size_t>::max()), largest);
}

TEST(Logging, OtherTypesReadAsAStreamWritesThem)
{
    const int object = 0;
    const void* const pointer = &object;
    EXPECT_EQ(Logged(std::uint8_t{'A'}), "A");
    EXPECT_EQ(Logged('A'), "A");
    EXPECT_EQ(Logged(0.1), "0.1");
    EXPECT_EQ(Logged(1234567.5), "1.23457e+06");
    EXPECT_EQ(Logged(pointer), Streamed(pointer));
}

TEST(Logging, AThreadIsNamedByItsIdentifier)
{
    EXPECT_EQ(Logged(std::this_thread::get_id()), Streamed(std::this_thread::get_id()));
    EXPECT_EQ(Logged(std::thread::id()), "thread::id of a non-executing thread");
}

TEST(Logging, TheLocaleOfTheProgramChangesNothing)
{
    const GlobalLocale locale(std::locale(std::locale::classic(), new OtherNumbers));
    ASSERT_EQ(Streamed(1234567), "1.234.567");
    EXPECT_EQ(Logged(1234567), "1234567");
    EXPECT_EQ(Logged(std::size_t{1234567}), "1234567");
    EXPECT_EQ(Logged(1.5), "1.5");
    EXPECT_EQ(Logged(true), "1");
}

TEST(Logging, ALogStatementIsOneStatement)
{
    const CaughtLog log;
    if (log.Lines().empty())
        LOG_DEBUG("then");
    else
        LOG_DEBUG("otherwise");
    EXPECT_THAT(log.Summaries(), ElementsAre("D TestBody: then"));
}

TEST(Logging, AnyThreadMayLogAtAnyTime)
{
    const CaughtLog log;
    std::vector<std::thread> threads(4);
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i] = std::thread([i] {
            for (int line = 0; line < 100; ++line) {
                LOG_INFO("line " << line << " of thread " << i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < threads.size(); ++i) {
        EXPECT_EQ(log.Count("line 99 of thread " + std::to_string(i)), 1U);
    }
    EXPECT_EQ(log.Lines().size(), 400U);
}
