// A file survives kills, bad connections, full disks and other processes. The numbers of kills and
// downloads come from the environment where a night's are wanted.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "FileClient.h"
#include "Gate.h"
#include "IndexedBytes.h"
#include "PartRecord.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using Answer = ScriptedServer::Answer;
using Then = Answer::Then;

namespace {

constexpr std::size_t EightMebibytes = std::size_t{8} * 1024 * 1024;

long CountFrom(const char* variable, long usual)
{
    const char* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): nobody sets
    return value ? std::atol(value) : usual;
}

class KitFileInTrouble : public ::testing::Test
{
protected:
    // A child that downloads and exits with the category.
    pid_t StartChild(const ScriptedServer& server)
    {
        const std::string url = server.Url();
        const pid_t child = fork();
        if (child == 0) {
            KIT::HttpSession session(LocalPolicy().SetAttempts(1));
            _exit(static_cast<int>(
                DownloadTo(path, session, Request(url), Sha256Of(version.body)).category));
        }
        return child;
    }

    // A client that the server kills when it has sent it so many bytes.
    struct Victim
    {
        explicit Victim(std::size_t itsMost) : most(itsMost) {}

        const std::size_t most;
        std::atomic<pid_t> process{0};
        Gate started;
        Gate killed;  // or it had ended by itself, and is not yet waited for
        std::string range;
    };

    Answer Kill(Victim& victim, const ScriptedServer::Request& request) const
    {
        victim.range = request.Value("Range");
        return {WholeOrRest(version, victim.range, request.Value("If-Range"), victim.most),
                Then::Stall, [&victim] {
                    victim.started.Wait();
                    kill(victim.process, SIGKILL);
                    victim.killed.Open();
                }};
    }

    // Whether it was killed before it ended.
    bool Run(Victim& victim, const ScriptedServer& server)
    {
        victim.process = StartChild(server);
        victim.started.Open();
        siginfo_t info = {};
        EXPECT_EQ(waitid(P_PID, static_cast<id_t>(victim.process), &info, WEXITED | WNOWAIT), 0);
        victim.killed.Wait();
        EXPECT_EQ(waitpid(victim.process, nullptr, 0), victim.process);
        return info.si_code == CLD_KILLED;
    }

    std::uint64_t RecordedLength() const
    {
        const auto record = KIT::PartRecord::Parse(TextOf(path + ".part.meta"));
        return record ? record->synced : 0;
    }

    const CaughtLog log;
    const TemporaryFolder folder;
    const std::string path = folder.Path("file");
    const Version version{IndexedText(EightMebibytes)};
    std::mt19937 random{16};
};

}  // namespace

TEST_F(KitFileInTrouble, SaysWhichProcessIsWritingIt)
{
    ScriptedServer server({{WholeOrRest(version, "", "", 1000), Then::Stall}});
    const pid_t child = StartChild(server);
    ASSERT_TRUE(server.WaitForRequests(1));
    KIT::HttpSession session(LocalPolicy());
    const Download download = DownloadTo(path, session, Request(server.Url()));
    EXPECT_EQ(download.category, Category::Busy);
    EXPECT_EQ(download.sentence, "The file is being written by another transfer: process " +
                                     std::to_string(child) + " (host 127.0.0.1).");
    EXPECT_EQ(server.Requests().size(), 1U);
    server.CloseConnections();
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(Category::ConnectionLost));
}

TEST_F(KitFileInTrouble, TakesOverThePartOfAProcessThatWasKilled)
{
    std::atomic<pid_t> child{0};
    const std::size_t most = 5000000;
    ScriptedServer server([&](const ScriptedServer::Request& request) -> Answer {
        const std::string range = request.Value("Range");
        return {WholeOrRest(version, range, request.Value("If-Range"),
                            range.empty() ? most : EightMebibytes),
                range.empty() ? Then::Stall : Then::Keep};
    });
    child = StartChild(server);
    siginfo_t ended = {};  // a child that fails leaves no record to wait for
    while (RecordedLength() == 0 && ended.si_pid == 0) {
        waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT);
        std::this_thread::yield();
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const std::uint64_t kept = RecordedLength();
    ASSERT_GE(kept, EightMebibytes / 2);
    KIT::HttpSession session(LocalPolicy());
    EXPECT_EQ(DownloadTo(path, session, Request(server.Url()), Sha256Of(version.body)).category,
              Category::Success);
    ASSERT_EQ(server.Requests().size(), 2U);
    EXPECT_EQ(server.Requests()[1].Value("Range"), "bytes=" + std::to_string(kept) + "-");
    EXPECT_TRUE(TextOf(path) == version.body);
    EXPECT_FALSE(HasPart(path));
}

