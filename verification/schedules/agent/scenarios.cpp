#include <thread>

#include "Client.h"

using EXPLORER::Faults;
using EXPLORER::Gate;
using EXPLORER::Scenario;

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

const Scenario plain("plain", "A plain transfer, and shutdown at any time", [] {
    Client client;
    client.AddAndRequest(Transfer::Plain);
    client.Destroy();
});

const Scenario segmented("segmented", "A segmented transfer, and shutdown at any time", [] {
    Client client;
    client.AddAndRequest(Transfer::Segmented);
    client.Destroy();
});

const Scenario pacedByTime("paced-woken-by-time", "A wait whose time is up, then shutdown", [] {
    Client client;
    Gate completed;
    Transfer& transfer = client.Add(Transfer::Paced);
    transfer.inCompletion = [&completed] { completed.Open(); };
    client.Request(transfer);
    completed.Wait();
    client.Destroy();
});

const Scenario pacedByCancel(
    "paced-woken-by-cancel", "Only a cancellation ends the wait",
    [] {
        Client client;
        Gate transferred;
        Transfer& transfer = client.Add(Transfer::Asleep);
        transfer.inHandler = [&transferred] { transferred.Open(); };
        client.Request(transfer);
        EXPLORER::WaitUntilOthersRest();
        EXPLORER::Expect(client.Cancel(transfer), "a sleeping transfer can be cancelled");
        transferred.Wait();
        client.Destroy();
    },
    Faults{0, 0});

const Scenario pacedByShutdown("paced-woken-by-shutdown", "Only shutdown ends two waits", [] {
    Client client;
    client.AddAndRequest(Transfer::Asleep);
    client.AddAndRequest(Transfer::Asleep);
    client.Destroy();
});

const Scenario twoClients("two-clients", "Two threads request, and cancel each other's", [] {
    Client client;
    Transfer& first = client.Add(Transfer::Plain);
    Transfer& second = client.Add(Transfer::Segmented);
    {
        const ClientThread other(client, [&] {
            client.Request(second);
            client.Cancel(first);
        });
        client.Request(first);
        client.Cancel(second);
    }
    client.Destroy();
});

}  // namespace
