#pragma once

#include <string>

namespace VORTAN_TRANSFER {

// Watches the part that a transfer is writing beside its target, for the case that the program ends
// before the transfer does: nobody could go on with a part whose record is empty.
class PartWatch
{
public:
    // The transfer has the lock on TARGET.part.
    explicit PartWatch(std::string target);
    PartWatch(const PartWatch&) = delete;
    PartWatch& operator=(const PartWatch&) = delete;
    ~PartWatch();

    // Removes all parts that are watched and that nobody could go on with. From then on no transfer
    // ends: each waits for the end of the program, which the caller is to bring about.
    static void RemoveUselessForGood();

private:
    const std::string m_Target;
};

// The part that a later run can go on with, if there is one beside the target.
bool IsPartKept(const std::string& target);

}  // namespace VORTAN_TRANSFER
