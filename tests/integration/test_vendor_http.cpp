// The vendor handler over the wrapper library's stand-in, to a server that does as the URL says.

#include <gmock/gmock.h>

#include <stdexcept>

#include "CaughtLog.h"
#include "HttpExchange.h"
#include "IndexedBytes.h"
#include "LoopbackPort.h"
#include "QXCurlEasyHandlerFactory.h"
#include "ScopedVariable.h"
#include "ServerTest.h"

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::QXCurlEasyHandlerFactory;

namespace {

using Bytes = ITransferHandler::Bytes;
using HttpVersion = Configuration::HttpVersion;

Response VendorFetch(const Configuration& configuration)
{
    return Fetch(QXCurlEasyHandlerFactory(), configuration);
}

class VendorHttp : public ServerTest<OddServer>
{
protected:
    static Configuration Resource(
        const std::string& resource,
        const std::vector<std::pair<std::string, std::string>>& queryParameters = {})
    {
        Configuration configuration = Request("");
        configuration.halvordConfig = Configuration::HalvordConfig{resource, queryParameters};
        return configuration;
    }

    // The one line that tells of a failed transfer.
    std::string Failure() const
    {
        std::string failure;
        for (const LogLine& line : log.Lines()) {
            if (line.priority == 6) {
                EXPECT_EQ(failure, "") << line.message;
                failure = line.message;
            }
        }
        return failure;
    }

    CaughtLog log;
};

TEST_F(VendorHttp, TheHeaderIsTheRawLines)
{
    EXPECT_EQ(VendorFetch(Request(Url("/bytes/3"))).header,
              "HTTP/1.1 200 Status\r\n"
              "X-Seen-Request: GET /bytes/3 HTTP/1.1\r\n"
              "X-Seen-Expect: -\r\n"
              "X-Seen-Content-Length: 0\r\n"
              "X-Seen-Transfer-Encoding: -\r\n"
              "Content-Length: 3\r\n"
              "\r\n");
}

TEST_F(VendorHttp, TheRequestCarriesTheLengthAndThenTheLinesOfTheClient)
{
    Configuration configuration = Request(Url("/echo"));
    configuration.headers = {{"B", "2"}, {"A", "1"}, {"B", "3"}};
    const std::string host = Url("").substr(std::string("http://").size());
    EXPECT_EQ(VendorFetch(configuration).body,
              "GET /echo HTTP/1.1\r\n"
              "Host: " +
                  host +
                  "\r\n"
                  "Accept: */*\r\n"
                  "Content-Length:0\r\n"
                  "B: 2\r\n"
                  "A: 1\r\n"
                  "B: 3\r\n"
                  "\r\n");
}

TEST_F(VendorHttp, TheVersionIsTheOneThatIsAskedFor)
{
    const std::vector<std::pair<HttpVersion, std::string>> versions = {
        {HttpVersion::EversionUnspecified, "GET /bytes/0 HTTP/1.1"},
        {HttpVersion::Eversion10, "GET /bytes/0 HTTP/1.0"},
        {HttpVersion::Eversion11, "GET /bytes/0 HTTP/1.1"},
        // Offered as an upgrade, which this server does not understand.
        {HttpVersion::Eversion20, "GET /bytes/0 HTTP/1.1"},
    };
    for (const auto& [version, line] : versions) {
        Configuration configuration = Request(Url("/bytes/0"));
        configuration.httpVersion = version;
        EXPECT_EQ(VendorFetch(configuration).Value("X-Seen-Request"), line);
    }
}

TEST_F(VendorHttp, Version20IsOfferedAsAnUpgrade)
{
    Configuration configuration = Request(Url("/echo"));
    configuration.httpVersion = HttpVersion::Eversion20;
    EXPECT_THAT(VendorFetch(configuration).body, HasSubstr("\r\nUpgrade: h2c\r\n"));
    configuration.httpVersion = HttpVersion::EversionUnspecified;
    EXPECT_THAT(VendorFetch(configuration).body, ::testing::Not(HasSubstr("Upgrade")));
}

TEST_F(VendorHttp, AnErrorStatusIsASuccess)
{
    const Response response = VendorFetch(Request(Url("/status/404")));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 404);
    EXPECT_EQ(response.body, "status 404");
}

