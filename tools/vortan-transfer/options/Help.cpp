#include "options/Help.h"

namespace VORTAN_TRANSFER {

const char* const HelpText =
    R"(Fetches URLs and files, and sends data, with the Vortan transfer agent.

Usage: vortan-transfer [OPTIONS] [SOURCE...]

A SOURCE is an http: or https: URL, a file: URL or the path of a file. Redirects
are followed. Several sources are transferred at a time, the others wait their
turn.

Options:
  -h, --help                     Print this help message and exit
      --version                  Display program version information and exit;
                                 with -v, also the libraries and the system
  -X, --method METHOD            GET, HEAD, POST or PUT; otherwise POST if there
                                 is data, PUT with -T, else GET
  -I, --head                     Ask for the headers only, with HEAD
  -H, --header 'NAME: VALUE'     Send this header, too; may be given several
                                 times
  -A, --user-agent AGENT         Send this as the header User-Agent
  -d, --data DATA                Send this text, the bytes of a file (@FILE) or
                                 of stdin (@-)
  -T, --upload-file FILE         Send this regular file as it is read, with PUT
                                 or -X POST
      --input-file FILE          Take sources from the lines of FILE, too; - is
                                 stdin; lines that begin with # are skipped
      --parallel-max N           Transfer up to N sources at a time, 1 to 4
                                 (default 4)
      --random-delay MIN:MAX     Wait a random number of seconds before each
                                 request; implies --plain
      --fixed-delay MS           Wait MS milliseconds before each request;
                                 implies --plain
      --handler NAME             Use this handler for all sources:
                                 session, curl, file, vendor

Output:
  -o, --output FILE              Write to FILE, or to standard output: -, as
                                 without this option; several sources need one
                                 each, in their order
  -O, --remote-name              Write to the current folder, under the names in
                                 the sources
      --output-dir FOLDER        Write the files of -O, and of -o without a
                                 leading /, to this folder
  -c, --continue                 Go on with FILE.part of an earlier run
      --if-changed               Download only what has changed since FILE was
                                 downloaded with this option
  -i, --include                  Write the response headers before the body;
                                 always so with HEAD
      --no-fail                  Take an HTTP status of 400 or above for a
                                 success and write the body
      --segmented                Write the bytes as they arrive (the default)
      --plain                    Collect each response in memory and write it
                                 when it is complete

Limits and retries:
      --connect-timeout SECONDS  Time to connect, name look-up and TLS included
                                 (default 10)
      --max-time SECONDS         Time for each source with all its attempts
                                 (default 86400, a day)
      --silence SECONDS          Give an attempt up when no byte has moved for
                                 this long (default 30)
      --retry N                  Try again up to N times after failures that may
                                 pass (default 2)
      --retry-delay SECONDS      Wait up to this long before the first new
                                 attempt, up to twice as long before each next
                                 one (default 0.5)
      --max-redirs N             Follow up to N redirects (default 10)
      --max-filesize BYTES       Refuse a longer body; takes the suffixes k, M
                                 and G (default 0, any length)

Security:
      --cacert FILE              Trust the certificate authorities in this PEM
                                 file (default: the system's)
      --capath FOLDER            Trust those in this folder, as openssl rehash
                                 names them
  -k, --insecure                 Do not verify the server's certificate; for
                                 testing
      --cert FILE                Show this client certificate (PEM)
      --key FILE                 The certificate's private key (default: in the
                                 certificate's file)
  -u, --user USER:PASSWORD       Log in with HTTP Basic authentication; a user
                                 in a URL takes precedence
      --sha256 HEX               Accept only a body with this SHA-256 hash
      --sha256-file FILE         Accept only bodies with the hashes that FILE
                                 lists for their names, as sha256sum writes it

Reporting:
      --json                     Report each source in a line of JSON on
                                 standard output
      --trace FILE               Write to FILE what happens to each source, and
                                 when
      --trace-plot FILE          Draw the same into FILE, as an SVG picture
  -q, -s, --quiet, --silent      Show no progress and no summary
  -v, --verbose                  Show the library's log, and no progress

Options of the vendor handler:
      --resource PATH            Ask the maker's server for this resource; takes
                                 the place of SOURCE
      --query KEY=VALUE          Add this to the resource's query string; may be
                                 given several times
      --http-version VERSION     1.0, 1.1 (the default) or 2
      --self-signed              Do not verify the server's certificate; for
                                 testing
      --timeout A:B              The two values of the wrapper's time-out, in
                                 its units
      --verbose-wrapper          Let the wrapper report what it does, passwords
                                 included
      --option20 N               Value of the wrapper's option 20
      --option21 N               Value of the wrapper's option 21
      --option27 N               Value of the wrapper's option 27
      --option30 N               Value of the wrapper's option 30
      --option31 N               Value of the wrapper's option 31
      --option32 N               Value of the wrapper's option 32

SECONDS may have a fraction: 0.5. Options that only http: and https: sources
have are refused with --handler curl, file or vendor.

A file is written beside its place as FILE.part, and takes its place only when
the transfer has succeeded. Until then an existing file stays as it is. After a
failure or an interruption FILE.part stays if a run with --continue can go on
with it; a run without replaces it. --if-changed keeps in FILE.validator what
the server said of the version that FILE has.

Ctrl-C (SIGINT), SIGTERM and SIGHUP end what is running within a second. A
second Ctrl-C ends the program at once.

After several sources, a table on standard error shows the outcome of each.
Colours are only for a terminal; with NO_COLOR set there are none.

The library's log goes where VORTAN_DLOG says (journal, file:PATH, none);
without it, to standard error with -v and nowhere otherwise. VORTAN_DLOG_LEVEL
filters it.

Exit status:
  0    every transfer succeeded
  1    a transfer failed for a reason that is not below, or several failed for
       different reasons
  2    the arguments are wrong; nothing was transferred
  3    something could not be written, or a file has no end (whatever else
       failed)
  4    the network failed: name look-up or connection
  5    the TLS handshake failed, or the certificate is not trusted
  6    not authorized: HTTP status 401 or 407
  7    protocol or bounds: the response, a redirect or the length is not
       accepted
  8    another HTTP status of 400 or above
  9    a time limit has passed
  10   the content is not the expected one: a wrong SHA-256 hash, or it has
       changed meanwhile
  130  interrupted
)";

}  // namespace VORTAN_TRANSFER
