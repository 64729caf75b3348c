#include "trace/TimelinePlot.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "base/Units.h"
#include "trace/Svg.h"

namespace VORTAN_TRANSFER {

namespace {

using Time = Timeline::Time;
using Course = Timeline::Course;

// Names are to the left of the bars, what became of the sources is to the right.
constexpr double Left = 280;
constexpr double PlotWidth = 900;
constexpr double Right = 220;
constexpr double Top = 40;
constexpr double RowHeight = 26;
constexpr double BarHeight = 18;
constexpr double TextRise = 5;  // from the middle of a text down to the line that it stands on
constexpr double Gap = 8;
constexpr double AxisHeight = 50;

constexpr const char* StyleSheet =
    "text { font: 12px sans-serif; fill: #222 }\n"
    ".paper { fill: #fff }\n"
    ".name { text-anchor: end }\n"
    ".tick, .axis { text-anchor: middle }\n"
    ".grid { stroke: #ddd }\n"
    ".queued { fill: #e8e8e8 }\n"
    ".delay { fill: #f3dca2 }\n"
    ".response { fill: #f2b8a0 }\n"
    ".body { fill: #cfe3f5 }\n"
    ".chunk { fill: #1f6fb5 }\n"
    ".header { stroke: #7a3db8; stroke-width: 2 }\n"
    ".succeeded { stroke: #1a7f37; stroke-width: 2 }\n"
    ".failed { stroke: #c62828; stroke-width: 2 }\n";

// Only the end of a long text, which tells more of a URL than its beginning.
std::string Shortened(const std::string& text)
{
    constexpr std::size_t most = 38;
    if (text.size() <= most) {
        return text;
    }
    std::size_t begin = text.size() - most;
    constexpr unsigned char continuationMask = 0xC0;
    constexpr unsigned char continuation = 0x80;
    while (begin < text.size() &&
           (static_cast<unsigned char>(text[begin]) & continuationMask) == continuation) {
        ++begin;
    }
    return "\xE2\x80\xA6" + text.substr(begin);
}

// A unit of time, and how many microseconds it has.
struct Unit
{
    const char* name;
    double length;
};

Unit UnitFor(double time)
{
    constexpr double millisecond = 1e3;
    constexpr double second = 1e6;
    constexpr double enough = 10;  // of a unit, to use it
    return time >= enough * second        ? Unit{"s", second}
           : time >= enough * millisecond ? Unit{"ms", millisecond}
                                          : Unit{"\xC2\xB5s", 1};
}

// 1, 2 or 5 times a power of ten, so that it fits into the time not more than ten times.
double StepFor(double time)
{
    constexpr double most = 10;
    double step = 1;
    for (;; step *= 10) {
        for (const double factor : {1., 2., 5.}) {
            if (time <= most * factor * step) {
                return factor * step;
            }
        }
    }
}

class Plot
{
public:
    explicit Plot(const Timeline& timeline)
        : m_Timeline(timeline),
          m_Duration(static_cast<double>(std::max<Time::rep>(timeline.End().count(), 1))),
          m_Bottom(Top + RowHeight * static_cast<double>(timeline.Courses().size()))
    {
        for (const Course& course : timeline.Courses()) {
            for (const auto& [bin, bytes] : course.bins) {
                m_MostBytes = std::max(m_MostBytes, bytes);
            }
        }
    }

    std::string Draw()
    {
        m_DrawLegend();
        m_DrawAxis();
        double y = Top;
        for (const Course& course : m_Timeline.Courses()) {
            m_DrawCourse(course, y);
            y += RowHeight;
        }
        return m_Svg.Document(Left + PlotWidth + Right, m_Bottom + AxisHeight, StyleSheet);
    }

private:
    double m_X(Time time) const
    {
        return Left + PlotWidth * static_cast<double>(time.count()) / m_Duration;
    }

