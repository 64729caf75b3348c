#include "FileReader.h"

#include <ThreadSafeFileSystemAccessor.h>

#include "FileReaderFactory.h"
#include "Utils.h"

namespace VORTAN_MW {

namespace {

void EmptyIfSet(ITransferHandler::Bytes* buffer)
{
    if (buffer) {
        buffer->clear();
    }
}

// Clients know this marker in the header's place; it is not derived from the file.
void DeliverPlaceholderHeader(const ITransferHandler::TransferDetail& detail)
{
    const ITransferHandler::Bytes placeholder = {0x01, 0x02, 0x03};
    if (detail.headerBuffer) {
        *detail.headerBuffer = placeholder;
    }
    if (detail.headerCallback) {
        detail.headerCallback(std::make_unique<ITransferHandler::Bytes>(placeholder),
                              detail.userData);
    }
}

void DeliverBody(const ITransferHandler::TransferDetail& detail, ITransferHandler::Bytes&& contents)
{
    if (detail.dataCallback) {
        detail.dataCallback(std::make_unique<ITransferHandler::Bytes>(contents), detail.userData);
    }
    if (detail.dataBuffer) {
        *detail.dataBuffer = std::move(contents);
    }
}

}  // namespace

ITransferHandler::Result FileReader::DoTransfer(const TransferDetail& detail) const
{
    LOG_DEBUG(" ");
    Result result;
    result.success = m_CheckFileExists(detail.url);
    if (!result.success) {
        EmptyIfSet(detail.headerBuffer);
        EmptyIfSet(detail.dataBuffer);
        return result;
    }
    DeliverPlaceholderHeader(detail);
    Bytes contents;
    if (!ThreadSafeFileSystemAccessor::ReadFile(detail.url, contents)) {
        LOG_ERROR("Failed to read file: " << detail.url);
        result.success = false;
    }
    DeliverBody(detail, std::move(contents));
    return result;
}

bool FileReader::m_CheckFileExists(const std::string& path) const
{
    const bool exists = ThreadSafeFileSystemAccessor::FileExists(path);
    LOG_DEBUG("File " << path << "exist: " << exists);  // no blank after the path, on purpose
    return exists;
}

std::unique_ptr<ITransferHandler> FileReaderFactory::Create()
{
    return std::make_unique<FileReader>();
}

FileReaderFactory::~FileReaderFactory() = default;

}  // namespace VORTAN_MW
