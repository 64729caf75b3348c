#include "FileClient.h"

#include <AsyncTransferAgentManager.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "Gate.h"
#include "Sha256.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)

namespace {

using Job = ITransferAgentManager::TransferConfiguration;
using Piece = std::unique_ptr<ITransferHandler::Bytes>;

void TakeInto(std::string& text, const Piece& bytes)
{
    if (bytes) {
        text.append(bytes->begin(), bytes->end());
    }
}

void RunWithoutAgent(Job& job, Received& received)
{
    const ITransferHandler::Result result = job.handlerFactory->Create()->GetTransfer(
        job,
        [&received](Piece bytes, void*) {
            TakeInto(received.header, bytes);
            ++received.headerChunks;
            return true;
        },
        [&received](Piece bytes, void*) {
            TakeInto(received.body, bytes);
            return true;
        },
        nullptr);
    received.success = result.success;
    received.status = result.httpCode ? *result.httpCode : -1;
}

void RunThroughAgent(std::unique_ptr<Job> job, Received& received)
{
    Gate over;
    const auto agent = AsyncTransferAgentManager::Create();
    job->headerCallback = [&received](const Piece& bytes, void*) {
        TakeInto(received.header, bytes);
        received.headerChunks += bytes ? 1 : 0;
    };
    job->dataCallback = [&received](const Piece& bytes, void*) { TakeInto(received.body, bytes); };
    job->completeCallback = [&](const ITransferHandler::Result& result, void*) {
        received.success = result.success;
        received.status = result.httpCode ? *result.httpCode : -1;
        over.Open();
    };
    EXPECT_NE(agent->RequestTransfer(std::move(job)), ITransferAgentManager::InvalidHandle);
    over.Wait();
}

}  // namespace

Download DownloadTo(const std::string& path, KIT::HttpSession& session,
                    const Configuration& request, const std::string& sha256, Way way)
{
    const auto observer = std::make_shared<RecordingObserver>();
    KIT::TransferOptions options;
    options.SetObserver(observer);
    auto job = std::make_unique<Job>();
    static_cast<Configuration&>(*job) = request;
    job->segmented = way == Way::Segmented;
    job->handlerFactory = session.MakeFactory(options);
    KIT::FileSink(path, sha256).AttachTo(*job);
    Download download;
    if (way == Way::WithoutAgent) {
        RunWithoutAgent(*job, download.received);
    } else {
        RunThroughAgent(std::move(job), download.received);
    }
    download.category = observer->End();
    download.sentence = observer->events.back().sentence;
    download.delivered = observer->events.back().delivered;
    download.attempts = observer->Count(KIT::TransferEvent::Kind::Attempt);
    return download;
}

std::string Sha256Of(const std::string& text)
{
    KIT::Sha256 hash;
    hash.Update(text.data(), text.size());
    return KIT::HexOf(hash.Finish());
}

bool HasPart(const std::string& path)
{
    return std::filesystem::exists(path + ".part") || std::filesystem::exists(path + ".part.meta");
}

std::string TextOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string WholeOrRest(const Version& version, const std::string& range,
                        const std::string& ifRange, std::size_t most)
{
    const std::size_t total = version.body.size();
    const bool isRest = !range.empty() && ifRange == version.tag;
    const std::size_t first = isRest ? std::stoul(range.substr(6)) : 0;
    const std::string lines =
        "ETag: " + version.tag + "\r\nContent-Length: " + std::to_string(total - first) + "\r\n";
    if (isRest && first >= total) {
        return "HTTP/1.1 416 No\r\nContent-Length: 0\r\nContent-Range: bytes */" +
               std::to_string(total) + "\r\n\r\n";
    }
    const std::string body = version.body.substr(first, most);
    return isRest ? "HTTP/1.1 206 Part\r\n" + lines + "Content-Range: bytes " +
                        std::to_string(first) + "-" + std::to_string(total - 1) + "/" +
                        std::to_string(total) + "\r\n\r\n" + body
                  : "HTTP/1.1 200 OK\r\n" + lines + "\r\n" + body;
}
