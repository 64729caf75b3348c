// A name look-up cannot be interrupted; a transfer that waits for one can. The program's
// getaddrinfo takes the C library's place.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>

#include "CaughtLog.h"
#include "HandlePool.h"
#include "KitClient.h"
#include "Patience.h"
#include "ScriptedServer.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using std::chrono::milliseconds;

namespace {

// Look-ups of names that begin with "slow" wait until they are let go, and then fail.
class SlowNames
{
public:
    void Wait()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        ++m_Waiting;
        m_Changed.notify_all();
        m_Changed.wait(lock, [this] { return m_IsOver; });
        --m_Waiting;
        m_Changed.notify_all();
    }

    bool WaitFor(int waiting)
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Changed.wait_for(lock, Patience, [&] { return m_Waiting == waiting; });
    }

    // Returns the number of those that waited.
    int LetGo()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        const int waited = m_Waiting;
        m_IsOver = true;
        m_Changed.notify_all();
        m_Changed.wait_for(lock, Patience, [this] { return m_Waiting == 0; });
        return waited;
    }

    void Begin()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_IsOver = false;
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    int m_Waiting = 0;
    bool m_IsOver = false;
};

SlowNames& Names()
{
    static SlowNames& names = *new SlowNames;
    return names;
}

class KitLookup : public ::testing::Test
{
protected:
    void SetUp() override { Names().Begin(); }
    void TearDown() override { Names().LetGo(); }

    // Starts a transfer that waits for a name, and stops it.
    void Cancel(int before)
    {
        auto factory = session.MakeFactory();
        auto over = std::async(std::launch::async, [handler = factory->Create(), before] {
            return handler
                ->GetTransfer(Request("http://slow" + std::to_string(before) + ".invalid/"),
                              nullptr, nullptr, nullptr)
                .success;
        });
        ASSERT_TRUE(Names().WaitFor(before + 1));
        factory.reset();
        ASSERT_EQ(over.wait_for(std::chrono::seconds(5)), std::future_status::ready);
        EXPECT_FALSE(over.get());
    }

    const CaughtLog log;
    KIT::HttpSession session{LocalPolicy()
                                 .SetAttempts(1)  // each transfer looks its name up once
                                 .SetConnecting(milliseconds(300))
                                 .SetSilence(milliseconds(300))
                                 .SetAltogether(milliseconds(300))};
};

}  // namespace

extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char* name, const char* service,
                                                          const addrinfo* hints, addrinfo** result)
{
    if (name && std::string(name).rfind("slow", 0) == 0) {
        Names().Wait();
        return EAI_NONAME;
    }
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return next(name, service, hints, result);
}

TEST_F(KitLookup, IsLeftAtOnceWhenItsTransferIsStopped)
{
    Cancel(0);
    EXPECT_EQ(Names().LetGo(), 1);
}

TEST_F(KitLookup, IsLeftWhenItTakesTooLong)
{
    const Course course = Watch(session, Request("http://slow.invalid/"));
    EXPECT_EQ(course.Category(), Category::TimedOut);
    EXPECT_TRUE(Names().WaitFor(1));
}

TEST_F(KitLookup, LeavesOnlySoManyThreadsBehind)
{
    constexpr int most = KIT::HandlePool::MostLookups;
    for (int n = 0; n < most; ++n) {
        Cancel(n);
    }
    // One more does not begin while they are under way.
    const Course course = Watch(session, Request("http://slow.invalid/"));
    EXPECT_EQ(course.Category(), Category::TimedOut);
    EXPECT_EQ(Names().LetGo(), most);
}

TEST_F(KitLookup, DoesNotHoldUpTheEndOfItsSession)
{
    auto own = std::make_unique<KIT::HttpSession>(
        LocalPolicy().SetAttempts(1).SetConnecting(milliseconds(100)));
    EXPECT_EQ(Watch(*own, Request("http://slow.invalid/")).Category(), Category::TimedOut);
    ASSERT_TRUE(Names().WaitFor(1));
    own.reset();
    EXPECT_EQ(Names().LetGo(), 1);
}

TEST_F(KitLookup, MakesRoomWhenItEnds)
{
    constexpr int most = KIT::HandlePool::MostLookups;
    for (int n = 0; n < most; ++n) {
        Cancel(n);
    }
    EXPECT_EQ(Names().LetGo(), most);
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", "body")}});
    EXPECT_TRUE(Fetch(session, Request(server.Url())).success);
}

TEST_F(KitLookup, ThatFindsNothingFailsTheTransfer)
{
    Names().LetGo();
    const Course course = Watch(session, Request("http://slow.invalid/"));
    EXPECT_EQ(course.Category(), Category::NameNotFound);
}
