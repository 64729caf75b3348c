// A whole transfer, with any bytes for a server.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <QXCurlEasyHandlerFactory.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FuzzedServer.h"
#include "Gate.h"
#include "Input.h"
#include "Require.h"

namespace {

using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;
using Configuration = ITransferHandler::Configuration;
using HttpMethod = Configuration::HttpMethod;
using BytesPtr = std::unique_ptr<ITransferHandler::Bytes>;

// Between the replies of an input.
constexpr std::string_view NextConnection = "\n--next connection--\n";

// How a transfer is asked for.
struct Wish
{
    bool wrapper = false;
    bool segmented = false;
    bool header = true;
    bool body = true;
    bool failOnError = true;
    HttpMethod method = HttpMethod::EhttpGet;
    Configuration::HttpVersion version = Configuration::HttpVersion::Eversion11;
    std::size_t uploadLength = 0;
    // Which call of a callback cancels the transfer, from 1 up; 0 if none does.
    unsigned cancelledBy = 0;
};

Wish MakeWish(Input& input)
{
    Wish wish;
    wish.wrapper = input.Flag();
    wish.segmented = input.Flag();
    const unsigned wanted = input.Choose(3) + 1;
    wish.header = (wanted & 1U) != 0;
    wish.body = (wanted & 2U) != 0;
    wish.failOnError = input.Flag();
    wish.method = static_cast<HttpMethod>(input.Choose(6));
    wish.version = static_cast<Configuration::HttpVersion>(input.Choose(4));
    // The longest takes libcurl several reads.
    const std::size_t length = std::array<std::size_t, 3>{1, 1000, 200000}[input.Choose(3)];
    wish.uploadLength = wish.method == HttpMethod::EhttpGet ? 0 : length;
    wish.cancelledBy = input.Choose(8);
    return wish;
}

std::vector<std::string> SplitIntoReplies(std::string_view bytes)
{
    std::vector<std::string> replies;
    for (std::size_t end = bytes.find(NextConnection); end != std::string_view::npos;
         end = bytes.find(NextConnection)) {
        replies.emplace_back(bytes.substr(0, end));
        bytes.remove_prefix(end + NextConnection.size());
    }
    replies.emplace_back(bytes);
    return replies;
}

// Lets a handler meet the server.
class ServedHandler : public ITransferHandler
{
public:
    ServedHandler(std::unique_ptr<ITransferHandler> handler, FuzzedServer& server)
        : m_Handler(std::move(handler)), m_Server(server)
    {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        const FuzzedServer::Scope scope(m_Server);
        return m_Handler->DoTransfer(detail);
    }

private:
    std::unique_ptr<ITransferHandler> m_Handler;
    FuzzedServer& m_Server;
};

template <typename Factory>
class ServedFactory : public ITransferHandlerFactory
{
public:
    explicit ServedFactory(FuzzedServer& server) : m_Server(server) {}

