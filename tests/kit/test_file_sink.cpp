// A download becomes a file that is whole or not there.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include "FileClient.h"
#include "IndexedBytes.h"
#include "PartFile.h"
#include "ScriptedServer.h"
#include "SystemCalls.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using Answer = ScriptedServer::Answer;
using Then = Answer::Then;

namespace {

using Job = ITransferAgentManager::TransferConfiguration;

const std::string Old = "the old file";

class KitFile : public ::testing::Test
{
protected:
    Download Get(const ScriptedServer& server, const std::string& sha256 = "")
    {
        return DownloadTo(path, session, Request(server.Url()), sha256);
    }
    // One attempt only.
    Download GetOnce(const ScriptedServer& server)
    {
        KIT::HttpSession own(LocalPolicy().SetAttempts(1));
        return DownloadTo(path, own, Request(server.Url()));
    }

    // A server from which the first transfer gets half of the body; the following ones get these.
    std::unique_ptr<ScriptedServer> AfterHalf(std::vector<Answer> answers)
    {
        answers.insert(answers.begin(), {WholeOrRest({body}, "", "", Half), Then::Close});
        auto server = std::make_unique<ScriptedServer>(std::move(answers));
        EXPECT_EQ(GetOnce(*server).category, Category::ConnectionLost);
        EXPECT_TRUE(HasPart(path));
        return server;
    }

    void ExpectOnly(const std::string& contents) const
    {
        EXPECT_TRUE(TextOf(path) == contents);
        EXPECT_FALSE(HasPart(path));
    }

    const CaughtLog log;
    const TemporaryFolder folder;
    const std::string path = folder.Path("file");
    const std::string body = IndexedText(LongLength);
    static constexpr std::size_t Half = 600000;
    KIT::HttpSession session{LocalPolicy()};
};

class KitFileEachWay : public KitFile, public ::testing::WithParamInterface<Way>
{
};

INSTANTIATE_TEST_SUITE_P(Each, KitFileEachWay, Ways(), NameOfWay);

Answer Part(const std::string& lines, const std::string& body)
{
    return {"HTTP/1.1 206 Part\r\n" + lines + "\r\n" + body};
}

}  // namespace

TEST_P(KitFileEachWay, IsTheBody)
{
    for (const std::string& contents : {body, std::string("x"), std::string()}) {
        ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", contents)}});
        const Download download =
            DownloadTo(path, session, Request(server.Url()), Sha256Of(contents), GetParam());
        EXPECT_EQ(download.category, Category::Success);
        EXPECT_TRUE(download.received.success);
        EXPECT_EQ(download.received.status, 200);
        EXPECT_EQ(download.received.body, "");
        EXPECT_EQ(download.received.headerChunks, 1U);
        EXPECT_EQ(
            download.received.header,
            HttpResponse("HTTP/1.1 200 OK", contents).substr(0, download.received.header.size()));
        EXPECT_EQ(download.delivered, contents.size());
        ExpectOnly(contents);
    }
}

TEST_P(KitFileEachWay, GoesOnInTheNextTransfer)
{
    folder.FileWith({Old.begin(), Old.end()});
    const auto server = AfterHalf({{WholeOrRest({body}, "bytes=600000-", "\"a\"")}});
    EXPECT_EQ(TextOf(path), Old);
    const Download download =
        DownloadTo(path, session, Request(server->Url()), Sha256Of(body), GetParam());
    EXPECT_EQ(download.category, Category::Success);
    EXPECT_EQ(download.received.status, 206);
    EXPECT_EQ(download.received.header.compare(0, 12, "HTTP/1.1 206"), 0);
    EXPECT_EQ(download.received.headerChunks, 1U);
    EXPECT_EQ(download.delivered, body.size());
    ASSERT_EQ(server->Requests().size(), 2U);
    EXPECT_EQ(server->Requests()[1].Value("Range"), "bytes=600000-");
    EXPECT_EQ(server->Requests()[1].Value("If-Range"), "\"a\"");
    ExpectOnly(body);
}

