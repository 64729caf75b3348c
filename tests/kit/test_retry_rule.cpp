// When a failed attempt is followed by another. Time is virtual here.

#include <gtest/gtest.h>

#include <algorithm>

#include "Failure.h"
#include "HttpDate.h"
#include "RetryRule.h"

using namespace VORTAN_MW::KIT;  // NOLINT(google-build-using-namespace)
using std::chrono::hours;
using std::chrono::seconds;

namespace {

class KitRetryRule : public ::testing::Test
{
protected:
    std::optional<Milliseconds> Next(RetryRule& rule) { return rule.Next(attempt, now, left); }

    static RetryRule::FailedAttempt Passing()
    {
        RetryRule::FailedAttempt passing;
        passing.mayPass = true;
        passing.isRepeatable = true;
        return passing;
    }

    RetryRule::FailedAttempt attempt = Passing();
    const SteadyTime now{};
    Milliseconds left = hours(1);
    Policy policy;
    JitterSource jitter{7};
    RetryBudget budget{20, seconds(60), now};
};

constexpr std::int64_t November6 = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT

}  // namespace

TEST_F(KitRetryRule, AllowsAsManyAttemptsAsThePolicy)
{
    policy.attempts = 3;
    RetryRule rule(policy, budget, jitter);
    EXPECT_TRUE(Next(rule));
    EXPECT_TRUE(Next(rule));
    EXPECT_FALSE(Next(rule));
}

TEST_F(KitRetryRule, RefusesWhatCannotPassOrBeRepeated)
{
    RetryRule rule(policy, budget, jitter);
    attempt.mayPass = false;
    EXPECT_FALSE(Next(rule));
    attempt = Passing();
    attempt.isRepeatable = false;
    EXPECT_FALSE(Next(rule));
    attempt = Passing();
    EXPECT_TRUE(Next(rule));
}

TEST_F(KitRetryRule, DoublesTheLongestWaitUpToItsBound)
{
    policy.attempts = 1000;
    policy.retryBudget = 0;
    RetryBudget ample(1000, seconds(60), now);
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        JitterSource own(seed);
        RetryRule rule(policy, ample, own);
        for (const int bound : {500, 1000, 2000, 4000, 8000, 16000, 32000, 60000, 60000}) {
            const Milliseconds wait = rule.Next(attempt, now, left).value_or(Milliseconds(-1));
            EXPECT_GE(wait.count(), 0);
            EXPECT_LE(wait.count(), bound);
            ample.GiveBack();
        }
    }
}

TEST_F(KitRetryRule, DrawsWaitsEvenly)
{
    constexpr int draws = 100000;
    int halves[2] = {};
    std::int64_t sum = 0;
    Milliseconds longest(0);
    for (int draw = 0; draw < draws; ++draw) {
        const Milliseconds wait = jitter.Draw(Milliseconds(999));
        longest = std::max(longest, wait);
        sum += wait.count();
        ++halves[wait.count() < 500 ? 0 : 1];
    }
    EXPECT_EQ(longest.count(), 999);
    EXPECT_NEAR(static_cast<double>(sum) / draws, 499.5, 5);
    EXPECT_NEAR(halves[0], halves[1], 2000);
}

TEST_F(KitRetryRule, DrawsTheSameWaitsFromTheSameSeedOnly)
{
    JitterSource first(1);
    JitterSource same(1);
    JitterSource other(2);
    JitterSource unseeded(std::nullopt);
    const Milliseconds longest = hours(1000);
    const Milliseconds wait = first.Draw(longest);
    EXPECT_EQ(wait, same.Draw(longest));
    EXPECT_NE(wait, other.Draw(longest));
    EXPECT_NE(wait, unseeded.Draw(longest));
}

TEST_F(KitRetryRule, CountsNoAttemptThatDeliveredAByte)
{
    policy.attempts = 2;
    RetryBudget empty(0, seconds(60), now);
    RetryRule rule(policy, empty, jitter);
    attempt.delivered = true;
    for (int n = 0; n < 100; ++n) {
        const auto wait = Next(rule);
        ASSERT_TRUE(wait);
        EXPECT_LE(*wait, policy.backoff);
    }
    attempt.delivered = false;
    EXPECT_FALSE(Next(rule));
}

TEST_F(KitRetryRule, SharesABudgetThatSuccessAndTimeRefill)
{
    RetryBudget small(2, seconds(60), now);
    EXPECT_TRUE(small.Take(now));
    EXPECT_TRUE(small.Take(now));
    EXPECT_FALSE(small.Take(now + seconds(59)));
    small.GiveBack();
    EXPECT_TRUE(small.Take(now + seconds(59)));
    EXPECT_FALSE(small.Take(now + seconds(59)));
    EXPECT_TRUE(small.Take(now + seconds(60)));
    EXPECT_FALSE(small.Take(now + seconds(60)));
    EXPECT_TRUE(small.Take(now + hours(100)));
    EXPECT_TRUE(small.Take(now + hours(100)));
    EXPECT_FALSE(small.Take(now + hours(100)));
    for (int n = 0; n < 10; ++n) {
        small.GiveBack();
    }
    EXPECT_TRUE(small.Take(now + hours(100)));
    EXPECT_TRUE(small.Take(now + hours(100)));
    EXPECT_FALSE(small.Take(now + hours(100)));
}

