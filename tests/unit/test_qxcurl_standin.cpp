#include <QXCurl.h>
#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "ScopedVariable.h"
#include "SslLock.h"

namespace {

using QXCurl::QXCurlEasy;
using QXCurl::QXCurlUtility;
using testing::HasSubstr;
using testing::IsEmpty;

std::string QueryString(const std::vector<std::pair<std::string, std::string>>& pairs)
{
    std::string queryString;
    for (const auto& [key, value] : pairs) {
        QXCurlUtility::makeQueryString(queryString, key, value);
    }
    return queryString;
}

std::string UriFrom(const char* base, const std::string& resource, const std::string& query = "")
{
    const ScopedVariable variable("QXCURL_BASE_URL", base);
    return QXCurlUtility::makeUri(resource, query);
}

bool InstallSslContextOf(const char* file, QXCurlEasy& easy)
{
    const ScopedVariable variable("QXCURL_CA_FILE", file);
    return easy.setHalvordPormelSSLContext();
}

}  // namespace

TEST(QXCurlQueryString, JoinsPairsInTheirOrder)
{
    EXPECT_EQ(QueryString({{"b", "2"}, {"a", "1"}, {"b", "3"}}), "b=2&a=1&b=3");
}

TEST(QXCurlQueryString, EncodesAllButUnreservedCharacters)
{
    EXPECT_EQ(QueryString({{"k", "azAZ09-._~"}}), "k=azAZ09-._~");
    EXPECT_EQ(QueryString({{"a b", " &=+%/?#\"'"}}), "a%20b=%20%26%3D%2B%25%2F%3F%23%22%27");
    EXPECT_EQ(QueryString({{"k", "\xc3\xa9\xe2\x82\xac"}}), "k=%C3%A9%E2%82%AC");
    EXPECT_EQ(QueryString({{"k", std::string("a\0b\n", 4)}}), "k=a%00b%0A");
}

TEST(QXCurlQueryString, KeepsEmptyKeysAndValues)
{
    EXPECT_EQ(QueryString({{"k", ""}, {"", "v"}, {"", ""}}), "k=&=v&=");
}

TEST(QXCurlUri, JoinsBaseAndResourceWithOneSlash)
{
    EXPECT_EQ(UriFrom("http://h:1", "a/b"), "http://h:1/a/b");
    EXPECT_EQ(UriFrom("http://h:1/", "a/b"), "http://h:1/a/b");
    EXPECT_EQ(UriFrom("http://h:1", "/a/b/"), "http://h:1/a/b/");
    EXPECT_EQ(UriFrom("http://h:1/v1//", "//a"), "http://h:1/v1/a");
    EXPECT_EQ(UriFrom("http://h:1", ""), "http://h:1/");
    EXPECT_EQ(UriFrom("http://h:1", "//"), "http://h:1/");
}

TEST(QXCurlUri, AppendsTheQueryString)
{
    EXPECT_EQ(UriFrom("http://h", "a", "k=v"), "http://h/a?k=v");
    EXPECT_EQ(UriFrom("http://h", "a?x=y", "k=v"), "http://h/a?x=y&k=v");
}

TEST(QXCurlUri, HasADefaultBase)
{
    EXPECT_EQ(UriFrom(nullptr, "a"), "https://localhost/a");
    EXPECT_EQ(UriFrom("", "a"), "https://localhost/a");
}

TEST(QXCurlHttpsCheck, GoesByTheSchemeInAnyLetterCase)
{
    EXPECT_TRUE(QXCurlUtility::checkIsHttps("https://h"));
    EXPECT_TRUE(QXCurlUtility::checkIsHttps("HttpS://h"));
    EXPECT_TRUE(QXCurlUtility::checkIsHttps("https:/h"));  // which libcurl takes for https, too
    EXPECT_FALSE(QXCurlUtility::checkIsHttps("http://h/https://"));
    EXPECT_FALSE(QXCurlUtility::checkIsHttps("https"));
    EXPECT_FALSE(QXCurlUtility::checkIsHttps("https:443/a"));
    EXPECT_FALSE(QXCurlUtility::checkIsHttps("httpss://h"));
    EXPECT_FALSE(QXCurlUtility::checkIsHttps(" https://h"));
    EXPECT_FALSE(QXCurlUtility::checkIsHttps(""));
}

TEST(QXCurlSslLock, CountsItsHolders)
{
    QXCurl::SslLock lock;
    lock.Take();
    lock.Take();
    EXPECT_TRUE(lock.Release());
    EXPECT_TRUE(lock.Release());
    EXPECT_FALSE(lock.Release());
    lock.Take();
    EXPECT_TRUE(lock.Release());
    EXPECT_FALSE(lock.Release());
}

