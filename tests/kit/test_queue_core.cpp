// The tickets of a queue over an agent that refuses, or has no threads.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "AsyncTransferAgentManager.h"
#include "Gate.h"
#include "QueueCore.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using KIT::Priority;
using KIT::QueueCore;
using KIT::QueuedWork;
using KIT::Ticket;
using Milliseconds = std::chrono::milliseconds;

namespace {

// An agent that can do no more than the real one, if the function lets it.
class ReluctantAgent : public ITransferAgentManager
{
public:
    // Throws, or says whether the request is accepted.
    explicit ReluctantAgent(std::function<bool()> accepts) : m_Accepts(std::move(accepts)) {}

    std::uint64_t RequestTransfer(std::unique_ptr<TransferConfiguration> configuration) override
    {
        return m_Accepts() ? m_Agent->RequestTransfer(std::move(configuration)) : InvalidHandle;
    }
    bool CancelTransfer(std::uint64_t) override
    {
        ADD_FAILURE() << "a worker that is cancelled does not perform its work";
        return false;
    }

private:
    const std::function<bool()> m_Accepts;
    const std::unique_ptr<ITransferAgentManager> m_Agent = AsyncTransferAgentManager::Create();
};

// Succeeds at once, after as many waits.
class Work : public QueuedWork
{
public:
    explicit Work(int waits = 0) : m_Waits(waits) {}

    void Describe(ITransferHandler::Configuration& configuration) const override
    {
        configuration.url = "work:";
    }
    std::optional<Milliseconds> Perform() override
    {
        return m_Waits-- > 0 ? std::make_optional(Milliseconds(0)) : std::nullopt;
    }
    void Stop() override {}
    void End(Category reason) override { m_Ended.set_value(reason); }

    Category Outcome()
    {
        std::future<Category> ended = m_Ended.get_future();
        EXPECT_EQ(ended.wait_for(Patience), std::future_status::ready);
        return ended.get();
    }

private:
    int m_Waits;
    std::promise<Category> m_Ended;  // throws if it is fulfilled twice
};

// Runs a function, which may ask for a wait.
class FunctionWork : public Work
{
public:
    explicit FunctionWork(std::function<std::optional<Milliseconds>()> function)
        : m_Function(std::move(function))
    {}

    std::optional<Milliseconds> Perform() override { return m_Function(); }

private:
    const std::function<std::optional<Milliseconds>()> m_Function;
};

std::shared_ptr<QueueCore> MakeCore(std::function<bool()> accepts)
{
    return QueueCore::Make(std::make_unique<ReluctantAgent>(std::move(accepts)), Milliseconds(1));
}

Category OutcomeOfOne(QueueCore& core)
{
    const auto work = std::make_shared<Work>();
    EXPECT_TRUE(core.Add(core.NewTicket(), Priority::Normal, Milliseconds(0), work));
    return work->Outcome();
}

}  // namespace

TEST(KitQueueCore, TellsWhatTheAgentRefuses)
{
    const auto core = MakeCore([] { return false; });
    EXPECT_EQ(OutcomeOfOne(*core), Category::InvalidRequest);
    EXPECT_EQ(OutcomeOfOne(*core), Category::InvalidRequest);
    core->Close();
}

TEST(KitQueueCore, TriesAgainWhenNoThreadCanBeStarted)
{
    std::atomic<int> tries{0};
    const auto core = MakeCore([&tries] {
        if (++tries < 3) {
            throw std::system_error(EAGAIN, std::generic_category());
        }
        return true;
    });
    EXPECT_EQ(OutcomeOfOne(*core), Category::Success);
    EXPECT_EQ(tries, 3);
    core->Close();
}

TEST(KitQueueCore, TellsThatThereNeverWasAThread)
{
    const auto core = MakeCore([]() -> bool { throw std::bad_alloc(); });
    EXPECT_EQ(OutcomeOfOne(*core), Category::NoThread);
    core->Close();
}