TEST_F(KitFile, BeginsAnewWhereItMayNotGoOn)
{
    const auto server = AfterHalf({{WholeOrRest({body}, "", "")}});
    Job job;
    static_cast<Configuration&>(job) = Request(server->Url());
    job.handlerFactory = session.MakeFactory();
    KIT::FileSink sink(path);
    sink.SetContinuation(false).AttachTo(job);
    EXPECT_TRUE(job.handlerFactory->Create()->GetTransfer(job, nullptr, nullptr, nullptr).success);
    EXPECT_FALSE(server->Requests()[1].Has("Range"));
    ExpectOnly(body);
    EXPECT_THROW(sink.SetContinuation(true), std::invalid_argument);
}

TEST_F(KitFile, IsBusyAlsoWhereItMayNotGoOn)
{
    ScriptedServer server({{WholeOrRest({body}, "", "")}});
    KIT::FileTarget target{path, std::nullopt};
    KIT::PartFile part(target);
    ASSERT_TRUE(part.Open());
    Job job;
    static_cast<Configuration&>(job) = Request(server.Url());
    const auto observer = std::make_shared<RecordingObserver>();
    job.handlerFactory = session.MakeFactory(KIT::TransferOptions().SetObserver(observer));
    KIT::FileSink(path).SetContinuation(false).AttachTo(job);
    job.handlerFactory->Create()->GetTransfer(job, nullptr, nullptr, nullptr);
    EXPECT_EQ(observer->End(), Category::Busy);
    EXPECT_TRUE(HasPart(path));
}

TEST_F(KitFile, RefusesBadInput)
{
    const std::string hash = Sha256Of("");
    EXPECT_NO_THROW(KIT::FileSink(path, hash));
    EXPECT_THROW(KIT::FileSink("", hash), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(path + '\0' + "x"), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(folder.Path("missing/file")), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(folder.FileWith({}, "plain") + "/file"), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(folder.Path()), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(folder.Path("new/")), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink("/dev/null"), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink("."), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(path, hash.substr(1)), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(path, "g" + hash.substr(1)), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(path, " "), std::invalid_argument);
    ExpectOnly("");
}

TEST_F(KitFile, IsAttachedOnceToARequestWithAFactory)
{
    KIT::FileSink sink(path);
    Job job;
    EXPECT_THROW(sink.AttachTo(job), std::invalid_argument);
    job.handlerFactory = session.MakeFactory();
    sink.AttachTo(job);
    EXPECT_TRUE(job.dataCallback);  // an agent demands a callback
    Job other;
    other.handlerFactory = std::make_unique<CurlEasyHandlerFactory>();
    EXPECT_THROW(sink.AttachTo(other), std::invalid_argument);
    EXPECT_THROW(KIT::FileSink(path).AttachTo(job), std::invalid_argument);
    KIT::FileSink(path).AttachTo(other);
    EXPECT_THROW(KIT::FileSink(path).AttachTo(other), std::invalid_argument);
}

TEST_F(KitFile, IsNotMadeOfWhatIsNoBody)
{
    ScriptedServer server({{Good}});
    Configuration request = Request(server.Url(), HttpMethod::EhttpHead);
    EXPECT_EQ(DownloadTo(path, session, request).category, Category::InvalidRequest);
    request = Request(server.Url());
    request.headers = {{"Range", "bytes=0-1"}};
    EXPECT_EQ(DownloadTo(path, session, request).category, Category::InvalidRequest);
    EXPECT_EQ(server.CountOfConnections(), 0U);
    ExpectOnly("");
}

TEST_F(KitFile, IsReplacedOnlyByAWholeBody)
{
    folder.FileWith({Old.begin(), Old.end()});
    ScriptedServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123", Then::Close}});
    EXPECT_EQ(GetOnce(server).category, Category::ConnectionLost);
    ExpectOnly(Old);  // without a validator, nobody could go on with the part
}

