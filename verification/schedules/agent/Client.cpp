#include "Client.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "AsyncTransferAgentManagerState.h"

using EXPLORER::Expect;
using EXPLORER::Moment;
using EXPLORER::Tracked;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;

namespace {

using Chunk = std::unique_ptr<ITransferHandler::Bytes>;

Client* current = nullptr;  // of this run

// Something of the client's in a callback, which has copies of it.
class Property
{
public:
    explicit Property(Transfer& transfer) : m_Transfer(transfer) { ++m_Transfer.callbacks; }
    Property(const Property& other) : m_Transfer(other.m_Transfer) { ++m_Transfer.callbacks; }
    Property& operator=(const Property&) = delete;
    ~Property()
    {
        const Tracked untracked(false);
        --m_Transfer.callbacks;
        m_Transfer.client.Enter(m_Transfer, "destroys a callback");
    }

    Transfer& Owner() const { return m_Transfer; }

private:
    Transfer& m_Transfer;
};

void Run(const std::function<void()>& script)
{
    if (script) {
        script();
    }
}

void ReceiveData(Transfer& transfer, const char* callback, bool isFirst)
{
    const Tracked untracked(false);
    transfer.client.Enter(transfer, callback);
    Expect(transfer.completions == 0, "data comes before the completion");
    Expect(!isFirst || transfer.removals == 0 || !transfer.removedAt.HappenedBefore() ||
               transfer.sharesHandle,
           "no notification begins once the transfer is removed");
    ++transfer.dataCalls;
    if (isFirst) {
        Run(transfer.inData);
    }
}

void ReceiveCompletion(Transfer& transfer, const ITransferHandler::Result& result)
{
    const Tracked untracked(false);
    transfer.client.Enter(transfer, "complete callback");
    Expect(++transfer.completions == 1, "a transfer completes at most once");
    Expect(transfer.removals == 0 || !transfer.removedAt.HappenedBefore() || transfer.sharesHandle,
           "no notification begins once the transfer is removed");
    transfer.success = result.success;
    Run(transfer.inCompletion);
}

class Handler : public ITransferHandler
{
public:
    explicit Handler(Transfer& transfer) : m_Transfer(transfer) {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        const Tracked untracked(false);
        m_Transfer.client.Enter(m_Transfer, "handler");
        Run(m_Transfer.inHandler);
        Result result;
        result.success = m_Transfer.kind != Transfer::Segmented ||
                         (Push(detail.headerCallback, detail) && Push(detail.dataCallback, detail));
        m_Transfer.client.Enter(m_Transfer, "handler ends");
        return result;
    }

private:
    bool Push(const ChunkCallback& callback, const TransferDetail& detail) const
    {
        const bool wasRemoved = m_Transfer.removals > 0 && m_Transfer.removedAt.HappenedBefore();
        const Tracked tracked;
        const bool goesOn = callback(std::make_unique<Bytes>(3), detail.userData);
        Expect(goesOn || m_Transfer.removals > 0 || m_Transfer.sharesHandle,
               "only a cancelled transfer's chunk is refused");
        Expect(!goesOn || !wasRemoved || m_Transfer.sharesHandle,
               "a cancelled transfer's chunk is refused");
        return goesOn;
    }

    Transfer& m_Transfer;
};

class Factory : public ITransferHandlerFactory
{
public:
    explicit Factory(Transfer& transfer) : m_Transfer(transfer) { ++m_Transfer.factories; }
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;
    ~Factory() override
    {
        const Tracked untracked(false);
        --m_Transfer.factories;
        m_Transfer.client.Enter(m_Transfer, "destroys the factory");
        Run(m_Transfer.whenDestroyed);
    }

