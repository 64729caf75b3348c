#include "HandlerToFile.h"

#include <utility>

#include "Failure.h"
#include "Log.h"
#include "RequestRules.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// Has another handler write to a file. It always begins with the first byte: whether a part of a
// body fits to what is there is known only to who asked for it and sees the header.
class HandlerToFile : public ITransferHandler
{
public:
    HandlerToFile(std::unique_ptr<ITransferHandler> inner, std::shared_ptr<const FileTarget> target,
                  std::shared_ptr<FileFault> fault)
        : m_Inner(std::move(inner)), m_Target(std::move(target)), m_Fault(std::move(fault))
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
        m_Fault->category = file.Fault();
        m_Fault->detail = file.Detail();
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
    const std::shared_ptr<FileFault> m_Fault;
};

}  // namespace

std::unique_ptr<ITransferHandler> FactoryToFile::Create()
{
    std::unique_ptr<ITransferHandler> handler = m_Inner->Create();
    return handler ? std::make_unique<HandlerToFile>(std::move(handler), m_Target, m_Fault)
                   : nullptr;
}

}  // namespace KIT
}  // namespace VORTAN_MW