TEST(KitQueueCore, CountsTheFailedStartsOfEachAttemptAnew)
{
    std::atomic<int> tries{0};
    const auto core = MakeCore([&tries] {
        if (++tries % 61 != 0) {
            throw std::bad_alloc();
        }
        return true;
    });
    const auto work = std::make_shared<Work>(1);
    core->Add(core->NewTicket(), Priority::Normal, Milliseconds(0), work);
    EXPECT_EQ(work->Outcome(), Category::Success);
    EXPECT_EQ(tries, 122);
    core->Close();
}

TEST(KitQueueCore, CancelsWhatWaitsForAThread)
{
    Gate tried;
    const auto core = MakeCore([&tried]() -> bool {
        tried.Open();
        throw std::bad_alloc();
    });
    const auto work = std::make_shared<Work>();
    const Ticket ticket = core->NewTicket();
    core->Add(ticket, Priority::Normal, Milliseconds(0), work);
    ASSERT_TRUE(tried.Wait());
    EXPECT_TRUE(core->Cancel(ticket));
    EXPECT_EQ(work->Outcome(), Category::Cancelled);
    core->Close();
    EXPECT_FALSE(core->Add(core->NewTicket(), Priority::Normal, Milliseconds(0), work));
}

TEST(KitQueueCore, LetsGoOnFirstWhatHasBegun)
{
    const auto core = MakeCore([] { return true; });
    std::vector<std::shared_ptr<Work>> works;
    const auto add = [&](std::function<std::optional<Milliseconds>()> function) {
        works.push_back(std::make_shared<FunctionWork>(std::move(function)));
        core->Add(core->NewTicket(), Priority::Normal, Milliseconds(0), works.back());
    };
    Gate over;
    for (std::size_t i = 1; i < QueueCore::PlaceCount; ++i) {
        add([&over]() -> std::optional<Milliseconds> {
            over.Wait();
            return std::nullopt;
        });
    }
    // One place is left, so the rest comes one after the other.
    std::string order;
    Gate added;
    add([&]() -> std::optional<Milliseconds> {
        added.Wait();
        order += 'A';
        return order == "A" ? std::make_optional(Milliseconds(1)) : std::nullopt;
    });
    add([&]() -> std::optional<Milliseconds> {
        order += 'B';
        std::this_thread::sleep_for(Milliseconds(2));  // what A waits for is time
        return std::nullopt;
    });
    add([&]() -> std::optional<Milliseconds> {
        order += 'C';
        return std::nullopt;
    });
    added.Open();
    for (std::size_t i = QueueCore::PlaceCount - 1; i < works.size(); ++i) {
        EXPECT_EQ(works[i]->Outcome(), Category::Success);
    }
    EXPECT_EQ(order.back(), 'C') << order;  // ABAC, or AABC if the wait was shorter than a thread
    over.Open();
    core->Close();
}

TEST(KitQueueCore, WakesFirstWhatIsDueFirst)
{
    const auto core = MakeCore([] { return true; });
    std::vector<std::shared_ptr<Work>> works;
    const auto add = [&](std::function<std::optional<Milliseconds>()> function) {
        works.push_back(std::make_shared<FunctionWork>(std::move(function)));
        core->Add(core->NewTicket(), Priority::Normal, Milliseconds(0), works.back());
    };
    Gate added;
    Gate over;
    for (std::size_t i = 1; i < QueueCore::PlaceCount; ++i) {
        add([&over]() -> std::optional<Milliseconds> {
            over.Wait();
            return std::nullopt;
        });
    }
    // One place is left, so the rest comes one after the other.
    std::string order;
    for (const char name : {'A', 'B', 'C'}) {
        add([&, name, tries = std::make_shared<int>(0)]() -> std::optional<Milliseconds> {
            added.Wait();
            if (++*tries == 1) {
                return Milliseconds(20);
            }
            order += name;
            return std::nullopt;
        });
    }
    add([]() -> std::optional<Milliseconds> {
        std::this_thread::sleep_for(Milliseconds(40));  // until the others are due
        return std::nullopt;
    });
    added.Open();
    for (std::size_t i = QueueCore::PlaceCount - 1; i < works.size(); ++i) {
        EXPECT_EQ(works[i]->Outcome(), Category::Success);
    }
    EXPECT_EQ(order, "ABC");
    over.Open();
    core->Close();
}

