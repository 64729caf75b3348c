#pragma once

#include <string>

#include "Authorities.h"
#include "BodySource.h"
#include "Curl.h"
#include "Failure.h"
#include "HandlePool.h"
#include "HeaderCollector.h"
#include "ITransferHandler.h"
#include "OptionsData.h"
#include "PolicyData.h"
#include "RedirectRule.h"

namespace VORTAN_MW {
namespace KIT {

// One request and its response on a pooled handle. It says what libcurl is to do and passes on what
// it receives; it decides nothing.
class Exchange
{
public:
    // Takes the response. Both return false to end the request. Called from within libcurl; what
    // they throw ends the request, too.
    class Receiver
    {
    public:
        virtual ~Receiver();
        // The header is complete.
        virtual bool OnHeader(const HeaderCollector& header) = 0;
        virtual bool OnBody(const char* data, std::size_t length) = 0;
    };

    // All of it outlives the exchange.
    struct Request
    {
        const Hop& hop;
        const ITransferHandler::TransferDetail& detail;
        const TransferOptionsData& options;
        const Policy& policy;
        const Authorities& authorities;
        BodySource* body;   // null: no body
        bool isBodyWanted;  // of the response
        bool isOnFreshConnection;
        bool mayBeEncoded;
        std::string range;      // value of Range without its unit; empty: the whole body
        std::string validator;  // value of If-Range
    };

    Exchange(PooledHandle& handle, const Request& request, HeaderCollector& header,
             Receiver& receiver)
        : m_Handle(handle), m_Request(request), m_Header(header), m_Receiver(receiver)
    {}
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    // Throws CurlFailure and std::bad_alloc.
    void SetUp();

    // Why the exchange itself ended the request; Category::Success if it did not.
    Category Fault() const { return m_Fault; }

private:
    void m_SetTarget();
    void m_SetMethod();
    void m_SetUpload();
    void m_SetHeaders();
    void m_SetTls();
    void m_SetCallbacks();

    template <typename Step>
    auto m_Guarded(const Step& step, decltype(step()) failed) -> decltype(step());

    bool m_TakeHeaderLine(const char* data, std::size_t length);
    std::size_t m_ReadBody(char* buffer, std::size_t length);

    static std::size_t s_WriteHeader(char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t s_WriteBody(char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t s_ReadBody(char* buffer, std::size_t size, std::size_t count, void* self);
    static int s_SeekBody(void* self, curl_off_t offset, int origin);

    PooledHandle& m_Handle;
    const Request& m_Request;
    HeaderCollector& m_Header;
    Receiver& m_Receiver;
    HeaderList m_Lines;  // outlives the request
    Category m_Fault = Category::Success;
};

}  // namespace KIT
}  // namespace VORTAN_MW
