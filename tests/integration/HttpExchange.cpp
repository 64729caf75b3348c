#include "HttpExchange.h"

#include <sstream>

#include "CurlEasyHandlerFactory.h"

using VORTAN_MW::ITransferHandler;

namespace {

std::vector<std::string> LinesOf(const std::string& header)
{
    std::vector<std::string> lines;
    std::istringstream stream(header);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line.substr(0, line.find('\r')));
    }
    return lines;
}

}  // namespace

std::vector<std::string> Response::StatusLines() const
{
    std::vector<std::string> statusLines;
    for (const std::string& line : LinesOf(header)) {
        if (line.rfind("HTTP/", 0) == 0) {
            statusLines.push_back(line);
        }
    }
    return statusLines;
}

std::string Response::Value(const std::string& name) const
{
    std::string value;
    for (const std::string& line : LinesOf(header)) {
        if (line.rfind(name + ": ", 0) == 0) {
            value = line.substr(name.size() + 2);
        }
    }
    return value;
}

Configuration Request(const std::string& url, HttpMethod method, const std::string& body)
{
    Configuration configuration;
    configuration.url = url;
    configuration.method = method;
    configuration.requestBody = body;
    return configuration;
}

Response Fetch(VORTAN_MW::ITransferHandlerFactory&& factory, const Configuration& configuration)
{
    ITransferHandler::Bytes header = {'o', 'l', 'd'};
    ITransferHandler::Bytes body = {'o', 'l', 'd'};
    const auto handler = factory.Create();
    const ITransferHandler::Result result =
        handler->GetTransfer(configuration, boost::optional<ITransferHandler::Bytes&>(header),
                             boost::optional<ITransferHandler::Bytes&>(body));
    Response response;
    response.success = result.success;
    response.code = result.httpCode ? *result.httpCode : -1;
    response.header.assign(header.begin(), header.end());
    response.body.assign(body.begin(), body.end());
    return response;
}

Response Fetch(const Configuration& configuration)
{
    return Fetch(VORTAN_MW::CurlEasyHandlerFactory(), configuration);
}

Response Fetch(const std::string& url)
{
    return Fetch(Request(url));
}