// The server kills the client after a random byte of what it sends, or at the end, while the client
// syncs and renames.
TEST_F(KitFileInTrouble, IsOldOrWholeAfterAKillAtAnyMoment)
{
    std::uniform_int_distribution<std::size_t> sent(0, EightMebibytes + EightMebibytes / 4);
    std::atomic<Victim*> current{nullptr};
    // One server for all: a part belongs to a URL.
    ScriptedServer server([&](const ScriptedServer::Request& request) -> Answer {
        Victim* const victim = current;
        return victim ? Kill(*victim, request)
                      : Answer{WholeOrRest(version, request.Value("Range"),
                                           request.Value("If-Range"))};
    });
    for (long left = CountFrom("VORTAN_KIT_KILLS", 2); left > 0;) {
        const std::uint64_t kept = RecordedLength();
        folder.FileWith({1});
        Victim victim(sent(random));
        current = &victim;
        const bool isKilled = Run(victim, server);
        EXPECT_EQ(victim.range, kept == 0 ? "" : "bytes=" + std::to_string(kept) + "-");
        left -= isKilled ? 1 : 0;
        const std::string contents = TextOf(path);
        const bool isWhole = contents == version.body;
        EXPECT_TRUE(isWhole || contents == "\1");
        EXPECT_TRUE(isWhole || isKilled);
    }
    current = nullptr;
    KIT::HttpSession session(LocalPolicy());
    EXPECT_EQ(DownloadTo(path, session, Request(server.Url())).category, Category::Success);
    EXPECT_TRUE(TextOf(path) == version.body);
    EXPECT_FALSE(HasPart(path));
}

// Connections end at a random byte: each request begins where the part ended.
TEST_F(KitFileInTrouble, BecomesWholeOverConnectionsThatBreak)
{
    const std::string hash = Sha256Of(version.body);
    KIT::HttpSession session(LocalPolicy().SetAttempts(60).SetRetryBudget(1000));
    for (long left = CountFrom("VORTAN_KIT_DOWNLOADS", 10); left > 0; --left) {
        ScriptedServer server([this](const ScriptedServer::Request& request) -> Answer {
            const std::string range = request.Value("Range");
            const std::size_t first = range.empty() ? 0 : std::stoul(range.substr(6));
            EXPECT_EQ(first, request.number == 0 ? 0 : std::filesystem::file_size(path + ".part"));
            const std::size_t most = random() % (version.body.size() - first + 1);
            return {WholeOrRest(version, range, request.Value("If-Range"), most), Then::Close};
        });
        const Download download = DownloadTo(path, session, Request(server.Url()), hash);
        EXPECT_EQ(download.category, Category::Success) << download.sentence;
        EXPECT_EQ(download.delivered, version.body.size());
        EXPECT_FALSE(HasPart(path));
        EXPECT_TRUE(TextOf(path) == version.body);
        std::filesystem::remove(path);
    }
}

TEST_F(KitFileInTrouble, StopsWhereTheProcessMayNotWriteMore)
{
    ScriptedServer server({{WholeOrRest(version, "", "")}});
    const std::string url = server.Url();
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {1000000, 1000000};
        setrlimit(RLIMIT_FSIZE, &limit);
        KIT::HttpSession session(LocalPolicy());
        _exit(static_cast<int>(DownloadTo(path, session, Request(url)).category));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(Category::FileFailed));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(HasPart(path));
}
