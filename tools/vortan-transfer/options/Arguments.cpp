#include "options/Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "base/Password.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "base/Version.h"
#include "options/DownloadOptions.h"
#include "options/Help.h"
#include "options/InputFile.h"
#include "options/OptionValues.h"
#include "options/RequestOptions.h"
#include "options/SessionOptions.h"
#include "options/TargetOptions.h"
#include "options/VendorOptions.h"

namespace VORTAN_TRANSFER {

namespace {

using HttpMethod = VORTAN_MW::ITransferHandler::Configuration::HttpMethod;

// The library transfers no more at a time.
constexpr std::size_t MaxParallel = 4;

// "-d, --data DATA", or "--json" of a flag.
std::string FormOf(const CLI::Option& option)
{
    std::string form;
    const auto append = [&form](const std::string& name) {
        form += (form.empty() ? "" : ", ") + name;
    };
    for (const std::string& name : option.get_snames()) {
        append("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        append("--" + name);
    }
    const bool isFlag = option.get_items_expected_max() == 0;
    return isFlag ? form : form + " " + option.get_type_name();
}

// The options as CLI11 has them.
class Options
{
public:
    Options()
    {
        m_App.name("vortan-transfer");
        m_App.set_version_flag("--version", "");
        sources->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
        // Redirects are always followed; accepted for those who are used to it from curl.
        AddFlag(m_App, "-L,--location")->group("");
    }

    void Parse(int argc, const char* const* argv) { m_App.parse(argc, argv); }

    // Of those that are not hidden.
    std::vector<std::string> Forms() const
    {
        std::vector<std::string> forms;
        std::vector<const CLI::App*> groups =
            m_App.get_subcommands([](const auto*) { return true; });
        groups.insert(groups.begin(), &m_App);
        for (const CLI::App* const group : groups) {
            for (const CLI::Option* const option : group->get_options()) {
                if (!option->get_positional() && !option->get_group().empty()) {
                    forms.push_back(FormOf(*option));
                }
            }
        }
        return forms;
    }

private:
    CLI::App m_App;

    // CLI11 compares each new option with all others of its group. In one group, that took a tenth
    // of the time that the program takes to start.
    CLI::App& m_Group(const std::string& name)
    {
        CLI::App& group = *m_App.add_option_group(name);
        group.set_help_flag();  // it would have one of its own
        return group;
    }

public:
    CLI::Option* const sources = AddValue(m_App, "SOURCE", "");
    CLI::Option* const inputFile = AddValue(m_App, "--input-file", "FILE");
    CLI::Option* const parallel = AddValue(m_App, "--parallel-max", "N");
    CLI::Option* const handler = AddValue(m_App, "--handler", "NAME");
    CLI::Option* const quiet = AddFlag(m_App, "-q,--quiet,-s,--silent");
    CLI::Option* const verbose = AddFlag(m_App, "-v,--verbose");
    const RequestOptions request{m_Group("request")};
    const TargetOptions targets{m_Group("targets")};
    const DownloadOptions download{m_Group("download")};
    const SessionOptions session{m_Group("session")};
    const VendorOptions vendor{m_Group("vendor")};
};

// The handler that the user has named, or null.
const Handler* NamedHandler(const Options& options)
{
    return IsSet(options.handler) ? &HandlerByName(ValueOf(options.handler)) : nullptr;
}

void RefuseSessionOptions(const Options& options, const Handler* given)
{
    if (!given || given->IsSession()) {
        return;
    }
    std::vector<const CLI::Option*> all = options.session.All();
    const std::vector<const CLI::Option*> download = options.download.All();
    all.insert(all.end(), download.begin(), download.end());
    all.push_back(options.request.Upload());
    for (const CLI::Option* const option : all) {
        if (IsSet(option)) {
            throw UsageError(option->get_name() + ": cannot be combined with --handler " +
                             given->name);
        }
    }
}

// Standard input can be read once.
void RefuseSecondReader(const Options& options)
{
    const std::pair<const CLI::Option*, const char*> readers[] = {
        {options.inputFile, "-"},
        {options.download.HashFile(), "-"},
        {options.request.Data(), "@-"}};
    const CLI::Option* first = nullptr;
    for (const auto& [option, value] : readers) {
        if (!IsSet(option) || ValueOf(option) != value) {
            continue;
        }
        if (first) {
            throw UsageError(option->get_name() + ": " + first->get_name() +
                             " reads standard input already, name a file");
        }
        first = option;
    }
}

void AppendFromFile(std::vector<Source>& sources, const CLI::Option* option, const Handler* handler)
{
    for (const InputLine& line : ReadLines(ValueOf(option), option->get_name())) {
        const std::string text(Trimmed(line.text));
        if (text.empty() || text.front() == '#') {
            continue;
        }
        try {
            sources.push_back(MakeSource(text, handler));
        } catch (const UsageError& error) {
            throw UsageError(line.place + ": " + error.what());
        }
    }
}

std::vector<Source> MakeSources(const Options& options, int argc, const char* const* argv)
{
    const Handler* const handler = NamedHandler(options);
    std::vector<Source> sources;
    if (const auto resource = options.vendor.Resource()) {
        for (const CLI::Option* const other : {options.sources, options.inputFile}) {
            if (IsSet(other)) {
                throw UsageError("--resource: takes the place of a source, leave out " +
                                 Quoted(other->results().front()));
            }
        }
        return {{*resource, handler, *resource}};
    }
    for (const std::string& text : options.sources->results()) {
        // CLI11 takes an argument in brackets for a list of arguments.
        if (std::find(argv, argv + argc, text) == argv + argc) {
            throw UsageError("begin a name in brackets with ./");
        }
        sources.push_back(MakeSource(text, handler));
    }
    if (IsSet(options.inputFile)) {
        AppendFromFile(sources, options.inputFile, handler);
    }
    if (sources.empty()) {
        throw UsageError(IsSet(options.inputFile)
                             ? "--input-file: " + Quoted(ValueOf(options.inputFile)) +
                                   " has no source"
                             : "no source is given");
    }
    return sources;
}

void RefuseMethodsForFiles(const std::vector<Job>& jobs, HttpMethod method)
{
    for (const Job& job : jobs) {
        if (!job.source.handler->speaksHttp && method != HttpMethod::EhttpGet) {
            const std::string advice = WebAddressAdvice(job.source.text);
            throw UsageError(Quoted(job.source.text) + ": a file can only be fetched" +
                             (advice.empty() ? "" : ". " + advice));
        }
    }
}

Arguments Checked(const Options& options, int argc, const char* const* argv)
{
    Arguments arguments;
    const Handler* const given = NamedHandler(options);
    options.vendor.Apply(arguments.request, given);
    RefuseSessionOptions(options, given);
    RefuseSecondReader(options);
    options.session.Apply(arguments);
    options.targets.Apply(arguments, MakeSources(options, argc, argv));
    options.request.Apply(arguments);
    RefuseMethodsForFiles(arguments.jobs, arguments.request.method);
    options.download.Apply(arguments, options.request);
    if (IsSet(options.parallel)) {
        arguments.parallel =
            ParseNumber<std::size_t>(ValueOf(options.parallel), "--parallel-max", 1, MaxParallel);
    }
    arguments.quiet = IsSet(options.quiet);
    arguments.verbose = IsSet(options.verbose);
    return arguments;
}

// Overwrites the bytes by which an argument differs from what may be shown of it.
void Overwrite(char* argument, std::string_view shown)
{
    const std::string_view text = argument;
    const auto difference = std::mismatch(text.begin(), text.end(), shown.begin(), shown.end());
    const auto begin = static_cast<std::size_t>(difference.first - text.begin());
    const std::size_t longest = std::min(text.size(), shown.size()) - begin;
    std::size_t end = 0;
    while (end < longest && text[text.size() - 1 - end] == shown[shown.size() - 1 - end]) {
        ++end;
    }
    std::memset(argument + begin, '*', text.size() - begin - end);
}

}  // namespace

std::vector<std::string> OptionForms()
{
    return Options().Forms();
}

std::variant<Arguments, Information> ParseArguments(int argc, const char* const* argv)
{
    Options options;
    try {
        options.Parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return HelpText;
    } catch (const CLI::CallForVersion&) {
        return VersionLine() + (IsSet(options.verbose) ? VersionDetails() : "");
    } catch (const CLI::ParseError& error) {
        throw UsageError(Printable(error.what()));
    }
    return Checked(options, argc, argv);
}

void HidePasswords(const Arguments& arguments, int argc, char** argv)
{
    const std::string user = arguments.credentials ? arguments.credentials->user + ":" : "";
    const std::string both = user.empty() ? "" : user + arguments.credentials->password;
    for (int i = 1; i < argc; ++i) {
        const std::string_view text = argv[i];
        const std::size_t before = text.size() - std::min(text.size(), both.size());
        if (!both.empty() && text.substr(before) == both) {
            std::memset(argv[i] + before + user.size(), '*', both.size() - user.size());
        } else if (const std::string shown = WithoutPassword(text); shown != text) {
            const bool isSource =
                std::any_of(arguments.jobs.begin(), arguments.jobs.end(),
                            [&shown](const Job& job) { return job.source.text == shown; });
            if (isSource) {
                Overwrite(argv[i], shown);
            }
        }
    }
}

}  // namespace VORTAN_TRANSFER
