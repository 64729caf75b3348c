#include "trace/Svg.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "base/Text.h"
#include "base/Units.h"

namespace VORTAN_TRANSFER {

namespace {

// Bytes that are no UTF-8 are replaced by U+FFFD.
std::string ValidUtf8(const std::string& text)
{
    using Json = nlohmann::json;
    constexpr int noIndent = -1;
    constexpr bool asciiOnly = false;
    return Json::parse(Json(text).dump(noIndent, ' ', asciiOnly, Json::error_handler_t::replace));
}

void ReplaceAll(std::string& text, std::string_view from, std::string_view to)
{
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

// What XML allows in a text, whatever the bytes.
std::string XmlText(const std::string& text)
{
    std::string xml = ValidUtf8(Printable(text));
    ReplaceAll(xml, "\xEF\xBF\xBE", "\xEF\xBF\xBD");
    ReplaceAll(xml, "\xEF\xBF\xBF", "\xEF\xBF\xBD");
    ReplaceAll(xml, "&", "&amp;");
    ReplaceAll(xml, "<", "&lt;");
    ReplaceAll(xml, ">", "&gt;");
    return xml;
}

std::string Attribute(const char* name, double value)
{
    return Format(" %s=\"%.2f\"", name, value);
}

std::string Position(const std::string& style, double x, double y)
{
    return " class=\"" + style + "\"" + Attribute("x", x) + Attribute("y", y);
}

}  // namespace

void Svg::BeginGroup(const std::string& title)
{
    m_Body += "<g><title>" + XmlText(title) + "</title>\n";
}

void Svg::EndGroup()
{
    m_Body += "</g>\n";
}

void Svg::Rectangle(const std::string& style, double x, double y, double width, double height)
{
    m_Body += "<rect" + Position(style, x, y) + Attribute("width", width) +
              Attribute("height", height) + "/>\n";
}

void Svg::VerticalLine(const std::string& style, double x, double y, double height)
{
    m_Body += "<line class=\"" + style + "\"" + Attribute("x1", x) + Attribute("x2", x) +
              Attribute("y1", y) + Attribute("y2", y + height) + "/>\n";
}

void Svg::Text(const std::string& style, double x, double y, const std::string& text)
{
    m_Body += "<text" + Position(style, x, y) + ">" + XmlText(text) + "</text>\n";
}

std::string Svg::Document(double width, double height, const std::string& styleSheet) const
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<svg xmlns=\"http://www.w3.org/2000/svg\"" +
           Attribute("width", width) + Attribute("height", height) +
           Format(" viewBox=\"0 0 %.2f %.2f\">\n", width, height) + "<style>\n" + styleSheet +
           "</style>\n" + "<rect class=\"paper\" width=\"100%\" height=\"100%\"/>\n" + m_Body +
           "</svg>\n";
}

}  // namespace VORTAN_TRANSFER
