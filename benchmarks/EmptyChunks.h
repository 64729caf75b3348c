#pragma once

#include <ITransferHandler.h>

#include <cstddef>
#include <memory>

// Hands over so many chunks of one byte, and succeeds. With none it does nothing at all.
class EmptyChunks : public VORTAN_MW::ITransferHandler
{
public:
    explicit EmptyChunks(std::size_t count) : m_Count(count) {}

    Result DoTransfer(const TransferDetail& detail) const override
    {
        for (std::size_t i = 0; i < m_Count; ++i) {
            if (!detail.dataCallback(std::make_unique<Bytes>(ChunkSize), detail.userData)) {
                return {};
            }
        }
        return {true, nullptr};
    }

private:
    static constexpr std::size_t ChunkSize = 1;

    std::size_t m_Count;
};

class EmptyChunksFactory : public VORTAN_MW::ITransferHandlerFactory
{
public:
    explicit EmptyChunksFactory(std::size_t count) : m_Count(count) {}

    std::unique_ptr<VORTAN_MW::ITransferHandler> Create() override
    {
        return std::make_unique<EmptyChunks>(m_Count);
    }

private:
    std::size_t m_Count;
};
