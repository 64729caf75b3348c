#include "PartRecord.h"

#include "Continuation.h"
#include "Sha256.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

std::string ChecksumOf(const std::string& text)
{
    Sha256 hash;
    hash.Update(text.data(), text.size());
    return HexOf(hash.Finish());
}

void Add(std::string& text, const char* name, const std::string& value)
{
    ((text += name) += ' ') += value;
    text += '\n';
}

// The value of the next line of text, which must have this name.
std::string Take(const std::string& text, std::size_t& at, const std::string& name)
{
    const std::size_t end = text.find('\n', at);
    const std::size_t first = at + name.size() + 1;
    if (end == std::string::npos || end < first || text.compare(at, name.size(), name) != 0) {
        return std::string();
    }
    at = end + 1;
    return text.substr(first, end - first);
}

std::uint64_t TakeNumber(const std::string& text, std::size_t& at, const std::string& name)
{
    return ParseNumber(Take(text, at, name)).value_or(0);
}

}  // namespace

std::string PartRecord::Format() const
{
    std::string text;
    Add(text, "version", "1");
    Add(text, "url", url);
    Add(text, "validator", validator);
    Add(text, "total", std::to_string(total));
    Add(text, "synced", std::to_string(synced));
    Add(text, "device", std::to_string(device));
    Add(text, "inode", std::to_string(inode));
    Add(text, "resource", resource);
    Add(text, "sha256", ChecksumOf(text));
    return text;
}

std::optional<PartRecord> PartRecord::Parse(const std::string& text)
{
    PartRecord record;
    std::size_t at = 0;
    Take(text, at, "version");
    record.url = Take(text, at, "url");
    record.validator = Take(text, at, "validator");
    record.total = TakeNumber(text, at, "total");
    record.synced = TakeNumber(text, at, "synced");
    record.device = TakeNumber(text, at, "device");
    record.inode = TakeNumber(text, at, "inode");
    record.resource = Take(text, at, "resource");
    // Whatever was not read as it was written comes out differently.
    const bool isWhole = !record.url.empty() && !record.validator.empty() && record.synced > 0 &&
                         record.synced <= record.total && record.Format() == text;
    return isWhole ? std::optional<PartRecord>(record) : std::nullopt;
}

}  // namespace KIT
}  // namespace VORTAN_MW
