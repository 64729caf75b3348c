#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "Journal.h"

// Where bytes can be had: each source is the given length of bytes.
struct Source
{
    enum class Kind
    {
        Memory,
        File,
        Http
    };
    Kind kind;
    std::string url;
    std::size_t length;
};

// The byte that a body of this length consists of.
inline std::uint8_t ByteOf(std::size_t length)
{
    return static_cast<std::uint8_t>('a' + length % 26);
}

// A manager with clients on several threads that request, cancel and call back in at random, until
// it has accepted so many requests. Then it is destroyed, mostly with transfers under way.
void LiveThroughOneManager(std::uint64_t seed, const std::vector<Source>& sources,
                           std::uint64_t requests, Journal& journal);
