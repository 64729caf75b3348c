#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "ITransferHandler.h"

namespace VORTAN_MW {
namespace KIT {

// What a request uploads. It can be read again from any offset, for a redirect or another attempt.
class BodySource
{
public:
    virtual ~BodySource();

    virtual std::uint64_t Length() const = 0;
    // Copies at most length bytes and returns how many; 0 at the end, -1 on failure.
    virtual long Read(char* buffer, std::size_t length) = 0;
    virtual bool Seek(std::uint64_t offset) = 0;
};

// The request body that the client holds in memory. detail must outlive it.
std::unique_ptr<BodySource> MakeMemorySource(const ITransferHandler::TransferDetail& detail);

// A regular file. Its length is taken now. Null if it cannot be opened or is no regular file.
std::unique_ptr<BodySource> OpenFileSource(const std::string& path);

}  // namespace KIT
}  // namespace VORTAN_MW
