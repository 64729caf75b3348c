// Any command line for the client program: it is refused in one line, or makes sense.

#include <algorithm>
#include <set>
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
// could name any file, which would be read: it names the one that is always empty.
std::vector<std::string> MakeArguments(std::string_view bytes)
{
    std::vector<std::string> arguments{"vortan-transfer"};
    for (;;) {
        const std::string_view argument = bytes.substr(0, bytes.find('\0'));
        const std::size_t at = argument.find('@');
        arguments.emplace_back(argument.substr(0, at));
        if (at != std::string_view::npos) {
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
    Require(request.method != HttpMethod::EhttpPost || !request.requestBody.empty(),
            "the agent accepts a POST");
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

void CheckJobs(const Arguments& arguments)
{
    Require(!arguments.jobs.empty(), "there is something to do");
    std::set<std::string> targets;
    for (const auto& [source, target] : arguments.jobs) {
        Require(!source.text.empty() && !source.url.empty() && source.handler,
                "a source has a handler and a URL or a path");
        Require(source.handler->speaksHttp || arguments.request.method == HttpMethod::EhttpGet,
                "a file is only fetched");
        Require(!target.empty() && targets.insert(target).second,
                "each output has a name to itself");
        CheckFileName(source);
        Require(arguments.jobs.size() == 1 || target == FileNameFor(source) || target == "./-",
                "several files are named after their sources");
    }
    Require(!arguments.request.halvordConfig ||
                (arguments.jobs.size() == 1 && arguments.jobs[0].source.handler->name == "vendor"),
            "a resource is asked of the maker's server, and alone");
}

void Check(const Arguments& arguments)
{
    CheckRequest(arguments.request);
    CheckJobs(arguments);
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
