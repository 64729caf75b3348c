#pragma once

#include <string>

// A URL of the form http://host:port/path, or https:, for the libraries that want it in parts.
struct Url
{
    explicit Url(const std::string& text)
    {
        isTls = text.rfind("https:", 0) == 0;
        const std::size_t start = text.find("//") + 2;
        const std::size_t colon = text.find(':', start);
        const std::size_t slash = text.find('/', start);
        host = text.substr(start, colon - start);
        port = text.substr(colon + 1, slash - colon - 1);
        path = text.substr(slash);
    }

    bool isTls;
    std::string host;
    std::string port;
    std::string path;
};
