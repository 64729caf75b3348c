// What a transfer and a chunk cost, and what the process holds, as there come to be more of them:
//
//     vortan_scale [ROUNDS]
//
// Each figure is the median of so many rounds, five unless told otherwise. Each measurement is a
// process with one agent. Prints tables for docs/performance.md.

#include <CurlEasyHandlerFactory.h>
#include <HttpSession.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <vector>

#include "AgentClient.h"
#include "EmptyChunks.h"
#include "LoopbackServer.h"
#include "Usage.h"

namespace {

using Factory = std::unique_ptr<VORTAN_MW::ITransferHandlerFactory>;
using Mode = AgentClient::Mode;
using VORTAN_MW::CurlEasyHandlerFactory;

constexpr std::size_t KiB = 1024;
constexpr std::size_t MiB = 1024 * KiB;
constexpr std::size_t ChunkSize = 16 * KiB;
constexpr std::size_t SmallBody = KiB;

struct Figures
{
    double cpuMicroseconds;
    double residentKiB;
    double peakKiB;
};

// Tells whether it succeeded.
using Work = std::function<bool(AgentClient&)>;

struct Row
{
    std::string name;
    double parts;  // what the CPU time is divided by
    Work work;
    std::vector<Figures> rounds;
};

struct Table
{
    std::string title;
    std::string counted;
    std::string part;
    std::vector<Row> rows;
};

[[noreturn]] void MeasureAndTell(const Work& work, int teller)
{
    AgentClient client;
    const auto before = CpuTime();
    if (!work(client)) {
        _exit(EXIT_FAILURE);
    }
    const Figures figures = {static_cast<double>((CpuTime() - before).count()),
                             static_cast<double>(ResidentMemory()),
                             static_cast<double>(PeakMemory())};
    const bool told = write(teller, &figures, sizeof figures) == sizeof figures;
    _exit(told ? EXIT_SUCCESS : EXIT_FAILURE);
}

// In a process of its own.
Figures Measure(const Work& work)
{
    std::array<int, 2> ends = {};
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t process = fork();
    if (process == 0) {
        MeasureAndTell(work, ends[1]);
    }
    close(ends[1]);
    Figures figures = {};
    const bool told = read(ends[0], &figures, sizeof figures) == sizeof figures;
    close(ends[0]);
    waitpid(process, nullptr, 0);
    if (!told) {
        throw std::runtime_error("a transfer failed");
    }
    return figures;
}

bool Finish(AgentClient::Transfer& transfer)
{
    return !transfer.Joinable() || transfer.Join();
}

// Four of them are under way at a time.
template <typename Start>
bool Repeat(std::size_t count, Start start)
{
    std::array<AgentClient::Transfer, 4> underWay;
    bool success = true;
    for (std::size_t number = 0; number < count; ++number) {
        auto& slot = underWay[number % underWay.size()];
        success = Finish(slot) && success;
        slot = start();
    }
    for (auto& slot : underWay) {
        success = Finish(slot) && success;
    }
    return success;
}

Row EmptyTransfers(std::size_t count)
{
    const Work work = [count](AgentClient& client) {
        return Repeat(count, [&] {
            return client.Start("nowhere", std::make_unique<EmptyChunksFactory>(0), Mode::Plain);
        });
    };
    return {std::to_string(count), static_cast<double>(count), work, {}};
}

Row SmallRequests(std::size_t count, const LoopbackServer& server)
{
    const Work work = [count, url = server.Url(SmallBody)](AgentClient& client) {
        const bool success = Repeat(count, [&] {
            return client.Start(url, std::make_unique<CurlEasyHandlerFactory>(), Mode::Plain);
        });
        return success && client.TakeReceived() == count * SmallBody;
    };
    return {std::to_string(count), static_cast<double>(count), work, {}};
}

Row Chunks(std::size_t count)
{
    const Work work = [count](AgentClient& client) {
        auto factory = std::make_unique<EmptyChunksFactory>(count);
        return client.Start("nowhere", std::move(factory), Mode::Segmented).Join() &&
               client.TakeReceived() == count;
    };
    return {std::to_string(count), static_cast<double>(count), work, {}};
}

bool Stream(AgentClient& client, const std::string& url, Factory factory, std::size_t size)
{
    return client.Start(url, std::move(factory), Mode::Segmented).Join() &&
           client.TakeReceived() == size;
}

double ChunksOf(std::size_t size)
{
    return static_cast<double>(std::max<std::size_t>(1, size / ChunkSize));
}

Row StreamedBody(const std::string& name, std::size_t size, const LoopbackServer& server)
{
    const Work work = [size, url = server.Url(size)](AgentClient& client) {
        return Stream(client, url, std::make_unique<CurlEasyHandlerFactory>(), size);
    };
    return {name, ChunksOf(size), work, {}};
}

// Through a session of the transfer kit.
Row SessionBody(const std::string& name, std::size_t size, const LoopbackServer& server)
{
    const Work work = [size, url = server.Url(size)](AgentClient& client) {
        using VORTAN_MW::KIT::TransferPolicy;
        VORTAN_MW::KIT::HttpSession session(TransferPolicy().SetSchemes({"http"}));
        return Stream(client, url, session.MakeFactory(), size);
    };
    return {name, ChunksOf(size), work, {}};
}

std::vector<Table> MakeTables(const LoopbackServer& server)
{
    Table empty = {"Transfers with a handler that does nothing", "transfers", "transfer", {}};
    Table chunks = {"Chunks of one byte in one transfer", "chunks", "chunk", {}};
    for (const std::size_t count : {1U, 10U, 1000U, 100000U}) {
        empty.rows.push_back(EmptyTransfers(count));
        chunks.rows.push_back(Chunks(count));
    }
    Table small = {"Requests for 1 KiB over HTTP", "requests", "request", {}};
    for (const std::size_t count : {1U, 10U, 1000U}) {
        small.rows.push_back(SmallRequests(count, server));
    }
    Table bodies = {"A streamed body over HTTP", "length", "chunk of 16 KiB", {}};
    bodies.rows = {StreamedBody("0", 0, server),
                   StreamedBody("1 KiB", KiB, server),
                   StreamedBody("1 MiB", MiB, server),
                   StreamedBody("16 MiB", 16 * MiB, server),
                   StreamedBody("256 MiB", 256 * MiB, server),
                   StreamedBody("1 GiB", 1024 * MiB, server),
                   StreamedBody("4 GiB", 4096 * MiB, server)};
    Table session = {
        "The same through a session of the transfer kit", "length", "chunk of 16 KiB", {}};
    session.rows = {
        SessionBody("16 MiB", 16 * MiB, server), SessionBody("256 MiB", 256 * MiB, server),
        SessionBody("1 GiB", 1024 * MiB, server), SessionBody("4 GiB", 4096 * MiB, server)};
    return {empty, small, chunks, bodies, session};
}

double Median(const Row& row, double Figures::*figure)
{
    std::vector<double> values;
    for (const Figures& figures : row.rounds) {
        values.push_back(figures.*figure);
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void Print(const Table& table)
{
    std::printf("\n%s:\n\n| %s | CPU, us | us per %s | resident, MiB | peak, MiB |\n",
                table.title.c_str(), table.counted.c_str(), table.part.c_str());
    std::puts("|---:|---:|---:|---:|---:|");
    for (const Row& row : table.rows) {
        const double cpu = Median(row, &Figures::cpuMicroseconds);
        std::printf("| %s | %.0f | %.4g | %.1f | %.1f |\n", row.name.c_str(), cpu, cpu / row.parts,
                    Median(row, &Figures::residentKiB) / 1024,
                    Median(row, &Figures::peakKiB) / 1024);
    }
}

void MeasureOnce(std::vector<Table>& tables)
{
    for (Table& table : tables) {
        for (Row& row : table.rows) {
            row.rounds.push_back(Measure(row.work));
        }
    }
}

}  // namespace

int main(int argc, char* argv[])
{
    setenv("no_proxy", "*", 1);  // NOLINT(concurrency-mt-unsafe): there is one thread
    const unsigned long rounds = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : 5;
    try {
        const LoopbackServer server;
        std::vector<Table> tables = MakeTables(server);
        for (unsigned long round = 0; round < std::max(rounds, 1UL); ++round) {
            MeasureOnce(tables);
        }
        std::for_each(tables.begin(), tables.end(), Print);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
}
