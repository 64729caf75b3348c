#pragma once

#include <string>

namespace VORTAN_TRANSFER {

// Gives text the colours of a terminal, or leaves it as it is.
class Palette
{
public:
    explicit Palette(bool hasColours) : m_HasColours(hasColours) {}

    bool HasColours() const { return m_HasColours; }

    // Has colours if standard error is a terminal that shows them, and NO_COLOR is empty or unset.
    static Palette ForStandardError();

    std::string Good(const std::string& text) const { return m_Painted(text, "32"); }
    std::string Bad(const std::string& text) const { return m_Painted(text, "31"); }

private:
    std::string m_Painted(const std::string& text, const char* colour) const;

    bool m_HasColours;
};

}  // namespace VORTAN_TRANSFER