// The length of a test; nightly, a million.
TEST(KitQueueCore, TellsOneOutcomeForEachOfManyTicketsWithRandomCancels)
{
    const char* const wanted = std::getenv("VORTAN_KIT_TICKETS");  // NOLINT(concurrency-mt-unsafe)
    const int count = wanted ? std::atoi(wanted) : 10000;
    std::atomic<unsigned int> starts{0};
    const auto core = MakeCore([&starts] {
        if (++starts % 1000 == 0) {
            throw std::system_error(EAGAIN, std::generic_category());
        }
        return true;
    });
    std::mt19937 random(1);
    std::vector<std::shared_ptr<Work>> works;
    for (int i = 0; i < count; ++i) {
        works.push_back(std::make_shared<Work>(static_cast<int>(random() % 3)));
        const Ticket ticket = core->NewTicket();
        const auto priority = static_cast<Priority>(random() % 3);
        ASSERT_TRUE(core->Add(ticket, priority, Milliseconds(random() % 2), works.back()));
        if (random() % 3 == 0) {
            core->Cancel(ticket - random() % 8);
        }
        if (works.size() >= 500) {
            for (const auto& work : works) {
                const Category outcome = work->Outcome();
                EXPECT_TRUE(outcome == Category::Success || outcome == Category::Cancelled);
            }
            works.clear();
        }
    }
    core->Close();
    for (const auto& work : works) {
        work->Outcome();
    }
}

TEST(KitWaitingLines, TakeTurnsSoThatNobodyWaitsForEver)
{
    KIT::WaitingLines lines;
    std::array<KIT::ListedEntry, 30> entries;
    for (std::size_t i = 0; i < 30; ++i) {
        lines.PushBack(entries[i], static_cast<Priority>(i / 10), false);
    }
    std::array<int, 3> taken = {};
    std::string order;
    for (int i = 0; i < 14; ++i) {
        const auto line = static_cast<std::size_t>(lines.Pop() - entries.data()) / 10;
        ++taken[line];
        order += "LNH"[line];
    }
    EXPECT_EQ(order, "HNHLHNHHNHLHNH");
    // The high line has two left. Its turns then go to the middle one.
    order.clear();
    while (!lines.IsEmpty()) {
        order += "LNH"[static_cast<std::size_t>(lines.Pop() - entries.data()) / 10];
    }
    EXPECT_EQ(order, "HNHLNNNNNLLLLLLL");
    EXPECT_EQ(lines.Pop(), nullptr);
}

TEST(KitWaitingLines, KeepTheOrderOfEachLine)
{
    KIT::WaitingLines lines;
    std::array<KIT::ListedEntry, 4> entries;
    lines.PushBack(entries[1], Priority::Low, false);
    lines.PushBack(entries[2], Priority::Low, false);
    lines.PushFront(entries[0], Priority::Low, false);
    lines.PushBack(entries[3], Priority::Low, false);
    KIT::EntryList::Remove(entries[2]);
    EXPECT_EQ(lines.Pop(), &entries[0]);
    EXPECT_EQ(lines.Pop(), &entries[1]);
    EXPECT_EQ(lines.Pop(), &entries[3]);
    EXPECT_TRUE(lines.IsEmpty());
}

TEST(KitWaitingLines, LetThoseThatHaveBegunGoFirst)
{
    KIT::WaitingLines lines;
    std::array<KIT::ListedEntry, 5> entries;
    lines.PushBack(entries[4], Priority::Low, false);
    lines.PushBack(entries[3], Priority::Low, true);
    lines.PushBack(entries[2], Priority::High, false);
    lines.PushBack(entries[1], Priority::High, true);
    lines.PushFront(entries[0], Priority::High, true);
    for (KIT::ListedEntry& each : entries) {
        EXPECT_EQ(lines.Pop(), &each);
    }
    EXPECT_TRUE(lines.IsEmpty());
}