    std::unique_ptr<ITransferHandler> Create() override
    {
        const Tracked untracked(false);
        Expect(m_Transfer.factories > 0, "a factory is used only until it is destroyed");
        return m_Transfer.makesHandler ? std::make_unique<Handler>(m_Transfer) : nullptr;
    }

private:
    Transfer& m_Transfer;
};

bool StartsWith(const std::string& text, const char* start)
{
    return text.compare(0, std::strlen(start), start) == 0;
}

std::uint64_t NumberAtEnd(const std::string& text)
{
    return std::strtoull(text.c_str() + text.find_last_not_of("0123456789") + 1, nullptr, 10);
}

// The lines of a worker in the order in which they come, each at most once; a letter for each.
constexpr char Order[] = "HEWSIFGhdDC";

char LetterOf(const std::string& function, const std::string& text)
{
    static constexpr struct
    {
        char letter;
        const char* function;
        const char* start;
    } lines[] = {
        {'H', "m_PerformTransferThread", "handle: "},
        {'E', "m_PerformDataTransfer", " "},
        {'W', "m_PerformDataTransfer", "wait before sending"},
        {'S', "m_PerformDataTransfer", "Start sleeping for: "},
        {'I', "m_PerformDataTransfer", "Sleep interrupted"},
        {'F', "m_PerformDataTransfer", "Finished sleeping"},
        {'G', "GetTransfer", " "},
        {'h', "m_PerformDataTransfer", "Successfully download header size: "},
        {'d', "m_PerformDataTransfer", "Successfully download data size: "},
        {'D', "m_PerformTransferThread", "Detaching thread id: "},
        {'C', "m_PerformTransferThread", "Cancelling transfer with handle: "},
        {'j', "m_GetJob", "job not found for:"},
        {'j', "m_PerformDataTransfer", "Handle "},
        {'n', "m_CreateHandler", "Handler factory returned no handler"},
        {'s', "m_PerformDataTransfer", "Failed to create conditional variable"},
    };
    for (const auto& line : lines) {
        if (function == line.function && StartsWith(text, line.start)) {
            return line.letter;
        }
    }
    return '?';
}

void ExpectInOrder(const std::string& lines)
{
    std::size_t place = 0;
    for (const char letter : lines) {
        if (std::strchr("jns", letter) != nullptr) {
            continue;
        }
        const char* const found = std::strchr(Order, letter);
        Expect(found != nullptr && static_cast<std::size_t>(found - Order) >= place,
               "a transfer's log lines are in their order");
        place = static_cast<std::size_t>(found - Order) + 1;
    }
    const bool slept = lines.find('S') != std::string::npos;
    const bool woke = lines.find_first_of("IF") != std::string::npos;
    Expect(slept == woke &&
               (lines.find('I') == std::string::npos || lines.find('F') == std::string::npos),
           "each sleep ends in the log, in one way");
}

}  // namespace

namespace VORTAN_MW {

class AsyncTransferAgentManagerPeer
{
public:
    VORTAN_NO_THREAD_ANALYSIS static void SetNextHandle(ITransferAgentManager& manager,
                                                        std::uint64_t handle)
    {
        static_cast<AsyncTransferAgentManager&>(manager).m_State->nextHandle = handle;
    }
};

}  // namespace VORTAN_MW

Client::Client() : m_Agent(VORTAN_MW::AsyncTransferAgentManager::Create().release())
{
    m_OfThread.resize(EXPLORER::MaxThreads + 1);
    current = this;
}

Transfer& Client::Add(Transfer::Kind kind)
{
    const std::string name(1, static_cast<char>('A' + m_Transfers.size()));
    m_Transfers.push_back(std::make_unique<Transfer>(*this, kind, name));
    return *m_Transfers.back();
}

std::unique_ptr<ITransferAgentManager::TransferConfiguration> Client::m_Configure(
    Transfer& transfer)
{
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = transfer.isValid ? transfer.name : std::string();
    request->segmented = transfer.kind == Transfer::Segmented;
    if (transfer.kind == Transfer::Paced) {
        request->fixedDelay = 1000;
    } else if (transfer.kind == Transfer::Asleep) {
        request->fixedDelay = INT64_MAX;
    }
    const Property property(transfer);
    request->handlerFactory = std::make_unique<Factory>(transfer);
    request->headerCallback = [property](Chunk, void*) {
        ReceiveData(property.Owner(), "header callback", true);
    };
    request->dataCallback = [property](Chunk, void*) {
        ReceiveData(property.Owner(), "data callback", false);
    };
    request->completeCallback = [property](const ITransferHandler::Result& result, void*) {
        ReceiveCompletion(property.Owner(), result);
    };
    return request;
}

bool Client::Request(Transfer& transfer)
{
    auto request = m_Configure(transfer);
    std::uint64_t handle = 0;
    try {
        const Tracked tracked;
        handle = m_Agent->RequestTransfer(std::move(request));
    } catch (const std::system_error&) {  // no thread could be started
        transfer.accepted = false;
        handle = ITransferAgentManager::InvalidHandle;
    }
    Expect(transfer.accepted == (handle != ITransferAgentManager::InvalidHandle) &&
               (!transfer.accepted || handle == transfer.handle),
           "a request returns the handle that it was filed under");
    Expect(transfer.accepted || (transfer.factories == 0 && transfer.callbacks == 0),
           "a refused request is destroyed before the call returns");
    return transfer.accepted;
}

Transfer& Client::AddAndRequest(Transfer::Kind kind)
{
    Transfer& transfer = Add(kind);
    Expect(Request(transfer), "a request is accepted while there is a place");
    return transfer;
}

