#include <thread>

#include "Client.h"

using EXPLORER::Expect;
using EXPLORER::Gate;
using EXPLORER::Scenario;
using VORTAN_MW::KIT::Category;
using VORTAN_MW::KIT::Priority;

namespace {

// A thread of the client's.
class ClientThread
{
public:
    template <typename Function>
    ClientThread(Client& client, Function&& function)
        : m_Client(client), m_Thread((++client.clientThreads, std::forward<Function>(function)))
    {}
    ClientThread(const ClientThread&) = delete;
    ClientThread& operator=(const ClientThread&) = delete;
    ~ClientThread()
    {
        m_Thread.join();
        --m_Client.clientThreads;
    }

private:
    Client& m_Client;
    std::thread m_Thread;
};

// Adds tasks that have all places, until a gate opens for each.
template <std::size_t Count>
void TakePlaces(Client& client, Gate (&mayEnd)[Count])
{
    for (Gate& gate : mayEnd) {
        Task& task = client.New();
        task.inPerform = [&gate] { gate.Wait(); };
        client.Add(task);
        EXPLORER::WaitUntilOthersRest();  // or there are too many schedules
    }
}

const Scenario one("one", "A ticket, and close at any time", [] {
    Client client;
    client.AddNew();
    client.Close();
});

const Scenario empty("empty", "No ticket, and close at any time", [] {
    Client client;
    client.Close();
});

const Scenario cancelled("cancelled", "A ticket, cancelled twice", [] {
    Client client;
    Task& task = client.AddNew();
    client.Cancel(task);
    client.Cancel(task);
    client.Close();
});

const Scenario oneOfTwo("one-of-two", "Two tickets, the first one cancelled", [] {
    Client client;
    Task& task = client.AddNew();
    client.AddNew();
    client.Cancel(task);
    client.Close();
});

const Scenario delayed("delayed", "A ticket that waits for its time, cancelled", [] {
    Client client;
    Task& task = client.New();
    task.delay = std::chrono::seconds(1);
    client.Add(task);
    client.Cancel(task);
    client.Close();
});

const Scenario endless(
    "delayed-without-end", "Only a cancel ends the wait for a ticket's time",
    [] {
        Client client;
        Gate ended;
        Task& task = client.New();
        task.delay = std::chrono::hours(24 * 365 * 100);
        task.inEnd = [&ended] { ended.Open(); };
        client.Add(task);
        Expect(client.Cancel(task), "a ticket that waits can be cancelled");
        ended.Wait();
        client.Close();
    },
    0);

const Scenario retried("retried", "A work that is performed twice, and close at any time", [] {
    Client client;
    Task& task = client.New();
    task.retries = 1;
    client.Add(task);
    client.Close();
});

const Scenario retriedToEnd("retried-to-its-end", "A work that is performed twice, then close", [] {
    Client client;
    Gate ended;
    Task& task = client.New();
    task.retries = 1;
    task.inEnd = [&ended] { ended.Open(); };
    client.Add(task);
    ended.Wait();
    Expect(task.reason == Category::Success && task.performs == 2,
           "a work that asks for it is performed again");
    client.Close();
});

const Scenario retriedCancelled("retried-cancelled", "A work that is performed twice, cancelled",
                                [] {
                                    Client client;
                                    Task& task = client.New();
                                    task.retries = 1;
                                    client.Add(task);
                                    client.Cancel(task);
                                    client.Close();
                                });

const Scenario twoCancellers("two-cancellers", "Two threads cancel the same ticket", [] {
    Client client;
    Task& task = client.AddNew();
    {
        const ClientThread other(client, [&] { client.Cancel(task); });
        client.Cancel(task);
    }
    client.Close();
});

const Scenario allCancelled("all-cancelled", "Two tickets, both cancelled at once", [] {
    Client client;
    client.AddNew();
    client.AddNew();
    client.CancelAll();
    client.Close();
});

const Scenario allCancelledAtAdd("all-cancelled-at-add",
                                 "Another thread cancels all while one adds", [] {
                                     Client client;
                                     {
                                         const ClientThread other(client,
                                                                  [&] { client.CancelAll(); });
                                         client.AddNew();
                                     }
                                     client.Close();
                                 });

const Scenario addedAtClose("added-at-close", "Another thread adds while the queue closes", [] {
    Client client;
    {
        Task& task = client.New();
        const ClientThread other(client, [&] { client.Add(task); });
        client.Close();
    }
});

const Scenario cancelledAtClose("cancelled-at-close",
                                "Another thread cancels while the queue closes", [] {
                                    Client client;
                                    Task& task = client.AddNew();
                                    const ClientThread other(client, [&] { client.Cancel(task); });
                                    client.Close();
                                });

const Scenario insideEnd("inside-end", "An outcome adds a ticket, and cancels it and itself", [] {
    Client client;
    Task& first = client.New();
    Task& second = client.New();
    first.inEnd = [&] {
        Expect(!client.Cancel(first), "a ticket whose outcome is told has ended");
        if (client.Add(second)) {
            client.Cancel(second);
        }
    };
    client.Add(first);
    client.Close();
});

const Scenario allInsideEnd("all-inside-end", "An outcome cancels all", [] {
    Client client;
    Task& first = client.New();
    first.inEnd = [&] { client.CancelAll(); };
    client.Add(first);
    client.AddNew();
    client.Close();
});

const Scenario insidePerform("inside-perform", "A work adds another, and cancels itself", [] {
    Client client;
    Task& first = client.New();
    first.inPerform = [&] {
        client.Add(client.New());
        client.Cancel(first);
    };
    client.Add(first);
    client.Close();
});

const Scenario invalid("invalid", "A work that the agent refuses, beside one that it does not", [] {
    Client client;
    Task& task = client.New();
    task.isValid = false;
    client.Add(task);
    client.AddNew();
    client.Cancel(task);
    client.Close();
});

const Scenario noThread(
    "no-thread", "One of three threads cannot be started, perhaps the queue's own",
    [] {
        Client client;
        if (client.isMade) {
            client.AddNew();
            client.Cancel(client.AddNew());
            client.Close();
        }
    },
    0, 1);

const Scenario triedAgain(
    "tried-again", "A worker that cannot be started at first",
    [] {
        Client client;
        if (client.isMade) {
            Gate ended;
            Task& task = client.New();
            task.inEnd = [&ended] { ended.Open(); };
            client.Add(task);
            ended.Wait();
            Expect(task.reason == Category::Success, "a worker that cannot start is tried again");
            client.Close();
        }
    },
    0, 2);

const Scenario fifth(
    "fifth", "A fifth and a sixth ticket wait for a place, and one is cancelled",
    [] {
        Client client;
        Gate mayEnd[Client::MostPerforming];
        TakePlaces(client, mayEnd);
        client.AddNew();
        Task& task = client.AddNew();
        mayEnd[1].Open();
        client.Cancel(task);
        for (Gate& gate : mayEnd) {
            EXPLORER::WaitUntilOthersRest();
            gate.Open();
        }
        client.Close();
    },
    0);

const Scenario fifthAtClose(
    "fifth-at-close", "Close finds one ticket waiting for a place that is given back",
    [] {
        Client client;
        Gate mayEnd[Client::MostPerforming];
        TakePlaces(client, mayEnd);
        client.AddNew();
        mayEnd[0].Open();
        const ClientThread other(client, [&] {
            for (Gate& gate : mayEnd) {
                EXPLORER::WaitUntilOthersRest();
                gate.Open();
            }
        });
        client.Close();
    },
    0);

const Scenario priorities(
    "priorities", "Four tickets of three priorities wait for a place",
    [] {
        Client client;
        Gate mayEnd[Client::MostPerforming];
        TakePlaces(client, mayEnd);
        for (const Priority priority :
             {Priority::Low, Priority::Normal, Priority::High, Priority::High}) {
            Task& task = client.New();
            task.priority = priority;
            client.Add(task);
        }
        for (Gate& gate : mayEnd) {
            gate.Open();
            EXPLORER::WaitUntilOthersRest();
        }
        Expect(client.order == "ABCDGFHE", "each priority has its turns");
        client.Close();
    },
    0);

const Scenario retryFirst(
    "retry-first", "A work that waits for its second attempt, beside one that has not begun",
    [] {
        Client client;
        Gate mayEnd[Client::MostPerforming - 1];
        TakePlaces(client, mayEnd);
        Gate leavesItsPlace;
        Task& again = client.New();
        again.retries = 1;
        Task& between = client.New();
        between.inPerform = [&] { leavesItsPlace.Wait(); };
        Task& last = client.New();
        last.inPerform = [&] { Expect(again.performs == 2, "what has begun goes first"); };
        client.Add(again);
        client.Add(between);
        client.Add(last);
        EXPLORER::WaitUntilOthersRest();
        Expect(client.order == "ABCDE", "a work that waits for its time leaves its place");
        leavesItsPlace.Open();
        for (Gate& gate : mayEnd) {
            EXPLORER::WaitUntilOthersRest();
            gate.Open();
        }
        client.Close();
    },
    0);

const Scenario dueFirst(
    "due-first", "Two works wait for their second attempts, and for a place",
    [] {
        Client client;
        Gate mayEnd[Client::MostPerforming - 1];
        TakePlaces(client, mayEnd);
        Gate leavesItsPlace;
        Task& first = client.New();
        first.retries = 1;
        Task& second = client.New();
        second.retries = 1;
        second.inPerform = [&] {
            Expect(first.performs >= second.performs, "what is due first goes first");
        };
        Task& between = client.New();
        between.inPerform = [&] { leavesItsPlace.Wait(); };
        client.Add(first);
        client.Add(second);
        client.Add(between);
        EXPLORER::WaitUntilOthersRest();
        leavesItsPlace.Open();
        for (Gate& gate : mayEnd) {
            EXPLORER::WaitUntilOthersRest();
            gate.Open();
        }
        client.Close();
    },
    0);

const Scenario never(
    "never", "No worker can be started",
    [] {
        Client client;
        Gate ended;
        Task& task = client.New();
        task.findsNoThread = true;
        task.inEnd = [&ended] { ended.Open(); };
        client.Add(task);
        ended.Wait();
        Expect(task.reason == Category::NoThread, "a work that finds no thread fails");
        client.Close();
    },
    0, EXPLORER::NoWorkers);

}  // namespace
