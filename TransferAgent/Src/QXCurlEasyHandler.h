#pragma once

#include "ITransferHandler.h"

namespace VORTAN_MW {

// Performs one HTTP transfer with the device maker's curl wrapper library.
class QXCurlEasyHandler : public ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail& detail) const override;

    // The wrapper's read and write callbacks. userdata is the TransferDetail. size times nmemb
    // wraps at 32 bits. A client's exception passes through them.
    static unsigned int s_ReadBodyCallback(char* buffer, unsigned int size, unsigned int nmemb,
                                           void* userdata);
    static unsigned int s_WriteHeaderCallback(char* data, unsigned int size, unsigned int nmemb,
                                              void* userdata);
    static unsigned int s_WriteBodyCallback(char* data, unsigned int size, unsigned int nmemb,
                                            void* userdata);

    // Delivers received bytes to the buffer and the callback of their kind. Returns size if they
    // were accepted, else 0.
    static unsigned int s_WriteCallback(const void* data, unsigned int size,
                                        const TransferDetail* detail, bool isHeader);
};

}  // namespace VORTAN_MW
