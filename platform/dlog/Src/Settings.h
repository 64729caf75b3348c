#pragma once

namespace VORTAN_MW {
namespace DLOG {

enum class Destination
{
    StandardError,
    File,
    Journal,
    Nowhere,
};

// Where lines go and which of them, as the environment of the process says:
//
//   VORTAN_DLOG        journal     to the systemd journal, if libsystemd can be loaded
//                      file:PATH   to a file, at its end; it is made if need be
//                      none        nowhere
//                      otherwise   to standard error
//   VORTAN_DLOG_LEVEL  debug, info, warning or error: lines below it are dropped; else none are
//   NO_COLOR           anything: a terminal gets no colours. Files and the journal never do
//
// A variable with an empty value counts as not set. One with a wrong value is told about in one
// line on standard error and then counts as not set. A process that runs with more rights than
// its caller has reads none.
struct Settings
{
    Destination destination;
    int descriptor;  // of standard error or the file
    bool keepColours;
    int lowestPriority;

    bool Keeps(int priority) const
    {
        return priority >= lowestPriority && destination != Destination::Nowhere;
    }

    static Settings FromEnvironment();
};

}  // namespace DLOG
}  // namespace VORTAN_MW
