#include "options/Arguments.h"

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>

#include "base/FileDescriptor.h"
#include "base/Output.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "options/Help.h"
#include "options/OptionValues.h"
#include "options/Targets.h"
#include "options/VendorOptions.h"

namespace VORTAN_TRANSFER {

namespace {

using Configuration = VORTAN_MW::ITransferHandler::Configuration;
using HttpMethod = Configuration::HttpMethod;

// "-d, --data DATA", or "--json" of a flag.
std::string FormOf(const CLI::Option& option)
{
    std::string form;
    for (const std::string& name : option.get_snames()) {
        form += "-" + name + ", ";
    }
    form += "--" + option.get_lnames().front();
    const bool isFlag = option.get_items_expected_max() == 0;
    return isFlag ? form : form + " " + option.get_type_name();
}

// The options as CLI11 has them. Their values are taken as raw text: CLI11's conversions give
// brackets and braces a meaning of their own.
class Options
{
public:
    Options()
    {
        m_App.name("vortan-transfer");
        m_App.set_version_flag("--version", "vortan-transfer " VORTAN_TRANSFER_VERSION);
        sources->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
        header->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }

    void Parse(int argc, const char* const* argv) { m_App.parse(argc, argv); }

    // Of those that are not hidden.
    std::vector<std::string> Forms() const
    {
        std::vector<std::string> forms;
        for (const CLI::Option* const option : m_App.get_options()) {
            if (!option->get_positional() && !option->get_group().empty()) {
                forms.push_back(FormOf(*option));
            }
        }
        return forms;
    }

private:
    CLI::App m_App;

    CLI::Option* m_Value(const std::string& name, const std::string& type)
    {
        return m_App.add_option(name)->type_name(type);
    }

