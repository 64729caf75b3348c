// agent_download_to_file URL FILE: streams into a file and shows how much has arrived; Ctrl-C
// cancels. FILE appears only when it is whole: until then the bytes are in FILE.part, which goes
// when anything goes wrong. Exits with 0 if FILE is there, with 130 if it was cancelled; what went
// wrong is printed.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <future>
#include <iostream>
#include <string>
#include <system_error>

using namespace VORTAN_MW;
using BytesPtr = std::unique_ptr<ITransferHandler::Bytes>;

namespace {

std::atomic<bool> interrupted{false};

// A file under a temporary name. It gets its own only when all that was to be written has reached
// the disk; otherwise it is removed at the end.
class PartialFile
{
public:
    explicit PartialFile(std::string name)
        : m_Name(std::move(name)),
          m_PartialName(m_Name + ".part"),
          m_File(std::fopen(m_PartialName.c_str(), "wbe")),
          m_Error(m_File ? 0 : errno)
    {}
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;
    ~PartialFile()
    {
        if (m_File) {
            std::fclose(m_File);
            std::remove(m_PartialName.c_str());
        }
    }

    void Write(const ITransferHandler::Bytes& bytes)
    {
        if (IsGood() && std::fwrite(bytes.data(), 1, bytes.size(), m_File) != bytes.size()) {
            m_Error = errno;
        }
    }

    bool IsGood() const { return m_Error == 0; }

    std::string WhyItIsNot() const
    {
        return "cannot write " + m_PartialName + ": " + std::generic_category().message(m_Error);
    }

    //! [commit]
    bool Commit()
    {
        if (IsGood() && (std::fflush(m_File) != 0 || fsync(fileno(m_File)) != 0 ||
                         std::rename(m_PartialName.c_str(), m_Name.c_str()) != 0)) {
            m_Error = errno;
        }
        if (IsGood()) {
            std::fclose(m_File);
            m_File = nullptr;
        }
        return IsGood();
    }
    //! [commit]

private:
    const std::string m_Name;
    const std::string m_PartialName;
    std::FILE* m_File;
    std::atomic<int> m_Error;  // written on the worker, read on the main thread
};

// Tells whether a response's header came to its end, an empty line. A connection that closes before
// it leaves a response that libcurl takes for a whole one without a body.
class HeaderWatch
{
public:
    void Read(const ITransferHandler::Bytes& line)
    {
        const std::string text(line.begin(), line.end());
        if (text.compare(0, 5, "HTTP/") == 0) {
            m_Ended = false;  // of redirects, the last response counts
        } else if (text == "\r\n" || text == "\n") {
            m_Ended = true;
        }
    }

    bool HasEnded() const { return m_Ended; }

private:
    bool m_Ended = false;
};

// Empty if it did not. The log says more.
std::string WhyItFailed(const ITransferHandler::Result& result, bool hasWholeHeader)
{
    if (result.success) {
        return hasWholeHeader ? "" : "the response ended inside its header";
    }
    const long status = result.httpCode ? *result.httpCode : 0;
    return status == 0    ? "no answer from the server"
           : status < 400 ? "it broke off, HTTP status " + std::to_string(status)
                          : "HTTP status " + std::to_string(status);
}

// Returns the program's exit status. why is empty if the transfer succeeded.
int Finish(PartialFile& file, std::string why)
{
    if (!file.IsGood() || (why.empty() && !file.Commit())) {
        why = file.WhyItIsNot();
    }
    if (why.empty()) {
        return 0;
    }
    std::cerr << "the download failed: " << why << '\n';
    return interrupted ? 130 : 1;
}

int Download(const std::string& url, const std::string& name)
{
    // What the callbacks use is older than the agent, and so outlives it.
    PartialFile file(name);
    if (!file.IsGood()) {
        std::cerr << file.WhyItIsNot() << '\n';
        return 1;
    }
    HeaderWatch header;
    std::atomic<std::size_t> received{0};
    std::promise<std::string> over;
    auto agent = AsyncTransferAgentManager::Create();

    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = url;
    request->handlerFactory = std::make_unique<CurlEasyHandlerFactory>();
    //! [segmented]
    request->segmented = true;
    // With both callbacks set, each chunk calls both, one of them with null.
    request->headerCallback = [&](const BytesPtr& line, void*) {
        if (line) {
            header.Read(*line);
        }
    };
    request->dataCallback = [&](const BytesPtr& chunk, void*) {
        if (chunk) {
            file.Write(*chunk);
            received += chunk->size();
        }
    };
    //! [segmented]
    request->completeCallback = [&](const ITransferHandler::Result& result, void*) {
        over.set_value(WhyItFailed(result, header.HasEnded()));
    };
    //! [cancel]
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    std::future<std::string> failure = over.get_future();
    while (handle != ITransferAgentManager::InvalidHandle &&
           failure.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
        std::cerr << '\r' << received << " bytes" << std::flush;
        if ((interrupted || !file.IsGood()) && agent->CancelTransfer(handle)) {
            break;  // there will be no completion
        }
    }
    agent.reset();  // from here on no callback runs, and the file is ours
    //! [cancel]
    std::cerr << '\r' << received << " bytes\n";
    if (handle == ITransferAgentManager::InvalidHandle) {
        return Finish(file, "the request was refused, the log says why");
    }
    const bool isOver = failure.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    return Finish(file, isOver ? failure.get() : "it was cancelled");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "agent_download_to_file URL FILE\n";
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = true; });
    return Download(argv[1], argv[2]);
}
