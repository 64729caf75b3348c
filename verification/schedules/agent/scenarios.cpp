#include <thread>

#include "Client.h"

using EXPLORER::Expect;
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

const Scenario onePlain("plain", "A plain transfer, and shutdown at any time", [] {
    Client client;
    client.AddAndRequest(Transfer::Plain);
    client.Destroy();
});

const Scenario oneSegmented("segmented", "A segmented transfer, and shutdown at any time", [] {
    Client client;
    client.AddAndRequest(Transfer::Segmented);
    client.Destroy();
});

const Scenario cancelPlain("cancel-plain", "A plain transfer, cancelled twice", [] {
    Client client;
    Transfer& transfer = client.AddAndRequest(Transfer::Plain);
    client.Cancel(transfer);
    Expect(!client.Cancel(transfer), "a transfer is cancelled once");
    client.Destroy();
});

const Scenario cancelSegmented("cancel-segmented", "A segmented transfer, cancelled at any time",
                               [] {
                                   Client client;
                                   client.Cancel(client.AddAndRequest(Transfer::Segmented));
                                   client.Destroy();
                               });

const Scenario cancelPaced("cancel-paced", "A wait with an end, cancelled at any time", [] {
    Client client;
    client.Cancel(client.AddAndRequest(Transfer::Paced));
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
        Transfer& transfer = client.AddAndRequest(Transfer::Asleep);
        Expect(client.Cancel(transfer), "a transfer that waits can be cancelled");
        EXPLORER::WaitUntilOthersRest();
        Expect(EXPLORER::ThreadsToDispose() == 0, "a cancellation wakes its sleeper");
        client.Destroy();
    },
    0);

const Scenario pacedByShutdown(
    "paced-woken-by-shutdown", "Only shutdown ends two waits",
    [] {
        Client client;
        client.AddAndRequest(Transfer::Asleep);
        client.AddAndRequest(Transfer::Asleep);
        client.Destroy();
    },
    0);

const Scenario pacedAndStreamed("paced-and-streamed",
                                "A wait and a segmented transfer, one cancelled", [] {
                                    Client client;
                                    Transfer& paced = client.AddAndRequest(Transfer::Paced);
                                    client.AddAndRequest(Transfer::Segmented);
                                    client.Cancel(paced);
                                    client.Destroy();
                                });