    std::unique_ptr<ITransferHandler> Create() override
    {
        return std::make_unique<ServedHandler>(Factory().Create(), m_Server);
    }

private:
    FuzzedServer& m_Server;
};

bool IsSubsequence(const std::string& part, const std::string& whole)
{
    auto at = whole.begin();
    return std::all_of(part.begin(), part.end(), [&](char byte) {
        at = std::find(at, whole.end(), byte);
        return at != whole.end() && at++ != whole.end();
    });
}

// libcurl completes the line ends of a trailer.
std::string WithoutReturns(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

bool EndsWithABlankLine(const std::string& text)
{
    const std::string lines = WithoutReturns(text);
    return lines.size() >= 2 && lines.compare(lines.size() - 2, 2, "\n\n") == 0;
}

// One transfer, and what its client gets to see.
class Transfer
{
public:
    Transfer(ITransferAgentManager& agent, std::uint64_t handle, const Wish& wish,
             FuzzedServer& server)
        : m_Agent(agent), m_Handle(handle), m_Wish(wish), m_Server(server)
    {}

    // Returns when the transfer is completed or cancelled.
    void Run()
    {
        Require(m_Agent.RequestTransfer(m_MakeRequest()) == m_Handle, "a request is accepted");
        Require(m_Over.Wait(), "a transfer ends");
    }

    // To be called when the agent is gone: nothing may follow then.
    void Check() const
    {
        Require(m_Completions == (m_IsCancelled ? 0 : 1),
                "a transfer completes once, or not at all if it was cancelled");
        Require(m_Server.Result().performed == 1, "a request is performed once");
        m_CheckDelivery();
        m_CheckLength();
        if (!m_IsCancelled) {
            m_CheckResult();
            m_CheckNotifications();
        }
    }

    const std::string& Body() const { return m_Body.bytes; }
    bool Succeeded() const { return m_Result.success; }

private:
    // What one of the two data callbacks received.
    struct Received
    {
        std::string bytes;
        int chunks = 0;
        int nulls = 0;
    };

    std::unique_ptr<ITransferAgentManager::TransferConfiguration> m_MakeRequest()
    {
        auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
        request->url = "http://host/path";
        request->failOnError = m_Wish.failOnError;
        request->method = m_Wish.method;
        request->httpVersion = m_Wish.version;
        request->requestBody.assign(m_Wish.uploadLength, 'x');
        if (m_Wish.wrapper) {
            using Factory = ServedFactory<VORTAN_MW::QXCurlEasyHandlerFactory>;
            request->handlerFactory = std::make_unique<Factory>(m_Server);
        } else {
            using Factory = ServedFactory<VORTAN_MW::CurlEasyHandlerFactory>;
            request->handlerFactory = std::make_unique<Factory>(m_Server);
        }
        request->segmented = m_Wish.segmented;
        if (m_Wish.header) {
            request->headerCallback = [this](BytesPtr chunk, void*) {
                m_Receive(m_Header, chunk.get());
            };
        }
        if (m_Wish.body) {
            request->dataCallback = [this](BytesPtr chunk, void*) {
                m_Receive(m_Body, chunk.get());
            };
        }
        request->completeCallback = [this](ITransferHandler::Result result, void*) {
            m_Result = std::move(result);
            ++m_Completions;
            m_Over.Open();
        };
        return request;
    }

    void m_Receive(Received& received, const ITransferHandler::Bytes* chunk)
    {
        Require(m_Completions == 0, "nothing is delivered after the end");
        if (m_IsCancelled) {
            // The data callback of the same notification is still called.
            Require(std::exchange(m_DataIsDue, false) && &received == &m_Body,
                    "nothing is delivered after a cancellation");
        }
        if (chunk) {
            received.bytes.append(chunk->begin(), chunk->end());
            ++received.chunks;
        } else {
            ++received.nulls;
        }
        if (++m_Calls == m_Wish.cancelledBy) {
            m_IsCancelled = true;
            m_DataIsDue = &received == &m_Header && m_Wish.body;
            Require(m_Agent.CancelTransfer(m_Handle), "a transfer that runs can be cancelled");
            m_Over.Open();
        }
    }

    bool m_HasNoBody() const { return !m_Wish.body || m_Wish.method == HttpMethod::EhttpHead; }

    // Nothing is invented, and nothing moved.
    void m_CheckDelivery() const
    {
        Require(!m_HasNoBody() || m_Body.bytes.empty(), "no body is delivered that is not wanted");
        if (m_Wish.wrapper && m_Wish.version == Configuration::HttpVersion::Eversion20) {
            return;  // its header is put into words by libcurl
        }
        const std::string sent = m_Server.AllBytes();
        Require(IsSubsequence(WithoutReturns(m_Header.bytes), sent), "the header is what was sent");
        Require(m_Server.Result().isEncoded || IsSubsequence(m_Body.bytes, sent),
                "the body is what was sent");
    }

    void m_CheckResult() const
    {
        const FuzzedServer::Outcome& outcome = m_Server.Result();
        Require(m_Result.success == (outcome.code == CURLE_OK), "the result is libcurl's");
        Require((m_Result.httpCode != nullptr) == (m_Result.success || !m_Wish.wrapper),
                "there is a status where one is promised");
        Require(!m_Result.httpCode || *m_Result.httpCode == outcome.status,
                "the status is the last response's");
        // libcurl takes a response that ends inside its header for a whole one.
        const bool judgesStatus = m_Result.success && !m_Wish.wrapper && m_Wish.failOnError;
        Require(!judgesStatus || outcome.status < 400 || !EndsWithABlankLine(m_Header.bytes),
                "a status of failure fails the transfer if that was asked for");
    }

    // Also of a cancelled transfer: if libcurl got to the end, nothing was refused.
    void m_CheckLength() const
    {
        const FuzzedServer::Outcome& outcome = m_Server.Result();
        const bool hasLength = outcome.code == CURLE_OK && outcome.contentLength >= 0 &&
                               !outcome.isEncoded && !m_HasNoBody();
        Require(
            !hasLength || m_Body.bytes.size() == static_cast<std::size_t>(outcome.contentLength),
            "a whole response delivers as many bytes as it announced");
    }

    void m_CheckNotifications() const
    {
        const bool both = m_Wish.header && m_Wish.body;
        if (m_Wish.segmented) {
            Require(!both || (m_Header.nulls == m_Body.chunks && m_Body.nulls == m_Header.chunks),
                    "each chunk of a segmented transfer calls both callbacks");
            return;
        }
        for (const auto& [wanted, received] :
             {std::pair(m_Wish.header, &m_Header), std::pair(m_Wish.body, &m_Body)}) {
            Require(received->chunks == (wanted && m_Result.success ? 1 : 0),
                    "a plain transfer is delivered whole, and only if it succeeded");
            Require(received->nulls == (wanted && !m_Result.success && !both ? 1 : 0),
                    "a single callback is told of the failure of a plain transfer");
        }
    }

    ITransferAgentManager& m_Agent;
    const std::uint64_t m_Handle;
    const Wish m_Wish;
    FuzzedServer& m_Server;
    Received m_Header;
    Received m_Body;
    unsigned m_Calls = 0;
    bool m_IsCancelled = false;
    bool m_DataIsDue = false;
    int m_Completions = 0;
    ITransferHandler::Result m_Result;
    Gate m_Over;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const Wish wish = MakeWish(input);
    const bool smallPieces = input.Flag();
    input.Byte();  // a line's end, so that inputs can be read
    FuzzedServer server(SplitIntoReplies(input.Rest()), smallPieces);
    FuzzedServer soundServer({"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody"}, false);
    Wish soundWish;
    soundWish.wrapper = wish.wrapper;

    auto agent = AsyncTransferAgentManager::Create();
    Transfer transfer(*agent, 0, wish, server);
    Transfer next(*agent, 1, soundWish, soundServer);
    transfer.Run();
    next.Run();
    agent.reset();
    transfer.Check();
    next.Check();
    Require(next.Succeeded() && next.Body() == "body", "the agent goes on");
    return 0;
}
