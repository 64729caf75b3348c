#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A body in which a lost, doubled or moved byte shows: the byte at each index is the exclusive or
// of the index's three lowest bytes. The test servers make the same ones.
inline std::uint8_t IndexedByte(std::uint64_t index)
{
    return static_cast<std::uint8_t>(index ^ index >> 8 ^ index >> 16);
}

inline std::vector<std::uint8_t> IndexedBytes(std::size_t count)
{
    std::vector<std::uint8_t> bytes(count);
    for (std::size_t index = 0; index < count; ++index) {
        bytes[index] = IndexedByte(index);
    }
    return bytes;
}

inline std::string IndexedText(std::size_t count)
{
    const std::vector<std::uint8_t> bytes = IndexedBytes(count);
    return {bytes.begin(), bytes.end()};
}

// A length that is no multiple of any block.
constexpr std::size_t LongLength = 1234567;
