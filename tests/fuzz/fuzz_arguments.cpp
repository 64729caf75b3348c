// Any command line for the client program: it is refused in one line, or makes sense.

#include <HttpSession.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Input.h"
#include "Require.h"
#include "base/Output.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "options/Arguments.h"

using namespace VORTAN_TRANSFER;

namespace {

using Configuration = VORTAN_MW::ITransferHandler::Configuration;
using HttpMethod = Configuration::HttpMethod;

// An input holds the arguments as the kernel does, with a zero between each two. What follows an @
// could name any file, which would be read, unless it is in a URL: it names the one that is always
// empty.
std::vector<std::string> MakeArguments(std::string_view bytes)
{
    std::vector<std::string> arguments{"vortan-transfer"};
    for (;;) {
        const std::string_view argument = bytes.substr(0, bytes.find('\0'));
        const std::size_t at = argument.find('@');
        const bool isUrl = argument.substr(0, at).find("://") != std::string_view::npos;
        arguments.emplace_back(isUrl ? argument : argument.substr(0, at));
        if (!isUrl && at != std::string_view::npos) {
            arguments.back() += "@/dev/null";
        }
        if (argument.size() == bytes.size()) {
            return arguments;
        }
        bytes.remove_prefix(argument.size() + 1);
    }
}

void CheckRefusal(const UsageError& error)
{
    const std::string text = error.what();
    Require(!text.empty() && text == Printable(text), "a refusal is one line that can be shown");
}

bool Sends(HttpMethod method)
{
    return method == HttpMethod::EhttpPost || method == HttpMethod::EhttpPut;
}

void CheckRequest(const Configuration& request)
{
    Require(request.method == HttpMethod::EhttpGet || request.method == HttpMethod::EhttpHead ||
                Sends(request.method),
            "the method is a known one");
    Require(Sends(request.method) || request.requestBody.empty(), "data is only sent where it can");
    for (const auto& [name, value] : request.headers) {
        const std::string line = name + value;
        Require(!name.empty() && std::none_of(line.begin(), line.end(),
                                              [](char c) { return IsControl(c) && c != '\t'; }),
                "a header is one line with a name");
    }
    if (request.randomDelay) {
        Require(request.randomDelay->min <= request.randomDelay->max &&
                    request.randomDelay->max <= 4294967,
                "a random delay is in order, and in milliseconds fits 32 bits");
    }
    Require(!request.fixedDelay || *request.fixedDelay >= 0, "a delay is not negative");
    Require(!request.fixedDelay || !request.randomDelay, "there is one delay at most");
    Require(!request.halvordConfig || !request.halvordConfig->resource.empty(),
            "a resource has a name");
    Require(request.timeoutArg1 >= 0 && request.timeoutArg2 >= 0, "a time-out is not negative");
}

// A file that is named after its source stays in the current folder, whatever the source.
void CheckFileName(const Source& source)
{
    try {
        const std::string name = FileNameFor(source);
        Require(!name.empty() && name != "." && name != ".." &&
                    name.find('/') == std::string::npos && name == Printable(name),
                "a name taken from a source is one of a file in the current folder");
    } catch (const UsageError& error) {
        CheckRefusal(error);
    }
}

// The kit refuses a URL with credentials in it, because an agent writes it to its log.
void CheckCredentials(const Source& source)
{
    if (!source.handler->IsSession()) {
        Require(!source.credentials, "only the session gets credentials apart from the URL");
        return;
    }
    const std::size_t begin = source.url.find_first_not_of('/', source.url.find(':') + 1);
    Require(begin != std::string::npos, "a URL has a host");
    const std::string authority =
        source.url.substr(begin, source.url.find_first_of("/?#", begin) - begin);
    Require(authority.find('@') == std::string::npos, "a URL has no credentials in it");
    Require(!source.credentials || source.credentials->user.find(':') == std::string::npos,
            "a user's name has no colon");
}

// What only makes sense for a GET into a file.
void CheckDownload(const Arguments& arguments)
{
    const bool isDownload = arguments.continues || arguments.ifChanged;
    for (const Job& job : arguments.jobs) {
        if (isDownload || !job.sha256.empty()) {
            Require(job.source.handler->IsSession() && !Output::IsStandardOutput(job.target),
                    "the session writes such a file");
            Require(arguments.request.method == HttpMethod::EhttpGet &&
                        arguments.request.failOnError && !arguments.includeHeader,
                    "such a file is the body of a success");
        }
    }
}

// The kit takes every policy that the command line can ask for. Certificates are read only then.
void CheckPolicy(const Arguments& arguments)
{
    try {
        const VORTAN_MW::KIT::HttpSession session(arguments.policy);
    } catch (const std::invalid_argument&) {
        Require(false, "the kit takes the policy");
    } catch (const std::runtime_error&) {
        // what was named as a certificate is none
    }
}

void CheckJobs(const Arguments& arguments)
{
    Require(!arguments.jobs.empty(), "there is something to do");
    std::set<std::string> targets;
    for (const auto& [source, target, sha256] : arguments.jobs) {
        Require(!source.text.empty() && !source.url.empty() && source.handler,
                "a source has a handler and a URL or a path");
        Require(source.handler->speaksHttp || arguments.request.method == HttpMethod::EhttpGet,
                "a file is only fetched");
        Require(!target.empty() && targets.insert(target).second,
                "each output has a name to itself");
        CheckFileName(source);
        Require(sha256.empty() || (sha256.size() == 64 && source.handler->IsSession()),
                "a hash is whole, and somebody checks it");
        CheckCredentials(source);
    }
    Require(!arguments.request.halvordConfig ||
                (arguments.jobs.size() == 1 && arguments.jobs[0].source.handler->name == "vendor"),
            "a resource is asked of the maker's server, and alone");
}

void Check(const Arguments& arguments)
{
    CheckRequest(arguments.request);
    CheckJobs(arguments);
    CheckDownload(arguments);
    CheckPolicy(arguments);
    Require(arguments.request.method != HttpMethod::EhttpPost || arguments.upload ||
                !arguments.request.requestBody.empty(),
            "the agent accepts a POST");
    Require(
        !arguments.upload || (Sends(arguments.request.method) &&
                              arguments.request.requestBody.empty() && arguments.jobs.size() == 1),
        "an upload is all that is sent, and to one URL");
    Require(arguments.parallel >= 1 && arguments.parallel <= 4,
            "the library transfers so many sources at a time");
    Require(
        !arguments.segmented || (!arguments.request.randomDelay && !arguments.request.fixedDelay),
        "a delay implies a plain transfer");
    Require(arguments.includeHeader || arguments.request.method != HttpMethod::EhttpHead,
            "HEAD implies the header");
}

void Check(const Information& text)
{
    Require(!text.empty() && text.back() == '\n', "what was asked for is told in whole lines");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A list of sources may be read from standard input, which is always empty.
    static const bool isEmpty = std::freopen("/dev/null", "r", stdin) != nullptr;
    Require(isEmpty, "standard input can be replaced");
    const std::vector<std::string> arguments = MakeArguments(Input(data, size).Rest());
    std::vector<const char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    const int count = static_cast<int>(pointers.size());
    pointers.push_back(nullptr);
    try {
        std::visit([](const auto& parsed) { Check(parsed); },
                   ParseArguments(count, pointers.data()));
    } catch (const UsageError& error) {
        const std::string text = error.what();
        Require(!text.empty() && text == Printable(text),
                "a refusal is one line that can be shown");
    }
    return 0;
}
