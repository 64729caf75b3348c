#pragma once

#include <string>
#include <string_view>

namespace VORTAN_TRANSFER {

// Finds out from raw response headers where redirects have led.
class Redirects
{
public:
    // url is the one that was requested.
    explicit Redirects(std::string url) : m_Url(std::move(url)) {}

    // Whole header lines.
    void Add(std::string_view lines);

    // "redirected to http://example.org/: ", without a password and safe to be shown; empty if
    // there was no redirect.
    std::string Preface() const;

private:
    void m_TakeLine(std::string_view line);

    std::string m_Url;
    bool m_IsRedirect = false;  // the response whose header it is
    bool m_WereAny = false;
};

}  // namespace VORTAN_TRANSFER
