#pragma once

#include <cstddef>

#include "ITransferHandler.h"

namespace VORTAN_MW {

// Performs one HTTP transfer with libcurl's easy interface.
class CurlEasyHandler : public ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail& detail) const override;

    // libcurl's read, header and write functions. userdata is the TransferDetail. No exception
    // leaves them: libcurl's frames cannot be unwound everywhere. DoTransfer raises it instead.
    static std::size_t s_ReadBodyCallback(char* buffer, std::size_t size, std::size_t nmemb,
                                          void* userdata);
    static std::size_t s_WriteHeaderCallback(char* data, std::size_t size, std::size_t nmemb,
                                             void* userdata);
    static std::size_t s_WriteBodyCallback(char* data, std::size_t size, std::size_t nmemb,
                                           void* userdata);

    // Delivers received bytes to the buffer and the callback of their kind. Returns size if they
    // were accepted, else 0.
    static std::size_t s_WriteCallback(const void* data, std::size_t size,
                                       const TransferDetail* detail, bool isHeader);
};

}  // namespace VORTAN_MW