TEST_F(KitFile, BeginsAgainWhereItCannotGoOn)
{
    ScriptedServer server(
        {{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\nX: 1\r\n\r\nabcdef", Then::Close},
         {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\nX: 2\r\n\r\n0123", Then::Close},
         {HttpResponse("HTTP/1.1 200 OK", "0123456789", {"X: 3"})}});
    const Download download = Get(server);
    EXPECT_EQ(download.category, Category::Success);
    EXPECT_EQ(download.received.header, "HTTP/1.1 200 OK\r\nContent-Length: 10\r\nX: 3\r\n\r\n");
    EXPECT_EQ(download.received.headerChunks, 1U);
    ExpectOnly("0123456789");
}

TEST_F(KitFile, IsNotTriedForEverWhereItCannotGoOn)
{
    // Each attempt gets a byte more than the one before it.
    ScriptedServer server([](const ScriptedServer::Request& request) -> Answer {
        return {"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" +
                    std::string(std::min<std::size_t>(request.number + 1, 900), 'x'),
                Then::Close};
    });
    EXPECT_EQ(Get(server).category, Category::ConnectionLost);
    EXPECT_EQ(server.Requests().size(), 6U);  // the first attempt went on, the next five did not
}

TEST_F(KitFile, NeverMixesTwoVersions)
{
    const std::string other = std::string(LongLength, 'x');
    const std::string end = std::to_string(LongLength - 1) + "/" + std::to_string(LongLength);
    const std::string length = "Content-Length: " + std::to_string(LongLength - Half) + "\r\n";
    const Answer whole = {WholeOrRest({other, "\"b\""}, "", "")};
    const std::vector<std::vector<Answer>> courses = {
        {whole},
        {Part("ETag: \"b\"\r\nContent-Range: bytes 600000-" + end + "\r\n" + length,
              other.substr(Half)),
         whole},
        {Part("Content-Range: bytes 600001-" + end + "\r\n" + length, other.substr(Half)), whole},
        {Part("Content-Range: nonsense\r\n" + length, other.substr(Half)), whole},
        {{"HTTP/1.1 416 No\r\nContent-Length: 0\r\nContent-Range: bytes */9\r\n\r\n"}, whole}};
    for (const auto& answers : courses) {
        const auto server = AfterHalf(answers);
        EXPECT_EQ(Get(*server, Sha256Of(other)).category, Category::Success);
        EXPECT_EQ(server->Requests().size(), 1 + answers.size());
        EXPECT_TRUE(server->Requests()[1].Has("Range"));
        EXPECT_EQ(server->Requests().back().Has("Range"), answers.size() == 1);
        ExpectOnly(other);
        std::filesystem::remove(path);
    }
}

TEST_F(KitFile, GoesOnFromTheSameResourceOnly)
{
    const auto redirect = [](const std::string& target) -> Answer {
        return {HttpResponse("HTTP/1.1 302 Found", "", {"Location: " + target})};
    };
    ScriptedServer server({redirect("/a?1"),
                           {WholeOrRest({body}, "", "", Half), Then::Close},
                           redirect("/a?2"),
                           {WholeOrRest({body}, "bytes=600000-", "\"a\"", 1000), Then::Close},
                           redirect("/b"),
                           {WholeOrRest({body}, "bytes=601000-", "\"a\"")},
                           redirect("/b"),
                           {WholeOrRest({"other"}, "", "")}});
    EXPECT_EQ(GetOnce(server).category, Category::ConnectionLost);
    EXPECT_EQ(GetOnce(server).category, Category::ConnectionLost);
    EXPECT_EQ(Get(server).category, Category::Success);
    ASSERT_EQ(server.Requests().size(), 8U);
    EXPECT_EQ(server.Requests()[3].Value("Range"), "bytes=600000-");
    EXPECT_EQ(server.Requests()[5].Value("Range"), "bytes=601000-");
    EXPECT_FALSE(server.Requests()[7].Has("Range"));
    ExpectOnly("other");
}

TEST_F(KitFile, TakesAnotherVersionWithinOneTransfer)
{
    ScriptedServer server({{WholeOrRest({body}, "", "", Half), Then::Close},
                           {WholeOrRest({"other", "\"b\""}, "", "")}});
    const Download download = Get(server);
    EXPECT_EQ(download.category, Category::Success);
    EXPECT_NE(download.received.header.find("\"b\""), std::string::npos);
    EXPECT_EQ(download.received.header.find("\"a\""), std::string::npos);
    EXPECT_EQ(download.delivered, 5U);
    ExpectOnly("other");
}

TEST_F(KitFile, SkipsWhatItHasWhereTheServerStartsAgain)
{
    const auto server = AfterHalf({{WholeOrRest({body}, "", "")}});
    EXPECT_EQ(Get(*server, Sha256Of(body)).category, Category::Success);
    ExpectOnly(body);
}

TEST_F(KitFile, NeedsNothingMoreWhenThePartIsWhole)
{
    ScriptedServer server([this](const ScriptedServer::Request& request) -> Answer {
        return {WholeOrRest({body}, request.Value("Range"), request.Value("If-Range"))};
    });
    {
        const SystemCalls calls;
        SystemCalls::Fail("rename part", EIO);  // all but the name
        EXPECT_EQ(Get(server).category, Category::FileFailed);
    }
    const Download download = Get(server, Sha256Of(body));
    EXPECT_EQ(download.category, Category::Success);
    ExpectOnly(body);
}

TEST_F(KitFile, StaysForALaterTransferWhenTheServerFails)
{
    const auto server = AfterHalf({{HttpResponse("HTTP/1.1 404 Not Found", "bad")},
                                   {WholeOrRest({body}, "bytes=600000-", "\"a\"")}});
    const Download failed = Get(*server);
    EXPECT_EQ(failed.category, Category::HttpStatus);
    EXPECT_EQ(failed.received.status, 404);
    EXPECT_EQ(failed.received.header.compare(0, 12, "HTTP/1.1 404"), 0);
    EXPECT_EQ(Get(*server, Sha256Of(body)).category, Category::Success);
    EXPECT_EQ(server->Requests()[2].Value("Range"), "bytes=600000-");
    ExpectOnly(body);
}

TEST_F(KitFile, IsLeftAloneWhenNothingWasModified)
{
    folder.FileWith({Old.begin(), Old.end()});
    struct stat before = {};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    const auto server = AfterHalf({{"HTTP/1.1 304 Not Modified\r\n\r\n"}});
    Configuration request = Request(server->Url());
    request.headers = {{"If-None-Match", "\"old\""}};
    const Download download = DownloadTo(path, session, request, Sha256Of("anything"));
    EXPECT_EQ(download.category, Category::Success);
    EXPECT_EQ(download.received.status, 304);
    struct stat after = {};
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    ExpectOnly(Old);
}

TEST_F(KitFile, IsNotMadeOfAnyOtherStatus)
{
    for (const char* const status : {"404 Not Found", "300 Choose"}) {
        ScriptedServer server({{HttpResponse(std::string("HTTP/1.1 ") + status, "page")}});
        Configuration request = Request(server.Url());
        request.failOnError = false;
        EXPECT_EQ(DownloadTo(path, session, request).category, Category::HttpStatus) << status;
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    ExpectOnly("");
}

TEST_F(KitFile, OfAWrongHashIsNotKept)
{
    folder.FileWith({Old.begin(), Old.end()});
    const auto server =
        AfterHalf({{WholeOrRest({body}, "bytes=600000-", "\"a\"")}, {WholeOrRest({body}, "", "")}});
    const Download download = Get(*server, Sha256Of("other"));
    EXPECT_EQ(download.category, Category::WrongHash);
    EXPECT_FALSE(download.received.success);
    EXPECT_EQ(download.sentence, "The body's SHA-256 is not the expected one (host 127.0.0.1).");
    ExpectOnly(Old);
    EXPECT_EQ(Get(*server, Sha256Of(body)).category, Category::Success);
    EXPECT_FALSE(server->Requests()[2].Has("Range"));
}

TEST_F(KitFile, OfADamagedPartHasAWrongHash)
{
    const auto server = AfterHalf({{WholeOrRest({body}, "bytes=600000-", "\"a\"")}});
    auto bytes = folder.Read("file.part");
    bytes[1000] ^= 1U;
    folder.Write("file.part", bytes);
    EXPECT_EQ(Get(*server, Sha256Of(body)).category, Category::WrongHash);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(KitFile, TakesABodyWithoutALengthWhereItMay)
{
    ScriptedServer server({{"HTTP/1.1 200 OK\r\n\r\n0123", Then::Close}});
    Job job;
    static_cast<Configuration&>(job) = Request(server.Url());
    job.handlerFactory = session.MakeFactory();
    KIT::FileSink sink(path);
    sink.SetLengthRequired(false).AttachTo(job);
    EXPECT_TRUE(job.handlerFactory->Create()->GetTransfer(job, nullptr, nullptr, nullptr).success);
    ExpectOnly("0123");
    EXPECT_THROW(sink.SetLengthRequired(true), std::invalid_argument);
}

TEST_F(KitFile, NeedsALengthOrAHash)
{
    ScriptedServer server({{"HTTP/1.1 200 OK\r\n\r\n0123", Then::Close}});
    EXPECT_EQ(Get(server).category, Category::InvalidResponse);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(Get(server, Sha256Of("0123")).category, Category::Success);
    ExpectOnly("0123");
    ScriptedServer chunked(
        {{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
          "4\r\nabcd\r\n0\r\n\r\n"}});
    EXPECT_EQ(Get(chunked).category, Category::Success);
    ExpectOnly("abcd");
}

TEST_F(KitFile, IsBusyWhileAnotherTransferHoldsIt)
{
    ScriptedServer server({{Good}});
    const KIT::FileTarget target{path, std::nullopt};
    KIT::PartFile part(target);
    ASSERT_TRUE(part.Open());
    const Download download = Get(server);
    EXPECT_EQ(download.category, Category::Busy);
    EXPECT_EQ(download.sentence, "The file is being written by another transfer: process " +
                                     std::to_string(getpid()) + " (host 127.0.0.1).");
    EXPECT_EQ(server.CountOfConnections(), 0U);
    EXPECT_TRUE(HasPart(path));
}

TEST_F(KitFile, SeesAFullDiskAtTheAnnouncedLength)
{
    ScriptedServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n", Then::Stall}});
    const SystemCalls calls;
    SystemCalls::Fail("fallocate part", ENOSPC);
    const Download download = Get(server);
    EXPECT_EQ(download.category, Category::FileFailed);
    EXPECT_EQ(download.sentence,
              "The file could not be written: No space left on device (host 127.0.0.1).");
    ExpectOnly("");
}

TEST_F(KitFile, StopsWithinTheChunkThatCannotBeWritten)
{
    ScriptedServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123", Then::Stall}});
    const SystemCalls calls;
    SystemCalls::Fail("pwrite part", ENOSPC);
    EXPECT_EQ(Get(server).category, Category::FileFailed);
    EXPECT_EQ(server.Requests().size(), 1U);
    ExpectOnly("");
}

TEST_F(KitFile, IsPreallocatedOnlyWhereTheFileSystemCan)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", body)}});
    const SystemCalls calls;
    SystemCalls::Fail("fallocate part", EOPNOTSUPP);
    EXPECT_EQ(Get(server).category, Category::Success);
    EXPECT_TRUE(SystemCalls::HasFailed());
    ExpectOnly(body);
}

// Whatever fails: the name holds the old file or the whole new one, and the next transfer succeeds.
TEST_F(KitFile, SurvivesEachFailureOfTheSystem)
{
    const Version version{body.substr(0, 40000)};
    for (std::size_t number = 1;; ++number) {
        folder.FileWith({Old.begin(), Old.end()});
        ScriptedServer server({{WholeOrRest(version, "", "", 20000), Then::Close},
                               {WholeOrRest(version, "bytes=20000-", version.tag)},
                               {WholeOrRest(version, "", "")}});
        EXPECT_EQ(GetOnce(server).category, Category::ConnectionLost);
        Category category = Category::Internal;
        {
            const SystemCalls calls;
            SystemCalls::FailNumber(number, EIO);
            category = GetOnce(server).category;
            if (!SystemCalls::HasFailed()) {
                EXPECT_GT(number, 10U);
                break;
            }
        }
        const std::string contents = TextOf(path);
        EXPECT_TRUE(contents == Old || contents == version.body) << number;
        EXPECT_TRUE(category != Category::Success || contents == version.body) << number;
        ScriptedServer healthy([&version](const ScriptedServer::Request& request) -> Answer {
            return {WholeOrRest(version, request.Value("Range"), request.Value("If-Range"))};
        });
        EXPECT_EQ(Get(healthy).category, Category::Success) << number;
        ExpectOnly(version.body);
    }
}

TEST_F(KitFile, HasThePermissionsOfAFileThatWasRemovedMeanwhile)
{
    folder.FileWith({Old.begin(), Old.end()});
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    ScriptedServer server([&](const ScriptedServer::Request&) {
        std::filesystem::remove(path);
        return Answer{WholeOrRest({body}, "", "")};
    });
    EXPECT_EQ(Get(server).category, Category::Success);
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(KitFile, IsNeverEncoded)
{
    ScriptedServer server(
        {{HttpResponse("HTTP/1.1 200 OK", "not gzip", {"Content-Encoding: gzip"})}});
    KIT::HttpSession decoding(LocalPolicy().SetContinuation(false));
    EXPECT_EQ(DownloadTo(path, decoding, Request(server.Url())).category, Category::Success);
    EXPECT_FALSE(server.Requests()[0].Has("Accept-Encoding"));
    ExpectOnly("not gzip");
}

TEST_F(KitFile, StaysWhenTheTransferIsCancelled)
{
    ScriptedServer server({{WholeOrRest({body}, "", "", Half), Then::Stall},
                           {WholeOrRest({body}, "bytes=600000-", "\"a\"")}});
    Job job;
    job.handlerFactory = session.MakeFactory();
    KIT::FileSink(path).AttachTo(job);
    const auto handler = job.handlerFactory->Create();
    std::thread canceller([&] {
        std::error_code error;
        while (std::filesystem::file_size(path + ".part", error) != Half) {
            std::this_thread::yield();
        }
        job.handlerFactory.reset();
    });
    EXPECT_FALSE(handler->GetTransfer(Request(server.Url()), nullptr, nullptr, nullptr).success);
    canceller.join();
    EXPECT_EQ(Get(server, Sha256Of(body)).category, Category::Success);
    EXPECT_EQ(server.Requests()[1].Value("Range"), "bytes=600000-");
    ExpectOnly(body);
}

TEST_F(KitFile, TakesTheResponseToAnUpload)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 201 Created", "receipt")}});
    Job job;
    job.url = server.Url();
    session.AttachUpload(job, folder.FileWith({1, 2, 3}, "upload"));
    KIT::FileSink(path).AttachTo(job);
    EXPECT_TRUE(job.handlerFactory->Create()->GetTransfer(job, nullptr, nullptr, nullptr).success);
    EXPECT_EQ(server.Requests()[0].body, "\1\2\3");
    ExpectOnly("receipt");
}

namespace {

// Transfers to a file with a handler that is not the kit's.
bool GetWith(std::unique_ptr<ITransferHandlerFactory> factory, const std::string& url,
             const std::string& path, const std::string& sha256 = "")
{
    Job job;
    job.url = url;
    job.handlerFactory = std::move(factory);
    KIT::FileSink(path, sha256).AttachTo(job);
    return job.handlerFactory->Create()->GetTransfer(job, nullptr, nullptr, nullptr).success;
}

}  // namespace

TEST_F(KitFile, TakesTheBodyOfOtherHandlers)
{
    ScriptedServer server({{HttpResponse("HTTP/1.1 200 OK", body)}});
    EXPECT_TRUE(
        GetWith(std::make_unique<CurlEasyHandlerFactory>(), server.Url(), path, Sha256Of(body)));
    EXPECT_EQ(server.Requests()[0].method, "GET");
    EXPECT_EQ(server.Requests()[0].Value("Accept-Encoding"), "identity");
    ExpectOnly(body);
    const std::string source = folder.FileWith({1, 2, 3}, "source");
    EXPECT_TRUE(GetWith(std::make_unique<FileReaderFactory>(), source, path));
    ExpectOnly("\1\2\3");
}

TEST_F(KitFile, OfOtherHandlersIsWholeOrNotThere)
{
    folder.FileWith({Old.begin(), Old.end()});
    ScriptedServer server({{WholeOrRest({body}, "", "", Half), Then::Close}});
    EXPECT_FALSE(GetWith(std::make_unique<CurlEasyHandlerFactory>(), server.Url(), path));
    ExpectOnly(Old);
    ScriptedServer good({{Good}});
    EXPECT_FALSE(
        GetWith(std::make_unique<CurlEasyHandlerFactory>(), good.Url(), path, Sha256Of("bad")));
    ExpectOnly(Old);
    EXPECT_EQ(log.Count("The body's SHA-256 is not the expected one."), 1U);
    const SystemCalls calls;
    SystemCalls::Fail("pwrite part", ENOSPC);
    ScriptedServer stalling({{"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123", Then::Stall}});
    EXPECT_FALSE(GetWith(std::make_unique<CurlEasyHandlerFactory>(), stalling.Url(), path));
    ExpectOnly(Old);
}

TEST_F(KitFile, OfOtherHandlersIsLeftAloneWhenNothingWasModified)
{
    folder.FileWith({Old.begin(), Old.end()});
    ScriptedServer server({{"HTTP/1.1 304 Not Modified\r\n\r\n"}});
    EXPECT_TRUE(GetWith(std::make_unique<CurlEasyHandlerFactory>(), server.Url(), path));
    ExpectOnly(Old);
}
