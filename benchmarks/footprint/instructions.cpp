// The agent's own work with no transfer around it, to count its instructions under an emulator:
//
//     vortan_instructions dispatch COUNT    so many plain transfers, one after the other, of a
//     handler
//                                    that does nothing
//     vortan_instructions chunks COUNT      one segmented transfer of so many chunks of one byte
//
// The difference between two counts tells what one of them takes.

#include <cstdlib>
#include <memory>
#include <string>

#include "AgentClient.h"
#include "EmptyChunks.h"

namespace {

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

}  // namespace

int main(int argc, char* argv[])
{
    const std::string work = argc == 3 ? argv[1] : "";
    const std::size_t count = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 0;
    AgentClient client;
    bool success = false;
    if (work == "dispatch") {
        success = Dispatch(client, count);
    } else if (work == "chunks") {
        success = Transfer(client, count, AgentClient::Mode::Segmented);
    }
    return success ? EXIT_SUCCESS : EXIT_FAILURE;
}
