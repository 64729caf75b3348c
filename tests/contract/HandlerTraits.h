#pragma once

#include <HttpSession.h>

#include <memory>
#include <string>

#include "CurlEasyHandlerFactory.h"
#include "FileReaderFactory.h"
#include "ITransferHandler.h"
#include "IndexedBytes.h"
#include "QXCurlEasyHandlerFactory.h"
#include "TemporaryFolder.h"
#include "TestServer.h"

// What the contract suite must know of a handler: one class each, of this shape. To put a further
// handler under the contract, write its class and add it to the list in test_handler_contract.cpp.
//
//     static constexpr const char* Name    of the handler
//     using Factory                        makes the handler
//     static constexpr bool HasHttpCode    a successful transfer tells an HTTP status
//     static constexpr bool CanBeStopped   a refused chunk ends the transfer and fails it
//     bool IsAvailable() const             all that it needs is installed
//     std::string UrlOf(length) const      names IndexedBytes(length)
//     std::string BrokenUrl() const        fails, without any body

// A working double: delivers in chunks, without a source.
class FakeHandler : public VORTAN_MW::ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail& detail) const override;
};

class FakeHandlerFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override
    {
        return std::make_unique<FakeHandler>();
    }
};

struct FakeTraits
{
    using Factory = FakeHandlerFactory;
    static constexpr const char* Name = "FakeHandler";
    static constexpr bool HasHttpCode = true;
    static constexpr bool CanBeStopped = true;

    bool IsAvailable() const { return true; }
    std::string UrlOf(std::size_t length) const { return "fake:" + std::to_string(length); }
    std::string BrokenUrl() const { return "broken:"; }
};

struct FileReaderTraits
{
    using Factory = VORTAN_MW::FileReaderFactory;
    static constexpr const char* Name = "FileReader";
    static constexpr bool HasHttpCode = false;
    static constexpr bool CanBeStopped = false;

    bool IsAvailable() const { return true; }

    std::string UrlOf(std::size_t length) const
    {
        const std::string name = std::to_string(length);
        folder.Write(name, IndexedBytes(length));
        return folder.Path(name);
    }

    std::string BrokenUrl() const { return folder.Path("missing"); }

    const TemporaryFolder folder;
};

// Handlers that ask the odd server.
struct HttpHandlerTraits
{
    static constexpr bool HasHttpCode = true;
    static constexpr bool CanBeStopped = true;

    bool IsAvailable() const { return server.IsInstalled(); }

    std::string UrlOf(std::size_t length) const
    {
        return server.Url("/bytes/" + std::to_string(length));
    }

    const TestServer server{"odd"};
};

struct CurlEasyHandlerTraits : HttpHandlerTraits
{
    using Factory = VORTAN_MW::CurlEasyHandlerFactory;
    static constexpr const char* Name = "CurlEasyHandler";

    std::string BrokenUrl() const { return server.Url("/status/404"); }
};

struct QXCurlEasyHandlerTraits : HttpHandlerTraits
{
    using Factory = VORTAN_MW::QXCurlEasyHandlerFactory;
    static constexpr const char* Name = "QXCurlEasyHandler";

    // An error status is a success to this handler.
    std::string BrokenUrl() const { return server.Url("/garbage"); }
};

// Over the kit. A handler of the kit's stops when its factory goes: this one keeps it.
class KitHandler : public VORTAN_MW::ITransferHandler
{
public:
    KitHandler();

    Result DoTransfer(const TransferDetail& detail) const override;

private:
    const std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> m_Factory;
    const std::unique_ptr<VORTAN_MW::ITransferHandler> m_Handler;
};

class KitHandlerFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override
    {
        return std::make_unique<KitHandler>();
    }
};

struct KitTraits : HttpHandlerTraits
{
    KitTraits();
    ~KitTraits();

    using Factory = KitHandlerFactory;
    static constexpr const char* Name = "Kit";

    std::string BrokenUrl() const { return server.Url("/status/404"); }

private:
    // One for all handlers, as in a client. It goes before the server, which wants to see its
    // connections closed.
    VORTAN_MW::KIT::HttpSession m_Session;
};
