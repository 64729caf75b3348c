#include "HttpHandler.h"

#include <utility>

namespace VORTAN_MW {
namespace KIT {

namespace {

class HttpHandler : public ITransferHandler
{
public:
    explicit HttpHandler(std::shared_ptr<HandlerContext> context) : m_Context(std::move(context)) {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        const std::shared_ptr<SessionCore> core = m_Core();
        if (!core) {
            return Result();
        }
        StopListener listener;
        const StopSource::Registration ofFactory(m_Context->stop, listener);
        const StopSource::Registration ofSession(core->stop, listener);
        return Transfer(*core, detail, m_Context->options, m_Context->files, listener).Run();
    }

private:
    // The session's; or one of its own for a handler that was made before a fork. Null if that
    // cannot be made.
    std::shared_ptr<SessionCore> m_Core() const
    {
        if (m_Context->core->pool.IsOfThisProcess()) {
            return m_Context->core;
        }
        try {
            return std::make_shared<SessionCore>(m_Context->core->policy);
        } catch (const std::exception&) {
            return nullptr;
        }
    }

    const std::shared_ptr<HandlerContext> m_Context;
};

}  // namespace

HttpHandlerFactory::HttpHandlerFactory(std::shared_ptr<SessionCore> core,
                                       TransferOptionsData options)
    : m_Context(std::make_shared<HandlerContext>())
{
    m_Context->core = std::move(core);
    m_Context->options = std::move(options);
}

HttpHandlerFactory::~HttpHandlerFactory()
{
    m_Context->stop.Stop();
}

std::unique_ptr<ITransferHandler> HttpHandlerFactory::Create()
{
    return std::make_unique<HttpHandler>(m_Context);
}

}  // namespace KIT
}  // namespace VORTAN_MW
