#include "Load.h"

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <QXCurlEasyHandlerFactory.h>

#include <algorithm>
#include <array>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;

namespace {

using Request = ITransferAgentManager::TransferConfiguration;
using BytesPtr = std::unique_ptr<ITransferHandler::Bytes>;
using Callback = std::function<void(BytesPtr, void*)>;

// A generator per thread, all from one seed.
class Dice
{
public:
    explicit Dice(std::uint64_t seed) : m_Engine(seed) {}

    std::uint64_t Below(std::uint64_t count) { return m_Engine() % count; }
    bool OneIn(std::uint64_t count) { return Below(count) == 0; }

private:
    std::mt19937_64 m_Engine;
};

// Delivers a body from memory, in pieces where pieces are wanted.
class MemoryHandler : public ITransferHandler
{
public:
    explicit MemoryHandler(std::size_t length) : m_Length(length) {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        Result result;
        const Bytes header = {'h'};
        if (detail.headerBuffer) {
            *detail.headerBuffer = header;
        }
        if (detail.headerCallback &&
            !detail.headerCallback(std::make_unique<Bytes>(header), detail.userData)) {
            return result;
        }
        if (detail.dataBuffer) {
            detail.dataBuffer->assign(m_Length, ByteOf(m_Length));
        }
        constexpr std::size_t piece = 1000;
        for (std::size_t sent = 0; detail.dataCallback && sent < m_Length; sent += piece) {
            const std::size_t size = std::min(piece, m_Length - sent);
            if (!detail.dataCallback(std::make_unique<Bytes>(size, ByteOf(m_Length)),
                                     detail.userData)) {
                return result;
            }
        }
        result.success = true;
        return result;
    }

private:
    std::size_t m_Length;
};

class MemoryHandlerFactory : public ITransferHandlerFactory
{
public:
    explicit MemoryHandlerFactory(std::size_t length) : m_Length(length) {}

    std::unique_ptr<ITransferHandler> Create() override
    {
        return std::make_unique<MemoryHandler>(m_Length);
    }

private:
    std::size_t m_Length;
};

class Life
{
public:
    Life(std::uint64_t seed, const std::vector<Source>& sources, std::uint64_t requests,
         Journal& journal)
        : m_Seed(seed),
          m_Sources(sources),
          m_Left(static_cast<std::int64_t>(requests)),
          m_Journal(journal)
    {}

    void Live()
    {
        std::array<std::thread, 3> clients;
        for (std::size_t number = 0; number < clients.size(); ++number) {
            clients[number] = std::thread([this, seed = m_Seed + number] { m_Behave(Dice(seed)); });
        }
        for (std::thread& client : clients) {
            client.join();
        }
        m_Owner.reset();
        for (const auto& [entry, handle] : m_Entries) {
            m_Journal.File(*entry);
        }
    }

private:
    using EntryPtr = std::shared_ptr<Entry>;

    void m_Behave(Dice dice)
    {
        while (m_Left > 0) {
            if (!m_Request(dice)) {
                std::this_thread::yield();
            }
            if (dice.OneIn(3)) {
                m_CancelAny(dice);
            }
        }
    }

    bool m_Request(Dice& dice)
    {
        const Source& source = m_Sources[dice.Below(m_Sources.size())];
        const auto entry = std::make_shared<Entry>();
        const std::uint64_t handle = m_Agent->RequestTransfer(m_MakeRequest(source, entry, dice));
        if (handle == ITransferAgentManager::InvalidHandle) {
            m_Journal.CountRefusal();
            return false;
        }
        --m_Left;
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Entries.emplace_back(entry, handle);
        return true;
    }

    std::unique_ptr<Request> m_MakeRequest(const Source& source, const EntryPtr& entry, Dice& dice)
    {
        auto request = std::make_unique<Request>();
        request->url = source.url;
        request->method = ITransferHandler::Configuration::HttpMethod::EhttpGet;
        request->handlerFactory = m_MakeFactory(source, dice);
        request->segmented = dice.OneIn(2);
        if (dice.OneIn(4)) {
            request->fixedDelay = static_cast<std::int64_t>(dice.Below(3));
        } else if (dice.OneIn(8)) {
            request->randomDelay = ITransferHandler::Configuration::RandomDelay{0, 0};
        }
        entry->expectedBody = source.length;
        entry->expectsBody = !dice.OneIn(5);
        entry->tellsItsEnd = !dice.OneIn(10);
        if (!entry->expectsBody || dice.OneIn(2)) {
            request->headerCallback = m_CallBackIn(dice, [](const BytesPtr&) {});
        }
        if (entry->expectsBody) {
            request->dataCallback = m_CallBackIn(dice, [entry](const BytesPtr& chunk) {
                if (chunk) {
                    entry->Receive(*chunk);
                }
            });
        }
        if (entry->tellsItsEnd) {
            request->completeCallback = [entry](const ITransferHandler::Result& result, void*) {
                entry->Complete(result.success);
            };
        }
        return request;
    }

    static std::unique_ptr<ITransferHandlerFactory> m_MakeFactory(const Source& source, Dice& dice)
    {
        if (source.kind == Source::Kind::Memory) {
            return std::make_unique<MemoryHandlerFactory>(source.length);
        }
        if (source.kind == Source::Kind::File) {
            return std::make_unique<VORTAN_MW::FileReaderFactory>();
        }
        if (dice.OneIn(2)) {
            return std::make_unique<VORTAN_MW::CurlEasyHandlerFactory>();
        }
        return std::make_unique<VORTAN_MW::QXCurlEasyHandlerFactory>();
    }

    // A callback that now and then calls the agent: cancels a transfer, its own among them, or asks
    // for another.
    template <typename Take>
    Callback m_CallBackIn(Dice& dice, Take take)
    {
        // Shared by the copies that the agent makes of a callback.
        const auto own = std::make_shared<Dice>(dice.Below(UINT64_MAX));
        return [this, take, own](const BytesPtr& chunk, void*) {
            take(chunk);
            if (own->OneIn(20)) {
                m_CancelAny(*own);
            }
            if (own->OneIn(20) && m_Left > 0) {
                m_Request(*own);
            }
        };
    }

    // One of the latest, which may be over already.
    void m_CancelAny(Dice& dice)
    {
        EntryPtr entry;
        std::uint64_t handle = 0;
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            if (m_Entries.empty()) {
                return;
            }
            const std::uint64_t age = dice.Below(std::min<std::uint64_t>(m_Entries.size(), 6));
            entry = m_Entries[m_Entries.size() - 1 - age].first;
            handle = m_Entries[m_Entries.size() - 1 - age].second;
        }
        if (m_Agent->CancelTransfer(handle)) {
            entry->cancelled = true;
        }
    }

    const std::uint64_t m_Seed;
    const std::vector<Source>& m_Sources;
    std::atomic<std::int64_t> m_Left;
    Journal& m_Journal;
    std::mutex m_Mutex;
    std::deque<std::pair<EntryPtr, std::uint64_t>> m_Entries;
    std::unique_ptr<ITransferAgentManager> m_Owner = AsyncTransferAgentManager::Create();
    // Callbacks call it also while it is being destroyed, when its owner has let go of it already.
    ITransferAgentManager* const m_Agent = m_Owner.get();
};

}  // namespace

void LiveThroughOneManager(std::uint64_t seed, const std::vector<Source>& sources,
                           std::uint64_t requests, Journal& journal)
{
    Life(seed, sources, requests, journal).Live();
}
