// What the kit makes of header lines, and of a response to the request for the rest of a body.

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <limits>

#include "Continuation.h"
#include "HeaderCollector.h"

using namespace VORTAN_MW::KIT;  // NOLINT(google-build-using-namespace)
using State = HeaderCollector::State;
using Verdict = Continuation::Verdict;

namespace {

State Take(HeaderCollector& header, const std::string& line)
{
    return header.Take(line.data(), line.size());
}

HeaderCollector Header(const std::string& status, const std::initializer_list<std::string>& lines)
{
    HeaderCollector header(10000);
    Take(header, "HTTP/1.1 " + status + "\r\n");
    for (const std::string& line : lines) {
        Take(header, line + "\r\n");
    }
    EXPECT_EQ(Take(header, "\r\n"), State::Complete);
    return header;
}

Continuation Begun(const std::initializer_list<std::string>& lines)
{
    Continuation continuation;
    continuation.Begin(Header("200 OK", lines));
    return continuation;
}

const std::initializer_list<std::string> First = {"ETag: \"a\"", "Content-Length: 100"};

}  // namespace

TEST(KitHeader, IsCompleteWithItsEmptyLine)
{
    HeaderCollector header(1000);
    EXPECT_EQ(Take(header, "HTTP/1.1 200 OK\r\n"), State::Incomplete);
    EXPECT_EQ(Take(header, "A: b\r\n"), State::Incomplete);
    EXPECT_FALSE(header.IsComplete());
    EXPECT_EQ(Take(header, "\r\n"), State::Complete);
    EXPECT_TRUE(header.IsComplete());
    EXPECT_EQ(header.Status(), 200);
    EXPECT_EQ(header.Block(), "HTTP/1.1 200 OK\r\nA: b\r\n\r\n");
}

TEST(KitHeader, LeavesInterimResponsesOut)
{
    HeaderCollector header(1000);
    for (const char* const line : {"HTTP/1.1 103 Early Hints\r\n", "Link: x\r\n", "\r\n",
                                   "HTTP/1.1 100 Continue\r\n", "\r\n", "HTTP/1.1 204 None\r\n"}) {
        EXPECT_EQ(Take(header, line), State::Incomplete);
    }
    EXPECT_EQ(Take(header, "\r\n"), State::Complete);
    EXPECT_EQ(header.Block(), "HTTP/1.1 204 None\r\n\r\n");
}

TEST(KitHeader, KeepsTrailersApart)
{
    HeaderCollector header = Header("200 OK", {});
    EXPECT_EQ(Take(header, "T: 1\r\n"), State::InBody);
    EXPECT_EQ(Take(header, "HTTP/: 1\r\n"), State::InBody);
    EXPECT_EQ(Take(header, "\r\n"), State::InBody);
    EXPECT_EQ(header.Trailer(), "T: 1\r\nHTTP/: 1\r\n");
}

TEST(KitHeader, CountsEveryLineAgainstItsBound)
{
    HeaderCollector header(60);
    for (const char* const line : {"HTTP/1.1 100 Continue\r\n", "\r\n", "HTTP/1.1 200 OK\r\n"}) {
        EXPECT_EQ(Take(header, line), State::Incomplete);
    }
    EXPECT_EQ(Take(header, "\r\n"), State::Complete);
    EXPECT_EQ(Take(header, "T: 7890123456\r\n"), State::InBody);
    EXPECT_EQ(header.Length(), 59U);
    EXPECT_EQ(Take(header, "\r\n"), State::TooLong);
}

TEST(KitHeader, BeginsWithAStatusLine)
{
    for (const char* const line :
         {"ICY 200 OK\r\n", "HTTP/1.1\r\n", "HTTP/1.1 2x0 OK\r\n", "HTTP/1.1 20\r\n",
          "HTTP/1.1 099 OK\r\n", "HTTP/1.1 101 Switching\r\n", "\r\n", "A: b\r\n"}) {
        HeaderCollector header(1000);
        EXPECT_EQ(Take(header, line), State::Invalid) << line;
    }
}

TEST(KitHeader, HasValuesByName)
{
    const HeaderCollector header =
        Header("200 OK", {"One:  a b \t", "two:c", "TWO: d", "Onetwo: e", "Empty:"});
    EXPECT_EQ(header.Value("one"), "a b");
    EXPECT_EQ(header.Value("Empty"), "");
    EXPECT_EQ(header.Value("Two"), std::nullopt);
    EXPECT_EQ(header.Count("Two"), 2U);
    EXPECT_EQ(header.Count("HTTP/1.1 200 OK"), 0U);
    EXPECT_EQ(header.Value("Three"), std::nullopt);
}

TEST(KitContentRange, IsParsed)
{
    const auto range = ContentRange::Parse("bytes 5-9/10");
    ASSERT_TRUE(range);
    EXPECT_EQ(range->first, 5U);
    EXPECT_EQ(range->last, 9U);
    EXPECT_EQ(range->total, 10U);
    EXPECT_EQ(ContentRange::Parse("bytes 5-9/*")->total, std::nullopt);
    EXPECT_EQ(ContentRange::Parse("bytes */10")->total, 10U);
    for (const char* const none :
         {"", "bytes", "bytes 5-9", "bytes 9-5/10", "bytes 5-10/10", "bytes */*", "bytes 5/10",
          "items 5-9/10", "bytes -5-9/10", "bytes 5-9/99999999999999999999", "bytes 5-9/1x"}) {
        EXPECT_FALSE(ContentRange::Parse(none)) << none;
    }
}

