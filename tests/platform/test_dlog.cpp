#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <list>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "TemporaryFolder.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

using Environment = std::vector<std::pair<std::string, std::string>>;
using Texts = std::vector<std::string>;

Texts Words(const std::string& text, char end)
{
    std::istringstream stream(text);
    Texts words;
    for (std::string word; std::getline(stream, word, end);) {
        words.push_back(word);
    }
    return words;
}

// A program whose standard error is one end of something that is read here to its end.
class Probe
{
public:
    enum class StandardError
    {
        Pipe,
        NonBlockingPipe,
        Terminal,
    };

    explicit Probe(const Environment& environment, const Texts& arguments,
                   StandardError kind = StandardError::Pipe, const char* program = DLOG_PROBE)
    {
        Start(environment, arguments, Open(kind), program);
    }

    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;
    ~Probe() { Output(); }

    // Waits for the program's end. -1 if it did not end by itself.
    int ExitStatus()
    {
        Output();
        return WIFEXITED(m_Status) ? WEXITSTATUS(m_Status) : -1;
    }

    // All of it. Waits for the program's end.
    std::string Output()
    {
        if (m_Descriptor >= 0) {
            ReadToEnd();
            close(m_Descriptor);
            m_Descriptor = -1;
            waitpid(m_Process, &m_Status, 0);
        }
        return m_Output;
    }

    Texts Lines() { return Words(Output(), '\n'); }

    pid_t Process() const { return m_Process; }

private:
    int Open(StandardError kind)
    {
        std::array<int, 2> ends = {-1, -1};
        if (kind == StandardError::Terminal) {
            EXPECT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
        } else {
            EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        }
        if (kind == StandardError::NonBlockingPipe) {
            EXPECT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
        }
        m_Descriptor = ends[0];
        return ends[1];
    }

    void Start(const Environment& environment, const Texts& arguments, int standardError,
               const char* program)
    {
        Texts command = Words(EMULATOR, '|');
        command.emplace_back(program);
        command.insert(command.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (std::string& word : command) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        m_Process = fork();
        ASSERT_GE(m_Process, 0);
        if (m_Process == 0) {
            dup2(standardError, STDERR_FILENO);
            SetEnvironment(environment);
            execv(argv.front(), argv.data());
            _exit(127);
        }
        close(standardError);
    }

    // NOLINTBEGIN(concurrency-mt-unsafe): a process that was just forked has one thread.
    static void SetEnvironment(const Environment& environment)
    {
        unsetenv("VORTAN_DLOG");
        unsetenv("VORTAN_DLOG_LEVEL");
        unsetenv("NO_COLOR");
        for (const auto& [name, value] : environment) {
            setenv(name.c_str(), value.c_str(), 1);
        }
    }
    // NOLINTEND(concurrency-mt-unsafe)

    void ReadToEnd()
    {
        std::array<char, 4096> piece = {};
        for (ssize_t count = 0; (count = read(m_Descriptor, piece.data(), piece.size())) > 0;) {
            m_Output.append(piece.data(), static_cast<std::size_t>(count));
        }
    }

    pid_t m_Process = -1;
    int m_Descriptor = -1;
    int m_Status = -1;
    std::string m_Output;
};

Texts Say(const std::string& text)
{
    return {"say", "4", "VORTAN", text};
}

// What a line says behind its date, its time and its thread.
std::string BehindThread(std::string line)
{
    for (int word = 0; word < 3; ++word) {
        line.erase(0, line.find(' ') + 1);
    }
    return line;
}

std::string SaidOnStandardError(const std::string& text)
{
    const Texts lines = Probe({}, Say(text)).Lines();
    return lines.size() == 1 ? BehindThread(lines.front()) : "not one line";
}

Texts LinesOfFile(const std::string& path)
{
    std::ifstream file(path);
    Texts lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(BehindThread(line));
    }
    return lines;
}

// The lines that "shout" writes, in any order.
std::multiset<std::string> Shouted(int threads, int lines, std::size_t length)
{
    std::multiset<std::string> all;
    for (int thread = 0; thread < threads; ++thread) {
        for (int line = 0; line < lines; ++line) {
            all.insert("I PROBE: " + std::to_string(thread) + ':' + std::to_string(line) + ':' +
                       std::string(length, 'x'));
        }
    }
    return all;
}

