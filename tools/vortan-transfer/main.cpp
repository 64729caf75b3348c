#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <variant>

#include "base/Console.h"
#include "base/ExitStatus.h"
#include "base/Leftovers.h"
#include "base/LibraryLog.h"
#include "base/Output.h"
#include "base/Palette.h"
#include "base/Signals.h"
#include "base/Text.h"
#include "base/UsageError.h"
#include "options/Arguments.h"
#include "trace/Trace.h"
#include "transfer/JobRunner.h"
#include "transfer/Mailbox.h"

using namespace VORTAN_TRANSFER;

namespace {

// A program may be started without them; then the first files that it opens would take their place.
void OccupyStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            // The lowest free number is this one. Writing to it fails, as it should.
            [[maybe_unused]] const int opened = open("/dev/null", O_RDONLY);
        }
    }
}

// Broken pipes and files above the size limit are then errors of write().
void IgnoreSignalsOfWriting()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

std::string CurrentExceptionText()
try {
    const std::exception_ptr exception = std::current_exception();
    if (exception) {
        std::rethrow_exception(exception);
    }
    return "the program was ended";
} catch (const std::exception& exception) {
    return exception.what();
} catch (...) {
    return "something was thrown";
}

// The library ends the program when a worker is left by an exception, for want of memory above all.
[[noreturn]] void EndWithoutPartialFiles()
{
    RemoveTemporaryForGood();
    Console().Line("unexpected failure: " + Printable(CurrentExceptionText()));
    _exit(TransferFailed);
}

ExitStatus Print(const std::string& text)
{
    try {
        Output output(Output::StandardOutput);
        output.Write(text);
        output.Commit();
        return AllSucceeded;
    } catch (const OutputError& error) {
        Console().Line(error.what());
        return CannotWrite;
    }
}

void SetUpLog(const Arguments& arguments)
{
    for (const Job& job : arguments.jobs) {
        if (job.source.handler->speaksHttp && job.source.url != job.source.text) {
            ShowInLog(job.source.url, job.source.text);
        }
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment.
    const bool goesElsewhere = std::getenv("VORTAN_DLOG") != nullptr;
    if (arguments.verbose || goesElsewhere) {
        const bool inColour = !goesElsewhere && Palette::ForStandardError().HasColours();
        LetLibraryLogThrough(inColour ? LogColours::Kept : LogColours::TakenOut);
    }
}

ExitStatus RunTransfers(Arguments arguments, Signals& signals, Trace::Clock::time_point start)
{
    SetUpLog(arguments);
    const auto mailbox = std::make_shared<Mailbox>();
    JobRunner runner(std::move(arguments), mailbox, start);
    signals.OnFirst([mailbox](Signals::Wish wish) {
        const bool isUrgent = wish == Signals::Wish::Terminate;
        mailbox->Post({isUrgent ? Event::Kind::Terminated : Event::Kind::Interrupted, 0, {}});
    });
    return runner.Run();
}

}  // namespace

int main(int argc, char** argv)
{
    const auto start = Trace::Clock::now();
    OccupyStandardDescriptors();
    IgnoreSignalsOfWriting();
    std::set_terminate(EndWithoutPartialFiles);
    try {
        Signals signals;
        const auto parsed = ParseArguments(argc, argv);
        if (const auto* const information = std::get_if<Information>(&parsed)) {
            return Print(*information);
        }
        HidePasswords(std::get<Arguments>(parsed), argc, argv);
        return RunTransfers(std::get<Arguments>(parsed), signals, start);
    } catch (const UsageError& error) {
        Console().Line(std::string(error.what()) + " (--help tells more)");
        return WrongArguments;
    } catch (const OutputError& error) {
        Console().Line(error.what());
        return CannotWrite;
    }
}
