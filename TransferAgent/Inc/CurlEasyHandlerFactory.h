#pragma once

#include <memory>

#include "ITransferHandler.h"

namespace VORTAN_MW {

/// Makes handlers that transfer over HTTP and HTTPS with libcurl. Redirects are followed, content
/// encodings decoded, certificates verified. No time-out is set: a transfer lasts as long as its
/// server keeps the connection. Header bytes are the raw header lines of every response, those of
/// redirects and of 1xx responses included, and trailers.
///
/// A POST or PUT for which no body is wanted goes out as a HEAD, uploads nothing, and succeeds: ask
/// for the body, and drop it.
class [[gnu::visibility("default")]] CurlEasyHandlerFactory : public ITransferHandlerFactory
{
public:
    /// The first call in the process initialises libcurl, which is cleaned up at process exit.
    /// Thread-safe.
    std::unique_ptr<ITransferHandler> Create() override;

    ~CurlEasyHandlerFactory() override;
};

}  // namespace VORTAN_MW
