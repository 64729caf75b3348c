#pragma once

#include <memory>

#include "ITransferHandler.h"

namespace VORTAN_MW {

/// Makes handlers that transfer over HTTP and HTTPS with the device maker's curl wrapper library,
/// which knows the maker's own servers: a request with a halvordConfig goes to one of them, and its
/// url is only logged. The fields of a configuration marked "vendor handler only" are read here,
/// failOnError is not: whatever the HTTP status, a transfer that was performed is a success.
///
/// Every request carries a "Content-Length:" header, a GET too. Redirects are not followed, content
/// encodings not decoded.
class [[gnu::visibility("default")]] QXCurlEasyHandlerFactory : public ITransferHandlerFactory
{
public:
    std::unique_ptr<ITransferHandler> Create() override;

    ~QXCurlEasyHandlerFactory() override;
};

}  // namespace VORTAN_MW
