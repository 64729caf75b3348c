// A file is uploaded without being held in memory.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "CaughtLog.h"
#include "Gate.h"
#include "IndexedBytes.h"
#include "KitClient.h"
#include "ScriptedServer.h"
#include "TemporaryFolder.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using Answer = ScriptedServer::Answer;
using Then = Answer::Then;

namespace {

class KitUpload : public ::testing::Test
{
protected:
    using Job = ITransferAgentManager::TransferConfiguration;

    Category Upload(const std::string& url, const std::string& path,
                    HttpMethod method = HttpMethod::Default)
    {
        KIT::TransferOptions options;
        options.SetObserver(observer);
        Job job;
        job.url = url;
        job.method = method;
        job.handlerFactory = session.MakeFactory(options);
        session.AttachUpload(job, path);
        job.handlerFactory->Create()->GetTransfer(
            job, nullptr, [](std::unique_ptr<ITransferHandler::Bytes>, void*) { return true; },
            nullptr);
        return observer->End();
    }

    std::string File(std::size_t length) const { return folder.FileWith(IndexedBytes(length)); }

    const CaughtLog log;
    const TemporaryFolder folder;
    const std::shared_ptr<RecordingObserver> observer = std::make_shared<RecordingObserver>();
    KIT::HttpSession session{LocalPolicy()};
};

}  // namespace

TEST_F(KitUpload, SendsTheFile)
{
    for (const std::size_t length : {std::size_t{0}, std::size_t{1}, LongLength}) {
        ScriptedServer server({{Good}});
        EXPECT_EQ(Upload(server.Url(), File(length)), Category::Success);
        EXPECT_EQ(server.Requests()[0].method, "PUT");
        EXPECT_TRUE(server.Requests()[0].body == IndexedText(length));
        EXPECT_EQ(observer->events.back().uploaded, length);
    }
}

TEST_F(KitUpload, PostsTheFile)
{
    ScriptedServer server({{Good}});
    EXPECT_EQ(Upload(server.Url(), File(LongLength), HttpMethod::EhttpPost), Category::Success);
    EXPECT_EQ(server.Requests()[0].method, "POST");
    EXPECT_EQ(server.Requests()[0].Value("Content-Length"), std::to_string(LongLength));
    EXPECT_TRUE(server.Requests()[0].body == IndexedText(LongLength));
}

TEST_F(KitUpload, BeginsAgainForARedirectAndAnotherAttempt)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 307 Temporarily", "", {"Location: /b"})},
                           {HttpResponse("HTTP/1.1 503 Busy", "")},
                           {"", Then::Reset},
                           {Good}});
    EXPECT_EQ(Upload(server.Url(), File(LongLength)), Category::Success);
    ASSERT_EQ(server.Requests().size(), 4U);
    for (const auto& request : server.Requests()) {
        EXPECT_TRUE(request.body == IndexedText(LongLength));
    }
}

TEST_F(KitUpload, FailsWhenTheFileBecomesShorter)
{
    const std::string path = File(LongLength);
    ScriptedServer server([&path](const ScriptedServer::Request& request) -> Answer {
        EXPECT_EQ(truncate(path.c_str(), 1000), 0);
        return {request.number == 0 ? HttpResponse("HTTP/1.1 307 Temporarily", "", {"Location: /b"})
                                    : Good};
    });
    EXPECT_EQ(Upload(server.Url(), path), Category::UploadFailed);
    EXPECT_EQ(server.Requests().size(), 1U);
}

TEST_F(KitUpload, FailsWithoutAFileThatCanBeReadAgain)
{
    ScriptedServer server({{Good}});
    const std::string pipe = folder.Path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {folder.Path("missing"), folder.Path(), pipe}) {
        EXPECT_EQ(Upload(server.Url(), path), Category::UploadFailed) << path;
    }
    EXPECT_EQ(server.CountOfConnections(), 0U);
}

TEST_F(KitUpload, GoesThroughTheAgent)
{
    const std::string path = File(LongLength);
    ScriptedServer server(
        {{HttpResponse("HTTP/1.1 307 Temporarily", "", {"Location: /b"})}, {Good}});
    for (const bool segmented : {false, true}) {
        for (const HttpMethod method : {HttpMethod::EhttpPut, HttpMethod::EhttpPost}) {
            Gate over;
            bool success = false;
            const auto agent = AsyncTransferAgentManager::Create();
            auto job = std::make_unique<Job>();
            job->url = server.Url();
            job->method = method;
            job->segmented = segmented;
            job->headerCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {};
            job->completeCallback = [&](const ITransferHandler::Result& result, void*) {
                success = result.success;
                over.Open();
            };
            session.AttachUpload(*job, path);
            agent->RequestTransfer(std::move(job));
            ASSERT_TRUE(over.Wait());
            EXPECT_TRUE(success);
            EXPECT_EQ(server.Requests().back().method,
                      method == HttpMethod::EhttpPut ? "PUT" : "POST");
            EXPECT_TRUE(server.Requests().back().body == IndexedText(LongLength));
        }
    }
}

TEST_F(KitUpload, ReplacesWhatTheAgentChecks)
{
    Job job;
    job.method = HttpMethod::EhttpGet;
    session.AttachUpload(job, "/file");
    EXPECT_EQ(job.method, HttpMethod::EhttpPut);
    EXPECT_FALSE(job.requestBody.empty());
    EXPECT_NE(job.handlerFactory, nullptr);
}

TEST_F(KitUpload, IsForFactoriesOfItsSession)
{
    Job job;
    EXPECT_THROW(session.AttachUpload(job, ""), std::invalid_argument);
    job.handlerFactory = std::make_unique<CurlEasyHandlerFactory>();
    EXPECT_THROW(session.AttachUpload(job, "/file"), std::invalid_argument);
    KIT::HttpSession other(LocalPolicy());
    job.handlerFactory = other.MakeFactory();
    EXPECT_THROW(session.AttachUpload(job, "/file"), std::invalid_argument);
    EXPECT_TRUE(job.requestBody.empty());
}

TEST_F(KitUpload, OfMemoryWorksWithoutAWantedBody)
{
    ScriptedServer server({{Good}});
    const auto factory = session.MakeFactory();
    EXPECT_TRUE(factory->Create()
                    ->GetTransfer(Request(server.Url(), HttpMethod::EhttpPost, "upload"), nullptr,
                                  nullptr, nullptr)
                    .success);
    EXPECT_EQ(server.Requests()[0].method, "POST");
    EXPECT_EQ(server.Requests()[0].body, "upload");
}
