#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AsyncTransferAgentManager.h"
#include "Explorer.h"

// A client of the agent, for scenarios. It makes requests, notes what becomes of them, and expects
// the agent to keep its promises: in each callback, at each line of the log, and at the end.

class Client;

// A request, and what the client knows of it.
struct Transfer
{
    enum Kind
    {
        Plain,
        Paced,      // for a second, then plain
        Asleep,     // the same without end
        Segmented,  // in two chunks
    };

    Transfer(Client& ownClient, Kind ownKind, std::string ownName)
        : client(ownClient), kind(ownKind), name(std::move(ownName))
    {}

    Client& client;
    const Kind kind;
    const std::string name;  // its URL, by which the log tells it apart

    // What the client's code does in each place.
    std::function<void()> inData;
    std::function<void()> inCompletion;
    std::function<void()> inHandler;
    std::function<void()> whenDestroyed;  // the factory
    bool makesHandler = true;
    bool isValid = true;        // as a request
    bool sharesHandle = false;  // somebody else is given the same

    bool accepted = false;
    std::uint64_t handle = VORTAN_MW::ITransferAgentManager::InvalidHandle;
    int dataCalls = 0;
    int completions = 0;
    bool success = false;
    int factories = 0;  // those that are not destroyed
    int callbacks = 0;  // the same, copies included
    bool cancelled = false;
    int removals = 0;                       // from the agent's table
    EXPLORER::Moment removedAt;             // if it was
    std::string lines;                      // of its worker, a letter each
    std::vector<EXPLORER::Moment> moments;  // at which the client's code ran
};

class Client
{
public:
    static constexpr int MaxWorkers = 4;

    Client();

    Transfer& Add(Transfer::Kind kind);
    // Returns whether the request was accepted.
    bool Request(Transfer& transfer);
    Transfer& AddAndRequest(Transfer::Kind kind);
    // Returns whether the agent found it.
    bool Cancel(Transfer& transfer);
    // Destroys the agent, and checks what must hold then.
    void Destroy();
    // The next request finds the agent's handles used up: they start again.
    void UseUpHandles();

    // Called where the client's own code runs.
    void Enter(Transfer& transfer, const char* where);
    // Called for each line of the agent's log.
    void Log(const std::string& function, const std::string& text);

    int clientThreads = 0;  // that were not joined

private:
    std::unique_ptr<VORTAN_MW::ITransferAgentManager::TransferConfiguration> m_Configure(
        Transfer& transfer);
    Transfer* m_Find(std::uint64_t handle);
    void m_CheckEnd(const Transfer& transfer) const;

    VORTAN_MW::ITransferAgentManager* const m_Agent;  // owned until Destroy
    std::vector<std::unique_ptr<Transfer>> m_Transfers;
    std::vector<Transfer*> m_OfThread;  // a worker's transfer
    bool m_Destroyed = false;
};
