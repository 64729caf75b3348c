// The vendor handler over the wrapper library's stand-in, to nginx with TLS.

#include <QXCurl.h>
#include <gmock/gmock.h>

#include <deque>

#include "AsyncTransferAgentManager.h"
#include "CaughtLog.h"
#include "Gate.h"
#include "HttpExchange.h"
#include "IndexedBytes.h"
#include "QXCurlEasyHandlerFactory.h"
#include "ScopedVariable.h"
#include "ServerTest.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::QXCurlEasyHandlerFactory;

namespace {

using HttpVersion = Configuration::HttpVersion;

Response VendorFetch(const Configuration& configuration)
{
    return Fetch(QXCurlEasyHandlerFactory(), configuration);
}

class VendorTls : public ServerTest<NginxServer>
{
protected:
    static Configuration Request(const std::string& path, HttpVersion version,
                                 HttpMethod method = HttpMethod::EhttpGet,
                                 const std::string& body = "")
    {
        Configuration configuration = ::Request(TheServer().TlsUrl(path), method, body);
        configuration.httpVersion = version;
        return configuration;
    }

    static Configuration Request(const std::string& path)
    {
        return Request(path, HttpVersion::Eversion11);
    }

    std::string LastMessageOf(const std::string& function) const
    {
        const std::vector<std::string> messages = log.MessagesOf(function);
        return messages.empty() ? "" : messages.back();
    }

    CaughtLog log;
};

// With the authority that signed the server's certificate.
class VendorTlsTrusting : public VendorTls
{
private:
    const ScopedVariable m_Authority{"QXCURL_CA_FILE", TheServer().Folder().Path("ca.pem").c_str()};
};

TEST_F(VendorTlsTrusting, TheServerIsVerifiedByTheAuthority)
{
    const Response response = VendorFetch(Request("/seen?a"));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.code, 200);
    EXPECT_EQ(response.body, "HTTP/1.1 GET [a] []");
}

TEST_F(VendorTls, TheServerIsRefusedWithoutItsAuthority)
{
    const Response response = VendorFetch(Request("/seen"));
    EXPECT_FALSE(response.success);
    EXPECT_EQ(response.body, "");
    EXPECT_THAT(LastMessageOf("DoTransfer"),
                StartsWith("Failed to send using QXCurl SSL peer certificate or SSH remote key was "
                           "not OK: SSL certificate problem"));
}

TEST_F(VendorTls, TheServerIsAcceptedWithoutItsAuthorityWhenSelfSignedCertificatesAre)
{
    Configuration configuration = Request("/seen");
    configuration.allowSelfSignedCertificates = true;
    const Response response = VendorFetch(configuration);
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.body, "HTTP/1.1 GET [] []");
}

TEST_F(VendorTlsTrusting, AServerOfAnotherNameIsRefused)
{
    const std::string url = TheServer().TlsUrl("/seen", "localhost");
    EXPECT_FALSE(VendorFetch(::Request(url)).success);
    EXPECT_THAT(LastMessageOf("DoTransfer"), HasSubstr("no alternative certificate subject name"));
    Configuration selfSigned = ::Request(url);
    selfSigned.allowSelfSignedCertificates = true;
    EXPECT_FALSE(VendorFetch(selfSigned).success);
}

TEST_F(VendorTls, AnAuthorityThatCannotBeReadFailsTheRequestBeforeItIsSent)
{
    const ScopedVariable authority("QXCURL_CA_FILE", "/no/such/bundle");
    EXPECT_FALSE(VendorFetch(Request("/seen")).success);
    EXPECT_EQ(LastMessageOf("DoTransfer"), "Failed to set the Halvord SSL context");
}

TEST_F(VendorTls, AnAuthorityThatIsNoneFailsTheRequest)
{
    TheServer().Folder().Write("no-authority", {'x'});
    const std::string file = TheServer().Folder().Path("no-authority");
    const ScopedVariable authority("QXCURL_CA_FILE", file.c_str());
    EXPECT_FALSE(VendorFetch(Request("/seen")).success);
    EXPECT_THAT(LastMessageOf("DoTransfer"), HasSubstr("Problem with the SSL CA cert"));
}

TEST_F(VendorTls, TheSystemsAuthoritiesAreUsedAgainWhenNoneIsNamed)
{
    QXCurl::QXCurlEasy easy;
    ASSERT_TRUE(easy.Initialize());
    easy.setOption(QXCurl::QXCURL_OPTION_URL, TheServer().TlsUrl("/seen"));
    {
        const std::string file = TheServer().Folder().Path("ca.pem");
        const ScopedVariable authority("QXCURL_CA_FILE", file.c_str());
        EXPECT_TRUE(easy.setHalvordPormelSSLContext());
    }
    EXPECT_TRUE(easy.send());
    EXPECT_TRUE(easy.setHalvordPormelSSLContext());
    EXPECT_FALSE(easy.send());
}

TEST_F(VendorTlsTrusting, Http2IsSpokenWhereItIsAskedFor)
{
    const Response response = VendorFetch(Request("/seen", HttpVersion::Eversion20));
    EXPECT_TRUE(response.success);
    EXPECT_EQ(response.body, "HTTP/2.0 GET [] []");
    EXPECT_THAT(response.StatusLines(), ElementsAre("HTTP/2 200 "));
}

