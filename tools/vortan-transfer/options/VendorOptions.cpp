#include "options/VendorOptions.h"

#include <limits>
#include <string_view>

#include "base/Text.h"
#include "base/UsageError.h"
#include "options/OptionValues.h"

namespace VORTAN_TRANSFER {

namespace {

using Configuration = VORTAN_MW::ITransferHandler::Configuration;
using HttpVersion = Configuration::HttpVersion;

constexpr const char* VendorHandler = "vendor";

HttpVersion ParseHttpVersion(const std::string& text)
{
    const std::pair<const char*, HttpVersion> versions[] = {{"1.0", HttpVersion::Eversion10},
                                                            {"1.1", HttpVersion::Eversion11},
                                                            {"2", HttpVersion::Eversion20}};
    for (const auto& [known, version] : versions) {
        if (text == known) {
            return version;
        }
    }
    throw UsageError("--http-version: must be one of 1.0, 1.1, 2, not " + Quoted(text));
}

std::pair<std::string, std::string> ParseQuery(std::string_view text)
{
    const std::size_t sign = text.find('=');
    if (sign == std::string_view::npos || sign == 0) {
        throw UsageError("--query: must be KEY=VALUE, not " + Quoted(text));
    }
    return {std::string(text.substr(0, sign)), std::string(text.substr(sign + 1))};
}

void SetTimeout(Configuration& request, const std::string& text)
{
    const std::string option = "--timeout";
    const auto [first, second] = SplitAtColon(text, option, "A:B");
    request.timeoutArg1 = ParseNumber(first, option, std::numeric_limits<int>::max());
    request.timeoutArg2 = ParseNumber(second, option, std::numeric_limits<int>::max());
}

}  // namespace

VendorOptions::VendorOptions(CLI::App& app)
    : m_Resource(m_Add(AddValue(app, "--resource", "PATH"))),
      m_Query(m_Add(AddValue(app, "--query", "KEY=VALUE"))),
      m_HttpVersion(m_Add(AddValue(app, "--http-version", "VERSION"))),
      m_SelfSigned(m_Add(AddFlag(app, "--self-signed"))),
      m_Timeout(m_Add(AddValue(app, "--timeout", "A:B"))),
      m_Verbose(m_Add(AddFlag(app, "--verbose-wrapper")))
{
    m_Query->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    const std::pair<const char*, long Configuration::*> forwarded[] = {
        {"20", &Configuration::wrapperOption20}, {"21", &Configuration::wrapperOption21},
        {"27", &Configuration::wrapperOption27}, {"30", &Configuration::wrapperOption30},
        {"31", &Configuration::wrapperOption31}, {"32", &Configuration::wrapperOption32}};
    for (const auto& [number, value] : forwarded) {
        CLI::Option* const option =
            app.add_option(std::string("--option") + number)->type_name("N");
        m_Forwarded.push_back({m_Add(option), value});
    }
}

CLI::Option* VendorOptions::m_Add(CLI::Option* option)
{
    m_All.push_back(option);
    return option;
}

std::optional<std::string> VendorOptions::Resource() const
{
    return IsSet(m_Resource) ? std::optional(ValueOf(m_Resource)) : std::nullopt;
}

void VendorOptions::Apply(Configuration& request, const Handler* given) const
{
    const bool isVendor = given && given->name == VendorHandler;
    for (const CLI::Option* const option : m_All) {
        if (IsSet(option) && !isVendor) {
            throw UsageError(option->get_name() + ": only with --handler " + VendorHandler);
        }
    }
    m_SetAddress(request);
    if (IsSet(m_HttpVersion)) {
        request.httpVersion = ParseHttpVersion(ValueOf(m_HttpVersion));
    }
    if (IsSet(m_Timeout)) {
        SetTimeout(request, ValueOf(m_Timeout));
    }
    for (const auto& [option, value] : m_Forwarded) {
        if (IsSet(option)) {
            request.*value =
                ParseNumber(ValueOf(option), option->get_name(), std::numeric_limits<long>::min(),
                            std::numeric_limits<long>::max());
        }
    }
    request.allowSelfSignedCertificates = IsSet(m_SelfSigned);
    request.verbose = IsSet(m_Verbose);
}

void VendorOptions::m_SetAddress(Configuration& request) const
{
    if (!IsSet(m_Resource)) {
        if (IsSet(m_Query)) {
            throw UsageError("--query: needs a --resource to belong to");
        }
        return;
    }
    request.halvordConfig.emplace();
    request.halvordConfig->resource = ValueOf(m_Resource);
    if (request.halvordConfig->resource.empty()) {
        throw UsageError("--resource: is empty");
    }
    for (const std::string& pair : m_Query->results()) {
        request.halvordConfig->queryParameters.push_back(ParseQuery(pair));
    }
}

}  // namespace VORTAN_TRANSFER
