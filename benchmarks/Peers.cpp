#include "Peers.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <vector>

using VORTAN_MW::ITransferHandler;

namespace {

std::size_t Ignore(char*, std::size_t size, std::size_t nmemb, void*)
{
    return size * nmemb;
}

std::size_t Count(char*, std::size_t size, std::size_t nmemb, void* total)
{
    *static_cast<std::size_t*>(total) += size * nmemb;
    return size * nmemb;
}

// Whatever is behind the pointer counts as used, so that the compiler leaves nothing of it out.
void KeepForUse(const void* data)
{
    asm volatile("" : : "r"(data) : "memory");
}

std::size_t CountVector(char* data, std::size_t size, std::size_t nmemb, void* total)
{
    const auto* const first = reinterpret_cast<const std::uint8_t*>(data);
    const auto chunk = std::make_unique<std::vector<std::uint8_t>>(first, first + size * nmemb);
    KeepForUse(chunk->data());
    *static_cast<std::size_t*>(total) += chunk->size();
    return size * nmemb;
}

std::unique_ptr<ITransferHandler::Bytes> CopyOf(const char* data, std::size_t size)
{
    const auto* const first = reinterpret_cast<const std::uint8_t*>(data);
    return std::make_unique<ITransferHandler::Bytes>(first, first + size);
}

std::size_t HandOverHeader(char* data, std::size_t size, std::size_t nmemb, void* userData)
{
    const auto& detail = *static_cast<const ITransferHandler::TransferDetail*>(userData);
    return detail.headerCallback(CopyOf(data, size * nmemb), detail.userData) ? size * nmemb : 0;
}

std::size_t HandOverChunk(char* data, std::size_t size, std::size_t nmemb, void* userData)
{
    const auto& detail = *static_cast<const ITransferHandler::TransferDetail*>(userData);
    return detail.dataCallback(CopyOf(data, size * nmemb), detail.userData) ? size * nmemb : 0;
}

std::size_t Append(char* data, std::size_t size, std::size_t nmemb, void* body)
{
    const auto* const first = reinterpret_cast<const std::uint8_t*>(data);
    auto& bytes = *static_cast<std::vector<std::uint8_t>*>(body);
    bytes.insert(bytes.end(), first, first + size * nmemb);
    return size * nmemb;
}

struct Upload
{
    const std::string& body;
    std::size_t offset = 0;
};

std::size_t ReadUpload(char* buffer, std::size_t size, std::size_t nmemb, void* userData)
{
    auto& upload = *static_cast<Upload*>(userData);
    const std::size_t count = upload.body.copy(buffer, size * nmemb, upload.offset);
    upload.offset += count;
    return count;
}

CURL* MakeGet(const std::string& url)
{
    CURL* const handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
    return handle;
}

bool Perform(CURL* handle, const char* headerLine)
{
    curl_slist* const headers = curl_slist_append(nullptr, headerLine);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    const CURLcode code = curl_easy_perform(handle);
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    curl_slist_free_all(headers);
    curl_easy_cleanup(handle);
    return code == CURLE_OK;
}

void SetConduct(CURL* handle)
{
    curl_easy_setopt(handle, CURLOPT_USERAGENT, "libcurl-agent/1.0");
    curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "");
}

bool Get(const std::string& url, curl_write_callback onHeader, curl_write_callback onBody,
         void* userData)
{
    CURL* const handle = MakeGet(url);
    if (onHeader) {
        curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, onHeader);
        curl_easy_setopt(handle, CURLOPT_HEADERDATA, userData);
    }
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, userData);
    SetConduct(handle);
    return Perform(handle, "Cache-control: no-cache");
}

std::size_t PerformUpload(CURL* handle, const std::string& body)
{
    Upload upload{body};
    curl_easy_setopt(handle, CURLOPT_READFUNCTION, &ReadUpload);
    curl_easy_setopt(handle, CURLOPT_READDATA, &upload);
    curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Ignore);
    SetConduct(handle);
    return Perform(handle, "Cache-control: no-cache") ? upload.offset : 0;
}

class PlainHandler : public ITransferHandler
{
public:
    Result DoTransfer(const TransferDetail& detail) const override
    {
        TransferDetail own(detail);
        return {Get(detail.url, &HandOverHeader, &HandOverChunk, &own), nullptr};
    }
};

class PlainHandlerFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    std::unique_ptr<ITransferHandler> Create() override { return std::make_unique<PlainHandler>(); }
};

}  // namespace

std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> MakePlainHandlerFactory()
{
    return std::make_unique<PlainHandlerFactory>();
}

std::size_t StreamWithLibcurl(const std::string& url)
{
    std::size_t received = 0;
    return Get(url, &Ignore, &Count, &received) ? received : 0;
}

std::size_t StreamWithLibcurlInVectors(const std::string& url)
{
    std::size_t received = 0;
    return Get(url, &Ignore, &CountVector, &received) ? received : 0;
}

std::size_t DownloadWithLibcurl(const std::string& url)
{
    std::vector<std::uint8_t> body;
    return Get(url, nullptr, &Append, &body) ? body.size() : 0;
}

std::size_t StreamLikeTheWrapper(const std::string& url)
{
    std::size_t received = 0;
    CURL* const handle = MakeGet(url);
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &Ignore);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Count);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &received);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 10L);
    return Perform(handle, "Content-Length:0") ? received : 0;
}

std::size_t UploadWithLibcurl(const std::string& url, const std::string& body)
{
    CURL* const handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
    return PerformUpload(handle, body);
}

std::size_t PostWithLibcurl(const std::string& url, const std::string& body)
{
    CURL* const handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_POST, 1L);
    curl_easy_setopt(handle, CURLOPT_POSTREDIR, long{CURL_REDIR_POST_ALL});
    return PerformUpload(handle, body);
}

std::size_t ReadIntoVector(const std::string& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    fstat(file, &status);
    std::vector<std::uint8_t> contents(static_cast<std::size_t>(status.st_size));
    std::size_t length = 0;
    ssize_t count = 0;
    while ((count = read(file, contents.data() + length, contents.size() - length)) > 0) {
        length += static_cast<std::size_t>(count);
    }
    close(file);
    return length;
}
