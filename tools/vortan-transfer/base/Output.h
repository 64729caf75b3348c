#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/FileDescriptor.h"
#include "base/Place.h"
#include "base/TemporaryFile.h"
#include "base/Text.h"

namespace VORTAN_TRANSFER {

// Something could not be written. The text names it and says why.
class OutputError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Where the bytes of one transfer go.
//
// A regular file appears under its name only when it is complete. A device, a pipe and an open
// descriptor (standard output, /dev/stderr, /dev/fd/3) get each byte at once, but a terminal gets
// control characters as escapes: what a server sends is not to steer it. All throw OutputError.
class Output
{
public:
    // The target that stands for standard output.
    static constexpr const char* StandardOutput = "-";

    static bool IsStandardOutput(const std::string& target);

    // The path, behind all symbolic links, of the regular file that the target names or would make;
    // nothing if the target is a stream. Throws OutputError if it is a folder, is in none, or is a
    // file that must not be written to.
    static std::optional<std::string> FileBehind(const std::string& target);

    // Blocks when the target is a named pipe that nobody reads yet.
    explicit Output(const std::string& target);

    void Write(const std::vector<std::uint8_t>& bytes);
    void Write(std::string_view bytes);

    // Everything is written: the file takes its name. Without this, a file is gone on destruction.
    void Commit();

    // There is nothing to replace a file with: it stays as it is, and none is made. A stream is
    // ended as by Commit().
    void Leave();

private:
    Output(const std::string& target, const Place& place);

    template <typename Action>
    void m_Do(Action action);
    void m_EndStream();
    void m_WriteText(const std::string& text);

    std::string m_Name;  // for messages
    std::unique_ptr<TemporaryFile> m_Temporary;
    FileDescriptor m_Stream;                   // used if there is no temporary file
    std::unique_ptr<TerminalText> m_Terminal;  // used if that is a terminal
};

}  // namespace VORTAN_TRANSFER
