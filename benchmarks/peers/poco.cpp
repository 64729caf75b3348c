// POCO's HTTP client.

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/HTTPSClientSession.h>
#include <Poco/StreamCopier.h>
#include <Poco/URI.h>

#include <istream>
#include <ostream>
#include <vector>

#include "Peer.h"

namespace {

namespace Net = Poco::Net;

std::unique_ptr<Net::HTTPClientSession> MakeSession(const Poco::URI& url,
                                                    const std::string& authorities)
{
    if (url.getScheme() == "http") {
        return std::make_unique<Net::HTTPClientSession>(url.getHost(), url.getPort());
    }
    constexpr int depth = 9;
    const Net::Context::Ptr context =
        new Net::Context(Net::Context::CLIENT_USE, authorities, Net::Context::VERIFY_STRICT, depth);
    return std::make_unique<Net::HTTPSClientSession>(url.getHost(), url.getPort(), context);
}

// One request and what answers it.
class Exchange
{
public:
    Exchange(const std::string& url, const std::string& method, const std::string& authorities)
        : m_Url(url),
          m_Session(MakeSession(m_Url, authorities)),
          m_Request(method, m_Url.getPath(), Net::HTTPMessage::HTTP_1_1)
    {}

    void Announce(std::size_t size)
    {
        m_Request.setContentLength64(static_cast<Poco::Int64>(size));
    }

    std::ostream& Send() { return m_Session->sendRequest(m_Request); }

    std::istream& Receive()
    {
        Net::HTTPResponse response;
        std::istream& body = m_Session->receiveResponse(response);
        if (response.getStatus() >= Net::HTTPResponse::HTTP_BAD_REQUEST) {
            throw std::runtime_error(response.getReason());
        }
        return body;
    }

private:
    Poco::URI m_Url;
    std::unique_ptr<Net::HTTPClientSession> m_Session;
    Net::HTTPRequest m_Request;
};

class PocoNet : public Peer
{
public:
    explicit PocoNet(const std::string& authorities) : m_Authorities(authorities) {}

    std::size_t Stream(const std::string& url) override
    {
        Exchange exchange(url, Net::HTTPRequest::HTTP_GET, m_Authorities);
        exchange.Send();
        std::istream& body = exchange.Receive();
        std::vector<char> piece(std::size_t{16} * 1024);
        std::size_t received = 0;
        do {
            body.read(piece.data(), static_cast<std::streamsize>(piece.size()));
            received += static_cast<std::size_t>(body.gcount());
        } while (body);
        return received;
    }

    std::size_t Fetch(const std::string& url) override
    {
        Exchange exchange(url, Net::HTTPRequest::HTTP_GET, m_Authorities);
        exchange.Send();
        std::string body;
        Poco::StreamCopier::copyToString(exchange.Receive(), body);
        return body.size();
    }

    std::size_t Upload(const std::string& url, std::string body) override
    {
        Exchange exchange(url, Net::HTTPRequest::HTTP_PUT, m_Authorities);
        exchange.Announce(body.size());
        exchange.Send().write(body.data(), static_cast<std::streamsize>(body.size()));
        exchange.Receive();
        return body.size();
    }

private:
    std::string m_Authorities;
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& authorities)
{
    return std::make_unique<PocoNet>(authorities);
}
