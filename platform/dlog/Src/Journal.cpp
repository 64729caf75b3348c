#include "Journal.h"

#include <dlfcn.h>

// The place in the program that a journal entry names would be the one here, not the caller's.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace VORTAN_MW {
namespace DLOG {

namespace {

decltype(&sd_journal_sendv) send = nullptr;

}  // namespace

std::string LoadJournal()
{
    // Never unloaded: a thread that ends late may still log.
    void* library = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_NODELETE);
    void* found = library ? dlsym(library, "sd_journal_sendv") : nullptr;
    if (!found) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): glibc keeps the reason for each thread.
        const char* reason = dlerror();
        return reason ? reason : "libsystemd.so.0 lacks sd_journal_sendv";
    }
    send = reinterpret_cast<decltype(send)>(found);
    return {};
}

int SendToJournal(const iovec* fields, int count)
{
    return send(fields, count);
}

}  // namespace DLOG
}  // namespace VORTAN_MW
