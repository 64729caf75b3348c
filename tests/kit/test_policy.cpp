// A policy that contradicts itself is refused with one sentence.

#include <gtest/gtest.h>

#include <stdexcept>

#include "HttpSession.h"

using namespace VORTAN_MW::KIT;  // NOLINT(google-build-using-namespace)
using std::chrono::hours;
using std::chrono::milliseconds;

namespace {

std::string Complaint(const TransferPolicy& policy)
{
    try {
        const HttpSession session(policy);
    } catch (const std::invalid_argument& refusal) {
        return refusal.what();
    }
    return "";
}

TransferPolicy Changed(TransferPolicy& (TransferPolicy::*set)(milliseconds), milliseconds value)
{
    TransferPolicy policy;
    (policy.*set)(value);
    return policy;
}

}  // namespace

TEST(KitPolicy, IsValidAsItBegins)
{
    EXPECT_EQ(Complaint(TransferPolicy()), "");
}

TEST(KitPolicy, IsAValue)
{
    TransferPolicy policy;
    policy.SetAttempts(0);
    const TransferPolicy copy(policy);
    policy.SetAttempts(1);
    EXPECT_NE(Complaint(copy), "");
    EXPECT_EQ(Complaint(policy), "");
    policy = copy;
    EXPECT_NE(Complaint(policy), "");
}

TEST(KitPolicy, IsRefusedWithALimitOutOfRange)
{
    for (const auto set : {&TransferPolicy::SetConnecting, &TransferPolicy::SetSilence,
                           &TransferPolicy::SetAltogether, &TransferPolicy::SetLongestBackoff}) {
        EXPECT_NE(Complaint(Changed(set, milliseconds(0))), "");
        EXPECT_NE(Complaint(Changed(set, milliseconds(-1))), "");
        EXPECT_NE(Complaint(Changed(set, hours(24 * 366))), "");
    }
    EXPECT_NE(Complaint(Changed(&TransferPolicy::SetBackoff, milliseconds(-1))), "");
    EXPECT_EQ(Complaint(Changed(&TransferPolicy::SetBackoff, milliseconds(0))), "");
}

TEST(KitPolicy, IsRefusedWhereOneLimitMakesAnotherPointless)
{
    EXPECT_EQ(Complaint(TransferPolicy().SetAltogether(milliseconds(9999))),
              "The connecting limit must not exceed the limit altogether.");
    EXPECT_EQ(
        Complaint(
            TransferPolicy().SetConnecting(milliseconds(1)).SetAltogether(milliseconds(29999))),
        "The silence limit must not exceed the limit altogether.");
    EXPECT_EQ(Complaint(TransferPolicy().SetBackoff(milliseconds(60001))),
              "The back-off must not exceed the longest back-off.");
}

TEST(KitPolicy, IsRefusedWithoutAnAttemptAHeaderOrAScheme)
{
    EXPECT_NE(Complaint(TransferPolicy().SetAttempts(0)), "");
    EXPECT_NE(Complaint(TransferPolicy().SetLongestHeader(0)), "");
    EXPECT_NE(Complaint(TransferPolicy().SetSchemes({})), "");
    EXPECT_NE(Complaint(TransferPolicy().SetSchemes({"https", "ftp"})), "");
    EXPECT_NE(Complaint(TransferPolicy().SetSchemes({"HTTPS"})), "");
}

TEST(KitPolicy, IsRefusedWhereItsTlsPartsDoNotFitTogether)
{
    EXPECT_NE(Complaint(TransferPolicy().SetSchemes({"http"}).SetPinnedKey("sha256//AA==")), "");
    EXPECT_NE(Complaint(TransferPolicy().SetSchemes({"http"}).SetAuthorityFile("/a")), "");
    EXPECT_NE(Complaint(TransferPolicy().SetClientCertificate("/certificate", "")), "");
    EXPECT_NE(Complaint(TransferPolicy().SetLowestTlsVersion(static_cast<TlsVersion>(11))), "");
}

TEST(KitPolicy, OfAuthoritiesThatCannotBeReadMakesNoSession)
{
    EXPECT_THROW(HttpSession(TransferPolicy().SetAuthorityFile("/nonexistent/file")),
                 std::runtime_error);
    EXPECT_THROW(HttpSession(TransferPolicy().SetAuthorityFolder("/nonexistent/folder")),
                 std::runtime_error);
    EXPECT_THROW(HttpSession(TransferPolicy().SetAuthorityFile("/dev/null")), std::runtime_error);
}
