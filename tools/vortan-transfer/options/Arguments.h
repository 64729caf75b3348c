#pragma once

#include <ITransferHandler.h>

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
};

// The command line, checked.
struct Arguments
{
    std::vector<Job> jobs;
    // What all requests have in common: everything but the URL.
    VORTAN_MW::ITransferHandler::Configuration request;
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

}  // namespace VORTAN_TRANSFER
