#pragma once

#include <map>
#include <optional>
#include <string>

namespace VORTAN_TRANSFER {

// Output targets of this run: finds two names that lead to one place, through links or otherwise.
//
//     Targets targets;
//     targets.Claim("out", "the body");     // nothing
//     targets.Claim("./out", "the trace");  // {"out", "the body"}
class Targets
{
public:
    struct Claimed
    {
        std::string target;
        std::string owner;
    };

    // Returns the earlier claim on the same place, if there is one. Touches no file.
    std::optional<Claimed> Claim(const std::string& target, const std::string& owner);

private:
    std::map<std::string, Claimed> m_Claimed;  // by all that tells places apart
};

}  // namespace VORTAN_TRANSFER
