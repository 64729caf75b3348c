// A child made by fork does not disturb its parent's connections.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CaughtLog.h"
#include "KitClient.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)

namespace {

// The child's exit status.
template <typename Act>
int InChild(const Act& act)
{
    const pid_t child = fork();
    if (child == 0) {
        act();
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

}  // namespace

TEST(KitFork, LeavesTheParentsConnectionWhenTheChildDestroysTheSession)
{
    const CaughtLog log;
    ScriptedServer server({{Good}});
    auto session = std::make_unique<KIT::HttpSession>(LocalPolicy());
    EXPECT_TRUE(Fetch(*session, Request(server.Url())).success);
    EXPECT_EQ(InChild([&] { session.reset(); }), 0);
    EXPECT_TRUE(Fetch(*session, Request(server.Url())).success);
    EXPECT_EQ(server.CountOfConnections(), 1U);
}

TEST(KitFork, GivesTheChildConnectionsOfItsOwn)
{
    const CaughtLog log;
    ScriptedServer server({{Good}});
    auto session = std::make_unique<KIT::HttpSession>(LocalPolicy());
    const auto factory = session->MakeFactory();
    EXPECT_TRUE(Fetch(*session, Request(server.Url())).success);
    const int status = InChild([&] {
        const auto take = [](std::unique_ptr<ITransferHandler::Bytes>, void*) { return true; };
        const bool isFetched =
            Fetch(*session, Request(server.Url())).success &&
            Fetch(*session, Request(server.Url())).success &&
            factory->Create()->GetTransfer(Request(server.Url()), take, take, nullptr).success;
        session.reset();
        _exit(isFetched ? 0 : 1);
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(server.CountOfConnections(), 3U);  // one of the session, one of the factory
    EXPECT_TRUE(Fetch(*session, Request(server.Url())).success);
    EXPECT_EQ(server.CountOfConnections(), 3U);
}