TEST(KitContentRange, HasNumbersOf64Bits)
{
    const auto range = ContentRange::Parse("bytes 4294967296-6442450943/18446744073709551615");
    ASSERT_TRUE(range);
    EXPECT_EQ(range->first, std::uint64_t{1} << 32);
    EXPECT_EQ(range->last, (std::uint64_t{6} << 30) - 1);
    EXPECT_EQ(range->total, std::numeric_limits<std::uint64_t>::max());
    EXPECT_FALSE(ContentRange::Parse("bytes 0-1/18446744073709551616"));
    EXPECT_FALSE(ContentRange::Parse("bytes 4294967296-1/*"));
}

TEST(KitContinuation, NeedsAStrongValidator)
{
    EXPECT_EQ(Begun({"ETag: \"a\""}).Validator(), "\"a\"");
    EXPECT_FALSE(Begun({"ETag: W/\"a\""}).IsPossible());
    EXPECT_FALSE(Begun({"ETag: a"}).IsPossible());
    EXPECT_FALSE(Begun({"ETag: \"a\"", "ETag: \"b\""}).IsPossible());
    EXPECT_FALSE(Begun({}).IsPossible());
}

TEST(KitContinuation, TrustsALastModifiedThatIsWellBeforeTheDate)
{
    const std::string modified = "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT";
    EXPECT_TRUE(Begun({modified, "Date: Sun, 06 Nov 1994 08:50:37 GMT"}).IsPossible());
    EXPECT_FALSE(Begun({modified, "Date: Sun, 06 Nov 1994 08:50:36 GMT"}).IsPossible());
    EXPECT_FALSE(Begun({modified}).IsPossible());
    EXPECT_FALSE(
        Begun({modified, "Date: Sun, 06 Nov 1994 08:50:37 GMT", "ETag: W/\"a\""}).IsPossible());
}

TEST(KitContinuation, TakesThePartThatBeginsWhereTheBodyBrokeOff)
{
    Continuation continuation = Begun(First);
    const auto judge = [&](const std::string& range, const std::string& line = "ETag: \"a\"") {
        return continuation.Judge(Header("206 Part", {"Content-Range: bytes " + range, line}), 40);
    };
    EXPECT_EQ(judge("40-99/100"), Verdict::Rest);
    EXPECT_EQ(judge("40-99/*"), Verdict::Rest);
    EXPECT_EQ(judge("40-99/100", "ETag: \"b\""), Verdict::Changed);
    EXPECT_EQ(judge("40-99/100", "A: b"), Verdict::Changed);
    EXPECT_EQ(judge("40-100/101"), Verdict::Changed);
    EXPECT_EQ(judge("39-99/100"), Verdict::Invalid);
    EXPECT_EQ(judge("41-99/100"), Verdict::Invalid);
    EXPECT_EQ(judge("40-98/100"), Verdict::Invalid);
    EXPECT_EQ(continuation.Judge(Header("206 Part", {"ETag: \"a\""}), 40), Verdict::Invalid);
}

TEST(KitContinuation, TakesAPartThatLeavesOutItsLastModified)
{
    const std::string modified = "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT";
    Continuation continuation =
        Begun({modified, "Date: Sun, 06 Nov 1994 08:50:37 GMT", "Content-Length: 100"});
    const auto judge = [&](const std::string& line) {
        return continuation.Judge(Header("206 Part", {"Content-Range: bytes 40-99/100", line}), 40);
    };
    EXPECT_EQ(judge("A: b"), Verdict::Rest);
    EXPECT_EQ(judge(modified), Verdict::Rest);
    EXPECT_EQ(judge("Last-Modified: Sun, 06 Nov 1994 08:49:38 GMT"), Verdict::Changed);
}

TEST(KitContinuation, TellsTheWholeOfTheSameVersionFromAnother)
{
    Continuation continuation = Begun(First);
    EXPECT_EQ(continuation.Judge(Header("200 OK", {"ETag: \"a\""}), 40), Verdict::Whole);
    EXPECT_EQ(continuation.Judge(Header("200 OK", {"ETag: \"b\""}), 40), Verdict::Changed);
    EXPECT_EQ(continuation.Judge(Header("200 OK", {}), 40), Verdict::Changed);
    EXPECT_EQ(continuation.Judge(Header("204 None", {}), 40), Verdict::Changed);
}

TEST(KitContinuation, IsCompleteWhereNothingIsMissing)
{
    const auto judge = [](Continuation continuation, const std::string& range,
                          const std::string& line = "A: b") {
        return continuation.Judge(Header("416 No Range", {"Content-Range: " + range, line}), 40);
    };
    EXPECT_EQ(judge(Begun({"ETag: \"a\""}), "bytes */40"), Verdict::Complete);
    EXPECT_EQ(judge(Begun({"ETag: \"a\""}), "bytes */41"), Verdict::Changed);
    EXPECT_EQ(judge(Begun({"ETag: \"a\""}), ""), Verdict::Changed);
    EXPECT_EQ(judge(Begun(First), "bytes */40"), Verdict::Changed);
    EXPECT_EQ(judge(Begun({"ETag: \"a\""}), "bytes */40", "ETag: \"b\""), Verdict::Changed);
    EXPECT_EQ(judge(Begun({"ETag: \"a\""}), "bytes */40", "ETag: \"a\""), Verdict::Complete);
}
