#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace VORTAN_MW {
namespace KIT {

// What a later run must know to go on with a part: which version of which body it belongs to, in
// which file it is, and how many of its bytes a power cut cannot take away.
struct PartRecord
{
    std::string url;
    std::string validator;
    std::uint64_t total = 0;
    std::uint64_t synced = 0;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::string resource = std::string();  // that answered, after redirects

    // Lines of text, the last of which is a checksum. Url and validator must not contain line
    // breaks.
    std::string Format() const;
    // Nothing unless text is exactly what Format made of a record that can be gone on with.
    static std::optional<PartRecord> Parse(const std::string& text);
};

}  // namespace KIT
}  // namespace VORTAN_MW
