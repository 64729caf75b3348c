// cpp-httplib.

#include <httplib.h>

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

httplib::Client Connect(const Url& url)
{
    return httplib::Client(url.host, std::stoi(url.port));
}

class Httplib : public Peer
{
public:
    std::size_t Stream(const std::string& text) override
    {
        const Url url(text);
        std::size_t received = 0;
        const auto count = [&](const char*, std::size_t size) {
            received += size;
            return true;
        };
        Expect(Connect(url).Get(url.path, count));
        return received;
    }

    std::size_t Fetch(const std::string& text) override
    {
        const Url url(text);
        const httplib::Result result = Connect(url).Get(url.path);
        Expect(result);
        return result->body.size();
    }

    std::size_t Upload(const std::string& text, std::string body) override
    {
        const Url url(text);
        const auto provide = [&](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
            return sink.write(body.data() + offset, length);
        };
        Expect(Connect(url).Put(url.path, body.size(), provide, "application/octet-stream"));
        return body.size();
    }
};

}  // namespace

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<Httplib>();
}
