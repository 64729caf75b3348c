#include "transfer/TransferRequest.h"

#include <FileSink.h>
#include <sys/stat.h>

#include <functional>
#include <utility>

#include "transfer/AdaptedFactory.h"
#include "transfer/Validator.h"

namespace VORTAN_TRANSFER {

namespace {

using VORTAN_MW::ITransferHandlerFactory;
using Request = VORTAN_MW::ITransferAgentManager::TransferConfiguration;
using Bytes = VORTAN_MW::ITransferHandler::Bytes;
using TransferPtr = std::shared_ptr<Transfer>;

std::unique_ptr<ITransferHandlerFactory> MakeSessionFactory(const TransferPtr& transfer)
{
    const Arguments& arguments = transfer->Shared().arguments;
    VORTAN_MW::KIT::TransferOptions options;
    options.SetObserver(transfer);
    const auto& own = transfer->TheSource().credentials;
    if (const auto& credentials = own ? own : arguments.credentials) {
        options.SetCredentials(credentials->user, credentials->password);
    }
    return transfer->Shared().session.MakeFactory(options);
}

std::unique_ptr<ITransferHandlerFactory> Adapted(std::unique_ptr<ITransferHandlerFactory> factory,
                                                 const TransferPtr& transfer)
{
    const bool isSession = transfer->TheSource().handler->IsSession();
    AdaptedFactory::Adaptation adaptation;
    // The session's observer hears of it.
    adaptation.onBegin =
        isSession ? [] {} : std::function<void()>([transfer] { transfer->OnBegin(); });
    adaptation.onEnd = [transfer](long status) { return transfer->OnHandlerEnd(status); };
    if (transfer->File()) {
        if (transfer->TheSource().handler->speaksHttp) {
            adaptation.onHeader = [transfer](const Bytes& lines) { transfer->OnHeader(lines); };
        }
        adaptation.onBody = [transfer](const Bytes& bytes) {
            transfer->OnChunk(bytes.size());
            return !transfer->Shared().isStopping;
        };
        adaptation.putsHeaderIntoBody = transfer->WritesHeader();
        adaptation.hidesStatus = !transfer->Shared().arguments.request.failOnError;
    }
    return std::make_unique<AdaptedFactory>(std::move(factory), std::move(adaptation));
}

void SetUpload(Request& request, const TransferPtr& transfer)
{
    const auto& path = transfer->Shared().arguments.upload;
    struct stat status = {};
    if (path) {
        transfer->Shared().session.AttachUpload(request, *path);
        if (stat(path->c_str(), &status) == 0) {
            transfer->TheMeter().SetToSend(static_cast<std::uint64_t>(status.st_size));
        }
    } else if (!request.requestBody.empty()) {
        transfer->TheMeter().SetToSend(request.requestBody.size());
    }
}

void SetFactory(Request& request, const TransferPtr& transfer)
{
    const Handler& handler = *transfer->TheSource().handler;
    if (handler.IsSession()) {
        request.handlerFactory = MakeSessionFactory(transfer);
        SetUpload(request, transfer);
    } else {
        request.handlerFactory = handler.makeFactory();
    }
    if (!transfer->IsSessionsOwn()) {
        request.handlerFactory = Adapted(std::move(request.handlerFactory), transfer);
    }
}

void SetFile(Request& request, const TransferPtr& transfer)
{
    if (transfer->KeepsValidator()) {
        AskIfChanged(request, transfer->TheSource().url, *transfer->File());
    }
    if (transfer->IsSessionsOwn()) {
        request.headerCallback = [transfer](const std::unique_ptr<Bytes>& lines, void*) {
            transfer->OnHeader(*lines);
        };
    }
    VORTAN_MW::KIT::FileSink(*transfer->File(), transfer->Sha256())
        .SetContinuation(transfer->Shared().arguments.continues)
        .SetLengthRequired(false)
        .AttachTo(request);
}

void SetStream(Request& request, const TransferPtr& transfer)
{
    if (transfer->TheSource().handler->speaksHttp) {
        request.headerCallback = [transfer](const std::unique_ptr<Bytes>& lines, void*) {
            transfer->OnHeader(*lines);
        };
    }
    request.dataCallback = [transfer](const std::unique_ptr<Bytes>& bytes, void*) {
        transfer->OnBody(*bytes);
    };
}

}  // namespace

std::unique_ptr<Request> MakeTransferRequest(const TransferPtr& transfer)
{
    const Arguments& arguments = transfer->Shared().arguments;
    auto request = std::make_unique<Request>();
    static_cast<VORTAN_MW::ITransferHandler::Configuration&>(*request) = arguments.request;
    request->url = transfer->TheSource().url;
    request->segmented = arguments.segmented;
    SetFactory(*request, transfer);
    if (transfer->File()) {
        SetFile(*request, transfer);
    } else {
        SetStream(*request, transfer);
    }
    return request;
}

}  // namespace VORTAN_TRANSFER