    void m_DrawLegend()
    {
        const std::pair<const char*, const char*> bars[] = {{"queued", "waits for its turn"},
                                                            {"delay", "delay"},
                                                            {"response", "waits for the body"},
                                                            {"body", "body arrives"},
                                                            {"chunk", "chunk, as high as large"}};
        const std::pair<const char*, const char*> lines[] = {
            {"header", "first header"}, {"succeeded", "succeeded"}, {"failed", "did not succeed"}};
        constexpr double size = 12;
        double x = Gap;
        for (const auto& [style, text] : bars) {
            m_Svg.Rectangle(style, x, Gap, size, size);
            x = m_DrawLegendText(x + size + Gap, text);
        }
        for (const auto& [style, text] : lines) {
            m_Svg.VerticalLine(style, x, Gap, size);
            x = m_DrawLegendText(x + Gap, text);
        }
    }

    // Returns where the next entry begins.
    double m_DrawLegendText(double x, const std::string& text)
    {
        constexpr double height = 12;
        constexpr double widthOfLetter = 6.5;  // on average, in most fonts
        m_Svg.Text("legend", x, Gap + height / 2 + TextRise, text);
        return x + widthOfLetter * static_cast<double>(text.size()) + 2 * Gap;
    }

    void m_DrawAxis()
    {
        const Unit unit = UnitFor(m_Duration);
        const double duration = m_Duration / unit.length;
        const double step = StepFor(duration);
        for (int tick = 0; tick * step <= duration; ++tick) {
            const double x = Left + PlotWidth * tick * step / duration;
            m_Svg.VerticalLine("grid", x, Top, m_Bottom - Top);
            m_Svg.Text("tick", x, m_Bottom + 2 * Gap, Format("%.0f", tick * step));
        }
        m_Svg.Text("axis", Left + PlotWidth / 2, m_Bottom + AxisHeight - Gap,
                   std::string("time since the start of the program in ") + unit.name);
    }

    void m_DrawCourse(const Course& course, double y)
    {
        const Time end = course.complete.value_or(m_Timeline.End());
        const std::string became =
            course.result + ", " + Size(static_cast<double>(course.bytes)) + ", " +
            ShortDuration(
                std::chrono::duration<double>(end - course.started.value_or(end)).count());
        const double textY = y + BarHeight / 2 + TextRise;
        m_Svg.BeginGroup(course.source + ": " + became);
        m_Svg.Text("name", Left - Gap, textY, Shortened(course.source));
        m_DrawPhases(course, end, y);
        m_DrawChunks(course, y);
        if (course.firstHeader) {
            m_Svg.VerticalLine("header", m_X(*course.firstHeader), y, BarHeight);
        }
        const bool isGood = course.result == "succeeded" || course.result == "not modified";
        m_Svg.VerticalLine(isGood ? "succeeded" : "failed", m_X(end), y, BarHeight);
        m_Svg.Text("became", Left + PlotWidth + Gap, textY, became);
        m_Svg.EndGroup();
    }

    // Each phase lasts until the next one that there was.
    void m_DrawPhases(const Course& course, Time end, double y)
    {
        const Time body = course.firstBody.value_or(end);
        const Time response = course.slept.value_or(course.started.value_or(body));
        const Time started = course.started.value_or(end);
        m_DrawPhase("queued", course.queued, started, y);
        m_DrawPhase("delay", started, response, y);
        m_DrawPhase("response", response, body, y);
        m_DrawPhase("body", body, end, y);
    }

    void m_DrawPhase(const char* style, Time from, Time to, double y)
    {
        if (from < to) {
            m_Svg.Rectangle(style, m_X(from), y, m_X(to) - m_X(from), BarHeight);
        }
    }

    void m_DrawChunks(const Course& course, double y)
    {
        constexpr double least = 1;
        const Time width = m_Timeline.BinWidth();
        for (const auto& [bin, bytes] : course.bins) {
            const double height = std::max(
                least, BarHeight * static_cast<double>(bytes) / static_cast<double>(m_MostBytes));
            const Time begin = width * static_cast<Time::rep>(bin);
            m_Svg.Rectangle("chunk", m_X(begin), y + BarHeight - height,
                            std::max(least, m_X(begin + width) - m_X(begin)), height);
        }
    }

    const Timeline& m_Timeline;
    const double m_Duration;  // in microseconds
    const double m_Bottom;    // of the bars
    std::uint64_t m_MostBytes = 1;
    Svg m_Svg;
};

}  // namespace

std::string DrawTimeline(const Timeline& timeline)
{
    return Plot(timeline).Draw();
}

}  // namespace VORTAN_TRANSFER
