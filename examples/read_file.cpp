// read_file PATH: a local file, through the same agent and callbacks as a download. Exits with 0 if
// it was read whole, and otherwise prints why not.

#include <AsyncTransferAgentManager.h>
#include <FileReaderFactory.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <iostream>
#include <string>
#include <system_error>

using namespace VORTAN_MW;

namespace {

// The agent tells only that it failed.
std::string WhyItFailed(const char* path)
{
    return access(path, R_OK) == 0 ? "it cannot be read to its end, or is no regular file"
                                   : std::generic_category().message(errno);
}

}  // namespace

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
    if (agent->RequestTransfer(std::move(request)) == ITransferAgentManager::InvalidHandle) {
        std::cerr << "the request was refused, the log says why\n";
        return 1;
    }
    if (!succeeded.get_future().get()) {
        std::cerr << "cannot read " << argv[1] << ": " << WhyItFailed(argv[1]) << '\n';
        return 1;
    }
    std::cout.write(reinterpret_cast<const char*>(contents.data()),
                    static_cast<std::streamsize>(contents.size()));
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return 0;
}
