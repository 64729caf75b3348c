// cpp-httplib.

#include <httplib.h>

#include <filesystem>

#include "Peer.h"
#include "Url.h"

namespace {

void Expect(const httplib::Result& result)
{
    if (!result) {
        throw std::runtime_error(httplib::to_string(result.error()));
    }
    if (result->status >= 400) {
        throw std::runtime_error("status " + std::to_string(result->status));
    }
}

httplib::Client Connect(const Url& url, const std::string& authorities)
{
    httplib::Client client((url.isTls ? "https://" : "http://") + url.host + ":" + url.port);
    if (url.isTls) {
        const bool isFolder = std::filesystem::is_directory(authorities);
        client.set_ca_cert_path(isFolder ? "" : authorities, isFolder ? authorities : "");
    }
    return client;
}

class Httplib : public Peer
{
public:
    explicit Httplib(const std::string& authorities) : m_Authorities(authorities) {}

    std::size_t Stream(const std::string& text) override
    {
        const Url url(text);
        std::size_t received = 0;
        const auto count = [&](const char*, std::size_t size) {
            received += size;
            return true;
        };
        Expect(Connect(url, m_Authorities).Get(url.path, count));
        return received;
    }

    std::size_t Fetch(const std::string& text) override
    {
        const Url url(text);
        const httplib::Result result = Connect(url, m_Authorities).Get(url.path);
        Expect(result);
        return result->body.size();
    }

    std::size_t Upload(const std::string& text, std::string body) override
    {
        const Url url(text);
        const auto provide = [&](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
            return sink.write(body.data() + offset, length);
        };
        Expect(Connect(url, m_Authorities)
                   .Put(url.path, body.size(), provide, "application/octet-stream"));
        return body.size();
    }

private:
    std::string m_Authorities;
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& authorities)
{
    return std::make_unique<Httplib>(authorities);
}
