#include "FileSink.h"

#include <sys/stat.h>

#include <stdexcept>
#include <utility>

#include "Failure.h"
#include "FileSystem.h"
#include "HttpHandler.h"
#include "Log.h"
#include "PartFile.h"
#include "RequestRules.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// Has another handler write to a file. It always begins with the first byte: whether a part of a
// body fits to what is there is known only to who asked for it and sees the header.
class HandlerToFile : public ITransferHandler
{
public:
    HandlerToFile(std::unique_ptr<ITransferHandler> inner, std::shared_ptr<const FileTarget> target)
        : m_Inner(std::move(inner)), m_Target(std::move(target))
    {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        if (detail.dataBuffer) {
            detail.dataBuffer->clear();
        }
        PartFile file(*m_Target);
        Result result;
        if (file.Open() && file.Begin({})) {
            result = m_Inner->DoTransfer(s_IntoFile(detail, file));
        }
        const long status = result.httpCode ? *result.httpCode : 0;
        const bool isFile = status == 0 || (status >= 200 && status < 300);
        result.success = result.success && (status == 304 || (isFile && file.Commit()));
        if (file.Fault() != Category::Success) {
            KIT_LOG(Error, SentenceOf(file.Fault(), "", 0, file.Detail()));
        }
        return result;
    }

private:
    static TransferDetail s_IntoFile(const TransferDetail& detail, PartFile& file)
    {
        TransferDetail own(detail);
        own.dataBuffer = nullptr;
        own.dataCallback = [&file](std::unique_ptr<Bytes> chunk, void*) {
            return !chunk ||
                   file.Write(reinterpret_cast<const char*>(chunk->data()), chunk->size());
        };
        if (!HasHeader(own, "Accept-Encoding")) {  // the file is what the hash is of
            own.headers.emplace_back("Accept-Encoding", "identity");
        }
        return own;
    }

    const std::unique_ptr<ITransferHandler> m_Inner;
    const std::shared_ptr<const FileTarget> m_Target;
};

class FactoryToFile : public ITransferHandlerFactory
{
public:
    FactoryToFile(std::unique_ptr<ITransferHandlerFactory> inner,
                  std::shared_ptr<const FileTarget> target)
        : m_Inner(std::move(inner)), m_Target(std::move(target))
    {}

    std::unique_ptr<ITransferHandler> Create() override
    {
        std::unique_ptr<ITransferHandler> handler = m_Inner->Create();
        return handler ? std::make_unique<HandlerToFile>(std::move(handler), m_Target) : nullptr;
    }

private:
    const std::unique_ptr<ITransferHandlerFactory> m_Inner;
    const std::shared_ptr<const FileTarget> m_Target;
};

void CheckPath(const std::string& path)
{
    if (path.empty() || path.find('\0') != std::string::npos) {
        throw std::invalid_argument("The path of the file is empty or contains a null character.");
    }
    struct stat status = {};
    if (stat(FolderOf(path).c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        throw std::invalid_argument("The folder of the file does not exist.");
    }
    const bool isThere = stat(path.c_str(), &status) == 0;
    if (path.back() == '/' || (isThere && !S_ISREG(status.st_mode))) {
        throw std::invalid_argument("The path names a folder or device instead of a file.");
    }
}

std::optional<Digest> CheckedDigest(const std::string& text)
{
    const std::optional<Digest> digest = ParseDigest(text);
    if (!digest && !text.empty()) {
        throw std::invalid_argument("The SHA-256 is not 64 hexadecimal digits.");
    }
    return digest;
}

}  // namespace

struct FileSink::Data
{
    std::shared_ptr<const FileTarget> target;
    bool isAttached = false;
};

FileSink::FileSink(const std::string& path, const std::string& sha256)
    : m_Data(std::make_unique<Data>())
{
    CheckPath(path);
    m_Data->target = std::make_shared<FileTarget>(path, CheckedDigest(sha256));
}

FileSink::~FileSink() = default;

void FileSink::AttachTo(ITransferAgentManager::TransferConfiguration& request)
{
    if (m_Data->isAttached) {
        throw std::invalid_argument("The file sink is attached to a request already.");
    }
    if (!request.handlerFactory) {
        throw std::invalid_argument("The request has no factory that the file sink could use.");
    }
    auto* const own = dynamic_cast<HttpHandlerFactory*>(request.handlerFactory.get());
    if (dynamic_cast<FactoryToFile*>(request.handlerFactory.get()) || (own && own->HasTarget())) {
        throw std::invalid_argument("The request has a file sink already.");
    }
    if (own) {
        own->SetTarget(m_Data->target);  // these handlers write the file themselves, and resume it
    } else {
        request.handlerFactory =
            std::make_unique<FactoryToFile>(std::move(request.handlerFactory), m_Data->target);
    }
    if (!request.headerCallback && !request.dataCallback) {
        request.dataCallback = [](std::unique_ptr<ITransferHandler::Bytes>, void*) {};
    }
    m_Data->isAttached = true;
}

}  // namespace KIT
}  // namespace VORTAN_MW
