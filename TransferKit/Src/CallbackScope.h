#pragma once

namespace VORTAN_MW {
namespace KIT {

// Marks that the calling thread is inside the client's code on behalf of a queue, which must not be
// destroyed then. owner only serves to tell queues apart, and must live as long as the scope.
class CallbackScope
{
public:
    explicit CallbackScope(const void* owner) : m_Owner(owner), m_Outer(t_Innermost)
    {
        t_Innermost = this;
    }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;
    ~CallbackScope() { t_Innermost = m_Outer; }

    static bool IsInside(const void* owner)
    {
        const CallbackScope* scope = t_Innermost;
        while (scope && scope->m_Owner != owner) {
            scope = scope->m_Outer;
        }
        return scope != nullptr;
    }

private:
    static inline thread_local const CallbackScope* t_Innermost = nullptr;

    const void* const m_Owner;
    const CallbackScope* const m_Outer;
};

}  // namespace KIT
}  // namespace VORTAN_MW
