#include <gtest/gtest.h>

#include <iterator>
#include <limits>
#include <regex>

#include "trace/Svg.h"
#include "trace/Timeline.h"
#include "trace/TimelinePlot.h"

using namespace VORTAN_TRANSFER;

namespace {

using Kind = TraceEvent::Kind;
using Bins = std::map<std::size_t, std::uint64_t>;
using std::chrono::microseconds;

TraceEvent At(std::int64_t time, Kind kind, std::uint64_t bytes = 0, const std::string& text = "")
{
    return {microseconds(time), 0, kind, bytes, text};
}

// How often the text has a match of the expression.
std::ptrdiff_t Count(const std::string& text, const std::string& expression)
{
    const std::regex wanted(expression);
    return std::distance(std::sregex_iterator(text.begin(), text.end(), wanted),
                         std::sregex_iterator());
}

std::string TextIn(const std::string& text)
{
    Svg svg;
    svg.Text("style", 1, 2, text);
    const std::string document = svg.Document(10, 20, "");
    const std::string before = "y=\"2.00\">";
    const std::size_t begin = document.find(before) + before.size();
    return document.substr(begin, document.find("</text>") - begin);
}

}  // namespace

TEST(Timeline, KeepsTheTimesOfASource)
{
    Timeline timeline;
    timeline.Add(At(1, Kind::Queued, 0, "source"));
    timeline.Add(At(2, Kind::Started));
    timeline.Add(At(3, Kind::Slept));
    timeline.Add(At(4, Kind::FirstHeader));
    timeline.Add(At(5, Kind::FirstBody));
    timeline.Add(At(6, Kind::Complete, 7, "succeeded"));
    ASSERT_EQ(timeline.Courses().size(), 1U);
    const Timeline::Course& course = timeline.Courses()[0];
    EXPECT_EQ(course.source, "source");
    EXPECT_EQ(course.queued, microseconds(1));
    EXPECT_EQ(course.started, microseconds(2));
    EXPECT_EQ(course.slept, microseconds(3));
    EXPECT_EQ(course.firstHeader, microseconds(4));
    EXPECT_EQ(course.firstBody, microseconds(5));
    EXPECT_EQ(course.complete, microseconds(6));
    EXPECT_EQ(course.bytes, 7U);
    EXPECT_EQ(course.result, "succeeded");
    EXPECT_EQ(timeline.End(), microseconds(6));
}

TEST(Timeline, KeepsChunksApartThatAreFarApart)
{
    Timeline timeline;
    timeline.Add(At(0, Kind::Chunk, 1));
    timeline.Add(At(1, Kind::Chunk, 2));
    timeline.Add(At(1, Kind::Chunk, 3));
    timeline.Add(At(1023, Kind::Chunk, 4));
    EXPECT_EQ(timeline.BinWidth(), microseconds(1));
    EXPECT_EQ(timeline.Courses()[0].bins, (Bins{{0, 1}, {1, 5}, {1023, 4}}));
}

TEST(Timeline, AddsUpChunksThatAreCloseSeenFromAfar)
{
    Timeline timeline;
    timeline.Add(At(0, Kind::Chunk, 1));
    timeline.Add(At(3, Kind::Chunk, 2));
    timeline.Add(At(4, Kind::Chunk, 3));
    timeline.Add(At(4095, Kind::Chunk, 4));
    EXPECT_EQ(timeline.BinWidth(), microseconds(4));
    EXPECT_EQ(timeline.Courses()[0].bins, (Bins{{0, 3}, {1, 3}, {1023, 4}}));
}

TEST(Timeline, DoesNotGrowWithTheLengthOfATransfer)
{
    Timeline timeline;
    std::uint64_t bytes = 0;
    for (std::int64_t chunk = 0; chunk < 100000; ++chunk) {
        timeline.Add(At(chunk * 997, Kind::Chunk, 16384));
    }
    for (const auto& [bin, inBin] : timeline.Courses()[0].bins) {
        EXPECT_LT(bin, Timeline::MaxBins);
        bytes += inBin;
    }
    EXPECT_EQ(bytes, 100000U * 16384U);
}

TEST(Timeline, CopesWithAnyTime)
{
    Timeline timeline;
    timeline.Add(At(0, Kind::Chunk, 1));
    timeline.Add(At(std::numeric_limits<std::int64_t>::max(), Kind::Chunk, 2));
    EXPECT_EQ(timeline.Courses()[0].bins, (Bins{{0, 1}, {1023, 2}}));
}

TEST(Svg, EscapesWhatMarksUp)
{
    EXPECT_EQ(TextIn("</text><script>&\"'"), "&lt;/text&gt;&lt;script&gt;&amp;\"'");
}

TEST(Svg, EscapesControlCharacters)
{
    EXPECT_EQ(TextIn(std::string("a\0b\x1b\n\xc2\x85", 7)), "a\\x00b\\x1b\\n\\xc2\\x85");
}

