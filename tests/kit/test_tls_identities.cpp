// What proves who is who over TLS: pinned keys and client certificates, and where they are used.

#include <gtest/gtest.h>

#include <fstream>

#include "KitClient.h"
#include "ScriptedServer.h"
#include "TlsIdentity.h"

using namespace VORTAN_MW;  // NOLINT(google-build-using-namespace)
using KIT::Category;
using Answer = ScriptedServer::Answer;

namespace {

class KitIdentity : public KitPromise
{
protected:
    KIT::TransferPolicy Trusting() const
    {
        const std::string file = folder.Path("authorities.pem");
        std::ofstream authorities(file);
        for (const TlsIdentity* const each : {&identity, &other}) {
            authorities << std::ifstream(each->CertificateFile()).rdbuf();
        }
        return LocalPolicy().SetSchemes({"https"}).SetAuthorityFile(file);
    }

    KIT::TransferPolicy Showing(const TlsIdentity& own) const
    {
        return Trusting().SetClientCertificate(own.CertificateFile(), own.KeyFile());
    }

    static Answer Greet(const ScriptedServer::Request&) { return {Good}; }

    static ScriptedServer::Handler To(const std::string& location)
    {
        return [location](const ScriptedServer::Request&) -> Answer {
            return {HttpResponse("HTTP/1.1 302 Found", "", {"Location: " + location})};
        };
    }

    const TemporaryFolder folder;
    const TlsIdentity identity;
    const TlsIdentity other;
    const TlsIdentity client;
};

INSTANTIATE_TEST_SUITE_P(Each, KitIdentity, Ways(), NameOfWay);

}  // namespace

TEST_P(KitIdentity, IsAPinnedKeyThatTheServerHas)
{
    ScriptedServer server(Greet, {identity});
    for (const std::string& key :
         {identity.Pin(), other.Pin() + ";" + identity.Pin(), identity.PublicKeyFile()}) {
        const Course course = WatchWith(Trusting().SetPinnedKey(key), Request(server.Url()));
        EXPECT_EQ(course.Category(), Category::Success) << key;
        EXPECT_EQ(course.received.body, "good");
    }
}

TEST_P(KitIdentity, IsNoOtherKeyThanThePinnedOne)
{
    ScriptedServer server(Greet, {identity});
    for (const std::string& key : {other.Pin(), other.PublicKeyFile()}) {
        const Course course = WatchWith(Trusting().SetPinnedKey(key), Request(server.Url()));
        EXPECT_EQ(course.Category(), Category::TlsNotTrusted) << key;
        EXPECT_EQ(course.observer->events.back().attempt, 1U);
    }
    EXPECT_TRUE(server.Requests().empty());
}

TEST_P(KitIdentity, IsTheClientsToAServerThatDemandsIt)
{
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        ScriptedServer server(Greet, {identity, &client, version});
        EXPECT_EQ(WatchWith(Showing(client), Request(server.Url())).Category(), Category::Success)
            << version;
    }
}

TEST_P(KitIdentity, IsMissedByAServerThatDemandsIt)
{
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        ScriptedServer server(Greet, {identity, &client, version});
        for (const KIT::TransferPolicy& policy : {Trusting(), Showing(other)}) {
            const Course course = WatchWith(policy, Request(server.Url()));
            EXPECT_EQ(course.Category(), Category::TlsFailed) << version;
            EXPECT_EQ(course.observer->events.back().attempt, 1U);
            EXPECT_EQ(course.received.status, 0);
        }
        EXPECT_TRUE(server.Requests().empty());
    }
}

TEST_P(KitIdentity, IsNotShownToAnotherOrigin)
{
    ScriptedServer elsewhere(Greet, {other, &client});
    ScriptedServer server(To(elsewhere.Url()), {identity, &client});
    KIT::HttpSession own(Showing(client));
    // The kept connection of a transfer of its own, which has shown the certificate, is not used.
    EXPECT_EQ(::Watch(own, Request(elsewhere.Url()), {}, GetParam()).Category(), Category::Success);
    EXPECT_EQ(::Watch(own, Request(server.Url()), {}, GetParam()).Category(), Category::TlsFailed);
    EXPECT_EQ(elsewhere.Requests().size(), 1U);
}

TEST_P(KitIdentity, IsPinnedForTheFirstOriginAlone)
{
    ScriptedServer elsewhere(Greet, {other});
    ScriptedServer server(To(elsewhere.Url()), {identity});
    const KIT::TransferPolicy policy = Trusting().SetPinnedKey(identity.Pin());
    EXPECT_EQ(WatchWith(policy, Request(server.Url())).Category(), Category::Success);
    EXPECT_EQ(WatchWith(policy, Request(elsewhere.Url())).Category(), Category::TlsNotTrusted);
    EXPECT_EQ(elsewhere.Requests().size(), 1U);
}
