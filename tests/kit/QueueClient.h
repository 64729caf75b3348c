#pragma once

#include <TransferQueue.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "KitClient.h"

// What the tests of the queue share.

// Remembers what a queue tells. Any thread may ask.
class RecordingQueueObserver : public VORTAN_MW::KIT::ITransferQueueObserver
{
public:
    using Ticket = VORTAN_MW::KIT::Ticket;
    using Category = VORTAN_MW::KIT::Category;
    using Kind = VORTAN_MW::KIT::TransferEvent::Kind;

    struct Record
    {
        std::vector<Kind> events;
        std::vector<Category> outcomes;  // each ticket should have one
        long status = 0;
        std::string sentence;
        bool isOutcomeLast = true;
        std::set<std::thread::id> threads;
    };

    void OnEvent(Ticket ticket, const VORTAN_MW::KIT::TransferEvent& event) override;
    void OnOutcome(Ticket ticket, const VORTAN_MW::KIT::TransferOutcome& outcome) override;

    // Called after an event or outcome was recorded. Set before the queue has a request.
    std::function<void(Ticket, Kind)> whenTold;
    std::function<void(Ticket)> whenOver;

    Record Of(Ticket ticket) const;
    std::size_t CountOfOutcomes() const;
    std::size_t Count(Category category) const;
    // The only outcome of the ticket, which is waited for. Anything else fails the test.
    Category OutcomeOf(Ticket ticket) const;
    bool WaitForOutcomes(std::size_t count) const;
    bool WaitFor(Ticket ticket, Kind kind) const;

private:
    bool m_WaitUntil(const std::string& what, const std::function<bool()>& condition) const;
    std::size_t m_CountOfOutcomes() const;

    mutable std::mutex m_Mutex;
    mutable std::condition_variable m_Changed;
    std::map<Ticket, Record> m_Records;
};

// A factory of handlers that run a function.
class FunctionFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    using Handler = VORTAN_MW::ITransferHandler;
    using Function = std::function<bool(const Handler::TransferDetail&)>;

    // whenDestroyed may be empty.
    explicit FunctionFactory(Function function, std::function<void()> whenDestroyed = nullptr)
        : m_Function(std::move(function)), m_WhenDestroyed(std::move(whenDestroyed))
    {}
    FunctionFactory(const FunctionFactory&) = delete;
    FunctionFactory& operator=(const FunctionFactory&) = delete;
    ~FunctionFactory() override;

    std::unique_ptr<Handler> Create() override;

private:
    const Function m_Function;
    const std::function<void()> m_WhenDestroyed;
};

using RequestPtr = std::unique_ptr<VORTAN_MW::KIT::TransferQueue::TransferConfiguration>;

RequestPtr QueueRequest(const std::string& url);
// With a handler that runs the function.
RequestPtr QueueRequest(FunctionFactory::Function function,
                        std::function<void()> whenDestroyed = nullptr);

std::shared_ptr<VORTAN_MW::KIT::HttpSession> LocalSession();
