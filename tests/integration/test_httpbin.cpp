// The libcurl handler against httpbin, which others wrote and which describes what it received.

#include <gmock/gmock.h>

#include <algorithm>

#include "HttpExchange.h"
#include "ServerTest.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class Httpbin : public ServerTest<HttpbinServer>
{
protected:
    // httpbin answers with JSON, which it lays out as its version likes.
    static std::string Compact(std::string json)
    {
        json.erase(
            std::remove_if(json.begin(), json.end(), [](char c) { return c == ' ' || c == '\n'; }),
            json.end());
        return json;
    }

    static void ExpectDecoded(const std::string& path, const std::string& encoding,
                              const std::string& flag)
    {
        const Response response = Fetch(Url(path));
        EXPECT_TRUE(response.success);
        EXPECT_EQ(response.Value("Content-Encoding"), encoding);
        EXPECT_THAT(Compact(response.body), HasSubstr("\"" + flag + "\":true"));
    }
};

TEST_F(Httpbin, CompressedBodiesArriveDecoded)
{
    ExpectDecoded("/gzip", "gzip", "gzipped");
    ExpectDecoded("/deflate", "deflate", "deflated");
    ExpectDecoded("/brotli", "br", "brotli");
}

TEST_F(Httpbin, TheRequestCarriesTheFixedHeaders)
{
    const std::string body = Compact(Fetch(Url("/headers")).body);
    EXPECT_THAT(body, HasSubstr("\"User-Agent\":\"libcurl-agent/1.0\""));
    EXPECT_THAT(body, HasSubstr("\"Cache-Control\":\"no-cache\""));
}

TEST_F(Httpbin, ATextIsPostedInChunks)
{
    Configuration configuration = Request(Url("/post"), HttpMethod::EhttpPost, "some-text");
    configuration.headers = {{"Content-Type", "text/plain"}};
    const Response response = Fetch(configuration);
    EXPECT_TRUE(response.success);
    EXPECT_THAT(Compact(response.body), HasSubstr("\"data\":\"some-text\""));
    EXPECT_THAT(Compact(response.body), HasSubstr("\"Transfer-Encoding\":\"chunked\""));
}

TEST_F(Httpbin, ATextIsPut)
{
    const Response response = Fetch(Request(Url("/put"), HttpMethod::EhttpPut, "some-text"));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(Compact(response.body), HasSubstr("\"data\":\"some-text\""));
}

TEST_F(Httpbin, ARedirectChainIsFollowed)
{
    const Response response = Fetch(Url("/redirect/3"));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.StatusLines(), ElementsAre("HTTP/1.1 302 FOUND", "HTTP/1.1 302 FOUND",
                                                    "HTTP/1.1 302 FOUND", "HTTP/1.1 200 OK"));
}

TEST_F(Httpbin, AnErrorStatusIsAFailureUnlessErrorsAreAllowed)
{
    Configuration configuration = Request(Url("/status/418"));
    const Response failed = Fetch(configuration);
    EXPECT_FALSE(failed.success);
    EXPECT_EQ(failed.code, 418);
    EXPECT_EQ(failed.body, "");
    configuration.failOnError = false;
    const Response allowed = Fetch(configuration);
    EXPECT_TRUE(allowed.success);
    EXPECT_EQ(allowed.code, 418);
    EXPECT_THAT(allowed.body, HasSubstr("teapot"));
}

TEST_F(Httpbin, AStreamedBodyArrivesWhole)
{
    EXPECT_EQ(Fetch(Url("/stream-bytes/100000?seed=1&chunk_size=777")).body.size(), 100000U);
}

}  // namespace
