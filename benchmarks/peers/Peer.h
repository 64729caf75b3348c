#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

// Thrown for what a library has no means to do. It tells why.
class CannotDo : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// What programs do over HTTP, done with one library in the way that its documents show and that
// takes least of it. Each program here has a peer of its own. Every request gets a connection of
// its own. The operations return how many bytes of body were transferred, and throw if that failed.
class Peer
{
public:
    Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    virtual ~Peer() = default;

    // A GET whose body is counted as it arrives and not kept.
    virtual std::size_t Stream(const std::string& url) = 0;

    // A GET whose body is wanted whole in memory.
    virtual std::size_t Fetch(const std::string& url) = 0;

    // So many GETs, four at a time. Unless a peer knows better: four threads fetch.
    virtual std::size_t FetchMany(const std::string& url, std::size_t count);

    // A PUT of a body that is in memory.
    virtual std::size_t Upload(const std::string& url, std::string body) = 0;
};

// Over TLS, each request but libaria2's loads these authorities by itself: a file, or a folder with
// names by their hashes.
std::unique_ptr<Peer> MakePeer(const std::string& authorities);