TEST(QXCurlSslLock, CountsAcrossThreads)
{
    constexpr int threadCount = 8;
    constexpr int takesPerThread = 1000;
    QXCurl::SslLock lock;
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&lock] {
            for (int j = 0; j < takesPerThread; ++j) {
                lock.Take();
                lock.Take();
                lock.Release();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (int i = 0; i < threadCount * takesPerThread; ++i) {
        ASSERT_TRUE(lock.Release());
    }
    EXPECT_FALSE(lock.Release());
}

TEST(QXCurlSslLock, LetsAReleasePassThatNobodyIsOwed)
{
    EXPECT_TRUE(QXCurlUtility::init_ssl_lock());
    EXPECT_TRUE(QXCurlUtility::deinit_ssl_lock());
    EXPECT_FALSE(QXCurlUtility::deinit_ssl_lock());
}

TEST(QXCurlSslLock, IsOneForAllThreads)
{
    std::thread([] { QXCurlUtility::init_ssl_lock(); }).join();
    EXPECT_TRUE(QXCurlUtility::deinit_ssl_lock());
    EXPECT_FALSE(QXCurlUtility::deinit_ssl_lock());
}

TEST(QXCurlSslContext, NeedsNoBundleOfItsOwn)
{
    QXCurlEasy easy;
    EXPECT_TRUE(InstallSslContextOf(nullptr, easy));
    EXPECT_TRUE(InstallSslContextOf("", easy));
    EXPECT_THAT(easy.getLastError(), IsEmpty());
}

TEST(QXCurlSslContext, SaysWhyABundleCannotBeRead)
{
    QXCurlEasy easy;
    EXPECT_FALSE(InstallSslContextOf("/no/such/bundle", easy));
    EXPECT_EQ(easy.getLastError(),
              "cannot read the CA bundle /no/such/bundle: No such file or directory");
    EXPECT_FALSE(InstallSslContextOf("/", easy));
    EXPECT_EQ(easy.getLastError(), "cannot read the CA bundle /: Is a directory");
    EXPECT_FALSE(InstallSslContextOf("/dev/null", easy));
    EXPECT_EQ(easy.getLastError(), "cannot read the CA bundle /dev/null: it is empty");
    easy.reset();
    EXPECT_THAT(easy.getLastError(), IsEmpty());
}

TEST(QXCurlClient, IsAHeaderOnlyOnceItHasAName)
{
    QXCurlEasy easy;
    EXPECT_FALSE(easy.setVistrelHeader(QXCurlEasy::QXCURL_HDR_CLIENT));
    EXPECT_THAT(easy.getLastError(), HasSubstr("no client name"));
    EXPECT_TRUE(easy.setVistrelClient("dorix-cloud"));
    EXPECT_TRUE(easy.setVistrelHeader(QXCurlEasy::QXCURL_HDR_CLIENT));
    EXPECT_FALSE(easy.setVistrelHeader(static_cast<QXCurlEasy::t_HdrOption>(0)));
    easy.reset();
    EXPECT_FALSE(easy.setVistrelHeader(QXCurlEasy::QXCURL_HDR_CLIENT));
}

TEST(QXCurlClient, CannotSmuggleInAnotherHeader)
{
    QXCurlEasy easy;
    EXPECT_FALSE(easy.setVistrelClient(""));
    EXPECT_FALSE(easy.setVistrelClient("a\r\nX-Other: b"));
    EXPECT_FALSE(easy.setVistrelClient("a\x7f"));
    EXPECT_FALSE(easy.setVistrelClient(std::string("a\0b", 3)));
    EXPECT_THAT(easy.getLastError(), HasSubstr("client name"));
    EXPECT_TRUE(easy.setVistrelClient("\xc3\xa9 ~"));
}

TEST(QXCurlEasy, FailsWhenItHasNotBeenInitialised)
{
    QXCurlEasy easy;
    EXPECT_FALSE(easy.send());
    EXPECT_EQ(easy.getLastError(), "the handle has not been initialised");
}

TEST(QXCurlEasy, KeepsOptionsOfEveryNumberAndType)
{
    QXCurlEasy easy;
    const auto unknown = static_cast<QXCurl::QXCURL_OPTION_TYPE>(127);
    EXPECT_TRUE(easy.setOption(unknown, 1));
    EXPECT_TRUE(easy.setOption(unknown, 1L));
    EXPECT_TRUE(easy.setOption(unknown, 1LL));
    EXPECT_TRUE(easy.setOption(unknown, std::string("a")));
    EXPECT_TRUE(easy.setOption(unknown, std::list<std::string>{"a"}));
    EXPECT_TRUE(easy.setOption(unknown, static_cast<void*>(&easy)));
}

TEST(QXCurlEasy, SpeaksHttpOnly)
{
    QXCurlEasy easy;
    ASSERT_TRUE(easy.Initialize());
    easy.setOption(QXCurl::QXCURL_OPTION_URL, std::string("file:///dev/null"));
    EXPECT_FALSE(easy.send());
    EXPECT_THAT(easy.getLastError(), HasSubstr("Unsupported protocol"));
    EXPECT_THAT(easy.getLastError(), testing::EndsWith(", accessing file:///dev/null"));
}

TEST(QXCurlEasy, HasNoResponseCodeBeforeItSentAnything)
{
    QXCurlEasy easy;
    long code = -1;
    EXPECT_TRUE(easy.getInfo(QXCurl::QXCURL_INFO_RESPONSE_CODE, &code));
    EXPECT_EQ(code, 0);
    EXPECT_FALSE(easy.getInfo(static_cast<QXCurl::QXCURL_INFO_TYPE>(7), &code));
}
