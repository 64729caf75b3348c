#pragma once

#include <ITransferHandler.h>
#include <TransferPolicy.h>

#include <cstddef>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "options/Source.h"
#include "trace/Trace.h"

namespace VORTAN_TRANSFER {

// A source and where its bytes go: a file, or standard output.
struct Job
{
    Source source;
    std::string target;
    std::string sha256 = {};  // that the body must have, in hexadecimal digits; empty: any
};

// The command line, checked.
struct Arguments
{
    std::vector<Job> jobs;
    // What all requests have in common: everything but the URL.
    VORTAN_MW::ITransferHandler::Configuration request;
    // Limits, attempts and TLS of the sources that the session transfers.
    VORTAN_MW::KIT::TransferPolicy policy;
    // -u: for all sources of the session that have none in their URL.
    std::optional<Credentials> credentials;
    // A regular file that is sent, as it is read.
    std::optional<std::string> upload;
    // Go on with the part of an earlier run. Otherwise a part is replaced.
    bool continues = false;
    // Ask only for what has changed since the file was downloaded.
    bool ifChanged = false;
    // How many sources are transferred at a time, 1 to 4.
    std::size_t parallel = 4;
    bool segmented = true;
    bool includeHeader = false;
    bool json = false;
    Trace::Targets trace;
    bool quiet = false;
    bool verbose = false;
};

// The text that --help or --version asks for.
using Information = std::string;

// How --help is to show each option: "-d, --data DATA".
std::vector<std::string> OptionForms();

// Reads the command line, and the data that it names. Throws UsageError if it is wrong.
std::variant<Arguments, Information> ParseArguments(int argc, const char* const* argv);

// Overwrites the passwords that the parsed command line holds, so that no list of processes shows
// them. They are in the arguments already.
void HidePasswords(const Arguments& arguments, int argc, char** argv);

}  // namespace VORTAN_TRANSFER