std::multiset<std::string> BehindThreads(const Texts& lines)
{
    std::multiset<std::string> all;
    for (const std::string& line : lines) {
        all.insert(BehindThread(line));
    }
    return all;
}

// The letters of the levels that are written, of one line at each.
std::string LettersWritten(const Environment& environment)
{
    std::string letters;
    for (const char* priority : {"3", "4", "5", "6"}) {
        const Texts lines = Probe(environment, {"say", priority, "T", "text"}).Lines();
        for (const std::string& line : lines) {
            letters += BehindThread(line).substr(0, 1);
        }
    }
    return letters;
}

}  // namespace

TEST(PlatformLog, ALineHasTimeThreadLevelTagAndMessage)
{
    Probe probe({}, Say("a message"));
    EXPECT_THAT(probe.Output(),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} " +
                             std::to_string(probe.Process()) + " I VORTAN: a message\n"));
    EXPECT_EQ(probe.ExitStatus(), 0);
}

TEST(PlatformLog, TheTimeIsTheLocalTimeOfDay)
{
    const auto hourIn = [](const char* zone) {
        return std::stoi(Probe({{"TZ", zone}}, Say("x")).Output().substr(11, 2));
    };
    int east = 0;
    int west = 0;
    do {
        west = hourIn("AAA+6");
        east = hourIn("BBB-6");
    } while (hourIn("AAA+6") != west);  // an hour ended meanwhile
    EXPECT_EQ((west + 12) % 24, east);
}

TEST(PlatformLog, EveryLevelHasItsLetter)
{
    EXPECT_EQ(LettersWritten({}), "DIWE");
}

TEST(PlatformLog, AnEmptyMessageIsALineToo)
{
    EXPECT_EQ(SaidOnStandardError(""), "I VORTAN: ");
}

TEST(PlatformLog, AMessageOfAMegabyteIsWrittenWhole)
{
    constexpr std::size_t length = 1234567;
    Probe probe({}, {"shout", "1", "1", std::to_string(length)});
    EXPECT_TRUE(BehindThreads(probe.Lines()) == Shouted(1, 1, length));
}

TEST(PlatformLog, ColoursAreLeftOutWhereStandardErrorIsNoTerminal)
{
    EXPECT_EQ(SaidOnStandardError("\033[32mgreen\033[0m \033[1;31mred\033[m"),
              "I VORTAN: green red");
}

TEST(PlatformLog, ColoursAreKeptOnATerminal)
{
    Probe probe({}, Say("\033[32mgreen\033[0m"), Probe::StandardError::Terminal);
    EXPECT_THAT(probe.Output(), EndsWith(" I VORTAN: \033[32mgreen\033[0m\r\n"));
}

TEST(PlatformLog, ColoursAreLeftOutOnATerminalThatIsToHaveNone)
{
    const auto said = [](const char* noColour) {
        return Probe({{"NO_COLOR", noColour}}, Say("\033[32mgreen\033[0m"),
                     Probe::StandardError::Terminal)
            .Output();
    };
    EXPECT_THAT(said("1"), EndsWith(" I VORTAN: green\r\n"));
    EXPECT_THAT(said(""), EndsWith(" I VORTAN: \033[32mgreen\033[0m\r\n"));
}

TEST(PlatformLog, OtherEscapeSequencesDoNotReachATerminal)
{
    Probe probe({}, Say("\033[2J\033]0;title\a"), Probe::StandardError::Terminal);
    EXPECT_THAT(probe.Output(), EndsWith(" I VORTAN: \\x1b[2J\\x1b]0;title\\x07\r\n"));
}

TEST(PlatformLog, ANewlineInAMessageDoesNotForgeALine)
{
    EXPECT_EQ(SaidOnStandardError("a\n2026-01-01 00:00:00.000 1 E VORTAN: b\r\n"),
              "I VORTAN: a\\n2026-01-01 00:00:00.000 1 E VORTAN: b\\r\\n");
}

TEST(PlatformLog, ANewlineInATagDoesNotForgeALine)
{
    Probe probe({}, {"say", "4", "a\nb", "text"});
    ASSERT_THAT(probe.Lines(), SizeIs(1));
    EXPECT_EQ(BehindThread(probe.Lines().front()), "I a\\nb: text");
}

