// curlpp, with the options that the agent's libcurl handler sets.

#include <curl/curl.h>

#include <curlpp/Easy.hpp>
#include <curlpp/Options.hpp>
#include <curlpp/cURLpp.hpp>
#include <filesystem>
#include <vector>

#include "Peer.h"

namespace {

namespace options = curlpp::options;

void Prepare(curlpp::Easy& request, const std::string& url, const std::string& authorities)
{
    request.setOpt(options::Url(url));
    const bool isFolder = std::filesystem::is_directory(authorities);
    curl_easy_setopt(request.getHandle(), CURLOPT_CAINFO, isFolder ? nullptr : authorities.c_str());
    curl_easy_setopt(request.getHandle(), CURLOPT_CAPATH, isFolder ? authorities.c_str() : nullptr);
    request.setOpt(options::HttpHeader({"Cache-control: no-cache"}));
    request.setOpt(options::UserAgent("libcurl-agent/1.0"));
    request.setOpt(options::FailOnError(true));
    request.setOpt(options::FollowLocation(true));
    request.setOpt(options::Encoding(""));
}

template <typename Receive>
void Get(const std::string& url, const std::string& authorities, Receive receive)
{
    curlpp::Easy request;
    Prepare(request, url, authorities);
    request.setOpt(options::HttpGet(true));
    request.setOpt(options::WriteFunction([&](char* data, std::size_t size, std::size_t count) {
        receive(data, size * count);
        return size * count;
    }));
    request.perform();
}

class Curlpp : public Peer
{
public:
    explicit Curlpp(const std::string& authorities) : m_Authorities(authorities) {}

    std::size_t Stream(const std::string& url) override
    {
        std::size_t received = 0;
        Get(url, m_Authorities, [&](const char*, std::size_t size) { received += size; });
        return received;
    }

    std::size_t Fetch(const std::string& url) override
    {
        std::vector<char> body;
        Get(url, m_Authorities, [&](const char* data, std::size_t size) {
            body.insert(body.end(), data, data + size);
        });
        return body.size();
    }

    std::size_t Upload(const std::string& url, std::string body) override
    {
        std::size_t sent = 0;
        curlpp::Easy request;
        Prepare(request, url, m_Authorities);
        request.setOpt(options::Upload(true));
        request.setOpt(options::InfileSizeLarge(static_cast<curl_off_t>(body.size())));
        request.setOpt(
            options::ReadFunction([&](char* buffer, std::size_t size, std::size_t count) {
                const std::size_t length = body.copy(buffer, size * count, sent);
                sent += length;
                return length;
            }));
        request.setOpt(options::WriteFunction(
            [](char*, std::size_t size, std::size_t count) { return size * count; }));
        request.perform();
        return sent;
    }

private:
    curlpp::Cleanup m_Library;
    std::string m_Authorities;
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& authorities)
{
    return std::make_unique<Curlpp>(authorities);
}
