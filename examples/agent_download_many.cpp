// agent_download_many URL...: downloads any number of URLs, four at a time, and prints a line for
// each, on standard error if it did not arrive. Exits with 0 if all arrived.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>

#include <condition_variable>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>

using namespace VORTAN_MW;

namespace {

//! [places]
// The agent's places, of which each transfer takes one. The agent itself refuses a fifth transfer.
class Places
{
public:
    // Blocks until there is one.
    void Take()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Changed.wait(lock, [this] { return m_Free > 0; });
        --m_Free;
    }

    void GiveBack()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        ++m_Free;
        m_Changed.notify_one();
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    int m_Free = 4;
};

// Gives a worker's place back when its thread ends. In the complete callback the agent still counts
// the worker; at the end of its thread no more.
struct PlaceOfThread
{
    ~PlaceOfThread()
    {
        if (places) {
            places->GiveBack();
        }
    }
    std::shared_ptr<Places> places;
};
thread_local PlaceOfThread placeOfThread;
//! [places]

// The log says more.
std::string WhyItFailed(const ITransferHandler::Result& result)
{
    const long status = result.httpCode ? *result.httpCode : 0;
    return status == 0    ? "no answer from the server"
           : status < 400 ? "it broke off, HTTP status " + std::to_string(status)
                          : "HTTP status " + std::to_string(status);
}

// Counts what failed; callbacks of several workers use it at the same time.
class Report
{
public:
    void AddSuccess(const std::string& url, std::size_t size)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        std::cout << url << ": " << size << " bytes\n";
    }

    void AddFailure(const std::string& url, const std::string& why)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        std::cerr << url << ": " << why << '\n';
        m_AllSucceeded = false;
    }

    bool AllSucceeded() const { return m_AllSucceeded; }

private:
    std::mutex m_Mutex;
    bool m_AllSucceeded = true;
};

std::unique_ptr<ITransferAgentManager::TransferConfiguration> RequestFor(
    const std::string& url, const std::shared_ptr<Places>& places, Report& report)
{
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = url;
    request->handlerFactory = std::make_unique<CurlEasyHandlerFactory>();
    // The callbacks of one transfer run on one thread, one after the other.
    const auto size = std::make_shared<std::size_t>(0);
    request->segmented = true;
    request->dataCallback = [size](const std::unique_ptr<ITransferHandler::Bytes>& chunk, void*) {
        *size += chunk ? chunk->size() : 0;
    };
    request->completeCallback = [=, &report](const ITransferHandler::Result& result, void*) {
        if (result.success) {
            report.AddSuccess(url, *size);
        } else {
            report.AddFailure(url, WhyItFailed(result));
        }
        placeOfThread.places = places;
    };
    return request;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::cerr << "agent_download_many URL...\n";
        return 2;
    }
    Report report;
    const auto places = std::make_shared<Places>();
    auto agent = AsyncTransferAgentManager::Create();
    //! [queue]
    for (int i = 1; i < argc; ++i) {
        places->Take();
        if (agent->RequestTransfer(RequestFor(argv[i], places, report)) ==
            ITransferAgentManager::InvalidHandle) {
            report.AddFailure(argv[i], "the request was refused, the log says why");
            places->GiveBack();
        }
    }
    agent.reset();  // waits for the last ones
    //! [queue]
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return report.AllSucceeded() ? 0 : 1;
}
