// Makes random requests of random managers, cancels them from anywhere, and counts how each ended.

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <thread>

#include "Load.h"
#include "Sampler.h"
#include "TestServer.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Skipped = 77;

template <std::size_t... each>
constexpr std::array<std::size_t, sizeof...(each)> Lengths = {each...};

struct Options
{
    std::uint64_t seed = std::random_device()();
    double seconds = 0;
    std::uint64_t requests = 0;
    bool memoryOnly = false;
    std::string samples;
};

std::vector<Source> MemorySources()
{
    std::vector<Source> sources;
    sources.reserve(Lengths<0, 1, 999, 5000>.size());
    for (const std::size_t length : Lengths<0, 1, 999, 5000>) {
        sources.push_back({Source::Kind::Memory, "memory", length});
    }
    return sources;
}

void AddRealSources(const TestServer& server, std::vector<Source>& sources)
{
    for (const std::size_t length : Lengths<0, 1, 999, 20000, 300000>) {
        const std::string name = std::to_string(length);
        server.Folder().Write("files/" + name, std::vector<std::uint8_t>(length, ByteOf(length)));
        sources.push_back({Source::Kind::File, server.Folder().Path("files/" + name), length});
        sources.push_back({Source::Kind::Http, server.Url("/" + name), length});
    }
}

void Run(const Options& options, const std::vector<Source>& sources, Journal& journal)
{
    const auto end = Clock::now() + std::chrono::duration<double>(options.seconds);
    std::mt19937_64 lives(options.seed);
    while (Clock::now() < end || journal.Accepted() < options.requests) {
        LiveThroughOneManager(lives(), sources, 1 + lives() % 200, journal);
    }
}

}  // namespace

// The lines are composed, and dropped.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the device's.
extern "C" __attribute__((visibility("default"))) int __dlog_print(int, int, const char*,
                                                                   const char*, ...)
{
    return 0;
}

int main(int argc, char* argv[])
{
    Options options;
    CLI::App app("Makes random requests, cancels them from anywhere, and counts how each ended.");
    app.add_option("--seed", options.seed, "Where the random choices begin");
    app.add_option("--seconds", options.seconds, "How long to go on at least");
    app.add_option("--requests", options.requests, "How many requests to make at least");
    app.add_flag("--memory-only", options.memoryOnly, "Without files and without a server");
    app.add_option("--samples", options.samples,
                   "File for memory, descriptors and threads, once a second");
    CLI11_PARSE(app, argc, argv);
    std::printf("%s --seed %" PRIu64 "%s\n", argv[0], options.seed,
                options.memoryOnly ? " --memory-only" : "");

    std::vector<Source> sources = MemorySources();
    std::unique_ptr<TestServer> server;
    if (!options.memoryOnly) {
        server = std::make_unique<TestServer>("nginx");
        if (!server->IsInstalled()) {
            std::puts("nginx is not installed: install it, or ask for --memory-only");
            return VORTAN_REQUIRE_TEST_PEERS ? EXIT_FAILURE : Skipped;
        }
        sources.clear();
        AddRealSources(*server, sources);
    }
    std::unique_ptr<Sampler> sampler;
    if (!options.samples.empty()) {
        sampler = std::make_unique<Sampler>(options.samples);
    }
    Journal journal;
    Run(options, sources, journal);
    return journal.Print() ? EXIT_SUCCESS : EXIT_FAILURE;
}
