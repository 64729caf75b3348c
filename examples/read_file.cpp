// read_file PATH: a local file, through the same agent and callbacks as a download. Exits with 0 if
// it was read whole.

#include <AsyncTransferAgentManager.h>
#include <FileReaderFactory.h>

#include <future>
#include <iostream>

using namespace VORTAN_MW;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "read_file PATH\n";
        return 2;
    }
    ITransferHandler::Bytes contents;
    std::promise<bool> succeeded;
    const auto agent = AsyncTransferAgentManager::Create();

    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    //! [request]
    request->url = argv[1];  // a path, not a file: URL
    request->handlerFactory = std::make_unique<FileReaderFactory>();
    request->dataCallback = [&](std::unique_ptr<ITransferHandler::Bytes> bytes, void*) {
        if (bytes) {
            contents = std::move(*bytes);
        }
    };
    //! [request]
    request->completeCallback = [&](ITransferHandler::Result result, void*) {
        succeeded.set_value(result.success);  // there is no HTTP status to look at
    };
    if (agent->RequestTransfer(std::move(request)) == ITransferAgentManager::InvalidHandle ||
        !succeeded.get_future().get()) {
        return 1;  // the log says why
    }
    std::cout.write(reinterpret_cast<const char*>(contents.data()),
                    static_cast<std::streamsize>(contents.size()));
    return std::cout.flush() ? 0 : 1;
}
