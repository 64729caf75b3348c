#pragma once

#include <string>
#include <vector>

#include "ITransferHandler.h"

using Configuration = VORTAN_MW::ITransferHandler::Configuration;
using HttpMethod = Configuration::HttpMethod;

// What a transfer yielded.
struct Response
{
    bool success = false;
    long code = -1;  // -1: none
    std::string header;
    std::string body;

    // "HTTP/1.1 200 OK" of each response in a chain of redirects.
    std::vector<std::string> StatusLines() const;
    // The value of the last header of this name.
    std::string Value(const std::string& name) const;
};

Configuration Request(const std::string& url, HttpMethod method = HttpMethod::EhttpGet,
                      const std::string& body = "");

// Transfers header and body into buffers that were not empty; through the libcurl handler where no
// other is named.
Response Fetch(VORTAN_MW::ITransferHandlerFactory&& factory, const Configuration& configuration);
Response Fetch(const Configuration& configuration);
Response Fetch(const std::string& url);
