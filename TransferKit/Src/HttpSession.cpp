#include "HttpSession.h"

#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <utility>

#include "HttpHandler.h"
#include "Log.h"
#include "OptionsData.h"
#include "PolicyData.h"
#include "SessionCore.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

// Initialises libcurl once, for the rest of the process. It is never cleaned up: a worker may still
// be in it while the process exits.
void InitialiseCurl()
{
    static const CURLcode code = curl_global_init(CURL_GLOBAL_ALL);
    if (code != CURLE_OK) {
        throw std::runtime_error("libcurl cannot be initialised.");
    }
}

std::shared_ptr<SessionCore> MakeCore(const Policy& policy)
{
    CheckPolicy(policy);
    InitialiseCurl();
    return std::make_shared<SessionCore>(policy);
}

// The core of one process. A child made by fork adds one of its own, without a mutex: in the child,
// a mutex may be held for ever by a thread that only the parent has.
struct CoreOfProcess
{
    std::shared_ptr<SessionCore> core;
    std::unique_ptr<CoreOfProcess> older;
};

}  // namespace

struct TransferOptions::Data : TransferOptionsData
{
};

TransferOptions::TransferOptions() : m_Data(std::make_unique<Data>()) {}
TransferOptions::TransferOptions(const TransferOptions& other)
    : m_Data(std::make_unique<Data>(*other.m_Data))
{}
TransferOptions& TransferOptions::operator=(const TransferOptions& other)
{
    Data copy(*other.m_Data);
    *m_Data = std::move(copy);
    return *this;
}
TransferOptions::~TransferOptions() = default;

TransferOptions& TransferOptions::SetObserver(std::shared_ptr<ITransferObserver> observer)
{
    m_Data->observer = std::move(observer);
    return *this;
}

TransferOptions& TransferOptions::SetCredentials(std::string user, std::string password)
{
    m_Data->hasCredentials = true;
    m_Data->user = std::move(user);
    m_Data->password = std::move(password);
    return *this;
}

TransferOptions& TransferOptions::SetRepeatablePost(bool repeatable)
{
    m_Data->isPostRepeatable = repeatable;
    return *this;
}

struct HttpSession::Data
{
    explicit Data(std::shared_ptr<SessionCore> core)
        : newest(new CoreOfProcess{std::move(core), nullptr})
    {}
    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;
    ~Data() { delete newest.load(); }

    std::shared_ptr<SessionCore> Core()
    {
        CoreOfProcess* current = newest.load();
        if (current->core->pool.IsOfThisProcess()) {
            return current->core;
        }
        auto own = std::make_unique<CoreOfProcess>();
        own->core = MakeCore(current->core->policy);
        if (newest.compare_exchange_strong(current, own.get())) {
            own->older.reset(current);
            return own.release()->core;
        }
        return current->core;  // another thread of the child was faster
    }

    std::atomic<CoreOfProcess*> newest;
};

std::shared_ptr<SessionCore> SessionAccess::Core(HttpSession& session)
{
    return session.m_Data->Core();
}

HttpSession::HttpSession(TransferPolicy policy)
    : m_Data(std::make_unique<Data>(MakeCore(PolicyAccess::Get(policy))))
{
    if (!PolicyAccess::Get(policy).isServerVerified) {
        KIT_LOG(Warn, "The session accepts any certificate of a server: for testing only.");
    }
}

HttpSession::~HttpSession()
{
    m_Data->newest.load()->core->stop.Stop();
}

std::unique_ptr<ITransferHandlerFactory> HttpSession::MakeFactory()
{
    return MakeFactory(TransferOptions());
}

std::unique_ptr<ITransferHandlerFactory> HttpSession::MakeFactory(const TransferOptions& options)
{
    return std::make_unique<HttpHandlerFactory>(m_Data->Core(), *options.m_Data);
}

void HttpSession::AttachUpload(ITransferAgentManager::TransferConfiguration& request,
                               const std::string& path)
{
    if (path.empty()) {
        throw std::invalid_argument("The path of the file to upload is empty.");
    }
    std::unique_ptr<ITransferHandlerFactory> made;
    if (!request.handlerFactory) {
        made = MakeFactory();
    }
    auto* const factory =
        dynamic_cast<HttpHandlerFactory*>(made ? made.get() : request.handlerFactory.get());
    if (!factory || !factory->IsOf(*m_Data->Core())) {
        throw std::invalid_argument("The request's factory is not one of this session's.");
    }
    request.requestBody = "-";  // the agent wants to see one
    factory->SetUpload(path);
    if (made) {
        request.handlerFactory = std::move(made);
    }
    if (request.method != Method::EhttpPost) {
        request.method = Method::EhttpPut;
    }
}

}  // namespace KIT
}  // namespace VORTAN_MW