TEST(PlatformLog, ControlCharactersAreWrittenOutButATabStays)
{
    EXPECT_EQ(SaidOnStandardError("\001\b\t\037\177\033"), "I VORTAN: \\x01\\x08\t\\x1f\\x7f\\x1b");
}

TEST(PlatformLog, ControlCharactersOfEightBitsAreWrittenOut)
{
    EXPECT_EQ(SaidOnStandardError("a\x9B"
                                  "2J \xC2\x9B \xC0\x9B"),
              "I VORTAN: a\\x9b2J \\xc2\\x9b \xC0\\x9b");
}

TEST(PlatformLog, CharactersThatTurnTheDirectionOfTextAreWrittenOut)
{
    EXPECT_EQ(SaidOnStandardError("a\xE2\x80\xAE \xE2\x81\xA6 \xE2\x80\xAF"),
              "I VORTAN: a\\xe2\\x80\\xae \\xe2\\x81\\xa6 \xE2\x80\xAF");
}

TEST(PlatformLog, ACutOffColourIsWrittenOut)
{
    EXPECT_EQ(SaidOnStandardError("\033[31"), "I VORTAN: \\x1b[31");
}

TEST(PlatformLog, BytesBeyondAsciiAreKept)
{
    EXPECT_EQ(SaidOnStandardError("gr\xc3\xbc\xc3\x9f \xff"), "I VORTAN: gr\xc3\xbc\xc3\x9f \xff");
}

// A pipe takes lines of this length in pieces, between which it takes those of others.
TEST(PlatformLog, LinesOfManyThreadsAreWrittenWhole)
{
    Probe probe({}, {"shout", "8", "100", "10000"});
    EXPECT_TRUE(BehindThreads(probe.Lines()) == Shouted(8, 100, 10000));
}

TEST(PlatformLog, ANonBlockingStandardErrorGetsEveryByte)
{
    Probe probe({}, {"shout", "4", "3", "300000"}, Probe::StandardError::NonBlockingPipe);
    EXPECT_TRUE(BehindThreads(probe.Lines()) == Shouted(4, 3, 300000));
}

TEST(PlatformLog, LinesOfManyProcessesInOneFileAreWrittenWhole)
{
    const TemporaryFolder folder;
    const Environment environment = {{"VORTAN_DLOG", "file:" + folder.Path("log")}};
    std::list<Probe> probes;
    std::multiset<std::string> expected;
    for (int i = 0; i < 4; ++i) {
        probes.emplace_back(environment, Texts{"shout", "2", "200", "5000"});
        expected.merge(Shouted(2, 200, 5000));
    }
    for (Probe& probe : probes) {
        EXPECT_EQ(probe.Output(), "");
    }
    const Texts lines = LinesOfFile(folder.Path("log"));
    EXPECT_TRUE(std::multiset<std::string>(lines.begin(), lines.end()) == expected);
}

TEST(PlatformLog, AFileIsAppendedTo)
{
    const TemporaryFolder folder;
    std::ofstream(folder.Path("log")) << "date time thread before\n";
    const Environment environment = {{"VORTAN_DLOG", "file:" + folder.Path("log")}};
    EXPECT_EQ(Probe(environment, Say("one")).Output(), "");
    EXPECT_EQ(Probe(environment, Say("two")).Output(), "");
    EXPECT_THAT(LinesOfFile(folder.Path("log")),
                ElementsAre("before", "I VORTAN: one", "I VORTAN: two"));
}

TEST(PlatformLog, AFileIsPlainTextAlsoForAProgramOnATerminal)
{
    const TemporaryFolder folder;
    const Environment environment = {{"VORTAN_DLOG", "file:" + folder.Path("log")}};
    Probe(environment, Say("\033[32mgreen\033[0m"), Probe::StandardError::Terminal).Output();
    EXPECT_THAT(LinesOfFile(folder.Path("log")), ElementsAre("I VORTAN: green"));
}

