#pragma once

#include <ITransferHandler.h>

#include <functional>
#include <memory>

namespace VORTAN_TRANSFER {

// Makes another factory's handlers, and stands between them and who receives the response: it
// watches, and has a file sink take what it would not take for a body.
class AdaptedFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    // What is called is called on the worker thread.
    struct Adaptation
    {
        // The transfer begins; a file that it writes is open and locked.
        std::function<void()> onBegin;
        // Each chunk that goes to a callback; null: nobody asks. A plain transfer to a stream has
        // none. onBody returns false to end the transfer.
        std::function<void(const VORTAN_MW::ITransferHandler::Bytes&)> onHeader;
        std::function<bool(const VORTAN_MW::ITransferHandler::Bytes&)> onBody;
        // The HTTP status; 0 if there is none. Returns whether a success is one.
        std::function<bool(long)> onEnd;
        // The header's lines are passed on in front of the body, as a part of it.
        bool putsHeaderIntoBody = false;
        // A body of any HTTP status is to be kept: the status is not passed on, except for 304,
        // which has no body.
        bool hidesStatus = false;
    };

    AdaptedFactory(std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> factory,
                   Adaptation adaptation);

    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override;

private:
    const std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> m_Factory;
    const Adaptation m_Adaptation;
};

}  // namespace VORTAN_TRANSFER
