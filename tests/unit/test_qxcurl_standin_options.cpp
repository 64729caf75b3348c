// What the wrapper's stand-in asks of libcurl where no server would notice.

#include <QXCurl.h>
#include <gmock/gmock.h>

#include <climits>
#include <new>

#include "CurlDouble.h"
#include "ScopedVariable.h"

using QXCurl::QXCurlEasy;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class QXCurlOptions : public testing::Test
{
protected:
    QXCurlOptions() { curl.Name(nullptr, "null"); }

    // Sends with these time-outs, and returns how libcurl is told of them.
    std::vector<std::string> TimeoutsAfter(int transfer, int connection)
    {
        QXCurlEasy easy;
        EXPECT_TRUE(easy.Initialize());
        easy.setTimeout(transfer, connection);
        EXPECT_TRUE(easy.send());
        std::vector<std::string> calls = curl.CallsOf("easy_setopt TIMEOUT");
        const std::vector<std::string> ofConnecting = curl.CallsOf("easy_setopt CONNECTTIMEOUT");
        calls.insert(calls.end(), ofConnecting.begin(), ofConnecting.end());
        return calls;
    }

    CurlDouble curl;
};

}  // namespace

TEST_F(QXCurlOptions, TimeoutsAreInSeconds)
{
    EXPECT_THAT(TimeoutsAfter(7, 8),
                ElementsAre("easy_setopt TIMEOUT 7", "easy_setopt CONNECTTIMEOUT 8"));
}

TEST_F(QXCurlOptions, NoTimeoutForConnectingIsTheLongestThatLibcurlCounts)
{
    EXPECT_THAT(TimeoutsAfter(0, 0),
                ElementsAre("easy_setopt TIMEOUT 0", "easy_setopt CONNECTTIMEOUT 2147483"));
}

TEST_F(QXCurlOptions, ANegativeTimeoutIsNone)
{
    EXPECT_THAT(TimeoutsAfter(INT_MIN, -1),
                ElementsAre("easy_setopt TIMEOUT 0", "easy_setopt CONNECTTIMEOUT 2147483"));
}

TEST_F(QXCurlOptions, ATimeoutThatLibcurlCannotCountIsItsLongest)
{
    EXPECT_THAT(TimeoutsAfter(INT_MAX, 2147484),
                ElementsAre("easy_setopt TIMEOUT 2147483", "easy_setopt CONNECTTIMEOUT 2147483"));
}

TEST_F(QXCurlOptions, SignalsAreLeftAlone)
{
    QXCurlEasy easy;
    easy.Initialize();
    easy.send();
    EXPECT_THAT(curl.Calls(), Contains("easy_setopt NOSIGNAL 1"));
}

TEST_F(QXCurlOptions, ANamedBundleTakesThePlaceOfTheSystemsAuthorities)
{
    const ScopedVariable authority("QXCURL_CA_FILE", "/proc/self/exe");
    QXCurlEasy easy;
    easy.Initialize();
    ASSERT_TRUE(easy.setHalvordPormelSSLContext());
    easy.send();
    EXPECT_THAT(curl.CallsOf("easy_setopt CA"),
                ElementsAre("easy_setopt CAINFO \"/proc/self/exe\"", "easy_setopt CAPATH null"));
}

TEST_F(QXCurlOptions, WithoutANamedBundleTheSystemsAuthoritiesStay)
{
    const ScopedVariable authority("QXCURL_CA_FILE", nullptr);
    QXCurlEasy easy;
    easy.Initialize();
    ASSERT_TRUE(easy.setHalvordPormelSSLContext());
    easy.send();
    EXPECT_THAT(curl.CallsOf("easy_setopt CA"), IsEmpty());
}

TEST_F(QXCurlOptions, WithoutLibcurlNothingCanBeSent)
{
    curl.initFails = true;
    QXCurlEasy easy;
    EXPECT_FALSE(easy.Initialize());
    EXPECT_EQ(easy.getLastError(), "libcurl cannot be used");
    EXPECT_FALSE(easy.send());
}

TEST_F(QXCurlOptions, AFailureWithoutDetailsIsToldByItsKindAlone)
{
    curl.perform = [](const CurlDoublePerform&) { return CURLE_SEND_ERROR; };
    QXCurlEasy easy;
    easy.Initialize();
    easy.setOption(QXCurl::QXCURL_OPTION_URL, std::string("http://host/"));
    EXPECT_FALSE(easy.send());
    EXPECT_EQ(easy.getLastError(), "the double's text, accessing http://host/");
}

TEST_F(QXCurlOptions, AHeaderThatDoesNotFitIntoMemoryLeavesSend)
{
    curl.refusedLines = {"B: 2"};
    QXCurlEasy easy;
    easy.Initialize();
    easy.setOption(QXCurl::QXCURL_OPTION_HTTPHEADER, std::list<std::string>{"A: 1", "B: 2"});
    EXPECT_THROW(easy.send(), std::bad_alloc);
    EXPECT_THAT(curl.CallsOf("easy_perform"), IsEmpty());
}
