#include "BodySource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Descriptor.h"

namespace VORTAN_MW {
namespace KIT {

namespace {

class MemorySource : public BodySource
{
public:
    explicit MemorySource(const ITransferHandler::TransferDetail& detail) : m_Detail(detail)
    {
        m_Detail.bodyOffset = 0;
    }

    std::uint64_t Length() const override { return m_Detail.requestBody.size(); }

    long Read(char* buffer, std::size_t length) override
    {
        const std::size_t count = m_Detail.requestBody.copy(buffer, length, m_Detail.bodyOffset);
        m_Detail.bodyOffset += count;
        return static_cast<long>(count);
    }

    bool Seek(std::uint64_t offset) override
    {
        if (offset > Length()) {
            return false;
        }
        m_Detail.bodyOffset = static_cast<std::size_t>(offset);
        return true;
    }

private:
    const ITransferHandler::TransferDetail& m_Detail;
};

class FileSource : public BodySource
{
public:
    FileSource(Descriptor descriptor, std::uint64_t length)
        : m_Descriptor(std::move(descriptor)), m_Length(length)
    {}

    std::uint64_t Length() const override { return m_Length; }

    // The end of the file before the length that was announced is a failure.
    long Read(char* buffer, std::size_t length) override
    {
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(length, m_Length - m_Offset));
        if (wanted == 0) {
            return 0;
        }
        ssize_t count = 0;
        do {
            count = pread(m_Descriptor.Number(), buffer, wanted, static_cast<off_t>(m_Offset));
        } while (count < 0 && errno == EINTR);
        if (count <= 0) {
            return -1;
        }
        m_Offset += static_cast<std::uint64_t>(count);
        return static_cast<long>(count);
    }

    bool Seek(std::uint64_t offset) override
    {
        m_Offset = std::min(offset, m_Length);
        return m_Offset == offset;
    }

private:
    const Descriptor m_Descriptor;
    const std::uint64_t m_Length;
    std::uint64_t m_Offset = 0;
};

}  // namespace

BodySource::~BodySource() = default;

std::unique_ptr<BodySource> MakeMemorySource(const ITransferHandler::TransferDetail& detail)
{
    return std::make_unique<MemorySource>(detail);
}

std::unique_ptr<BodySource> OpenFileSource(const std::string& path)
{
    // Opening a pipe without this flag would wait for its writer.
    Descriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status = {};
    if (descriptor.Number() < 0 || fstat(descriptor.Number(), &status) != 0 ||
        !S_ISREG(status.st_mode)) {
        return nullptr;
    }
    return std::make_unique<FileSource>(std::move(descriptor),
                                        static_cast<std::uint64_t>(status.st_size));
}

}  // namespace KIT
}  // namespace VORTAN_MW
