// Downloads with the libcurl handler from a server that does as the URL says.

#include <gmock/gmock.h>

#include <algorithm>

#include "CurlEasyHandlerFactory.h"
#include "HttpExchange.h"
#include "IndexedBytes.h"
#include "ServerTest.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::StartsWith;
using VORTAN_MW::CurlEasyHandlerFactory;
using VORTAN_MW::ITransferHandler;

namespace {

class HttpDownload : public ServerTest<OddServer>
{
protected:
    using Bytes = ITransferHandler::Bytes;

    // Appends each chunk as a text of its own.
    static ITransferHandler::ChunkCallback AppendTo(std::vector<std::string>& chunks)
    {
        return [&chunks](std::unique_ptr<Bytes> chunk, void*) {
            chunks.emplace_back(chunk->begin(), chunk->end());
            return true;
        };
    }

    // The request's head as the server received it, without the list of encodings, which depends on
    // libcurl.
    static std::vector<std::string> HeadOf(const Configuration& configuration)
    {
        std::vector<std::string> lines;
        std::istringstream stream(Fetch(configuration).body);
        for (std::string line; std::getline(stream, line);) {
            if (line.rfind("Accept-Encoding: ", 0) != 0) {
                lines.push_back(line);
            }
        }
        return lines;
    }
};

class HttpDownloadOfLength : public HttpDownload, public ::testing::WithParamInterface<std::size_t>
{
protected:
    void ExpectBodyOf(const std::string& behaviour)
    {
        const Response response = Fetch(Url("/" + behaviour + "/" + std::to_string(GetParam())));
        EXPECT_TRUE(response.success);
        EXPECT_EQ(response.code, 200);
        EXPECT_TRUE(response.body == IndexedText(GetParam()));
    }
};

INSTANTIATE_TEST_SUITE_P(Length, HttpDownloadOfLength,
                         ::testing::Values(std::size_t{0}, std::size_t{1}, LongLength),
                         ::testing::PrintToStringParamName());

TEST_P(HttpDownloadOfLength, ABodyArrivesByteForByte)
{
    ExpectBodyOf("bytes");
}

TEST_P(HttpDownloadOfLength, AChunkedBodyArrivesByteForByte)
{
    ExpectBodyOf("chunked");
}

TEST_P(HttpDownloadOfLength, ACompressedBodyArrivesDecoded)
{
    ExpectBodyOf("gzip");
}

TEST_F(HttpDownload, ABodyThatDripsInArrivesByteForByte)
{
    EXPECT_EQ(Fetch(Url("/drip/300")).body, IndexedText(300));
}

TEST_F(HttpDownload, TheHeaderIsTheRawLines)
{
    EXPECT_EQ(Fetch(Url("/bytes/3")).header,
              "HTTP/1.1 200 Status\r\n"
              "X-Seen-Request: GET /bytes/3 HTTP/1.1\r\n"
              "X-Seen-Expect: -\r\n"
              "X-Seen-Content-Length: -\r\n"
              "X-Seen-Transfer-Encoding: -\r\n"
              "Content-Length: 3\r\n"
              "\r\n");
}

TEST_F(HttpDownload, TheHeaderCallbackReceivesLineByLineBeforeAnyBody)
{
    std::vector<std::string> chunks;
    CurlEasyHandlerFactory().Create()->GetTransfer(Request(Url("/bytes/3")), AppendTo(chunks),
                                                   AppendTo(chunks), nullptr);
    EXPECT_THAT(chunks,
                ElementsAre("HTTP/1.1 200 Status\r\n", "X-Seen-Request: GET /bytes/3 HTTP/1.1\r\n",
                            "X-Seen-Expect: -\r\n", "X-Seen-Content-Length: -\r\n",
                            "X-Seen-Transfer-Encoding: -\r\n", "Content-Length: 3\r\n", "\r\n",
                            IndexedText(3)));
}

TEST_F(HttpDownload, ALongHeaderLineArrivesInOnePiece)
{
    EXPECT_EQ(Fetch(Url("/big-header/60000")).Value("X-Big"), std::string(60000, 'x'));
}

TEST_F(HttpDownload, TheRequestCarriesTheFixedLinesAndThenThoseOfTheClient)
{
    Configuration configuration = Request(Url("/echo"));
    configuration.headers = {{"B", "2"}, {"A", "1"}, {"B", "3"}};
    const std::string host = Url("").substr(std::string("http://").size());
    EXPECT_THAT(HeadOf(configuration),
                ElementsAre("GET /echo HTTP/1.1\r", "Host: " + host + "\r",
                            "User-Agent: libcurl-agent/1.0\r", "Accept: */*\r",
                            "Cache-control: no-cache\r", "B: 2\r", "A: 1\r", "B: 3\r", "\r"));
}

TEST_F(HttpDownload, AHeaderWithoutAValueRemovesALineOfLibcurl)
{
    Configuration configuration = Request(Url("/echo"));
    configuration.headers = {{"Accept", ""}, {"User-Agent", ""}};
    const std::string host = Url("").substr(std::string("http://").size());
    EXPECT_THAT(HeadOf(configuration), ElementsAre("GET /echo HTTP/1.1\r", "Host: " + host + "\r",
                                                   "Cache-control: no-cache\r", "\r"));
}

TEST_F(HttpDownload, GzipIsAmongTheEncodingsOffered)
{
    EXPECT_THAT(Fetch(Url("/echo")).body, ::testing::ContainsRegex("Accept-Encoding: [^\r]*gzip"));
}

TEST_F(HttpDownload, WithoutAMethodARequestIsAGetThatUploadsNothing)
{
    const Response response = Fetch(Request(Url("/bytes/1"), HttpMethod::Default, "unused"));
    EXPECT_EQ(response.Value("X-Seen-Request"), "GET /bytes/1 HTTP/1.1");
    EXPECT_EQ(response.Value("X-Seen-Content-Length"), "-");
    EXPECT_EQ(response.Value("X-Seen-Transfer-Encoding"), "-");
}

TEST_F(HttpDownload, AHeadBringsTheHeaderAndEmptiesTheBodyBuffer)
{
    const Response response = Fetch(Request(Url("/bytes/10"), HttpMethod::EhttpHead));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.Value("X-Seen-Request"), "HEAD /bytes/10 HTTP/1.1");
    EXPECT_EQ(response.Value("Content-Length"), "10");
    EXPECT_EQ(response.body, "");
}

