// One piece of work with one library, and what it took:
//
//     vortan_peer_LIBRARY stream|memory|upload|many URL BYTES REQUESTS FIRST AUTHORITIES
//
// BYTES is the length of each body; all work but "many" is one request. Before it, one request for
// the URL FIRST lets the library do what it does only once. Over TLS, AUTHORITIES is a file of
// trusted ones, or a folder. Prints the CPU time of the process and the time by the clock on the
// wall, both in microseconds and of the work alone, and the peak of the process's resident memory
// in KiB. Ends with 3, and prints why, if the library cannot do it.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <future>

#include "Peer.h"
#include "Usage.h"

namespace {

constexpr int CannotDoIt = 3;
constexpr std::size_t AtATime = 4;

using std::chrono::microseconds;

microseconds WallTime()
{
    return std::chrono::duration_cast<microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

using Work = std::function<std::size_t()>;

Work MakeWork(Peer& peer, const std::string& name, const std::string& url, std::size_t bytes,
              std::size_t requests)
{
    if (name == "stream") {
        return [&peer, url] { return peer.Stream(url); };
    }
    if (name == "memory") {
        return [&peer, url] { return peer.Fetch(url); };
    }
    if (name == "many") {
        return [&peer, url, requests] { return peer.FetchMany(url, requests); };
    }
    if (name == "upload") {
        return [&peer, url, body = std::string(bytes, 'x')]() mutable {
            return peer.Upload(url, std::move(body));
        };
    }
    throw std::invalid_argument("There is no work called " + name);
}

void Measure(const Work& work, std::size_t bytes)
{
    const microseconds cpu = CpuTime();
    const microseconds wall = WallTime();
    if (work() != bytes) {
        throw std::runtime_error("Not as many bytes as there should be");
    }
    std::printf("%lld %lld %ld\n", static_cast<long long>((CpuTime() - cpu).count()),
                static_cast<long long>((WallTime() - wall).count()), PeakMemory());
}

std::size_t FetchInTurn(Peer& peer, const std::string& url, std::atomic<std::size_t>& started,
                        std::size_t count)
{
    std::size_t received = 0;
    while (started++ < count) {
        received += peer.Fetch(url);
    }
    return received;
}

}  // namespace

std::size_t Peer::FetchMany(const std::string& url, std::size_t count)
{
    std::atomic<std::size_t> started{0};
    std::array<std::future<std::size_t>, AtATime> threads;
    for (auto& thread : threads) {
        thread =
            std::async(std::launch::async, [&] { return FetchInTurn(*this, url, started, count); });
    }
    std::size_t received = 0;
    for (auto& thread : threads) {
        received += thread.get();
    }
    return received;
}

int main(int argc, char* argv[])
{
    if (argc != 7) {
        std::fprintf(stderr,
                     "usage: %s stream|memory|upload|many URL BYTES REQUESTS FIRST AUTHORITIES\n",
                     argv[0]);
        return EXIT_FAILURE;
    }
    try {
        const std::string name = argv[1];
        const std::size_t bytes = std::stoul(argv[3]);
        const std::size_t requests = name == "many" ? std::stoul(argv[4]) : 1;
        const std::unique_ptr<Peer> peer = MakePeer(argv[6]);
        peer->FetchMany(argv[5], 1);
        Measure(MakeWork(*peer, name, argv[2], bytes, requests), bytes * requests);
        return EXIT_SUCCESS;
    } catch (const CannotDo& reason) {
        std::puts(reason.what());
        return CannotDoIt;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
}