TEST_F(VendorHttp, ARedirectIsNotFollowed)
{
    const Response response = VendorFetch(Request(Url("/redirect/302/1")));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 302);
    EXPECT_EQ(response.body, "moved");
}

TEST_F(VendorHttp, AContentEncodingIsNotDecoded)
{
    EXPECT_THAT(VendorFetch(Request(Url("/gzip/100"))).body, StartsWith("\x1f\x8b"));
}

TEST_F(VendorHttp, AHeadHasAHeaderOnly)
{
    const Response response = VendorFetch(Request(Url("/bytes/100"), HttpMethod::EhttpHead));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 200);
    EXPECT_EQ(response.Value("X-Seen-Request"), "HEAD /bytes/100 HTTP/1.1");
    EXPECT_EQ(response.Value("Content-Length"), "100");
    EXPECT_EQ(response.body, "");
}

TEST_F(VendorHttp, WhenNoBodyIsWantedNoneIsAskedFor)
{
    Bytes header;
    const ITransferHandler::Result result = QXCurlEasyHandlerFactory().Create()->GetTransfer(
        Request(Url("/bytes/100")), boost::optional<Bytes&>(header), boost::none);
    EXPECT_TRUE(result.success);
    EXPECT_THAT(std::string(header.begin(), header.end()),
                HasSubstr("X-Seen-Request: HEAD /bytes/100 HTTP/1.1\r\n"));
}

TEST_F(VendorHttp, APostStaysOneWhenNoBodyIsWanted)
{
    Bytes header;
    const ITransferHandler::Result result = QXCurlEasyHandlerFactory().Create()->GetTransfer(
        Request(Url("/mirror"), HttpMethod::EhttpPost, "abc"), boost::optional<Bytes&>(header),
        boost::none);
    EXPECT_TRUE(result.success);
    const std::string text(header.begin(), header.end());
    EXPECT_THAT(text, HasSubstr("X-Seen-Request: POST /mirror HTTP/1.1\r\n"));
    EXPECT_THAT(text, HasSubstr("\r\nContent-Length: 3\r\n"));
}

struct Upload
{
    HttpMethod method;
    HttpVersion version;
    std::size_t length;
};

class VendorUpload : public VendorHttp, public ::testing::WithParamInterface<Upload>
{
};

std::string NameOf(const ::testing::TestParamInfo<Upload>& upload)
{
    return std::string(upload.param.method == HttpMethod::EhttpPut ? "Put" : "Post") +
           std::to_string(upload.param.length) +
           (upload.param.version == HttpVersion::Eversion10 ? "Http10" : "Http11");
}

INSTANTIATE_TEST_SUITE_P(
    Kind, VendorUpload,
    ::testing::Values(Upload{HttpMethod::EhttpPut, HttpVersion::Eversion10, 3},
                      Upload{HttpMethod::EhttpPut, HttpVersion::Eversion11, 0},
                      Upload{HttpMethod::EhttpPut, HttpVersion::Eversion11, 1},
                      Upload{HttpMethod::EhttpPut, HttpVersion::Eversion11, LongLength},
                      Upload{HttpMethod::EhttpPost, HttpVersion::Eversion10, 3},
                      Upload{HttpMethod::EhttpPost, HttpVersion::Eversion11, 0},
                      Upload{HttpMethod::EhttpPost, HttpVersion::Eversion11, 1},
                      Upload{HttpMethod::EhttpPost, HttpVersion::Eversion11, LongLength}),
    NameOf);

TEST_P(VendorUpload, ABinaryBodyArrivesByteForByteWithItsLengthDeclared)
{
    Configuration configuration =
        Request(Url("/mirror"), GetParam().method, IndexedText(GetParam().length));
    configuration.httpVersion = GetParam().version;
    const Response response = VendorFetch(configuration);
    EXPECT_TRUE(response.success);
    EXPECT_TRUE(response.body == configuration.requestBody);
    EXPECT_EQ(response.Value("X-Seen-Content-Length"), std::to_string(GetParam().length));
    EXPECT_EQ(response.Value("X-Seen-Transfer-Encoding"), "-");
}

