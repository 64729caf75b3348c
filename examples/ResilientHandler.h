#pragma once

#include <ITransferHandler.h>

#include <chrono>
#include <memory>

//! [limits]
// What a transfer may take. 0 stands for no limit; while connecting, for libcurl's own, 5 minutes.
struct ResilientLimits
{
    std::chrono::milliseconds connecting{10000};
    std::chrono::seconds silence{30};         // without a byte in either direction
    std::chrono::milliseconds altogether{0};  // resumed or not
    int resumes = 5;                          // how often a download that broke off is resumed
};
//! [limits]

class StopSignal;

//! [factory]
// Makes handlers over libcurl that add to the library's own:
// - time-outs;
// - an upload starts again from its first byte where a redirect asks for it;
// - a download that breaks off is resumed, if the server can tell that nothing changed meanwhile
//   (by a strong ETag); the client sees one header and one body;
// - a transfer ends as soon as it is cancelled, even if its server is silent.
//
// A handler works for as long as its factory lives. An agent destroys the factory when it cancels a
// transfer, and that is how the handler learns of it at once.
class ResilientHandlerFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    // Throws std::system_error if the process has no file descriptor left.
    explicit ResilientHandlerFactory(const ResilientLimits& limits = ResilientLimits());
    ResilientHandlerFactory(const ResilientHandlerFactory&) = delete;
    ResilientHandlerFactory& operator=(const ResilientHandlerFactory&) = delete;

    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override;

    // Stops the transfers of its handlers.
    ~ResilientHandlerFactory() override;

private:
    const ResilientLimits m_Limits;
    const std::shared_ptr<StopSignal> m_Stop;
};
//! [factory]
