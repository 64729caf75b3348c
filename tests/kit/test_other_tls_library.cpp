// The kit over a libcurl that does not use OpenSSL: this program is linked with one over GnuTLS.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Authorities.h"
#include "KitClient.h"
#include "ScriptedServer.h"
#include "TlsIdentity.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using Answer = ScriptedServer::Answer;

namespace {

class KitOverGnuTls : public KitPromise
{
protected:
    KIT::TransferPolicy Trusting(const TlsIdentity& trusted) const
    {
        return LocalPolicy().SetSchemes({"https"}).SetAuthorityFile(trusted.CertificateFile());
    }

    static Answer Greet(const ScriptedServer::Request&) { return {Good}; }

    const TlsIdentity identity;
    const TlsIdentity other;
    ScriptedServer server{Greet, {identity}};
};

INSTANTIATE_TEST_SUITE_P(Each, KitOverGnuTls, Ways(), NameOfWay);

}  // namespace

TEST_P(KitOverGnuTls, LeavesTheAuthoritiesToLibcurl)
{
    ASSERT_THAT(curl_version_info(CURLVERSION_NOW)->ssl_version, ::testing::StartsWith("GnuTLS/"));
    const KIT::TransferPolicy policy = Trusting(identity);
    EXPECT_FALSE(KIT::Authorities(KIT::PolicyAccess::Get(policy)).AreShared());
}

TEST_P(KitOverGnuTls, TrustsTheAuthoritiesOfAFile)
{
    const Course course = WatchWith(Trusting(identity), Request(server.Url()));
    EXPECT_EQ(course.Category(), Category::Success);
    EXPECT_EQ(course.received.body, "good");
}

TEST_P(KitOverGnuTls, TrustsNobodyElse)
{
    for (const KIT::TransferPolicy& policy :
         {Trusting(other), LocalPolicy().SetSchemes({"https"})}) {
        EXPECT_EQ(WatchWith(policy, Request(server.Url())).Category(), Category::TlsNotTrusted);
    }
    EXPECT_TRUE(server.Requests().empty());
}

TEST_P(KitOverGnuTls, ChecksThePinnedKey)
{
    EXPECT_EQ(WatchWith(Trusting(identity).SetPinnedKey(identity.Pin()), Request(server.Url()))
                  .Category(),
              Category::Success);
    EXPECT_EQ(
        WatchWith(Trusting(identity).SetPinnedKey(other.Pin()), Request(server.Url())).Category(),
        Category::TlsNotTrusted);
}

TEST_P(KitOverGnuTls, ShowsAClientCertificate)
{
    ScriptedServer demanding(Greet, {identity, &other});
    const KIT::TransferPolicy policy =
        Trusting(identity).SetClientCertificate(other.CertificateFile(), other.KeyFile());
    EXPECT_EQ(WatchWith(policy, Request(demanding.Url())).Category(), Category::Success);
    EXPECT_FALSE(
        WatchWith(Trusting(identity).SetAttempts(1), Request(demanding.Url())).received.success);
}
