// client FILE: transfers FILE through the installed library and compares what arrives with what is
// there. Exits 0 if it is the same.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>
#include <FileReaderFactory.h>
#include <QXCurlEasyHandlerFactory.h>

#include <fstream>
#include <future>
#include <iostream>
#include <iterator>

// own_handler.cpp
bool TransfersThroughAnOwnHandler();

using VORTAN_MW::ITransferAgentManager;
using VORTAN_MW::ITransferHandler;
using Bytes = ITransferHandler::Bytes;

namespace {

struct Transfer
{
    Bytes body;
    std::promise<bool> succeeded;
};

Bytes ReadWhole(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::unique_ptr<ITransferAgentManager::TransferConfiguration> RequestFor(const char* path,
                                                                         Transfer* transfer)
{
    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    request->url = path;
    request->handlerFactory = std::make_unique<VORTAN_MW::FileReaderFactory>();
    request->userContext = transfer;
    request->dataCallback = [](std::unique_ptr<Bytes> chunk, void* context) {
        if (chunk) {
            static_cast<Transfer*>(context)->body = std::move(*chunk);
        }
    };
    request->completeCallback = [](ITransferHandler::Result result, void* context) {
        static_cast<Transfer*>(context)->succeeded.set_value(result.success);
    };
    return request;
}

// By reference, which in C++14 takes a definition of InvalidHandle in the library.
bool IsSame(const std::uint64_t& one, const std::uint64_t& other)
{
    return one == other;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        return 2;
    }
    const Bytes expected = ReadWhole(argv[1]);
    Transfer transfer;
    const auto agent = VORTAN_MW::AsyncTransferAgentManager::Create();
    const std::uint64_t handle = agent->RequestTransfer(RequestFor(argv[1], &transfer));
    if (IsSame(handle, ITransferAgentManager::InvalidHandle)) {
        std::cerr << "refused\n";
        return 1;
    }
    const bool succeeded = transfer.succeeded.get_future().get();
    const bool agrees = !expected.empty() && transfer.body == expected;
    const bool hasHandlers = VORTAN_MW::CurlEasyHandlerFactory().Create() != nullptr &&
                             VORTAN_MW::QXCurlEasyHandlerFactory().Create() != nullptr;
    std::cout << "received " << transfer.body.size() << " of " << expected.size() << " bytes\n";
    const bool hasOwnHandler = TransfersThroughAnOwnHandler();
    std::cout << "an own handler " << (hasOwnHandler ? "works" : "fails") << '\n';
    return succeeded && agrees && hasHandlers && hasOwnHandler ? 0 : 1;
}
