#pragma once

#include <optional>
#include <string>

#include "options/Handler.h"

namespace VORTAN_TRANSFER {

// For HTTP Basic authentication.
struct Credentials
{
    std::string user;
    std::string password;
};

// Something to transfer.
struct Source
{
    // As the user wrote it, without a password: what is shown.
    std::string text;
    const Handler* handler;
    // As the handler wants it: a URL or a path. One for the session has no credentials in it.
    std::string url;
    // For the session: those that were in the URL, percent-decoded.
    std::optional<Credentials> credentials = std::nullopt;
};

// Recognises a URL or a path, to be fetched by the given handler, or, if there is none given, by
// the one that its scheme chooses. Throws UsageError if it makes no sense.
Source MakeSource(const std::string& text, const Handler* given);

// What to type instead of a path that looks like a web address without its scheme: "For a web
// address type http://example.org". Empty if it does not look like one.
std::string WebAddressAdvice(const std::string& path);

// The name of a file for what the source yields: the last segment of its path. Nothing if that is
// no name of a file, or one that leaves the folder.
std::optional<std::string> NameIn(const Source& source);

// The same, but throws UsageError if there is none.
std::string FileNameFor(const Source& source);

}  // namespace VORTAN_TRANSFER
