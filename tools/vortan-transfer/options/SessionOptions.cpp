#include "options/SessionOptions.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "options/OptionValues.h"

namespace VORTAN_TRANSFER {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// The kit's own bounds.
constexpr seconds Day(24 * 60 * 60);
constexpr seconds Year(365 * Day);
constexpr std::uint32_t Unlimited = std::numeric_limits<std::uint32_t>::max();

// Defaults that --help tells.
constexpr milliseconds ConnectTimeout = seconds(10);
constexpr milliseconds MaxTime = Day;
constexpr milliseconds Silence = seconds(30);
constexpr std::uint32_t Retries = 2;
constexpr milliseconds RetryDelay(500);
constexpr milliseconds LongestRetryDelay = seconds(60);
constexpr std::uint32_t Redirects = 10;

milliseconds TimeLimit(const CLI::Option* option, milliseconds otherwise, seconds max)
{
    if (!IsSet(option)) {
        return otherwise;
    }
    const milliseconds limit = ParseSeconds(ValueOf(option), option->get_name(), max);
    if (limit.count() == 0) {
        throw UsageError(option->get_name() + ": must be more than 0 seconds");
    }
    return limit;
}

// A limit that the user has not set gives way to --max-time.
milliseconds WithinMaxTime(const CLI::Option* option, milliseconds otherwise, milliseconds maxTime)
{
    const milliseconds limit = TimeLimit(option, std::min(otherwise, maxTime), Day);
    if (limit > maxTime) {
        throw UsageError(option->get_name() + ": must not exceed --max-time");
    }
    return limit;
}

std::uint32_t Count(const CLI::Option* option, std::uint32_t otherwise, std::uint32_t max)
{
    return IsSet(option) ? ParseNumber(ValueOf(option), option->get_name(), max) : otherwise;
}

// The path of a file or folder that can be read.
std::string ReadablePath(const CLI::Option* option, bool isFolder)
{
    std::string path = ValueOf(option);
    const std::string refusal = option->get_name() + ": " + Quoted(path);
    try {
        // A pipe without a writer would block.
        const FileDescriptor file = OpenFile(path, O_RDONLY | O_NONBLOCK);
        struct stat status = {};
        if (fstat(file.Get(), &status) != 0) {
            ThrowErrno();
        }
        if (S_ISDIR(status.st_mode) != isFolder) {
            throw UsageError(refusal + " must be a " + (isFolder ? "folder" : "file"));
        }
    } catch (const std::system_error& error) {
        throw UsageError(refusal + ": " + ErrorText(error.code().value()));
    }
    return path;
}

// No refusal shows a password.
Credentials ParseCredentials(const std::string& text)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0) {
        throw UsageError("--user: must be USER:PASSWORD");
    }
    if (std::any_of(text.begin(), text.end(), IsControl)) {
        throw UsageError("--user: must not contain control characters");
    }
    return {text.substr(0, colon), text.substr(colon + 1)};
}

}  // namespace

SessionOptions::SessionOptions(CLI::App& app)
    : m_ConnectTimeout(m_Add(AddValue(app, "--connect-timeout", "SECONDS"))),
      m_MaxTime(m_Add(AddValue(app, "--max-time", "SECONDS"))),
      m_Silence(m_Add(AddValue(app, "--silence", "SECONDS"))),
      m_Retry(m_Add(AddValue(app, "--retry", "N"))),
      m_RetryDelay(m_Add(AddValue(app, "--retry-delay", "SECONDS"))),
      m_MaxRedirects(m_Add(AddValue(app, "--max-redirs", "N"))),
      m_MaxFileSize(m_Add(AddValue(app, "--max-filesize", "BYTES"))),
      m_AuthorityFile(m_Add(AddValue(app, "--cacert", "FILE"))),
      m_AuthorityFolder(m_Add(AddValue(app, "--capath", "FOLDER"))),
      m_Insecure(m_Add(AddFlag(app, "-k,--insecure"))),
      m_Certificate(m_Add(AddValue(app, "--cert", "FILE"))),
      m_Key(m_Add(AddValue(app, "--key", "FILE"))),
      m_User(m_Add(AddValue(app, "-u,--user", "USER:PASSWORD")))
{}

CLI::Option* SessionOptions::m_Add(CLI::Option* option)
{
    m_All.push_back(option);
    return option;
}

void SessionOptions::Apply(Arguments& arguments) const
{
    TransferPolicy& policy = arguments.policy;
    policy.SetSchemes({"http", "https"});
    m_SetTimes(policy);
    m_SetAttempts(policy);
    m_SetBounds(policy);
    m_SetAuthorities(policy);
    m_SetCertificate(policy);
    if (IsSet(m_User)) {
        arguments.credentials = ParseCredentials(ValueOf(m_User));
    }
}

void SessionOptions::m_SetTimes(TransferPolicy& policy) const
{
    const milliseconds maxTime = TimeLimit(m_MaxTime, MaxTime, Year);
    policy.SetAltogether(maxTime)
        .SetConnecting(WithinMaxTime(m_ConnectTimeout, ConnectTimeout, maxTime))
        .SetSilence(WithinMaxTime(m_Silence, Silence, maxTime));
}

void SessionOptions::m_SetAttempts(TransferPolicy& policy) const
{
    const milliseconds delay = IsSet(m_RetryDelay)
                                   ? ParseSeconds(ValueOf(m_RetryDelay), "--retry-delay", Day)
                                   : RetryDelay;
    policy.SetAttempts(Count(m_Retry, Retries, Unlimited - 1) + 1)
        .SetRetryBudget(Unlimited)
        .SetBackoff(delay)
        .SetLongestBackoff(std::max(delay, LongestRetryDelay));
}

void SessionOptions::m_SetBounds(TransferPolicy& policy) const
{
    policy.SetRedirects(Count(m_MaxRedirects, Redirects, Unlimited));
    if (IsSet(m_MaxFileSize)) {
        policy.SetLongestBody(ParseSize(ValueOf(m_MaxFileSize), "--max-filesize"));
    }
}

void SessionOptions::m_SetAuthorities(TransferPolicy& policy) const
{
    RefuseTogether(m_Insecure, m_AuthorityFile);
    RefuseTogether(m_Insecure, m_AuthorityFolder);
    policy.SetServerVerification(!IsSet(m_Insecure));
    if (IsSet(m_AuthorityFile)) {
        policy.SetAuthorityFile(ReadablePath(m_AuthorityFile, false));
    }
    if (IsSet(m_AuthorityFolder)) {
        policy.SetAuthorityFolder(ReadablePath(m_AuthorityFolder, true));
    }
}

void SessionOptions::m_SetCertificate(TransferPolicy& policy) const
{
    if (IsSet(m_Key) && !IsSet(m_Certificate)) {
        throw UsageError("--key: needs the certificate that it belongs to, name it with --cert");
    }
    if (IsSet(m_Certificate)) {
        const std::string certificate = ReadablePath(m_Certificate, false);
        policy.SetClientCertificate(certificate,
                                    IsSet(m_Key) ? ReadablePath(m_Key, false) : certificate);
    }
}

}  // namespace VORTAN_TRANSFER
