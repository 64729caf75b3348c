// cpprestsdk's HTTP client. Its operations are asynchronous; each is waited for.

#include <cpprest/http_client.h>
#include <cpprest/rawptrstream.h>

#include <boost/asio/ssl.hpp>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "Peer.h"

namespace {

namespace http = web::http;

http::http_response Send(const std::string& url, const http::http_request& request,
                         const std::string& authorities)
{
    http::client::http_client_config config;
    config.set_ssl_context_callback([&](boost::asio::ssl::context& context) {
        if (std::filesystem::is_directory(authorities)) {
            context.add_verify_path(authorities);
        } else {
            context.load_verify_file(authorities);
        }
    });
    http::client::http_client client(url, config);
    http::http_response response = client.request(request).get();
    if (response.status_code() >= http::status_codes::BadRequest) {
        throw std::runtime_error(response.reason_phrase());
    }
    return response;
}

class Cpprest : public Peer
{
public:
    explicit Cpprest(const std::string& authorities) : m_Authorities(authorities) {}

    std::size_t Stream(const std::string& url) override
    {
        const http::http_response response =
            Send(url, http::http_request(http::methods::GET), m_Authorities);
        auto body = response.body().streambuf();
        std::vector<std::uint8_t> piece(std::size_t{64} * 1024);
        std::size_t received = 0;
        std::size_t count = 0;
        while ((count = body.getn(piece.data(), piece.size()).get()) > 0) {
            received += count;
        }
        return received;
    }

    std::size_t Fetch(const std::string& url) override
    {
        const http::http_response response =
            Send(url, http::http_request(http::methods::GET), m_Authorities);
        return response.extract_vector().get().size();
    }

    std::size_t Upload(const std::string& url, std::string body) override
    {
        const auto* const data = reinterpret_cast<const std::uint8_t*>(body.data());
        http::http_request request(http::methods::PUT);
        request.set_body(
            concurrency::streams::rawptr_stream<std::uint8_t>::open_istream(data, body.size()),
            body.size());
        Send(url, request, m_Authorities).content_ready().wait();
        return body.size();
    }

private:
    std::string m_Authorities;
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& authorities)
{
    return std::make_unique<Cpprest>(authorities);
}
