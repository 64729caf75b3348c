// Boost.Beast, without a thread of its own.

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <vector>

#include "Peer.h"
#include "Url.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

constexpr unsigned Http11 = 11;
constexpr std::size_t PieceSize = std::size_t{64} * 1024;

asio::ssl::context MakeContext(const std::string& authorities)
{
    asio::ssl::context context(asio::ssl::context::tls_client);
    context.set_verify_mode(asio::ssl::verify_peer);
    if (std::filesystem::is_directory(authorities)) {
        context.add_verify_path(authorities);
    } else {
        context.load_verify_file(authorities);
    }
    return context;
}

beast::tcp_stream Connect(asio::io_context& context, const Url& url)
{
    beast::tcp_stream stream(context);
    asio::ip::tcp::resolver resolver(context);
    stream.connect(resolver.resolve(url.host, url.port));
    return stream;
}

// What is sent and received over a connection to the server of a URL.
template <typename Stream>
class Connection
{
public:
    explicit Connection(Stream& stream) : m_Stream(stream)
    {
        m_Buffer.reserve(PieceSize);  // it reads no more at a time than there is room for
    }

    void SendGet(const Url& url)
    {
        http::request<http::empty_body> request(http::verb::get, url.path, Http11);
        request.set(http::field::host, url.host);
        request.keep_alive(false);
        http::write(m_Stream, request);
    }

    void SendPut(const Url& url, const std::string& body)
    {
        using Body = http::span_body<const char>;
        http::request<Body> request(http::verb::put, url.path, Http11);
        request.set(http::field::host, url.host);
        request.keep_alive(false);
        request.body() = Body::value_type(body.data(), body.size());
        request.prepare_payload();
        http::write(m_Stream, request);
    }

    template <typename Body>
    void ReceiveHead(http::response_parser<Body>& parser)
    {
        parser.body_limit(std::numeric_limits<std::uint64_t>::max());
        http::read_header(m_Stream, m_Buffer, parser);
        if (parser.get().result_int() >= 400) {
            throw std::runtime_error(std::string(parser.get().reason()));
        }
    }

    template <typename Body>
    void ReceiveBody(http::response_parser<Body>& parser)
    {
        http::read(m_Stream, m_Buffer, parser);
    }

    // As much as the piece of the body that the parser has been given can take.
    void ReceivePiece(http::response_parser<http::buffer_body>& parser)
    {
        beast::error_code error;
        http::read(m_Stream, m_Buffer, parser, error);
        if (error && error != http::error::need_buffer) {
            throw beast::system_error(error);
        }
    }

private:
    Stream& m_Stream;
    beast::flat_buffer m_Buffer;
};

// Runs work on a connection of its own, with TLS if the URL wants it.
template <typename Work>
std::size_t WithConnection(const Url& url, const std::string& authorities, Work work)
{
    asio::io_context context;
    beast::tcp_stream plain = Connect(context, url);
    if (!url.isTls) {
        return work(Connection<beast::tcp_stream>(plain));
    }
    asio::ssl::context tls = MakeContext(authorities);
    beast::ssl_stream<beast::tcp_stream> stream(std::move(plain), tls);
    stream.set_verify_callback(asio::ssl::host_name_verification(url.host));
    stream.handshake(asio::ssl::stream_base::client);
    return work(Connection<beast::ssl_stream<beast::tcp_stream>>(stream));
}

class Beast : public Peer
{
public:
    explicit Beast(const std::string& authorities) : m_Authorities(authorities) {}

    std::size_t Stream(const std::string& text) override
    {
        const Url url(text);
        return WithConnection(url, m_Authorities, [&](auto connection) {
            connection.SendGet(url);
            http::response_parser<http::buffer_body> parser;
            connection.ReceiveHead(parser);
            std::vector<char> piece(PieceSize);
            std::size_t received = 0;
            while (!parser.is_done()) {
                auto& body = parser.get().body();
                body.data = piece.data();
                body.size = piece.size();
                connection.ReceivePiece(parser);
                received += piece.size() - body.size;
            }
            return received;
        });
    }

    std::size_t Fetch(const std::string& text) override
    {
        const Url url(text);
        return WithConnection(url, m_Authorities, [&](auto connection) {
            connection.SendGet(url);
            http::response_parser<http::vector_body<std::uint8_t>> parser;
            connection.ReceiveHead(parser);
            connection.ReceiveBody(parser);
            return parser.get().body().size();
        });
    }

    std::size_t Upload(const std::string& text, std::string body) override
    {
        const Url url(text);
        return WithConnection(url, m_Authorities, [&](auto connection) {
            connection.SendPut(url, body);
            http::response_parser<http::string_body> parser;
            connection.ReceiveHead(parser);
            connection.ReceiveBody(parser);
            return body.size();
        });
    }

private:
    std::string m_Authorities;
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& authorities)
{
    return std::make_unique<Beast>(authorities);
}