TEST(Svg, ReplacesWhatIsNoTextInXml)
{
    EXPECT_EQ(TextIn("a\xff"
                     "b\xc3"),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");
    EXPECT_EQ(TextIn("\xEF\xBF\xBE-\xEF\xBF\xBF"), "\xEF\xBF\xBD-\xEF\xBF\xBD");
    EXPECT_EQ(TextIn("\xC3\xA9\xF0\x9F\x98\x80"), "\xC3\xA9\xF0\x9F\x98\x80");
}

TEST(DrawTimeline, HasABarForEachPhaseAndAColumnForEachChunk)
{
    Timeline timeline;
    timeline.Add(At(0, Kind::Queued, 0, "source"));
    timeline.Add(At(100, Kind::Started));
    timeline.Add(At(200, Kind::Slept));
    timeline.Add(At(250, Kind::FirstHeader));
    timeline.Add(At(300, Kind::FirstBody));
    timeline.Add(At(300, Kind::Chunk, 1000));
    timeline.Add(At(400, Kind::Chunk, 500));
    timeline.Add(At(1000, Kind::Complete, 1500, "succeeded"));
    const std::string svg = DrawTimeline(timeline);
    // 900 pixels are 1000 microseconds, beginning at 280.
    EXPECT_EQ(Count(svg, R"(<rect class="queued" x="280.00" y="40.00" width="90.00")"), 1);
    EXPECT_EQ(Count(svg, R"(<rect class="delay" x="370.00" y="40.00" width="90.00")"), 1);
    EXPECT_EQ(Count(svg, R"(<rect class="response" x="460.00" y="40.00" width="90.00")"), 1);
    EXPECT_EQ(Count(svg, R"(<rect class="body" x="550.00" y="40.00" width="630.00")"), 1);
    EXPECT_EQ(Count(svg, R"(class="chunk" x="550.00" y="40.00" width="1.00" height="18.00")"), 1);
    EXPECT_EQ(Count(svg, R"(class="chunk" x="640.00" y="49.00" width="1.00" height="9.00")"), 1);
    EXPECT_EQ(Count(svg, R"(<line class="header" x1="505.00")"), 1);
    EXPECT_EQ(Count(svg, R"(<line class="succeeded" x1="1180.00")"), 1);
    EXPECT_EQ(Count(svg, ">succeeded, 1.5 KiB, 0.001 s<"), 1);
}

TEST(DrawTimeline, MarksWhatIsNotModifiedAsASuccess)
{
    Timeline timeline;
    timeline.Add(At(0, Kind::Queued, 0, "source"));
    timeline.Add(At(9, Kind::Complete, 0, "not modified"));
    EXPECT_EQ(Count(DrawTimeline(timeline), R"(<line class="succeeded" x1="1180.00")"), 1);
}

TEST(DrawTimeline, MarksWhatDidNotSucceed)
{
    Timeline timeline;
    timeline.Add(At(0, Kind::Queued, 0, "source"));
    timeline.Add(At(9, Kind::Complete, 0, "failed"));
    EXPECT_EQ(Count(DrawTimeline(timeline), R"(<line class="failed" x1="1180.00")"), 1);
}

TEST(DrawTimeline, ShowsTheEndOfALongNameAndAllOfItBesideThePointer)
{
    Timeline timeline;
    const std::string name = std::string(50, 'a') + "\xC3\xA9" + std::string(37, 'b');
    timeline.Add(At(0, Kind::Queued, 0, name));
    const std::string svg = DrawTimeline(timeline);
    EXPECT_EQ(Count(svg, "<title>" + name + ": "), 1);
    EXPECT_EQ(Count(svg, ">\xE2\x80\xA6" + std::string(37, 'b') + "<"), 1);
}

TEST(DrawTimeline, HasATickAtRoundTimesInAUnitThatFits)
{
    const auto axisAt = [](std::int64_t end) {
        Timeline timeline;
        timeline.Add(At(0, Kind::Queued));
        timeline.Add(At(end, Kind::Complete, 0, "failed"));
        const std::string svg = DrawTimeline(timeline);
        std::string ticks;
        const std::regex tick("class=\"(tick|axis)\"[^>]*>([^<]*)<");
        for (std::sregex_iterator at(svg.begin(), svg.end(), tick), none; at != none; ++at) {
            ticks += (*at)[2].str() + "|";
        }
        return ticks;
    };
    const std::string title = "time since the start of the program in ";
    EXPECT_EQ(axisAt(0), "0|1|" + title + "\xC2\xB5s|");
    EXPECT_EQ(axisAt(9999),
              "0|1000|2000|3000|4000|5000|6000|7000|8000|9000|" + title + "\xC2\xB5s|");
    EXPECT_EQ(axisAt(10000), "0|1|2|3|4|5|6|7|8|9|10|" + title + "ms|");
    EXPECT_EQ(axisAt(45000000), "0|5|10|15|20|25|30|35|40|45|" + title + "s|");
}