TEST_F(VendorTlsTrusting, AnUnspecifiedVersionIsAgreedUponWithTheServer)
{
    EXPECT_EQ(VendorFetch(Request("/seen", HttpVersion::EversionUnspecified)).body,
              "HTTP/2.0 GET [] []");
}

TEST_F(VendorTlsTrusting, AHeadHasAHeaderOnly)
{
    for (const HttpVersion version : {HttpVersion::Eversion11, HttpVersion::Eversion20}) {
        const Response response = VendorFetch(Request("/seen", version, HttpMethod::EhttpHead));
        EXPECT_TRUE(response.success);
        EXPECT_EQ(response.code, 200);
        EXPECT_EQ(response.body, "");
    }
}

struct Upload
{
    const char* name;
    HttpMethod method;
    const char* folder;  // the server makes files of what is sent there
};

class VendorTlsUpload : public VendorTlsTrusting, public ::testing::WithParamInterface<Upload>
{
};

INSTANTIATE_TEST_SUITE_P(By, VendorTlsUpload,
                         ::testing::Values(Upload{"Put", HttpMethod::EhttpPut, "/upload/"},
                                           Upload{"Post", HttpMethod::EhttpPost, "/post/"}),
                         [](const auto& upload) { return upload.param.name; });

TEST_P(VendorTlsUpload, ABodyArrivesByteForByteOverBothVersions)
{
    for (const HttpVersion version : {HttpVersion::Eversion11, HttpVersion::Eversion20}) {
        for (const std::size_t length : {std::size_t{0}, std::size_t{3}, LongLength}) {
            const std::string name = GetParam().name + std::to_string(length) + "v" +
                                     std::to_string(static_cast<int>(version));
            const Response response = VendorFetch(
                Request(GetParam().folder + name, version, GetParam().method, IndexedText(length)));
            EXPECT_TRUE(response.success);
            EXPECT_EQ(response.code, 201);
            EXPECT_TRUE(TheServer().Folder().Read("files/" + name) == IndexedBytes(length));
        }
    }
}

TEST_F(VendorTlsTrusting, APostIsSeenAsOneOverBothVersions)
{
    EXPECT_EQ(
        VendorFetch(Request("/seen", HttpVersion::Eversion11, HttpMethod::EhttpPost, "abc")).body,
        "HTTP/1.1 POST [] []");
    EXPECT_EQ(
        VendorFetch(Request("/seen", HttpVersion::Eversion20, HttpMethod::EhttpPost, "abc")).body,
        "HTTP/2.0 POST [] []");
}

TEST_F(VendorTlsTrusting, TheMakersServerIsAskedOverTlsByTheClientsName)
{
    const ScopedVariable base("QXCURL_BASE_URL", TheServer().TlsUrl("").c_str());
    Configuration configuration = ::Request("");
    configuration.halvordConfig = Configuration::HalvordConfig{"seen", {{"k", "a b"}}};
    EXPECT_EQ(VendorFetch(configuration).body, "HTTP/1.1 GET [k=a%20b] [dorix-cloud]");
}

// One transfer through an agent. The worker writes what it holds: look at it when it is over.
struct Client
{
    std::unique_ptr<ITransferAgentManager::TransferConfiguration> MakeRequest(
        const Configuration& configuration, bool segmented)
    {
        auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
        static_cast<Configuration&>(*request) = configuration;
        request->handlerFactory = std::make_unique<QXCurlEasyHandlerFactory>();
        request->segmented = segmented;
        request->dataCallback = [this](std::unique_ptr<ITransferHandler::Bytes> chunk, void*) {
            if (chunk) {
                body.insert(body.end(), chunk->begin(), chunk->end());
            }
        };
        request->completeCallback = [this](const ITransferHandler::Result& result, void*) {
            success = result.success;
            over.Open();
        };
        return request;
    }

    ITransferHandler::Bytes body;
    bool success = false;
    Gate over;
};

TEST_F(VendorTlsTrusting, EightManagersWithFourTransfersEachKeepTheirBytesApart)
{
    constexpr int managerCount = 8;
    constexpr int transfersEach = 4;
    TheServer().Folder().Write("files/long", IndexedBytes(LongLength));
    std::deque<Client> clients;
    std::vector<std::unique_ptr<ITransferAgentManager>> managers;
    for (int i = 0; i < managerCount; ++i) {
        managers.push_back(VORTAN_MW::AsyncTransferAgentManager::Create());
        for (int j = 0; j < transfersEach; ++j) {
            const auto version = j < 2 ? HttpVersion::Eversion11 : HttpVersion::Eversion20;
            Configuration configuration = Request("/long", version);
            configuration.timeoutArg2 = 0;  // they may keep the machine busy
            managers.back()->RequestTransfer(
                clients.emplace_back().MakeRequest(configuration, j % 2 == 0));
        }
    }
    for (Client& client : clients) {
        ASSERT_TRUE(client.over.Wait());
        EXPECT_TRUE(client.success);
        EXPECT_TRUE(client.body == IndexedBytes(LongLength));
    }
    managers.clear();
}

}  // namespace
