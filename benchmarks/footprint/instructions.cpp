// The agent's own work with no transfer around it, to count its instructions under an emulator:
//
//     vortan_instructions dispatch COUNT    so many plain transfers, one after the other, of a
//     handler
//                                    that does nothing
//     vortan_instructions chunks COUNT      one segmented transfer of so many chunks of one byte
//
// The difference between two counts tells what one of them takes.

#include <AsyncTransferAgentManager.h>
#include <dlog.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "AgentClient.h"

// Takes the platform log's place and drops every line: what is measured is the library's share.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the device's.
extern "C" __attribute__((visibility("default"))) int __dlog_print(int, int, const char*,
                                                                   const char*, ...)
{
    return 0;
}

namespace {

using VORTAN_MW::ITransferHandler;

class EmptyChunks : public ITransferHandler
{
public:
    explicit EmptyChunks(std::size_t count) : m_Count(count) {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        for (std::size_t i = 0; i < m_Count; ++i) {
            if (!detail.dataCallback(std::make_unique<Bytes>(ChunkSize), detail.userData)) {
                return {};
            }
        }
        return {true, nullptr};
    }

private:
    static constexpr std::size_t ChunkSize = 1;

    std::size_t m_Count;
};

class EmptyChunksFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    explicit EmptyChunksFactory(std::size_t count) : m_Count(count) {}

    std::unique_ptr<ITransferHandler> Create() override
    {
        return std::make_unique<EmptyChunks>(m_Count);
    }

private:
    std::size_t m_Count;
};

bool Transfer(AgentClient& client, std::size_t chunks, AgentClient::Mode mode)
{
    return client.Start("nowhere", std::make_unique<EmptyChunksFactory>(chunks), mode).get();
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
