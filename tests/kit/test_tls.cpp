// TLS: whom the kit trusts, and what it keeps.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>

#include "KitClient.h"
#include "ScopedVariable.h"
#include "ServerTest.h"
#include "SessionCore.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;

namespace {

class KitTls : public ServerTest<NginxServer>
{
protected:
    static std::string File(const std::string& name) { return TheServer().Folder().Path(name); }
    static std::string TlsUrl(const std::string& path = "/method")
    {
        return TheServer().TlsUrl(path);
    }

    static KIT::TransferPolicy Trusting()
    {
        return LocalPolicy().SetSchemes({"http", "https"}).SetAuthorityFile(File("ca.pem"));
    }

    static Course WatchWith(const KIT::TransferPolicy& policy, const std::string& url = TlsUrl())
    {
        KIT::HttpSession session(policy);
        return ::Watch(session, Request(url));
    }

    const CaughtLog log;
};

}  // namespace

TEST_F(KitTls, TrustsTheAuthoritiesOfAFile)
{
    const Course course = WatchWith(Trusting());
    EXPECT_TRUE(course.received.success);
    EXPECT_EQ(course.received.body, "GET");
}

TEST_F(KitTls, TrustsTheAuthoritiesOfAFolder)
{
    EXPECT_TRUE(
        WatchWith(LocalPolicy().SetSchemes({"https"}).SetAuthorityFolder(File("authorities")))
            .received.success);
}

TEST_F(KitTls, TrustsNobodyElse)
{
    for (const KIT::TransferPolicy& policy :
         {LocalPolicy().SetSchemes({"https"}),
          LocalPolicy().SetSchemes({"https"}).SetAuthorityFile(File("authorities/other.pem"))}) {
        const Course course = WatchWith(policy);
        EXPECT_EQ(course.Category(), Category::TlsNotTrusted);
        EXPECT_EQ(course.observer->events.back().attempt, 1U);
        EXPECT_EQ(course.observer->events.back().sentence,
                  "The server's certificate or key is not trusted (host 127.0.0.1).");
    }
}

TEST_F(KitTls, TrustsACertificateForItsHostOnly)
{
    EXPECT_EQ(WatchWith(Trusting(), TheServer().TlsUrl("/", "localhost")).Category(),
              Category::TlsNotTrusted);
}

TEST_F(KitTls, ChecksThePinnedKey)
{
    EXPECT_TRUE(WatchWith(Trusting().SetPinnedKey(File("server.pem"))).Category() ==
                Category::TlsNotTrusted);  // a certificate is no key
    EXPECT_EQ(
        WatchWith(Trusting().SetPinnedKey("sha256//AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA="))
            .Category(),
        Category::TlsNotTrusted);
}

TEST_F(KitTls, AcceptsAnyCertificateOnlyWhereNoneIsVerified)
{
    const std::string otherName = TheServer().TlsUrl("/method", "localhost");
    const auto unknown = LocalPolicy().SetSchemes({"https"});
    for (const std::string& url : {TlsUrl(), otherName}) {
        EXPECT_EQ(WatchWith(unknown, url).Category(), Category::TlsNotTrusted);
        const Course course =
            WatchWith(KIT::TransferPolicy(unknown).SetServerVerification(false), url);
        EXPECT_EQ(course.received.body, "GET");
    }
    EXPECT_EQ(WatchWith(KIT::TransferPolicy(Trusting()).SetServerVerification(true), otherName)
                  .Category(),
              Category::TlsNotTrusted);
}

TEST_F(KitTls, ChecksThePinnedKeyAlsoWhereNoCertificateIsVerified)
{
    const auto policy = Trusting().SetServerVerification(false).SetPinnedKey(
        "sha256//AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=");
    EXPECT_EQ(WatchWith(policy).Category(), Category::TlsNotTrusted);
}

TEST_F(KitTls, WarnsOncePerSessionThatItVerifiesNoServer)
{
    KIT::HttpSession session(Trusting().SetServerVerification(false));
    EXPECT_TRUE(Fetch(session, Request(TlsUrl())).success);
    EXPECT_TRUE(Fetch(session, Request(TlsUrl())).success);
    std::size_t count = 0;
    for (const auto& line : log.Lines()) {
        count += line.message.find("accepts any certificate") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(count, 1U);
}

TEST_F(KitTls, IsNotLeftForPlainHttp)
{
    const Course course = WatchWith(Trusting(), TlsUrl("/redirect/to-http"));
    EXPECT_EQ(course.Category(), Category::RedirectRefused);
    EXPECT_EQ(course.received.status, 302);
}

TEST_F(KitTls, FailsWithAClientCertificateThatIsNoFile)
{
    EXPECT_EQ(WatchWith(Trusting().SetClientCertificate(File("none"), File("none"))).Category(),
              Category::TlsFailed);
}

TEST_F(KitTls, ShowsAClientCertificate)
{
    EXPECT_TRUE(WatchWith(Trusting().SetClientCertificate(File("server.pem"), File("server.key")))
                    .received.success);
}

TEST_F(KitTls, KeepsConnectionsAndReadsTheAuthoritiesOnce)
{
    KIT::HttpSession session(Trusting());
    std::filesystem::rename(File("ca.pem"), File("ca.away"));
    EXPECT_FALSE(::Watch(session, Request(TlsUrl())).observer->events.back().isKept);
    EXPECT_TRUE(::Watch(session, Request(TlsUrl())).observer->events.back().isKept);
    EXPECT_TRUE(Fetch(session, Request(TheServer().Url("/method"))).success);
    EXPECT_TRUE(::Watch(session, Request(TlsUrl())).observer->events.back().isKept);
    std::filesystem::rename(File("ca.away"), File("ca.pem"));
}

TEST_F(KitTls, ReadsTheSystemsAuthoritiesOnlyWhenAConnectionNeedsThem)
{
    KIT::HttpSession session(LocalPolicy().SetSchemes({"http", "https"}));
    const auto areLoaded = [&session] {
        return KIT::SessionAccess::Core(session)->authorities.AreLoaded();
    };
    EXPECT_TRUE(Fetch(session, Request(TheServer().Url("/method"))).success);
    EXPECT_FALSE(areLoaded());
    EXPECT_FALSE(Fetch(session, Request(TlsUrl())).success);
    EXPECT_TRUE(areLoaded());
    KIT::HttpSession named(Trusting());
    EXPECT_TRUE(KIT::SessionAccess::Core(named)->authorities.AreLoaded());
}

TEST_F(KitTls, SharesTheAuthoritiesAmongConcurrentTransfers)
{
    KIT::HttpSession session(Trusting());
    std::array<std::thread, 4> threads;
    std::atomic<int> successes{0};
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            for (int turn = 0; turn < 5; ++turn) {
                successes += Fetch(session, Request(TlsUrl())).success ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(successes, 20);
}
