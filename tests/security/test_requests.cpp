// Where a request goes, what goes with it, and what of it the log shows.

#include <curl/curl.h>
#include <gmock/gmock.h>

#include <algorithm>

#include "ErrorLine.h"
#include "QXCurlEasyHandlerFactory.h"
#include "SecurityTest.h"
#include "TemporaryFolder.h"
#include "TrustedAuthority.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

std::string RedirectTo(const std::string& url)
{
    return "/redirect-to/307/" + Encoded(url);
}

}  // namespace

TEST_F(Security, AUrlMayNameAFileAndEverySchemeOfLibcurl)
{
    const TemporaryFolder folder;
    const Response file = Fetch("file://" + folder.FileWith({'a', 'b'}));
    EXPECT_TRUE(file.success);
    EXPECT_EQ(file.body, "ab");

    // A label of more than 63 letters is no name to look up: each scheme fails at once.
    const std::string place = "://" + std::string(64, 'x') + ".invalid/";
    const auto isUnsupported = [&](const std::string& scheme) {
        Fetch(scheme + place);
        return log.Count(ErrorLine(CURLE_UNSUPPORTED_PROTOCOL, 0, scheme + place)) == 1;
    };
    for (auto scheme = curl_version_info(CURLVERSION_NOW)->protocols; *scheme; ++scheme) {
        EXPECT_FALSE(isUnsupported(*scheme)) << *scheme;
    }
    EXPECT_TRUE(isUnsupported("nosuch"));
}

TEST_F(Security, RedirectsGoToFtpNotToFile)
{
    const TemporaryFolder folder;
    Ftp().Folder().Write("files/a", {'a', 'b'});
    const Response ftp = Fetch(Odd().Url(RedirectTo("ftp" + Ftp().Url("/a").substr(4))));
    EXPECT_TRUE(ftp.success);
    EXPECT_THAT(ftp.body, HasSubstr("ab"));

    const std::string url = Odd().Url(RedirectTo("file://" + folder.FileWith({'c', 'd'})));
    const Response file = Fetch(url);
    EXPECT_FALSE(file.success);
    EXPECT_THAT(file.body, Not(HasSubstr("cd")));
    EXPECT_EQ(log.Count(ErrorLine(CURLE_UNSUPPORTED_PROTOCOL, 307, url)), 1U);
}

TEST_F(Security, HeadersFollowARedirectToAnotherOrigin)
{
    const TestServer other("odd");
    Configuration configuration = Request(Odd().Url(RedirectTo(other.Url("/echo"))));
    configuration.headers = {
        {"X-Token", "secret1"}, {"Authorization", "secret2"}, {"Cookie", "secret3"}};
    const Response response = Fetch(configuration);
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.body, HasSubstr("X-Token: secret1\r\n"));
    EXPECT_THAT(response.body, Not(HasSubstr("secret2")));
    EXPECT_THAT(response.body, Not(HasSubstr("secret3")));
}

TEST_F(Security, AnUploadFollowsARedirectThatComesBeforeItIsRead)
{
    const TestServer other("odd");
    const std::string path = "/early-redirect/307/" + Encoded(other.Url("/mirror"));
    for (const HttpMethod method : {HttpMethod::EhttpPost, HttpMethod::EhttpPut}) {
        Configuration configuration = Request(Odd().Url(path), method, "secret");
        configuration.headers = {{"Expect", "100-continue"}};
        const Response response = Fetch(configuration);
        EXPECT_TRUE(response.success);
        EXPECT_THAT(response.body, "secret");
    }
}

TEST_F(Security, ARedirectMayLeadFromHttpsToHttp)
{
    const TrustedAuthority authority(Nginx().Folder().Path("ca.pem"));
    const Response response = Fetch(Nginx().TlsUrl("/redirect/to-http"));
    EXPECT_TRUE(response.success);
    EXPECT_THAT(response.StatusLines(), ElementsAre("HTTP/2 302 ", "HTTP/1.1 200 OK"));
}

TEST_F(Security, ALineBreakInAHeaderBeginsAnotherHeader)
{
    Configuration configuration = Request(Odd().Url("/echo"));
    configuration.headers = {{"X-One", "1\r\nX-Two: 2"}};
    EXPECT_THAT(Fetch(configuration).body, HasSubstr("\r\nX-One: 1\r\nX-Two: 2\r\n"));
    EXPECT_THAT(Fetch(VORTAN_MW::QXCurlEasyHandlerFactory(), configuration).body,
                HasSubstr("\r\nX-One: 1\r\nX-Two: 2\r\n"));
}

TEST_F(Security, PasswordsInUrlsAreLogged)
{
    std::string url = Odd().Url("/echo");
    url.insert(url.find("127"), "name:secret@");
    Stream stream(Request(url), {}, [](const Stream::Bytes&) {});
    EXPECT_TRUE(stream.WaitForSuccess());
    stream.ShutDown();
    EXPECT_EQ(log.Count("Url: " + url), 1U);
    EXPECT_EQ(log.Count("Requesting transfer for: " + url + " handle: 0"), 1U);
    EXPECT_EQ(log.Count("url: " + url), 1U);
}

TEST_F(Security, TheVendorHandlerLogsItsHeaders)
{
    Configuration configuration = Request(Odd().Url("/echo"));
    configuration.headers = {{"Authorization", "secret"}};
    Fetch(VORTAN_MW::QXCurlEasyHandlerFactory(), configuration);
    EXPECT_EQ(log.Count("curlHeader: Authorization: secret"), 1U);
    Fetch(configuration);
    const std::vector<LogLine> lines = log.Lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const LogLine& line) {
                                return line.message.find("secret") != std::string::npos;
                            }),
              1);
}