const Scenario twoClients("two-clients", "Two threads request, and cancel each other's", [] {
    Client client;
    Transfer& first = client.Add(Transfer::Paced);
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

const Scenario twoCancellers("two-cancellers", "Two threads cancel the same sleeper", [] {
    Client client;
    Transfer& transfer = client.AddAndRequest(Transfer::Asleep);
    bool found = false;
    bool foundByOther = false;
    {
        const ClientThread other(client, [&] { foundByOther = client.Cancel(transfer); });
        found = client.Cancel(transfer);
    }
    Expect(transfer.completions > 0 || found != foundByOther, "one of two cancellations succeeds");
    client.Destroy();
});

const Scenario cancelInside("cancel-inside", "Each callback cancels its own transfer, at last", [] {
    Client client;
    Transfer& inData = client.Add(Transfer::Segmented);
    inData.inData = [&] { client.Cancel(inData); };
    Transfer& inCompletion = client.Add(Transfer::Plain);
    inCompletion.inCompletion = [&] { client.Cancel(inCompletion); };
    inCompletion.whenDestroyed = [&] { client.Cancel(inData); };
    client.Request(inData);
    client.Request(inCompletion);
    client.Destroy();
});

const Scenario requestInside(
    "request-inside", "A data callback, a completion and a destructor request", [] {
        Client client;
        Transfer& first = client.Add(Transfer::Plain);
        first.inData = [&] { client.Request(client.Add(Transfer::Plain)); };
        first.inCompletion = [&] { client.Request(client.Add(Transfer::Paced)); };
        first.whenDestroyed = [&] { client.Request(client.Add(Transfer::Segmented)); };
        client.Request(first);
        client.Destroy();
    });

const Scenario bothInside("both-inside", "Callbacks cancel one transfer and request another", [] {
    Client client;
    Transfer& sleeper = client.AddAndRequest(Transfer::Asleep);
    Transfer& other = client.Add(Transfer::Segmented);
    other.inData = [&] {
        if (client.Cancel(sleeper)) {
            client.Request(client.Add(Transfer::Plain));
        }
    };
    other.inCompletion = [&] {
        client.Request(client.Add(Transfer::Plain));
        client.Cancel(other);
    };
    client.Request(other);
    client.Destroy();
});

const Scenario limit("limit", "A fifth request is refused until a place is given back", [] {
    Client client;
    Gate mayEnd[Client::MaxWorkers];
    for (Gate& gate : mayEnd) {
        Transfer& transfer = client.Add(Transfer::Plain);
        transfer.inHandler = [&gate] { gate.Wait(); };
        Expect(client.Request(transfer), "four transfers are accepted");
        EXPLORER::WaitUntilOthersRest();  // or there are too many schedules
    }
    Expect(!client.Request(client.Add(Transfer::Plain)), "a fifth transfer is refused");
    mayEnd[1].Open();
    if (!client.Request(client.Add(Transfer::Plain))) {
        EXPLORER::WaitUntilOthersRest();
        Expect(client.Request(client.Add(Transfer::Plain)), "a place that is given back is free");
    }
    for (Gate& gate : mayEnd) {
        EXPLORER::WaitUntilOthersRest();
        gate.Open();
    }
    client.Destroy();
});

const Scenario noHandler("no-handler", "A factory returns no handler", [] {
    Client client;
    Transfer& plain = client.Add(Transfer::Plain);
    Transfer& segmented = client.Add(Transfer::Segmented);
    plain.makesHandler = segmented.makesHandler = false;
    client.Request(plain);
    client.Request(segmented);
    client.Destroy();
    Expect(!plain.success && !segmented.success, "a transfer without a handler fails");
});

const Scenario invalid("invalid", "A request that is refused, beside one that is not", [] {
    Client client;
    client.AddAndRequest(Transfer::Plain);
    Transfer& transfer = client.Add(Transfer::Plain);
    transfer.isValid = false;
    transfer.whenDestroyed = [&client] { client.Request(client.Add(Transfer::Plain)); };
    Expect(!client.Request(transfer), "an invalid request is refused");
    client.Destroy();
});

const Scenario noThread(
    "no-thread", "One of three workers cannot be started",
    [] {
        Client client;
        int accepted = 0;
        for (int i = 0; i < 3; ++i) {
            accepted += client.Request(client.Add(Transfer::Plain)) ? 1 : 0;
        }
        Expect(accepted >= 2, "a thread that cannot be started fails its own request only");
        client.Destroy();
    },
    0, 1);

const Scenario handleReused("handle-reused", "A handle wraps onto a transfer in progress", [] {
    Client client;
    Transfer& first = client.Add(Transfer::Asleep);
    Transfer& second = client.Add(Transfer::Paced);
    first.sharesHandle = second.sharesHandle = true;
    client.Request(first);
    client.UseUpHandles();
    Expect(client.Request(second), "a request is accepted whatever its handle is");
    client.Destroy();
});

const Scenario underWay("all-under-way", "Shutdown meets a transfer of each kind, and a request",
                        [] {
                            Client client;
                            client.AddAndRequest(Transfer::Asleep);
                            client.AddAndRequest(Transfer::Segmented);
                            Transfer& transfer = client.Add(Transfer::Plain);
                            transfer.inData = [&] { client.Request(client.Add(Transfer::Paced)); };
                            client.Request(transfer);
                            client.Destroy();
                        });

const Scenario completing("completing", "The destructor meets two workers that complete", [] {
    Client client;
    Gate completes[2];
    for (Gate& gate : completes) {
        Transfer& transfer = client.Add(Transfer::Plain);
        transfer.inCompletion = [&gate] { gate.Open(); };
        client.Request(transfer);
    }
    completes[0].Wait();
    completes[1].Wait();
    client.Destroy();
});

}  // namespace
