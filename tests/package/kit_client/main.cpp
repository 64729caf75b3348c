// client FILE: transfers the bytes of FILE over HTTP through the installed kit, with an agent of
// its own and through a queue, into memory and into FILE.copy, and compares what arrives with what
// was sent. Exits 0 if it is the same, and if the kit refuses a wrong policy with the exception
// that it documents.

#include <AsyncTransferAgentManager.h>
#include <FileSink.h>
#include <HttpSession.h>
#include <TransferQueue.h>

#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "FileServer.h"

using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::KIT::Category;
using VORTAN_MW::KIT::FileSink;
using VORTAN_MW::KIT::HttpSession;
using VORTAN_MW::KIT::ITransferObserver;
using VORTAN_MW::KIT::ITransferQueueObserver;
using VORTAN_MW::KIT::Ticket;
using VORTAN_MW::KIT::TransferEvent;
using VORTAN_MW::KIT::TransferOptions;
using VORTAN_MW::KIT::TransferOutcome;
using VORTAN_MW::KIT::TransferPolicy;
using VORTAN_MW::KIT::TransferQueue;

namespace {

struct Watch : ITransferObserver
{
    void OnEvent(const TransferEvent& event) override
    {
        if (event.GetKind() == TransferEvent::Kind::End) {
            std::cout << event.GetOutcome().GetSentence() << '\n';
            category = event.GetOutcome().GetCategory();
        }
    }

    Category category = Category::Internal;
};

std::string ReadWhole(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

struct QueueWatch : ITransferQueueObserver
{
    void OnOutcome(Ticket, const TransferOutcome& outcome) override
    {
        category.set_value(outcome.GetCategory());
    }

    std::promise<Category> category;
};

// The body, empty if the transfer failed.
std::string Fetch(const std::string& url, const std::shared_ptr<Watch>& watch)
{
    HttpSession session(TransferPolicy().SetSchemes({"http"}));
    std::string body;
    std::promise<bool> succeeded;
    const auto agent = VORTAN_MW::AsyncTransferAgentManager::Create();
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = url;
    request->handlerFactory = session.MakeFactory(TransferOptions().SetObserver(watch));
    request->dataCallback = [&](std::unique_ptr<ITransferHandler::Bytes> bytes, void*) {
        if (bytes) {
            body.assign(bytes->begin(), bytes->end());
        }
    };
    request->completeCallback = [&](ITransferHandler::Result result, void*) {
        succeeded.set_value(result.success);
    };
    const bool isAccepted =
        agent->RequestTransfer(std::move(request)) != ITransferAgentManager::InvalidHandle;
    return isAccepted && succeeded.get_future().get() ? body : "";
}

// The body, empty if the transfer failed.
std::string FetchThroughQueue(const std::string& url)
{
    TransferQueue queue(std::make_shared<HttpSession>(TransferPolicy().SetSchemes({"http"})));
    const auto response = queue.Fetch(url).get();
    std::cout << response.outcome.GetSentence() << '\n';
    return std::string(response.body.begin(), response.body.end());
}

// What the file holds in the end.
std::string DownloadThroughQueue(const std::string& url, const std::string& path)
{
    const auto session = std::make_shared<HttpSession>(TransferPolicy().SetSchemes({"http"}));
    const auto watch = std::make_shared<QueueWatch>();
    TransferQueue queue(session, watch, [](const std::function<void()>& closure) { closure(); });
    auto request = std::make_unique<TransferQueue::TransferConfiguration>();
    request->url = url;
    request->handlerFactory = session->MakeFactory();
    FileSink(path).AttachTo(*request);
    queue.Add(std::move(request), VORTAN_MW::KIT::Priority::High);
    return watch->category.get_future().get() == Category::Success ? ReadWhole(path) : "";
}

bool RefusesWrongPolicy()
{
    try {
        HttpSession session(TransferPolicy().SetAttempts(0));
        return false;
    } catch (const std::invalid_argument& error) {
        std::cout << error.what() << '\n';
        return true;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        return 2;
    }
    const std::string expected = ReadWhole(argv[1]);
    const auto watch = std::make_shared<Watch>();
    const FileServer server(expected, 3);
    const std::string bodies[] = {
        Fetch(server.Url(), watch), FetchThroughQueue(server.Url()),
        DownloadThroughQueue(server.Url(), argv[1] + std::string(".copy"))};
    bool agrees = !expected.empty();
    for (const std::string& body : bodies) {
        std::cout << "received " << body.size() << " of " << expected.size() << " bytes\n";
        agrees = agrees && body == expected;
    }
    return agrees && watch->category == Category::Success && RefusesWrongPolicy() ? 0 : 1;
}
