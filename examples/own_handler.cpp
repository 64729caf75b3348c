// own_handler PIPE: prints what other programs write into a named pipe, through a handler of its
// own, and ends when the last of them closes the pipe, or at once on Ctrl-C. Exits with 0 if all of
// it was read, with 130 if it was cancelled, and with 1 otherwise.

#include <AsyncTransferAgentManager.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>

using namespace VORTAN_MW;
using Bytes = ITransferHandler::Bytes;

namespace {

std::atomic<bool> interrupted{false};

// Owns a file descriptor, or -1.
class Descriptor
{
public:
    explicit Descriptor(int number) : m_Number(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (m_Number >= 0) {
            close(m_Number);
        }
    }

    int Number() const { return m_Number; }

private:
    const int m_Number;
};

//! [stop]
// Tells any number of transfers to stop, whatever they wait for: from then on its file descriptor
// is readable.
class StopSignal
{
public:
    StopSignal() : m_Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (m_Descriptor.Number() < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    void Stop() { eventfd_write(m_Descriptor.Number(), 1); }
    int Number() const { return m_Descriptor.Number(); }

private:
    const Descriptor m_Descriptor;
};
//! [stop]

//! [deliver]
// Hands a chunk over to whoever wants it; false if the transfer has to stop.
bool Deliver(const ITransferHandler::TransferDetail& detail, const Bytes& chunk)
{
    if (detail.dataBuffer) {  // a plain transfer
        detail.dataBuffer->insert(detail.dataBuffer->end(), chunk.begin(), chunk.end());
    }
    return !detail.dataCallback ||
           detail.dataCallback(std::make_unique<Bytes>(chunk), detail.userData);
}
//! [deliver]

//! [handler]
class PipeReader : public ITransferHandler
{
public:
    explicit PipeReader(std::shared_ptr<const StopSignal> stop) : m_Stop(std::move(stop)) {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        for (Bytes* const buffer : {detail.headerBuffer, detail.dataBuffer}) {
            if (buffer) {
                buffer->clear();
            }
        }
        // Without O_NONBLOCK it would wait here for somebody to write.
        const Descriptor pipe(open(detail.url.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        Result result;
        result.success = pipe.Number() >= 0 && m_ReadToEnd(pipe.Number(), detail);
        return result;
    }

private:
    bool m_ReadToEnd(int pipe, const TransferDetail& detail) const
    {
        pollfd waits[] = {{pipe, POLLIN, 0}, {m_Stop->Number(), POLLIN, 0}};
        while (poll(waits, 2, -1) >= 0 || errno == EINTR) {
            if (waits[1].revents != 0) {
                return false;
            }
            Bytes chunk(16384);
            const ssize_t count = read(pipe, chunk.data(), chunk.size());
            if (count == 0 && waits[0].revents != 0) {
                return true;  // the last writer has closed it
            }
            if (count < 0 && errno != EAGAIN && errno != EINTR) {
                return false;
            }
            chunk.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
            if (!chunk.empty() && !Deliver(detail, chunk)) {
                return false;
            }
        }
        return false;
    }

    const std::shared_ptr<const StopSignal> m_Stop;
};
//! [handler]

//! [factory]
// A handler works for as long as its factory lives. An agent destroys the factory when it cancels a
// transfer, and that is how the handler learns of it at once.
class PipeReaderFactory : public ITransferHandlerFactory
{
public:
    std::unique_ptr<ITransferHandler> Create() override
    {
        return std::make_unique<PipeReader>(m_Stop);
    }

    ~PipeReaderFactory() override { m_Stop->Stop(); }

private:
    const std::shared_ptr<StopSignal> m_Stop = std::make_shared<StopSignal>();
};
//! [factory]

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "own_handler PIPE\n";
        return 2;
    }
    std::signal(SIGINT, [](int) { interrupted = true; });
    std::promise<bool> over;
    auto agent = AsyncTransferAgentManager::Create();

    auto request = std::make_unique<ITransferAgentManager::TransferConfiguration>();
    //! [request]
    request->url = argv[1];
    request->handlerFactory = std::make_unique<PipeReaderFactory>();
    request->segmented = true;
    //! [request]
    request->dataCallback = [](const std::unique_ptr<Bytes>& chunk, void*) {
        if (chunk) {
            std::cout.write(reinterpret_cast<const char*>(chunk->data()),
                            static_cast<std::streamsize>(chunk->size()));
            std::cout.flush();
        }
    };
    request->completeCallback = [&](ITransferHandler::Result result, void*) {
        over.set_value(result.success);
    };
    const std::uint64_t handle = agent->RequestTransfer(std::move(request));
    if (handle == ITransferAgentManager::InvalidHandle) {
        std::cerr << "the request was refused, the log says why\n";
        return 1;
    }
    std::future<bool> future = over.get_future();
    while (!interrupted &&
           future.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
    }
    //! [cancel]
    agent->CancelTransfer(handle);  // true if it was still in progress
    agent.reset();                  // does not have to wait for somebody to write
    //! [cancel]
    if (future.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) {
        return 130;
    }
    const bool succeeded = future.get();
    if (!succeeded) {
        std::cerr << "cannot read " << argv[1] << " to its end\n";
    }
    if (!std::cout.flush()) {
        std::cerr << "cannot write to standard output\n";
        return 1;
    }
    return succeeded ? 0 : 1;
}