    CLI::Option* m_Flag(const std::string& name) { return AddFlag(m_App, name); }

public:
    CLI::Option* const sources = m_Value("SOURCE", "");
    CLI::Option* const method = m_Value("-X,--method", "METHOD");
    CLI::Option* const header = m_Value("-H,--header", "'NAME: VALUE'");
    CLI::Option* const data = m_Value("-d,--data", "DATA");
    CLI::Option* const output = m_Value("-o,--output", "FILE");
    CLI::Option* const remoteName = m_Flag("-O,--remote-name");
    CLI::Option* const include = m_Flag("-i,--include");
    CLI::Option* const segmented = m_Flag("--segmented");
    CLI::Option* const plain = m_Flag("--plain");
    CLI::Option* const randomDelay = m_Value("--random-delay", "MIN:MAX");
    CLI::Option* const fixedDelay = m_Value("--fixed-delay", "MS");
    CLI::Option* const noFail = m_Flag("--no-fail");
    CLI::Option* const handler = m_Value("--handler", "NAME");
    CLI::Option* const json = m_Flag("--json");
    CLI::Option* const trace = m_Value("--trace", "FILE");
    CLI::Option* const tracePlot = m_Value("--trace-plot", "FILE");
    CLI::Option* const quiet = m_Flag("-q,--quiet");
    CLI::Option* const verbose = m_Flag("-v,--verbose");
    // Hidden, and refused with a hint for those who are used to it from curl.
    CLI::Option* const location = m_Flag("-L,--location")->group("");
    const VendorOptions vendor{m_App};
};

void RefuseTogether(const CLI::Option* one, const CLI::Option* other)
{
    if (IsSet(one) && IsSet(other)) {
        throw UsageError(one->get_name() + ": cannot be combined with " + other->get_name());
    }
}

HttpMethod ParseMethod(const std::string& name)
{
    const std::pair<const char*, HttpMethod> methods[] = {{"get", HttpMethod::EhttpGet},
                                                          {"head", HttpMethod::EhttpHead},
                                                          {"post", HttpMethod::EhttpPost},
                                                          {"put", HttpMethod::EhttpPut}};
    for (const auto& [known, method] : methods) {
        if (LowerCase(name) == known) {
            return method;
        }
    }
    throw UsageError("--method: " + Quoted(name) + " is none of GET, HEAD, POST, PUT");
}

std::pair<std::string, std::string> ParseHeader(std::string_view line)
{
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        throw UsageError("--header: " + Quoted(line) + " has no colon");
    }
    const std::string name(line.substr(0, colon));
    const std::string value(Trimmed(line.substr(colon + 1)));
    const auto isControl = [](char c) { return IsControl(c) && c != '\t'; };
    if (name.empty() || name.find_first_of(" \t") != std::string::npos ||
        std::any_of(line.begin(), line.end(), isControl)) {
        throw UsageError("--header: " + Quoted(line) + " is no 'NAME: VALUE'");
    }
    return {name, value};
}

// The library computes in milliseconds of 32 bits: more seconds would wrap around.
constexpr std::uint32_t MaxDelaySeconds = 4294967;

Configuration::RandomDelay ParseRandomDelay(std::string_view text)
{
    const std::string option = "--random-delay";
    const auto [min, max] = SplitAtColon(text, option, "MIN:MAX");
    Configuration::RandomDelay delay;
    delay.min = ParseNumber(min, option, MaxDelaySeconds);
    delay.max = ParseNumber(max, option, MaxDelaySeconds);
    if (delay.min > delay.max) {
        throw UsageError(option + ": " + Quoted(text) + " has MIN above MAX");
    }
    return delay;
}

std::string ReadToEnd(int descriptor)
{
    std::string data;
    char buffer[65536];
    while (const std::size_t count = ReadSome(descriptor, buffer, sizeof buffer)) {
        data.append(buffer, count);
    }
    return data;
}

std::string ReadData(const std::string& argument)
{
    if (argument.substr(0, 1) != "@") {
        return argument;
    }
    const std::string path = argument.substr(1);
    try {
        return path == "-" ? ReadToEnd(STDIN_FILENO) : ReadToEnd(OpenFile(path, O_RDONLY).Get());
    } catch (const std::system_error& error) {
        throw UsageError("--data: " + Quoted(argument) + ": " + ErrorText(error.code().value()));
    }
}

void SetMethodAndData(Configuration& request, const Options& options)
{
    const bool hasData = IsSet(options.data);
    request.method = IsSet(options.method) ? ParseMethod(ValueOf(options.method))
                     : hasData             ? HttpMethod::EhttpPost
                                           : HttpMethod::EhttpGet;
    const bool sends =
        request.method == HttpMethod::EhttpPost || request.method == HttpMethod::EhttpPut;
    if (hasData && !sends) {
        throw UsageError("--data: only POST and PUT send data");
    }
    if (sends && !hasData) {
        throw UsageError("--method: POST and PUT need data to send, give it with --data");
    }
    if (hasData) {
        request.requestBody = ReadData(ValueOf(options.data));
    }
    if (request.method == HttpMethod::EhttpPost && request.requestBody.empty()) {
        throw UsageError("--data: is empty, and POST cannot send nothing");
    }
}

void SetDelays(Configuration& request, const Options& options)
{
    RefuseTogether(options.randomDelay, options.fixedDelay);
    RefuseTogether(options.segmented, options.randomDelay);
    RefuseTogether(options.segmented, options.fixedDelay);
    if (IsSet(options.randomDelay)) {
        request.randomDelay = ParseRandomDelay(ValueOf(options.randomDelay));
    }
    if (IsSet(options.fixedDelay)) {
        request.fixedDelay = ParseNumber(ValueOf(options.fixedDelay), "--fixed-delay",
                                         std::numeric_limits<std::int64_t>::max());
    }
}

// The handler that the user has named, or null.
const Handler* NamedHandler(const Options& options)
{
    return IsSet(options.handler) ? &HandlerByName(ValueOf(options.handler)) : nullptr;
}

void SetRequest(Configuration& request, const Options& options)
{
    for (const std::string& line : options.header->results()) {
        request.headers.push_back(ParseHeader(line));
    }
    request.failOnError = !IsSet(options.noFail);
    SetDelays(request, options);
    SetMethodAndData(request, options);  // last: it may read much
}

std::vector<Source> MakeSources(const Options& options, int argc, const char* const* argv)
{
    const Handler* const handler = NamedHandler(options);
    std::vector<Source> sources;
    if (const auto resource = options.vendor.Resource()) {
        if (IsSet(options.sources)) {
            throw UsageError("--resource: takes the place of a source, " +
                             Quoted(options.sources->results().front()) + " cannot be asked, too");
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
    if (sources.empty()) {
        throw UsageError("no source is given");
    }
    return sources;
}

std::vector<Job> NamedAfterSources(std::vector<Source> sources)
{
    std::vector<Job> jobs;
    for (Source& source : sources) {
        std::string name = FileNameFor(source);
        if (name == Output::StandardOutput) {
            name.insert(0, "./");
        }
        jobs.push_back({std::move(source), std::move(name)});
    }
    return jobs;
}

std::vector<Job> MakeJobs(std::vector<Source> sources, const Options& options)
{
    RefuseTogether(options.output, options.remoteName);
    if (IsSet(options.remoteName)) {
        return NamedAfterSources(std::move(sources));
    }
    if (sources.size() > 1) {
        throw UsageError(
            "several sources cannot share one output, use -O to name files after them");
    }
    const std::string target =
        IsSet(options.output) ? ValueOf(options.output) : Output::StandardOutput;
    if (target.empty()) {
        throw UsageError("--output: is empty");
    }
    return {{std::move(sources.front()), target}};
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

// Of several bodies, each goes to a file named after its source.
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

void SetTargets(Arguments& arguments, const Options& options)
{
    Targets targets;
    ClaimBodies(arguments.jobs, targets);
    arguments.json = IsSet(options.json);
    if (arguments.json) {
        ClaimForOption(targets, Output::StandardOutput, options.json->get_name(),
                       "write that to a file with -o or -O");
    }
    arguments.trace.file = TargetOf(options.trace, targets);
    arguments.trace.plot = TargetOf(options.tracePlot, targets);
}

Arguments Checked(const Options& options, int argc, const char* const* argv)
{
    if (IsSet(options.location)) {
        throw UsageError("-L: redirects are always followed, leave it out");
    }
    RefuseTogether(options.segmented, options.plain);
    Arguments arguments;
    options.vendor.Apply(arguments.request, NamedHandler(options));
    arguments.jobs = MakeJobs(MakeSources(options, argc, argv), options);
    SetTargets(arguments, options);
    SetRequest(arguments.request, options);
    RefuseMethodsForFiles(arguments.jobs, arguments.request.method);
    arguments.segmented =
        !IsSet(options.plain) && !arguments.request.randomDelay && !arguments.request.fixedDelay;
    arguments.includeHeader =
        IsSet(options.include) || arguments.request.method == HttpMethod::EhttpHead;
    arguments.quiet = IsSet(options.quiet);
    arguments.verbose = IsSet(options.verbose);
    return arguments;
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
    } catch (const CLI::CallForVersion& version) {
        return version.what() + std::string("\n");
    } catch (const CLI::ParseError& error) {
        throw UsageError(Printable(error.what()));
    }
    return Checked(options, argc, argv);
}

}  // namespace VORTAN_TRANSFER
