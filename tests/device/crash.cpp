// crash FILE: a client whose callback ends the process, with a backtrace on standard error as a
// device's crash handler prints it: each address relative to the binary that it is in.

#include <AsyncTransferAgentManager.h>
#include <FileReaderFactory.h>
#include <execinfo.h>

#include <array>
#include <cstdlib>

[[noreturn]] __attribute__((noinline)) static void Crash()
{
    std::array<void*, 64> frames;
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    backtrace_symbols_fd(frames.data(), count, 2);
    std::abort();
}

int main(int /*argc*/, char** argv)
{
    auto request = std::make_unique<VORTAN_MW::ITransferAgentManager::TransferConfiguration>();
    request->url = argv[1];
    request->handlerFactory = std::make_unique<VORTAN_MW::FileReaderFactory>();
    request->dataCallback = [](std::unique_ptr<VORTAN_MW::ITransferHandler::Bytes>, void*) {
        Crash();
    };
    const auto agent = VORTAN_MW::AsyncTransferAgentManager::Create();
    agent->RequestTransfer(std::move(request));
}
