#pragma once

#include <optional>
#include <string>

namespace VORTAN_MW {
namespace KIT {

// A URL that libcurl's parser accepts, of any scheme, and the parts that the rules look at. Host
// and scheme are in lower case; the port is the scheme's where the URL names none.
struct Url
{
    std::string text;
    std::string scheme;
    std::string host;
    std::string port;
    bool hasCredentials = false;

    std::string Origin() const { return scheme + "://" + host + ":" + port; }

    // Nothing if text is no absolute URL. Throws std::bad_alloc.
    static std::optional<Url> Parse(const std::string& text);
    // The target of a reference that was found at this URL, for example in a redirect.
    std::optional<Url> Resolve(const std::string& reference) const;
};

// Bytes 0 to 31 and 127. Bytes above are left to UTF-8.
bool HasControlCharacter(const std::string& text);

}  // namespace KIT
}  // namespace VORTAN_MW