TEST(PlatformLog, AFileThatCannotBeOpenedIsToldOnceAndStandardErrorTakesItsPlace)
{
    const TemporaryFolder folder;
    const std::string value = "file:" + folder.Path("none/log");
    Probe probe({{"VORTAN_DLOG", value}}, {"shout", "1", "2", "0"});
    ASSERT_THAT(probe.Lines(), SizeIs(3));
    EXPECT_EQ(probe.Lines()[0],
              "libdlog: VORTAN_DLOG=\"" + value +
                  "\" cannot be opened (No such file or directory); logging to standard error");
    EXPECT_EQ(BehindThread(probe.Lines()[1]), "I PROBE: 0:0:");
    EXPECT_EQ(BehindThread(probe.Lines()[2]), "I PROBE: 0:1:");
}

TEST(PlatformLog, AFailedWriteIsANegativeResultAndNoMore)
{
    Probe probe({{"VORTAN_DLOG", "file:/dev/full"}}, {"expect-failure"});
    EXPECT_EQ(probe.ExitStatus(), 0);
    EXPECT_EQ(probe.Output(), "");
}

TEST(PlatformLog, NoneWritesNothing)
{
    Probe probe({{"VORTAN_DLOG", "none"}}, {"say", "6", "VORTAN", "text"});
    EXPECT_EQ(probe.Output(), "");
    EXPECT_EQ(probe.ExitStatus(), 0);
}

class AWrongDestination : public testing::TestWithParam<const char*>
{
};

TEST_P(AWrongDestination, IsToldOnceAndStandardErrorTakesItsPlace)
{
    Probe probe({{"VORTAN_DLOG", GetParam()}}, {"shout", "1", "2", "0"});
    ASSERT_THAT(probe.Lines(), SizeIs(3));
    EXPECT_EQ(probe.Lines()[0], std::string("libdlog: VORTAN_DLOG=\"") + GetParam() +
                                    "\" is none of journal, file:PATH and none; "
                                    "logging to standard error");
    EXPECT_EQ(BehindThread(probe.Lines()[1]), "I PROBE: 0:0:");
    EXPECT_EQ(BehindThread(probe.Lines()[2]), "I PROBE: 0:1:");
}

INSTANTIATE_TEST_SUITE_P(PlatformLog, AWrongDestination,
                         testing::Values("syslog", "JOURNAL", "file", "file:", "none ", "/tmp/x"));

TEST(PlatformLog, AWrongLevelIsToldOnceAndEveryLevelIsWritten)
{
    Probe probe({{"VORTAN_DLOG_LEVEL", "warn"}}, {"say", "3", "VORTAN", "text"});
    ASSERT_THAT(probe.Lines(), SizeIs(2));
    EXPECT_EQ(probe.Lines()[0],
              "libdlog: VORTAN_DLOG_LEVEL=\"warn\" is none of debug, info, warning and error; "
              "logging every level");
    EXPECT_EQ(BehindThread(probe.Lines()[1]), "D VORTAN: text");
}

TEST(PlatformLog, TwoWrongVariablesAreToldInALineEach)
{
    Probe probe({{"VORTAN_DLOG", "x"}, {"VORTAN_DLOG_LEVEL", "y"}}, Say("text"));
    EXPECT_THAT(probe.Lines(), ElementsAre(StartsWith("libdlog: VORTAN_DLOG=\"x\" "),
                                           StartsWith("libdlog: VORTAN_DLOG_LEVEL=\"y\" "),
                                           EndsWith(" I VORTAN: text")));
}

TEST(PlatformLog, AWrongValueDoesNotForgeALine)
{
    Probe probe({{"VORTAN_DLOG", "a\nb\033[31m"}}, Say("text"));
    EXPECT_THAT(probe.Lines(), ElementsAre(StartsWith("libdlog: VORTAN_DLOG=\"a\\nb\" "),
                                           EndsWith(" I VORTAN: text")));
}

TEST(PlatformLog, AnEmptyVariableCountsAsNotSet)
{
    Probe probe({{"VORTAN_DLOG", ""}, {"VORTAN_DLOG_LEVEL", ""}}, Say("text"));
    EXPECT_THAT(probe.Lines(), ElementsAre(EndsWith(" I VORTAN: text")));
}

