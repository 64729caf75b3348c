#include "options/RequestOptions.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string_view>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "options/InputFile.h"
#include "options/OptionValues.h"

namespace VORTAN_TRANSFER {

namespace {

using Configuration = VORTAN_MW::ITransferHandler::Configuration;
using HttpMethod = Configuration::HttpMethod;

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
    throw UsageError("--method: must be one of GET, HEAD, POST, PUT, not " + Quoted(name));
}

bool HasControl(std::string_view text)
{
    return std::any_of(text.begin(), text.end(), [](char c) { return IsControl(c) && c != '\t'; });
}

std::pair<std::string, std::string> ParseHeader(std::string_view line)
{
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        throw UsageError("--header: must have a colon, as in 'NAME: VALUE', not " + Quoted(line));
    }
    const std::string name(line.substr(0, colon));
    const std::string value(Trimmed(line.substr(colon + 1)));
    if (name.empty() || name.find_first_of(" \t") != std::string::npos || HasControl(line)) {
        throw UsageError("--header: must be 'NAME: VALUE' in one line, not " + Quoted(line));
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

std::string ReadData(const std::string& argument)
{
    return argument.substr(0, 1) == "@" ? ReadInput(argument.substr(1), "--data", argument)
                                        : argument;
}

bool Sends(HttpMethod method)
{
    return method == HttpMethod::EhttpPost || method == HttpMethod::EhttpPut;
}

// Throws UsageError if the file cannot be sent as it is read. Opening a pipe could block.
void CheckUpload(const std::string& path)
{
    const std::string refusal = "--upload-file: " + Quoted(path);
    struct stat file = {};
    if (stat(path.c_str(), &file) != 0) {
        throw UsageError(refusal + ": " + ErrorText(errno));
    }
    if (!S_ISREG(file.st_mode)) {
        throw UsageError(refusal + " is not a regular file, send it with --data @FILE");
    }
    try {
        OpenFile(path, O_RDONLY);
    } catch (const std::system_error& error) {
        throw UsageError(refusal + ": " + ErrorText(error.code().value()));
    }
}

}  // namespace

RequestOptions::RequestOptions(CLI::App& app)
    : m_MethodName(AddValue(app, "-X,--method", "METHOD")),
      m_Head(AddFlag(app, "-I,--head")),
      m_Header(AddValue(app, "-H,--header", "'NAME: VALUE'")),
      m_UserAgent(AddValue(app, "-A,--user-agent", "AGENT")),
      m_Data(AddValue(app, "-d,--data", "DATA")),
      m_Upload(AddValue(app, "-T,--upload-file", "FILE")),
      m_Include(AddFlag(app, "-i,--include")),
      m_Segmented(AddFlag(app, "--segmented")),
      m_Plain(AddFlag(app, "--plain")),
      m_RandomDelay(AddValue(app, "--random-delay", "MIN:MAX")),
      m_FixedDelay(AddValue(app, "--fixed-delay", "MS")),
      m_NoFail(AddFlag(app, "--no-fail"))
{
    m_Header->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void RequestOptions::Apply(Arguments& arguments) const
{
    Configuration& request = arguments.request;
    m_RefuseContradictions();
    m_SetHeaders(request);
    request.failOnError = !IsSet(m_NoFail);
    m_SetDelays(request);
    m_SetMethodAndData(arguments);
    arguments.segmented = !IsSet(m_Plain) && !request.randomDelay && !request.fixedDelay;
    arguments.includeHeader = IsSet(m_Include) || request.method == HttpMethod::EhttpHead;
}

void RequestOptions::m_RefuseContradictions() const
{
    RefuseTogether(m_Segmented, m_Plain);
    RefuseTogether(m_RandomDelay, m_FixedDelay);
    RefuseTogether(m_Segmented, m_RandomDelay);
    RefuseTogether(m_Segmented, m_FixedDelay);
    RefuseTogether(m_Head, m_MethodName);
    RefuseTogether(m_Upload, m_Data);
}

void RequestOptions::m_SetHeaders(Configuration& request) const
{
    for (const std::string& line : m_Header->results()) {
        request.headers.push_back(ParseHeader(line));
    }
    if (!IsSet(m_UserAgent)) {
        return;
    }
    for (const auto& header : request.headers) {
        if (LowerCase(header.first) == "user-agent") {
            throw UsageError("--user-agent: cannot be combined with a --header of that name");
        }
    }
    const std::string agent(Trimmed(ValueOf(m_UserAgent)));
    if (HasControl(agent)) {
        throw UsageError("--user-agent: must be one line without control characters, not " +
                         Quoted(agent));
    }
    request.headers.emplace_back("User-Agent", agent);
}

void RequestOptions::m_SetDelays(Configuration& request) const
{
    if (IsSet(m_RandomDelay)) {
        request.randomDelay = ParseRandomDelay(ValueOf(m_RandomDelay));
    }
    if (IsSet(m_FixedDelay)) {
        request.fixedDelay = ParseNumber(ValueOf(m_FixedDelay), "--fixed-delay",
                                         std::numeric_limits<std::int64_t>::max());
    }
}

HttpMethod RequestOptions::m_Method() const
{
    if (IsSet(m_MethodName)) {
        return ParseMethod(ValueOf(m_MethodName));
    }
    return IsSet(m_Head)     ? HttpMethod::EhttpHead
           : IsSet(m_Upload) ? HttpMethod::EhttpPut
           : IsSet(m_Data)   ? HttpMethod::EhttpPost
                             : HttpMethod::EhttpGet;
}

void RequestOptions::m_SetMethodAndData(Arguments& arguments) const
{
    Configuration& request = arguments.request;
    request.method = m_Method();
    for (const CLI::Option* const option : {m_Data, m_Upload}) {
        if (IsSet(option) && !Sends(request.method)) {
            throw UsageError(option->get_name() + ": only POST and PUT send data");
        }
    }
    if (IsSet(m_Upload)) {
        if (arguments.jobs.size() > 1) {
            throw UsageError("--upload-file: name one URL to send it to");
        }
        CheckUpload(ValueOf(m_Upload));
        arguments.upload = ValueOf(m_Upload);
        return;
    }
    if (Sends(request.method) && !IsSet(m_Data)) {
        throw UsageError(
            "--method: POST and PUT need something to send, name it with --data or --upload-file");
    }
    if (IsSet(m_Data)) {
        request.requestBody = ReadData(ValueOf(m_Data));
    }
    if (request.method == HttpMethod::EhttpPost && request.requestBody.empty()) {
        throw UsageError("--data: must not be empty with POST");
    }
}

}  // namespace VORTAN_TRANSFER
