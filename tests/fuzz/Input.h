#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

// What a fuzzer made up, taken from its front piece by piece. Behind its end there are zeros.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size) : m_Bytes(size, '\0')
    {
        if (size > 0) {
            std::memcpy(m_Bytes.data(), data, size);
        }
    }

    bool IsAtEnd() const { return m_At == m_Bytes.size(); }

    std::uint8_t Byte() { return Number<std::uint8_t>(); }

    template <typename T>
    T Number()
    {
        T number = 0;
        const std::string_view bytes = Take(sizeof number);
        std::memcpy(&number, bytes.data(), bytes.size());
        return number;
    }

    // One of 0 to count - 1. Of up to 4 a digit chooses what it says, so that inputs can be read.
    unsigned Choose(unsigned count) { return Byte() % count; }

    bool Flag() { return Choose(2) == 1; }

    // A length of one byte, and that many bytes or those that are left.
    std::string Text() { return std::string(Take(Byte())); }

    std::string Rest() { return std::string(Take(m_Bytes.size())); }

private:
    std::string_view Take(std::size_t count)
    {
        const std::size_t taken = std::min(count, m_Bytes.size() - m_At);
        return std::string_view(m_Bytes).substr(std::exchange(m_At, m_At + taken), taken);
    }

    std::string m_Bytes;
    std::size_t m_At = 0;
};
