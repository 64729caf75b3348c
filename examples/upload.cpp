// upload FILE URL: puts a file, and prints the HTTP status and the server's answer. Exits with 0 if
// the server took it, and otherwise prints why not.

#include <AsyncTransferAgentManager.h>
#include <CurlEasyHandlerFactory.h>

#include <cerrno>
#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>

using namespace VORTAN_MW;

namespace {

ITransferHandler::Result Upload(std::string data, const std::string& url, std::string& answer)
{
    std::promise<ITransferHandler::Result> over;
    const auto agent = AsyncTransferAgentManager::Create();

    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    //! [request]
    request->url = url;
    request->method = ITransferHandler::Configuration::HttpMethod::EhttpPut;
    request->headers = {{"Content-Type", "application/octet-stream"}};
    request->requestBody = std::move(data);
    request->failOnError = false;  // the server's page about a failure is wanted, too
    //! [request]
    request->handlerFactory = std::make_unique<CurlEasyHandlerFactory>();
    //! [answer]
    // Without this callback a HEAD would go out, even if the answer is of no interest.
    request->dataCallback = [&](std::unique_ptr<ITransferHandler::Bytes> bytes, void*) {
        if (bytes) {
            answer.assign(bytes->begin(), bytes->end());
        }
    };
    //! [answer]
    request->completeCallback = [&](ITransferHandler::Result result, void*) {
        over.set_value(std::move(result));
    };
    if (agent->RequestTransfer(std::move(request)) == ITransferAgentManager::InvalidHandle) {
        return {};
    }
    return over.get_future().get();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "upload FILE URL\n";
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    std::string data(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        std::cerr << "cannot read " << argv[1] << ": " << std::generic_category().message(errno)
                  << '\n';
        return 1;
    }
    std::string answer;
    //! [result]
    const ITransferHandler::Result result = Upload(std::move(data), argv[2], answer);
    const long status = result.httpCode ? *result.httpCode : 0;
    const bool taken = result.success && status >= 200 && status < 300;
    //! [result]
    if (!taken) {
        std::cerr << "the upload failed: "
                  << (status > 0        ? "HTTP status " + std::to_string(status)
                      : result.httpCode ? "no answer from the server"
                                        : "the request was refused, the log says why")
                  << '\n';
    }
    std::cout << status << '\n' << answer;
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return taken ? 0 : 1;
}
