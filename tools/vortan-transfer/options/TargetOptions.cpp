#include "options/TargetOptions.h"

#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "base/Output.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "options/OptionValues.h"
#include "options/Targets.h"

namespace VORTAN_TRANSFER {

namespace {

void ClaimBodies(const std::vector<Job>& jobs, Targets& targets)
{
    for (const Job& job : jobs) {
        const auto other = targets.Claim(job.target, "the body");
        if (other) {
            const std::string same =
                other->target == job.target
                    ? "another source is to be written to " + Quoted(job.target) + " already"
                    : Quoted(job.target) + " leads to the same file as " + Quoted(other->target) +
                          " of another source";
            throw UsageError(Quoted(job.source.text) + ": " + same);
        }
    }
}

void ClaimForOption(Targets& targets, const std::string& target, const std::string& option,
                    const std::string& advice)
{
    if (const auto other = targets.Claim(target, option)) {
        const std::string name =
            Output::IsStandardOutput(target) ? "standard output" : Quoted(target);
        throw UsageError(option + ": " + name + " has " + other->owner + " already, " + advice);
    }
}

// Where the option's value says that its results go, if the option is set.
std::optional<std::string> TargetOf(const CLI::Option* option, Targets& targets)
{
    if (!IsSet(option)) {
        return std::nullopt;
    }
    std::string target = ValueOf(option);
    if (target.empty()) {
        throw UsageError(option->get_name() + ": is empty");
    }
    ClaimForOption(targets, target, option->get_name(), "name another file");
    return target;
}

}  // namespace

TargetOptions::TargetOptions(CLI::App& app)
    : m_Output(AddValue(app, "-o,--output", "FILE")),
      m_RemoteName(AddFlag(app, "-O,--remote-name")),
      m_Folder(AddValue(app, "--output-dir", "FOLDER")),
      m_Json(AddFlag(app, "--json")),
      m_Trace(AddValue(app, "--trace", "FILE")),
      m_TracePlot(AddValue(app, "--trace-plot", "FILE"))
{
    m_Output->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void TargetOptions::Apply(Arguments& arguments, std::vector<Source> sources) const
{
    RefuseTogether(m_Output, m_RemoteName);
    m_CheckFolder();
    const std::vector<std::string> names = m_NamesOf(sources);
    for (std::size_t i = 0; i < sources.size(); ++i) {
        arguments.jobs.push_back({std::move(sources[i]), names[i]});
    }
    Targets targets;
    ClaimBodies(arguments.jobs, targets);
    arguments.json = IsSet(m_Json);
    if (arguments.json) {
        ClaimForOption(targets, Output::StandardOutput, m_Json->get_name(),
                       "write that to a file with -o or -O");
    }
    arguments.trace.file = TargetOf(m_Trace, targets);
    arguments.trace.plot = TargetOf(m_TracePlot, targets);
}

void TargetOptions::m_CheckFolder() const
{
    if (!IsSet(m_Folder)) {
        return;
    }
    if (!IsSet(m_Output) && !IsSet(m_RemoteName)) {
        throw UsageError("--output-dir: name the files in it with -o or -O");
    }
    const std::string folder = ValueOf(m_Folder);
    struct stat status = {};
    if (stat(folder.c_str(), &status) != 0) {
        throw UsageError("--output-dir: " + Quoted(folder) + ": " + ErrorText(errno));
    }
    if (!S_ISDIR(status.st_mode)) {
        throw UsageError("--output-dir: " + Quoted(folder) + " must be a folder");
    }
}

std::string TargetOptions::m_InFolder(const std::string& name) const
{
    if (!IsSet(m_Folder) || name.front() == '/') {
        return name;
    }
    const std::string folder = ValueOf(m_Folder);
    return folder + (folder.back() == '/' ? "" : "/") + name;
}

std::vector<std::string> TargetOptions::m_NamesOf(const std::vector<Source>& sources) const
{
    std::vector<std::string> names;
    if (IsSet(m_RemoteName)) {
        for (const Source& source : sources) {
            const std::string name = FileNameFor(source);
            names.push_back(m_InFolder(name == Output::StandardOutput ? "./" + name : name));
        }
        return names;
    }
    if (IsSet(m_Output) && m_Output->count() != sources.size()) {
        throw UsageError(std::to_string(sources.size()) +
                         (sources.size() == 1 ? " source" : " sources") + ", but " +
                         std::to_string(m_Output->count()) + " -o: give each its own");
    }
    if (!IsSet(m_Output)) {
        if (sources.size() > 1) {
            throw UsageError(
                "several sources cannot share standard output, use -O to name files after them");
        }
        return {Output::StandardOutput};
    }
    for (const std::string& name : m_Output->results()) {
        if (name.empty()) {
            throw UsageError("--output: is empty");
        }
        names.push_back(name == Output::StandardOutput ? name : m_InFolder(name));
    }
    return names;
}

}  // namespace VORTAN_TRANSFER
