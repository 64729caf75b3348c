#include "base/Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace VORTAN_TRANSFER {

namespace {

// An open descriptor is written to through a copy: opening its file again would begin at its start,
// and replacing the file would lose what others write to it.
FileDescriptor CopyOf(int descriptor)
{
    const int flags = fcntl(descriptor, F_GETFD);
    if (flags < 0) {
        ThrowErrno();
    }
    // Only the program's own are closed when it is replaced, those that it was given are not.
    if ((static_cast<unsigned>(flags) & static_cast<unsigned>(FD_CLOEXEC)) != 0) {
        throw std::system_error(EBADF, std::system_category());
    }
    return Duplicate(descriptor);
}

// Whether the target is to be written to as it is, because it is no file that could be replaced.
bool IsStream(const std::string& target)
{
    struct stat status = {};
    if (stat(target.c_str(), &status) != 0) {
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        throw std::system_error(EISDIR, std::system_category());
    }
    return !S_ISREG(status.st_mode);
}

// A file that may not be written to may not be replaced either, though the folder would allow it.
// Nor may one behind links that lead nowhere.
void RefuseReadOnly(const std::string& target)
{
    if (faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0 && errno != ENOENT) {
        ThrowErrno();
    }
}

std::string NameOf(const std::string& target, const Place& place)
{
    return place.descriptor == STDOUT_FILENO ? "standard output" : Quoted(target);
}

// Calls action, and reports what fails of it with the name of the output.
template <typename Action>
void Reporting(const std::string& name, Action action)
{
    try {
        action();
    } catch (const std::system_error& error) {
        throw OutputError("cannot write " + name + ": " + ErrorText(error.code().value()));
    }
}

void RequireFolderOf(const std::filesystem::path& path)
{
    const std::filesystem::path folder = path.parent_path();
    struct stat status = {};
    if (!folder.empty() && stat(folder.c_str(), &status) != 0) {
        ThrowErrno();
    }
}

}  // namespace

std::optional<std::string> Output::FileBehind(const std::string& target)
{
    const Place place = FindPlace(target);
    bool isFile = false;
    Reporting(NameOf(target, place), [&] {
        isFile = !place.descriptor && !IsStream(target);
        if (isFile) {
            RefuseReadOnly(target);
            RequireFolderOf(place.path);
        }
    });
    return isFile ? std::optional(place.path) : std::nullopt;
}

bool Output::IsStandardOutput(const std::string& target)
{
    return FindPlace(target).descriptor == STDOUT_FILENO;
}

Output::Output(const std::string& target) : Output(target, FindPlace(target)) {}

Output::Output(const std::string& target, const Place& place) : m_Name(NameOf(target, place))
{
    m_Do([&] {
        if (place.descriptor) {
            m_Stream = CopyOf(*place.descriptor);
        } else if (IsStream(target)) {
            m_Stream = OpenFile(target, O_WRONLY);
        } else {
            RefuseReadOnly(target);
            m_Temporary = std::make_unique<TemporaryFile>(place.path);
        }
        if (!m_Temporary && isatty(m_Stream.Get()) == 1) {
            m_Terminal = std::make_unique<TerminalText>();
        }
    });
}

void Output::Write(const std::vector<std::uint8_t>& bytes)
{
    Write({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void Output::Write(std::string_view bytes)
{
    m_Do([&] {
        if (m_Terminal) {
            m_WriteText(m_Terminal->Next(bytes));
            return;
        }
        const int descriptor = m_Temporary ? m_Temporary->Descriptor() : m_Stream.Get();
        WriteAll(descriptor, bytes.data(), bytes.size());
    });
}

void Output::Commit()
{
    m_Do([this] {
        if (m_Temporary) {
            m_Temporary->TakePlace();
        } else {
            m_EndStream();
        }
    });
}

void Output::Leave()
{
    if (m_Temporary) {
        m_Temporary.reset();
    } else {
        m_Do([this] { m_EndStream(); });
    }
}

void Output::m_EndStream()
{
    if (m_Terminal) {
        m_WriteText(m_Terminal->Rest());
    }
    m_Stream.Close();
}

void Output::m_WriteText(const std::string& text)
{
    WriteAll(m_Stream.Get(), text.data(), text.size());
}

template <typename Action>
void Output::m_Do(Action action)
{
    Reporting(m_Name, action);
}

}  // namespace VORTAN_TRANSFER
