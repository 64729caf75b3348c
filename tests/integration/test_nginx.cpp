// The libcurl handler against nginx: TLS, HTTP/2, compression, redirects, uploads to files.

#include <gmock/gmock.h>

#include "CaughtLog.h"
#include "ErrorLine.h"
#include "HttpExchange.h"
#include "IndexedBytes.h"
#include "ServerTest.h"
#include "TrustedAuthority.h"

using ::testing::ElementsAre;
using ::testing::StartsWith;

namespace {

class Nginx : public ServerTest<NginxServer>
{
protected:
    // Puts a file into nginx's folder and returns its name.
    static std::string FileOf(std::size_t length)
    {
        std::string name = std::to_string(length);
        TheServer().Folder().Write("files/" + name, IndexedBytes(length));
        return name;
    }

    CaughtLog log;
};

class NginxOfLength : public Nginx, public ::testing::WithParamInterface<std::size_t>
{
};

INSTANTIATE_TEST_SUITE_P(Length, NginxOfLength,
                         ::testing::Values(std::size_t{0}, std::size_t{1}, LongLength),
                         ::testing::PrintToStringParamName());

TEST_P(NginxOfLength, AFileArrivesByteForByte)
{
    const Response response = Fetch(Url("/" + FileOf(GetParam())));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.StatusLines(), ElementsAre("HTTP/1.1 200 OK"));
    EXPECT_TRUE(response.body == IndexedText(GetParam()));
}

TEST_P(NginxOfLength, AFileArrivesByteForByteOverTlsAndHttp2)
{
    const TrustedAuthority authority(TheServer().Folder().Path("ca.pem"));
    const Response response = Fetch(TheServer().TlsUrl("/" + FileOf(GetParam())));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.StatusLines(), ElementsAre("HTTP/2 200 "));
    EXPECT_TRUE(response.body == IndexedText(GetParam()));
}

TEST_P(NginxOfLength, APutBodyBecomesTheFileByteForByte)
{
    const std::string name = "put" + std::to_string(GetParam());
    const Response response =
        Fetch(Request(Url("/upload/" + name), HttpMethod::EhttpPut, IndexedText(GetParam())));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 201);
    EXPECT_TRUE(TheServer().Folder().Read("files/" + name) == IndexedBytes(GetParam()));
}

TEST_P(NginxOfLength, APutBodyBecomesTheFileByteForByteOverTlsAndHttp2)
{
    const TrustedAuthority authority(TheServer().Folder().Path("ca.pem"));
    const std::string name = "tls-put" + std::to_string(GetParam());
    const Response response = Fetch(Request(TheServer().TlsUrl("/upload/" + name),
                                            HttpMethod::EhttpPut, IndexedText(GetParam())));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 201);
    EXPECT_TRUE(TheServer().Folder().Read("files/" + name) == IndexedBytes(GetParam()));
}

TEST_F(Nginx, AGzipBodyArrivesDecodedUnderTheHeaderThatSaysGzip)
{
    const Response response = Fetch(Url("/gzip/" + FileOf(LongLength)));
    EXPECT_EQ(response.Value("Content-Encoding"), "gzip");
    EXPECT_TRUE(response.body == IndexedText(LongLength));
}

TEST_F(Nginx, ABrotliBodyArrivesDecodedUnderTheHeaderThatSaysBrotli)
{
    const Response response = Fetch(Url("/brotli/" + FileOf(LongLength)));
    EXPECT_EQ(response.Value("Content-Encoding"), "br");
    EXPECT_TRUE(response.body == IndexedText(LongLength));
}

TEST_F(Nginx, AHeadTellsTheLengthAndBringsNoBody)
{
    const Response response = Fetch(Request(Url("/" + FileOf(LongLength)), HttpMethod::EhttpHead));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.Value("Content-Length"), std::to_string(LongLength));
    EXPECT_EQ(response.body, "");
}

TEST_F(Nginx, AMissingFileIsAFailureUnlessErrorsAreAllowed)
{
    Configuration configuration = Request(Url("/missing"));
    EXPECT_FALSE(Fetch(configuration).success);
    configuration.failOnError = false;
    const Response response = Fetch(configuration);
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 404);
    EXPECT_THAT(response.body, StartsWith("<html>"));
}

class NginxRedirect : public Nginx, public ::testing::WithParamInterface<int>
{
protected:
    static std::string Path() { return "/redirect/" + std::to_string(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Status, NginxRedirect, ::testing::Values(301, 302, 303, 307, 308),
                         ::testing::PrintToStringParamName());

TEST_P(NginxRedirect, ItIsFollowed)
{
    const Response response = Fetch(Url(Path()));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 200);
    EXPECT_EQ(response.body, "GET");
    ASSERT_EQ(response.StatusLines().size(), 2U);
    EXPECT_THAT(response.StatusLines()[0], StartsWith("HTTP/1.1 " + std::to_string(GetParam())));
    EXPECT_EQ(response.StatusLines()[1], "HTTP/1.1 200 OK");
}

TEST_P(NginxRedirect, ItIsFollowedOverTlsAndHttp2)
{
    const TrustedAuthority authority(TheServer().Folder().Path("ca.pem"));
    const Response response = Fetch(TheServer().TlsUrl(Path()));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.body, "GET");
    EXPECT_THAT(response.StatusLines(),
                ElementsAre("HTTP/2 " + std::to_string(GetParam()) + " ", "HTTP/2 200 "));
}

TEST_F(Nginx, ACertificateOfAnUnknownAuthorityIsRefused)
{
    const std::string url = TheServer().TlsUrl("/method");
    const Response response = Fetch(url);
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.code, 0);
    EXPECT_EQ(response.header, "");
    EXPECT_EQ(log.Count(ErrorLine(CURLE_PEER_FAILED_VERIFICATION, 0, url)), 1U);
}

TEST_F(Nginx, ACertificateForAnotherNameIsRefused)
{
    const TrustedAuthority authority(TheServer().Folder().Path("ca.pem"));
    const std::string url = TheServer().TlsUrl("/method", "localhost");
    const Response response = Fetch(url);
    EXPECT_FALSE(response.success);
    EXPECT_EQ(log.Count(ErrorLine(CURLE_PEER_FAILED_VERIFICATION, 0, url)), 1U);
}

// The certificate check of the request belongs to another handler.
TEST_F(Nginx, AllowingSelfSignedCertificatesDoesNotConcernThisHandler)
{
    Configuration configuration = Request(TheServer().TlsUrl("/method"));
    configuration.allowSelfSignedCertificates = true;
    EXPECT_FALSE(Fetch(configuration).success);
}

}  // namespace
