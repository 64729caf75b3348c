// download_to_file URL FILE: streams into a file and shows how much has arrived; Ctrl-C cancels.
// FILE appears only when it is whole: until then the bytes are in FILE.part, which goes when
// anything goes wrong. Exits with 0 if FILE is there, with 130 if it was cancelled.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <future>
#include <iostream>
#include <string>

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
          m_Good(m_File != nullptr)
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
        m_Good = m_Good && std::fwrite(bytes.data(), 1, bytes.size(), m_File) == bytes.size();
    }

    bool IsGood() const { return m_Good; }

    //! [commit]
    bool Commit()
    {
        m_Good = m_Good && std::fflush(m_File) == 0 && fsync(fileno(m_File)) == 0 &&
                 std::rename(m_PartialName.c_str(), m_Name.c_str()) == 0;
        if (m_Good) {
            std::fclose(m_File);
            m_File = nullptr;
        }
        return m_Good;
    }
    //! [commit]

private:
    const std::string m_Name;
    const std::string m_PartialName;
    std::FILE* m_File;
    std::atomic<bool> m_Good;  // written on the worker, read on the main thread
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

int Download(const std::string& url, const std::string& name)
{
    // What the callbacks use is older than the agent, and so outlives it.
    PartialFile file(name);
    if (!file.IsGood()) {
        std::cerr << "cannot write " << name << ".part\n";
        return 1;
    }
    HeaderWatch header;
    std::atomic<std::size_t> received{0};
    std::promise<bool> over;
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
        over.set_value(result.success && header.HasEnded());
    };
    //! [cancel]
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    std::future<bool> succeeded = over.get_future();
    while (handle != ITransferAgentManager::InvalidHandle &&
           succeeded.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
        std::cerr << '\r' << received << " bytes" << std::flush;
        if ((interrupted || !file.IsGood()) && agent->CancelTransfer(handle)) {
            break;  // there will be no completion
        }
    }
    agent.reset();  // from here on no callback runs, and the file is ours
    //! [cancel]
    std::cerr << '\r' << received << " bytes\n";
    const bool isOver = succeeded.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    if (isOver && succeeded.get() && file.Commit()) {
        return 0;
    }
    return interrupted ? 130 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "download_to_file URL FILE\n";
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = true; });
    return Download(argv[1], argv[2]);
}
