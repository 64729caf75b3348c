#pragma once

#include <unistd.h>

#include <utility>

namespace VORTAN_MW {
namespace KIT {

// Owns an open file; a negative number is none.
class Descriptor
{
public:
    explicit Descriptor(int number = -1) : m_Number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_Number(std::exchange(other.m_Number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(m_Number, other.m_Number);
        return *this;
    }
    ~Descriptor()
    {
        if (m_Number >= 0) {
            close(m_Number);
        }
    }

    int Number() const { return m_Number; }

private:
    int m_Number;
};

}  // namespace KIT
}  // namespace VORTAN_MW
