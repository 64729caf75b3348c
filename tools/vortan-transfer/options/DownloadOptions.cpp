#include "options/DownloadOptions.h"

#include <sys/stat.h>

#include <optional>
#include <string>

#include "base/Output.h"
#include "base/Place.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "options/HashList.h"
#include "options/OptionValues.h"

namespace VORTAN_TRANSFER {

namespace {

using HttpMethod = VORTAN_MW::ITransferHandler::Configuration::HttpMethod;

// Whether the target is a regular file, or will be one.
bool IsRegular(const std::string& target)
{
    const Place place = FindPlace(target);
    struct stat file = {};
    return !place.descriptor && (stat(place.path.c_str(), &file) != 0 || S_ISREG(file.st_mode));
}

void CheckJob(const Job& job, const std::string& option)
{
    if (!job.source.handler->IsSession()) {
        throw UsageError(option + ": only for http: and https: sources, not for " +
                         Quoted(job.source.text));
    }
    if (!IsRegular(job.target)) {
        const std::string name =
            Output::IsStandardOutput(job.target) ? "standard output" : Quoted(job.target);
        throw UsageError(option + ": " + name +
                         " is not a regular file, name one with --output or --remote-name");
    }
}

std::string HashInList(const HashList& list, const Job& job)
{
    const std::string name = job.target.substr(job.target.rfind('/') + 1);
    std::optional<std::string> hash = list.Find(name);
    if (!hash) {
        const std::optional<std::string> ofUrl = NameIn(job.source);
        hash = ofUrl ? list.Find(*ofUrl) : std::nullopt;
    }
    if (!hash) {
        throw UsageError("--sha256-file: has no hash for " + Quoted(name) + " of " +
                         Quoted(job.source.text));
    }
    return *hash;
}

}  // namespace

DownloadOptions::DownloadOptions(CLI::App& app)
    : m_Continue(AddFlag(app, "-c,--continue")),
      m_IfChanged(AddFlag(app, "--if-changed")),
      m_Hash(AddValue(app, "--sha256", "HEX")),
      m_HashFile(AddValue(app, "--sha256-file", "FILE"))
{}

std::vector<const CLI::Option*> DownloadOptions::All() const
{
    return {m_Continue, m_IfChanged, m_Hash, m_HashFile};
}

void DownloadOptions::Apply(Arguments& arguments, const RequestOptions& request) const
{
    m_RefuseContradictions(arguments, request);
    arguments.continues = IsSet(m_Continue);
    arguments.ifChanged = IsSet(m_IfChanged);
    m_SetHashes(arguments.jobs);
}

void DownloadOptions::m_RefuseContradictions(const Arguments& arguments,
                                             const RequestOptions& request) const
{
    RefuseTogether(m_Hash, m_HashFile);
    for (const CLI::Option* const option : All()) {
        if (!IsSet(option)) {
            continue;
        }
        // These write something else than the body of a success into the file.
        RefuseTogether(option, request.Include());
        RefuseTogether(option, request.NoFail());
        if (arguments.request.method != HttpMethod::EhttpGet) {
            throw UsageError(option->get_name() + ": only with the method GET");
        }
        for (const auto& header : arguments.request.headers) {
            const std::string name = LowerCase(header.first);
            if (name == "range" || name == "if-range") {
                throw UsageError(option->get_name() + ": cannot be combined with a header Range");
            }
        }
        for (const Job& job : arguments.jobs) {
            CheckJob(job, option->get_name());
        }
    }
}

void DownloadOptions::m_SetHashes(std::vector<Job>& jobs) const
{
    if (IsSet(m_Hash)) {
        if (jobs.size() > 1) {
            throw UsageError("--sha256: is for one source, use --sha256-file for several");
        }
        jobs.front().sha256 = ParseSha256(ValueOf(m_Hash), "--sha256");
    }
    if (IsSet(m_HashFile)) {
        const HashList list(ValueOf(m_HashFile), "--sha256-file");
        for (Job& job : jobs) {
            job.sha256 = HashInList(list, job);
        }
    }
}

}  // namespace VORTAN_TRANSFER