TEST(PlatformLog, LinesBelowTheLevelAreDropped)
{
    EXPECT_EQ(LettersWritten({{"VORTAN_DLOG_LEVEL", "debug"}}), "DIWE");
    EXPECT_EQ(LettersWritten({{"VORTAN_DLOG_LEVEL", "info"}}), "IWE");
    EXPECT_EQ(LettersWritten({{"VORTAN_DLOG_LEVEL", "warning"}}), "WE");
    EXPECT_EQ(LettersWritten({{"VORTAN_DLOG_LEVEL", "error"}}), "E");
}

TEST(PlatformLog, TheLevelHoldsForAFileToo)
{
    const TemporaryFolder folder;
    LettersWritten(
        {{"VORTAN_DLOG", "file:" + folder.Path("log")}, {"VORTAN_DLOG_LEVEL", "warning"}});
    EXPECT_THAT(LinesOfFile(folder.Path("log")), ElementsAre("W T: text", "E T: text"));
}

TEST(PlatformLog, ADroppedLineIsNotEvenFormatted)
{
    const Texts count = {"count-formatting"};
    EXPECT_EQ(Probe({}, count).ExitStatus(), 1);
    EXPECT_EQ(Probe({{"VORTAN_DLOG_LEVEL", "info"}}, count).ExitStatus(), 0);
    EXPECT_EQ(Probe({{"VORTAN_DLOG", "none"}}, count).ExitStatus(), 0);
}

TEST(PlatformLog, LoggingLeavesErrnoAlone)
{
    EXPECT_EQ(Probe({}, {"expect-errno"}).ExitStatus(), 0);
    EXPECT_EQ(Probe({{"VORTAN_DLOG", "file:/dev/full"}}, {"expect-errno"}).ExitStatus(), 0);
}

TEST(PlatformLog, AJournalEntryHasMessagePriorityIdentifierAndThread)
{
    const auto entry = [](const char* priority) {
        return Probe({{"VORTAN_DLOG", "journal"}, {"LD_LIBRARY_PATH", JOURNAL_DOUBLE}},
                     {"say", priority, "VORTAN", "\033[31ma\nmessage\033[0m"});
    };
    const auto fields = [](const std::string& priority, pid_t thread) {
        return ElementsAre("MESSAGE=a\\nmessage", "PRIORITY=" + priority,
                           "SYSLOG_IDENTIFIER=VORTAN", "TID=" + std::to_string(thread));
    };
    Probe debug = entry("3");
    EXPECT_THAT(debug.Lines(), fields("7", debug.Process()));
    Probe info = entry("4");
    EXPECT_THAT(info.Lines(), fields("6", info.Process()));
    Probe warning = entry("5");
    EXPECT_THAT(warning.Lines(), fields("4", warning.Process()));
    Probe error = entry("6");
    EXPECT_THAT(error.Lines(), fields("3", error.Process()));
}

TEST(PlatformLog, TheLevelHoldsForTheJournalToo)
{
    Probe probe({{"VORTAN_DLOG", "journal"},
                 {"VORTAN_DLOG_LEVEL", "error"},
                 {"LD_LIBRARY_PATH", JOURNAL_DOUBLE}},
                Say("text"));
    EXPECT_THAT(probe.Lines(), IsEmpty());
}

TEST(PlatformLog, NoJournalNeedsToRun)
{
    Probe probe({{"VORTAN_DLOG", "journal"}}, {"shout", "2", "2", "10"});
    EXPECT_EQ(probe.Output(), "");
    EXPECT_EQ(probe.ExitStatus(), 0);
}

TEST(PlatformLog, WithoutLibsystemdTheLinesGoToStandardError)
{
    Probe probe({{"VORTAN_DLOG", "journal"}, {"LD_LIBRARY_PATH", NO_JOURNAL}}, Say("text"));
    const Texts lines = probe.Lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0],
                AllOf(StartsWith("libdlog: VORTAN_DLOG=\"journal\" cannot be used ("),
                      HasSubstr("libsystemd.so.0"), EndsWith("); logging to standard error")));
    EXPECT_THAT(lines[1], EndsWith(": text"));
}

TEST(PlatformLog, LibsystemdIsLoadedOnlyForTheJournal)
{
    Probe probe({{"LD_DEBUG", "files"}, {"VORTAN_DLOG", "none"}}, Say("text"));
    EXPECT_THAT(probe.Output(), AllOf(HasSubstr("libdlog.so.0"), Not(HasSubstr("libsystemd"))));
}
