#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace VORTAN_TRANSFER {

// The hash in lower case. Throws UsageError, beginning with what, if it is not 64 hexadecimal
// digits.
std::string ParseSha256(std::string_view text, const std::string& what);

// SHA-256 hashes of files, in the format of sha256sum.
//
//     const HashList list("SHA256SUMS", "--sha256-file");
//     list.Find("update.bin");
class HashList
{
public:
    // Throws UsageError if the file cannot be read or a line is malformed.
    HashList(const std::string& path, const std::string& option);

    // Looks up a file by its name; the folders of listed files do not count. Throws UsageError if
    // the list has several hashes for that name.
    std::optional<std::string> Find(const std::string& name) const;

private:
    std::string m_Path;
    std::multimap<std::string, std::string> m_HashOf;
};

}  // namespace VORTAN_TRANSFER
