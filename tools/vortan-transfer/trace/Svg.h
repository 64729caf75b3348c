#pragma once

#include <string>

namespace VORTAN_TRANSFER {

// A picture in the making. Lengths are in pixels, from the upper left corner; style names a class
// of the style sheet.
class Svg
{
public:
    // Everything until EndGroup() has this title, which a viewer shows beside the pointer.
    void BeginGroup(const std::string& title);
    void EndGroup();

    void Rectangle(const std::string& style, double x, double y, double width, double height);
    void VerticalLine(const std::string& style, double x, double y, double height);
    void Text(const std::string& style, double x, double y, const std::string& text);

    // The whole document, which needs nothing beside it.
    std::string Document(double width, double height, const std::string& styleSheet) const;

private:
    std::string m_Body;
};

}  // namespace VORTAN_TRANSFER