bool Client::Cancel(Transfer& transfer)
{
    bool found = false;
    {
        const Tracked tracked;
        found = m_Agent->CancelTransfer(transfer.handle);
    }
    transfer.cancelled = transfer.cancelled || found;
    Expect(!found || transfer.removals > 0 || transfer.sharesHandle,
           "a transfer that was found is removed");
    return found;
}

void Client::UseUpHandles()
{
    VORTAN_MW::AsyncTransferAgentManagerPeer::SetNextHandle(*m_Agent,
                                                            ITransferAgentManager::InvalidHandle);
}

void Client::Enter(Transfer& transfer, const char* where)
{
    if (EXPLORER::IsReplay()) {
        EXPLORER::Note(transfer.name + ": " + where);
    }
    Expect(!EXPLORER::HoldsMutex(), "the client's code runs without the agent's mutex");
    Expect(!m_Destroyed || transfer.sharesHandle,
           "the client's code does not run once the agent is destroyed");
    Expect(EXPLORER::ThreadsToDispose() - clientThreads <= MaxWorkers,
           "there are never more than four workers");
    transfer.moments.push_back(Moment::Now());
}

Transfer* Client::m_Find(std::uint64_t handle)
{
    for (std::size_t i = m_Transfers.size(); i-- > 0;) {
        if (m_Transfers[i]->accepted && m_Transfers[i]->handle == handle) {
            return m_Transfers[i].get();
        }
    }
    return nullptr;
}

void Client::Log(const std::string& function, const std::string& text)
{
    const auto thread = static_cast<std::size_t>(EXPLORER::ThisThread());
    Transfer* const named = m_Find(NumberAtEnd(text));
    if (function == "m_CreateJob" && StartsWith(text, "Requesting transfer for: ")) {
        for (const auto& transfer : m_Transfers) {
            if (StartsWith(text, ("Requesting transfer for: " + transfer->name + " ").c_str())) {
                transfer->handle = NumberAtEnd(text);
                transfer->accepted = true;
            }
        }
    } else if (StartsWith(text, "Cancelling transfer with handle: ") && named != nullptr) {
        Expect(++named->removals == 1 || named->sharesHandle, "a transfer is removed once");
        named->removedAt = Moment::Now();
    }
    if (function == "m_PerformTransferThread" && StartsWith(text, "handle: ")) {
        m_OfThread[thread] = named;
    }
    static constexpr const char* others[] = {"RequestTransfer",
                                             "CancelTransfer",
                                             "m_CreateJob",
                                             "m_RemoveJob",
                                             "~AsyncTransferAgentManager",
                                             "m_ValidateTransferConfig"};
    for (const char* const other : others) {
        if (function == other) {
            return;
        }
    }
    Expect(m_OfThread[thread] != nullptr,
           "a worker's log line is preceded by the one with its handle");
    m_OfThread[thread]->lines += LetterOf(function, text);
}

void Client::Destroy()
{
    {
        const Tracked tracked;
        delete m_Agent;  // callbacks may still use it
    }
    m_Destroyed = true;
    for (const auto& transfer : m_Transfers) {
        if (!transfer->sharesHandle) {
            m_CheckEnd(*transfer);
        }
    }
    // What another worker was left with, as it had the same handle, it may still have to destroy.
    EXPLORER::WaitUntilOthersRest();
    for (const auto& transfer : m_Transfers) {
        Expect(transfer->factories == 0 && transfer->callbacks == 0,
               "everything of the client's is destroyed");
    }
}

void Client::m_CheckEnd(const Transfer& transfer) const
{
    for (const Moment& moment : transfer.moments) {
        Expect(moment.HappenedBefore(), "the client's code ends before the destructor returns");
    }
    Expect(transfer.factories == 0 && transfer.callbacks == 0,
           "everything of the client's is destroyed before the destructor returns");
    if (!transfer.accepted) {
        Expect(transfer.completions == 0 && transfer.dataCalls == 0,
               "a refused request is never notified");
        return;
    }
    Expect(transfer.completions == 1 || transfer.cancelled,
           "a transfer that nobody cancelled completes");
    Expect(transfer.removals == 1, "every accepted transfer leaves the table");
    ExpectInOrder(transfer.lines);
}

// The agent's log comes here.
extern "C" int __dlog_print(int, int, const char*, const char* format, ...)
{
    const Tracked untracked(false);
    va_list pieces;
    va_start(pieces, format);
    const char* const file = va_arg(pieces, const char*);
    const char* const function = va_arg(pieces, const char*);
    const int line = va_arg(pieces, int);
    const char* const text = va_arg(pieces, const char*);
    va_end(pieces);
    if (EXPLORER::IsReplay()) {
        EXPLORER::Note(std::string("logs: ") + text,
                       std::string(function) + "  " + file + ":" + std::to_string(line));
    }
    current->Log(function, text);
    return 0;
}