TEST_F(VendorHttp, TheMakersServerIsAskedForTheResourceByTheClientsName)
{
    const ScopedVariable base("QXCURL_BASE_URL", Url("/").c_str());
    const Response response = VendorFetch(Resource("/echo"));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.body, StartsWith("GET /echo HTTP/1.1\r\n"));
    EXPECT_THAT(response.body, HasSubstr("\r\nX-Vistrel-Client: dorix-cloud\r\n"));
}

TEST_F(VendorHttp, OtherServersAreNotToldTheClientsName)
{
    EXPECT_EQ(VendorFetch(Request(Url("/echo"))).body.find("Vistrel"), std::string::npos);
}

TEST_F(VendorHttp, AwkwardQueryValuesArriveEncoded)
{
    const ScopedVariable base("QXCURL_BASE_URL", Url("").c_str());
    const Configuration configuration = Resource("echo", {{"blank", "a b"},
                                                          {"and", "a&b"},
                                                          {"is", "a=b"},
                                                          {"plus", "a+b"},
                                                          {"percent", "100%41"},
                                                          {"utf8", "\xc3\xa9\xe2\x82\xac"},
                                                          {"empty", ""},
                                                          {"a key", "#?/"}});
    EXPECT_EQ(VendorFetch(configuration).Value("X-Seen-Request"),
              "GET /echo?blank=a%20b&and=a%26b&is=a%3Db&plus=a%2Bb&percent=100%2541"
              "&utf8=%C3%A9%E2%82%AC&empty=&a%20key=%23%3F%2F HTTP/1.1");
}

TEST_F(VendorHttp, ARefusedChunkFailsTheTransfer)
{
    const std::string url = Url("/until-closed");
    const auto refuse = [](std::unique_ptr<Bytes>, void*) { return false; };
    const ITransferHandler::Result result =
        QXCurlEasyHandlerFactory().Create()->GetTransfer(Request(url), nullptr, refuse, nullptr);
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.httpCode, ::testing::IsNull());
    EXPECT_EQ(log.Count("callback failed processing: " + url), 1U);
    EXPECT_THAT(Failure(), StartsWith("Failed to send using QXCurl Failed writing received data"));
    EXPECT_THAT(Failure(), ::testing::EndsWith(", accessing " + url));
}

TEST_F(VendorHttp, AClientsExceptionLeavesTheTransferAfterTheCleanUp)
{
    const auto fail = [](std::unique_ptr<Bytes>, void*) -> bool {
        throw std::runtime_error("client");
    };
    const auto handler = QXCurlEasyHandlerFactory().Create();
    EXPECT_THROW(handler->GetTransfer(Request(Url("/until-closed")), nullptr, fail, nullptr),
                 std::runtime_error);
    EXPECT_THROW(handler->GetTransfer(Request(Url("/bytes/1")), fail, nullptr, nullptr),
                 std::runtime_error);
    EXPECT_EQ(log.Count("Cleaning up QXCurl"), 2U);
    EXPECT_THAT(Failure(), IsEmpty());
}

TEST_F(VendorHttp, ASilentServerIsLeftWhenTheTimeIsOver)
{
    Configuration configuration = Request(Url("/stall/vendor"));
    configuration.timeoutArg1 = 1;
    const Response response = VendorFetch(configuration);
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, -1);
    EXPECT_THAT(Failure(), StartsWith("Failed to send using QXCurl Timeout was reached: "));
    EXPECT_TRUE(VendorFetch(Request(Url("/release/vendor"))).success);
}

TEST_F(VendorHttp, ATruncatedBodyFailsTheTransfer)
{
    const Response response = VendorFetch(Request(Url("/truncate/100")));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.body, IndexedText(99));
    EXPECT_THAT(Failure(), HasSubstr("Transferred a partial file"));
}

TEST_F(VendorHttp, AnUnreachableServerFailsTheTransferWithItsUrlInTheLog)
{
    const LoopbackPort port;
    EXPECT_FALSE(VendorFetch(Request(port.Url())).success);
    EXPECT_THAT(Failure(), StartsWith("Failed to send using QXCurl Couldn't connect to server: "));
    EXPECT_THAT(Failure(), ::testing::EndsWith(", accessing " + port.Url()));
}

}  // namespace
