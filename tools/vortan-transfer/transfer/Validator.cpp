#include "transfer/Validator.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <optional>

#include "base/Json.h"
#include "base/Output.h"
#include "base/Text.h"

namespace VORTAN_TRANSFER {

namespace {

using Configuration = VORTAN_MW::ITransferHandler::Configuration;

std::string PathBeside(const std::string& file)
{
    return file + ".validator";
}

// What tells that nobody has touched the file since.
struct FileState
{
    std::int64_t size;
    std::int64_t modified;  // nanoseconds since 1970
};

std::optional<FileState> StateOf(const std::string& file)
{
    constexpr std::int64_t nanosecondsPerSecond = 1000000000;
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return FileState{status.st_size,
                     status.st_mtim.tv_sec * nanosecondsPerSecond + status.st_mtim.tv_nsec};
}

bool HasCondition(const Configuration& request)
{
    return std::any_of(request.headers.begin(), request.headers.end(), [](const auto& header) {
        const std::string name = LowerCase(header.first);
        return name == "if-none-match" || name == "if-modified-since";
    });
}

// Whether the validator holds for the file as it is.
bool IsOf(const Json& validator, const std::string& url, const std::string& file)
{
    const auto state = StateOf(file);
    return state && validator.value("url", "") == url &&
           validator.value("size", std::int64_t{-1}) == state->size &&
           validator.value("mtime_ns", std::int64_t{-1}) == state->modified;
}

void AddCondition(Configuration& request, const Json& validator, const char* key, const char* name)
{
    const std::string value = validator.value(key, "");
    // Whoever can write the file must not be able to add header lines.
    if (!value.empty() && std::none_of(value.begin(), value.end(), IsControl)) {
        request.headers.emplace_back(name, value);
    }
}

}  // namespace

void AskIfChanged(Configuration& request, const std::string& url, const std::string& file)
{
    if (HasCondition(request)) {
        return;
    }
    std::ifstream stream(PathBeside(file));
    const Json validator = Json::parse(stream, nullptr, false);
    try {
        if (validator.is_object() && IsOf(validator, url, file)) {
            AddCondition(request, validator, "etag", "If-None-Match");
            AddCondition(request, validator, "last_modified", "If-Modified-Since");
        }
    } catch (const Json::exception&) {
        // A member is of another type: somebody else's file.
    }
}

void KeepValidator(const ResponseHeader& header, const std::string& url, const std::string& file)
{
    const auto etag = header.Field("etag");
    const auto modified = header.Field("last-modified");
    const auto state = StateOf(file);
    if ((!etag && !modified) || !state) {
        unlink(PathBeside(file).c_str());  // it belongs to an earlier version
        return;
    }
    Json validator;
    validator["url"] = url;
    validator["etag"] = etag.value_or("");
    validator["last_modified"] = modified.value_or("");
    validator["size"] = state->size;
    validator["mtime_ns"] = state->modified;
    Output output(PathBeside(file));
    output.Write(LineOf(validator));
    output.Commit();
}

}  // namespace VORTAN_TRANSFER