TEST_F(HttpDownload, OnlyTheHeaderWantedIsAskedForWithHead)
{
    Bytes header;
    const auto result = CurlEasyHandlerFactory().Create()->GetTransfer(
        Request(Url("/bytes/10")), boost::optional<Bytes&>(header), boost::none);
    EXPECT_TRUE(result.success);
    EXPECT_THAT(std::string(header.begin(), header.end()),
                ::testing::HasSubstr("X-Seen-Request: HEAD /bytes/10 HTTP/1.1\r\n"));
}

TEST_F(HttpDownload, NeitherWantedLeavesTheBodyWithTheServer)
{
    // A body would fail the transfer here, as it does not come whole.
    const auto result = CurlEasyHandlerFactory().Create()->GetTransfer(Request(Url("/truncate/10")),
                                                                       boost::none, boost::none);
    EXPECT_TRUE(result.success);
    ASSERT_TRUE(result.httpCode);
    EXPECT_EQ(*result.httpCode, 200);
}

TEST_F(HttpDownload, OnlyTheBodyWantedArrives)
{
    std::vector<std::string> chunks;
    const auto result = CurlEasyHandlerFactory().Create()->GetTransfer(
        Request(Url("/bytes/10")), nullptr, AppendTo(chunks), nullptr);
    EXPECT_TRUE(result.success);
    EXPECT_THAT(chunks, ElementsAre(IndexedText(10)));
}

TEST_F(HttpDownload, BytesBeyondTheContentLengthAreDropped)
{
    const Response response = Fetch(Url("/length/3/10"));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.body, IndexedText(3));
}

TEST_F(HttpDownload, AnErrorStatusFailsTheTransferBeforeItsBody)
{
    const Response response = Fetch(Url("/status/404"));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, 404);
    EXPECT_THAT(response.header, StartsWith("HTTP/1.1 404 Status\r\n"));
    EXPECT_EQ(response.body, "");
}

TEST_F(HttpDownload, WithoutFailOnErrorAnErrorStatusIsASuccess)
{
    for (const std::string status : {"400", "404", "500"}) {
        Configuration configuration = Request(Url("/status/" + status));
        configuration.failOnError = false;
        const Response response = Fetch(configuration);
        EXPECT_TRUE(response.success);
        EXPECT_EQ(response.code, std::stol(status));
        EXPECT_EQ(response.body, "status " + status);
    }
}

TEST_F(HttpDownload, AStatusBelow400IsASuccess)
{
    for (const std::string status : {"206", "399"}) {
        const Response response = Fetch(Url("/status/" + status));
        EXPECT_TRUE(response.success);
        EXPECT_EQ(response.code, std::stol(status));
    }
}

TEST_F(HttpDownload, ARedirectChainIsFollowedAndItsHeaderIsThatOfEveryResponse)
{
    const Response response = Fetch(Url("/redirect/302/3"));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 200);
    EXPECT_THAT(response.StatusLines(), ElementsAre("HTTP/1.1 302 Status", "HTTP/1.1 302 Status",
                                                    "HTTP/1.1 302 Status", "HTTP/1.1 200 Status"));
    EXPECT_THAT(response.header, EndsWith("\r\n\r\n"));
    EXPECT_THAT(response.body, StartsWith("GET /echo HTTP/1.1\r\n"));
}

TEST_F(HttpDownload, InterimResponsesAndTrailersAreAmongTheHeaderBytes)
{
    const Response interim = Fetch(Url("/interim/2"));
    EXPECT_THAT(interim.StatusLines(),
                ElementsAre("HTTP/1.1 103 Early", "HTTP/1.1 103 Early", "HTTP/1.1 200 Status"));
    const Response trailers = Fetch(Url("/trailers/2"));
    EXPECT_THAT(trailers.header, EndsWith("\r\n\r\nX-Trailer-00000000: 00000000\r\n"
                                          "X-Trailer-00000001: 00000001\r\n"));
}

// Nothing tells libcurl that there should have been more.
TEST_F(HttpDownload, APartOfABodyWithoutALengthIsTakenForTheWhole)
{
    const Response response = Fetch(Url("/unmeasured/100"));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.body, IndexedText(100));
}

// libcurl follows without end, or gives up after some tens of redirects: that depends on its
// version.
TEST_F(HttpDownload, AnEndlessRedirectIsFollowedUntilACallbackRefuses)
{
    int responses = 0;
    const auto refuseTheHundredth = [&](std::unique_ptr<Bytes> line, void*) {
        responses += line->front() == 'H' ? 1 : 0;
        return responses < 100;
    };
    const auto result = CurlEasyHandlerFactory().Create()->GetTransfer(
        Request(Url("/redirect-forever")), refuseTheHundredth, nullptr, nullptr);
    EXPECT_FALSE(result.success);
    EXPECT_GE(responses, 30);
}

}  // namespace
