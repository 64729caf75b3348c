#include "FileSink.h"

#include <sys/stat.h>

#include <stdexcept>
#include <utility>

#include "FileSystem.h"
#include "HandlerToFile.h"
#include "HttpHandler.h"
#include "PartFile.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

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
    void RequireUnattached() const
    {
        if (isAttached) {
            throw std::invalid_argument("The file sink is attached to a request already.");
        }
    }

    std::shared_ptr<FileTarget> target;
    bool isAttached = false;
};

FileSink::FileSink(const std::string& path, const std::string& sha256)
    : m_Data(std::make_unique<Data>())
{
    CheckPath(path);
    m_Data->target = std::make_shared<FileTarget>(path, CheckedDigest(sha256));
}

FileSink::~FileSink() = default;

FileSink& FileSink::SetContinuation(bool allowed)
{
    m_Data->RequireUnattached();
    m_Data->target->mayContinue = allowed;
    return *this;
}

FileSink& FileSink::SetLengthRequired(bool required)
{
    m_Data->RequireUnattached();
    m_Data->target->needsLength = required;
    return *this;
}

void FileSink::AttachTo(ITransferAgentManager::TransferConfiguration& request)
{
    m_Data->RequireUnattached();
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