TEST_F(KitRetryRule, WaitsAtLeastAsLongAsTheServerAsks)
{
    RetryRule rule(policy, budget, jitter);
    attempt.retryAfter = seconds(60);
    EXPECT_GE(*Next(rule), seconds(60));
    attempt.retryAfter = Milliseconds(60001);
    EXPECT_FALSE(Next(rule));
}

TEST_F(KitRetryRule, EndsWhereTheWaitWouldOutlastTheTransfer)
{
    RetryRule rule(policy, budget, jitter);
    attempt.retryAfter = seconds(10);
    left = seconds(10);
    EXPECT_FALSE(Next(rule));
}

TEST(KitRetryAfter, IsSecondsOrADate)
{
    EXPECT_EQ(ParseRetryAfter("0", 0), Milliseconds(0));
    EXPECT_EQ(ParseRetryAfter("120", 0), seconds(120));
    EXPECT_EQ(ParseRetryAfter("Sun, 06 Nov 1994 08:49:37 GMT", November6 - 5), seconds(5));
    EXPECT_EQ(ParseRetryAfter("Sun, 06 Nov 1994 08:49:37 GMT", November6 + 5), seconds(0));
    EXPECT_GT(ParseRetryAfter("99999999999999999999999", 0), hours(24));
    for (const char* const none : {"", "-1", "1.5", "1 ", "soon", "0x10"}) {
        EXPECT_FALSE(ParseRetryAfter(none, 0)) << none;
    }
}

TEST(KitHttpDate, HasThreeFormats)
{
    EXPECT_EQ(ParseHttpDate("Sun, 06 Nov 1994 08:49:37 GMT"), November6);
    EXPECT_EQ(ParseHttpDate("Sunday, 06-Nov-94 08:49:37 GMT"), November6);
    EXPECT_EQ(ParseHttpDate("Sun Nov  6 08:49:37 1994"), November6);
    EXPECT_EQ(ParseHttpDate("Thu, 01 Jan 1970 00:00:00 GMT"), 0);
    EXPECT_EQ(ParseHttpDate("Thu, 29 Feb 2024 12:00:00 GMT"), 1709208000);
    EXPECT_EQ(ParseHttpDate("Tue, 19 Jan 2038 03:14:08 GMT"), std::int64_t{1} << 31);
    for (const char* const none :
         {"", "x", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Xyz 1994 08:49:37 GMT",
          "Sun, 06 Nov 1994 24:00:00 GMT", "Sun, 32 Nov 1994 08:49:37 GMT",
          "Sun, 06 Nov 1994 08:49:37 GMT and more"}) {
        EXPECT_FALSE(ParseHttpDate(none)) << none;
    }
}

TEST(KitFailure, MayPassIfItIsOfTheNetworkOrTheServerIsBusy)
{
    for (const CURLcode code :
         {CURLE_COULDNT_RESOLVE_HOST, CURLE_COULDNT_CONNECT, CURLE_OPERATION_TIMEDOUT,
          CURLE_SSL_CONNECT_ERROR, CURLE_PARTIAL_FILE, CURLE_GOT_NOTHING, CURLE_SEND_ERROR,
          CURLE_RECV_ERROR}) {
        EXPECT_TRUE(FailureOf(code, 0).mayPass) << code;
    }
    for (const CURLcode code :
         {CURLE_PEER_FAILED_VERIFICATION, CURLE_SSL_PINNEDPUBKEYNOTMATCH, CURLE_OUT_OF_MEMORY,
          CURLE_WRITE_ERROR, CURLE_OK, CURLE_FAILED_INIT, CURLE_WEIRD_SERVER_REPLY}) {
        EXPECT_FALSE(FailureOf(code, 0).mayPass) << code;
    }
    for (const long status : {408, 425, 429, 500, 502, 503, 504}) {
        EXPECT_TRUE(MayPass(status)) << status;
    }
    for (const long status : {200, 301, 400, 401, 403, 404, 410, 416, 501, 505}) {
        EXPECT_FALSE(MayPass(status)) << status;
    }
}

TEST(KitFailure, TellsARefusedConnectionFromOneThatCannotBeMade)
{
    EXPECT_EQ(FailureOf(CURLE_COULDNT_CONNECT, ECONNREFUSED).category, Category::ConnectionRefused);
    EXPECT_EQ(FailureOf(CURLE_COULDNT_CONNECT, EHOSTUNREACH).category, Category::NotConnected);
    EXPECT_EQ(FailureOf(CURLE_FAILED_INIT, 0).category, Category::Internal);
}

TEST(KitFailure, IsToldInOneSentence)
{
    for (std::uint32_t number = 0; number <= 18; ++number) {
        const std::string sentence = SentenceOf(static_cast<Category>(number), "host", 404);
        EXPECT_EQ(sentence.back(), '.') << sentence;
        EXPECT_NE(sentence.find("(host host)"), std::string::npos) << sentence;
    }
    EXPECT_EQ(SentenceOf(Category::HttpStatus, "", 404),
              "The server answered with HTTP status 404.");
}
