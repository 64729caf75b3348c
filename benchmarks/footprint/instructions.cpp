// The agent's own work with no transfer around it, to count its instructions under an emulator:
//
//     vortan_instructions WORK COUNT
//
//     start      nothing: the agent is made and destroyed
//     dispatch   so many plain transfers, one after the other, of a handler that does nothing
//     chunks     one segmented transfer of so many chunks of one byte
//     requests   so many plain GETs of 1 KiB from a server on loopback, one after the other
//     uploads    so many plain PUTs of 1 MiB to that server, one after the other
//
// The difference between two counts tells what one of them takes.

#include <CurlEasyHandlerFactory.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "AgentClient.h"
#include "EmptyChunks.h"
#include "LoopbackServer.h"

namespace {

std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> MakeCurlFactory()
{
    return std::make_unique<VORTAN_MW::CurlEasyHandlerFactory>();
}

bool Transfer(AgentClient& client, std::size_t chunks, AgentClient::Mode mode)
{
    return client.Start("nowhere", std::make_unique<EmptyChunksFactory>(chunks), mode).Join();
}

bool Dispatch(AgentClient& client, std::size_t count)
{
    bool success = true;
    for (std::size_t i = 0; i < count; ++i) {
        success = Transfer(client, 0, AgentClient::Mode::Plain) && success;
    }
    return success;
}

bool Request(AgentClient& client, const LoopbackServer& server, std::size_t count)
{
    bool success = true;
    for (std::size_t i = 0; i < count; ++i) {
        auto transfer = client.Start(server.Url(1024), MakeCurlFactory(), AgentClient::Mode::Plain);
        success = transfer.Join() && success;
    }
    return success;
}

bool Upload(AgentClient& client, const LoopbackServer& server, std::size_t count)
{
    constexpr std::size_t size = std::size_t{1024} * 1024;
    bool success = true;
    for (std::size_t i = 0; i < count; ++i) {
        auto transfer = client.Upload(server.Url(1), MakeCurlFactory(), std::string(size, 'x'));
        success = transfer.Join() && success;
    }
    return success;
}

}  // namespace

int main(int argc, char* argv[])
{
    const std::string work = argc == 3 ? argv[1] : "";
    const std::size_t count = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 0;
    const LoopbackServer server;  // before any thread: it forks
    AgentClient client;
    bool success = work == "start";
    if (work == "requests") {
        success = Request(client, server, count);
    } else if (work == "uploads") {
        success = Upload(client, server, count);
    } else if (work == "dispatch") {
        success = Dispatch(client, count);
    } else if (work == "chunks") {
        success = Transfer(client, count, AgentClient::Mode::Segmented);
    }
    return success ? EXIT_SUCCESS : EXIT_FAILURE;
}
