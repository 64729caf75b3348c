#include "options/Help.h"

namespace VORTAN_TRANSFER {

const char* const HelpText =
    R"(Fetches URLs and files, and sends data, with the Vortan transfer agent.

Usage: vortan-transfer [OPTIONS] [SOURCE...]

A SOURCE is an http: or https: URL, a file: URL or the path of a file. Redirects
are followed. Up to 4 sources are transferred at a time, the others wait their
turn.

Options:
  -h, --help                  Print this help message and exit
  -X, --method METHOD         GET, HEAD, POST or PUT; otherwise POST if there is
                              data, else GET
  -H, --header 'NAME: VALUE'  Send this header, too; may be given several times
  -d, --data DATA             Send this text, the bytes of a file (@FILE) or of
                              stdin (@-)
  -o, --output FILE           Write to FILE, or to standard output: -, as
                              without this option
  -O, --remote-name           Write to the current folder, under the names in
                              the sources
  -i, --include               Write the response headers before the body; always
                              so with HEAD
      --segmented             Write the bytes as they arrive (the default)
      --plain                 Collect each response in memory and write it when
                              it is complete
      --random-delay MIN:MAX  Wait a random number of seconds before each
                              request; implies --plain
      --fixed-delay MS        Wait MS milliseconds before each request; implies
                              --plain
      --no-fail               Take an HTTP status of 400 or above for a success
                              and write the body
      --handler NAME          Use this handler for all sources:
                              curl, file, vendor
      --json                  Report each source in a line of JSON on standard
                              output
      --trace FILE            Write to FILE what happens to each source, and
                              when
      --trace-plot FILE       Draw the same into FILE, as an SVG picture
  -q, --quiet                 Show no progress and no summary
  -v, --verbose               Show the library's log, and no progress
      --version               Display program version information and exit

Options of the vendor handler:
      --resource PATH         Ask the maker's server for this resource; takes
                              the place of SOURCE
      --query KEY=VALUE       Add this to the resource's query string; may be
                              given several times
      --http-version VERSION  1.0, 1.1 (the default) or 2
      --self-signed           Do not verify the server's certificate; for
                              testing
      --timeout A:B           The two values of the wrapper's time-out, in its
                              units
      --verbose-wrapper       Let the wrapper report what it does, passwords
                              included
      --option20 N            Value of the wrapper's option 20
      --option21 N            Value of the wrapper's option 21
      --option27 N            Value of the wrapper's option 27
      --option30 N            Value of the wrapper's option 30
      --option31 N            Value of the wrapper's option 31
      --option32 N            Value of the wrapper's option 32

A file is written beside its place under a name of its own, which ends in .part,
and takes its place only when the transfer has succeeded. Until then an existing
file stays as it is.

Ctrl-C (SIGINT), SIGTERM and SIGHUP cancel what is running, wait for it to end
and remove the partial files. A transfer whose server has fallen silent ends
only when the server closes the connection: a second Ctrl-C removes the partial
files and does not wait.

After several sources, a table on standard error shows the outcome of each.
Colours are only for a terminal; with NO_COLOR set there are none.

The library's log goes where VORTAN_DLOG says (journal, file:PATH, none);
without it, to standard error with -v and nowhere otherwise. VORTAN_DLOG_LEVEL
filters it.

Exit status:
  0    every transfer succeeded
  1    a transfer failed
  2    the arguments are wrong; nothing was transferred
  3    something could not be written, or a file has no end (whether or not a
       transfer failed)
  130  interrupted
)";

}  // namespace VORTAN_TRANSFER
