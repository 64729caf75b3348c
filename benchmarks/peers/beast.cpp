// Boost.Beast, without a thread of its own.

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cstdint>
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

// A connection to the server of a URL.
class Connection
{
public:
    explicit Connection(const Url& url)
    {
        m_Buffer.reserve(PieceSize);  // it reads no more at a time than there is room for
        asio::ip::tcp::resolver resolver(m_Context);
        m_Stream.connect(resolver.resolve(url.host, url.port));
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
    asio::io_context m_Context;
    beast::tcp_stream m_Stream{m_Context};
    beast::flat_buffer m_Buffer;
};

class Beast : public Peer
{
public:
    std::size_t Stream(const std::string& text) override
    {
        const Url url(text);
        Connection connection(url);
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
    }

    std::size_t Fetch(const std::string& text) override
    {
        const Url url(text);
        Connection connection(url);
        connection.SendGet(url);
        http::response_parser<http::vector_body<std::uint8_t>> parser;
        connection.ReceiveHead(parser);
        connection.ReceiveBody(parser);
        return parser.get().body().size();
    }

    std::size_t Upload(const std::string& text, std::string body) override
    {
        const Url url(text);
        Connection connection(url);
        connection.SendPut(url, body);
        http::response_parser<http::string_body> parser;
        connection.ReceiveHead(parser);
        connection.ReceiveBody(parser);
        return body.size();
    }
};

}  // namespace

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<Beast>();
}
