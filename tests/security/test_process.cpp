// What the library shares with the rest of its process.

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>

#include "QXCurlEasyHandlerFactory.h"
#include "SecurityTest.h"
#include "TrustedAuthority.h"

using ::testing::IsSupersetOf;

namespace {

using Bytes = VORTAN_MW::ITransferHandler::Bytes;

std::ptrdiff_t Threads()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

bool IsInheritedSocket(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode) &&
           (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0;
}

int InheritedSockets()
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += IsInheritedSocket(std::stoi(entry.path().filename())) ? 1 : 0;
    }
    return count;
}

// The names of the variables that were looked up since the program started, which began before its
// statics were made.
struct Variables
{
    static Variables& Get()
    {
        static Variables& variables = *new Variables;
        return variables;
    }

    std::mutex mutex;
    std::set<std::string> names;
};

// What the test framework and the tests' own folders look up.
bool IsForTests(const std::string& name)
{
    const auto beginsWith = [&](const std::string& start) { return name.rfind(start, 0) == 0; };
    return beginsWith("GTEST_") || beginsWith("TEST") || beginsWith("TEMP") || beginsWith("TMP") ||
           name == "TERM" || name == "XML_OUTPUT_FILE";
}

char* Look(const char* function, const char* name)
{
    {
        const std::lock_guard<std::mutex> lock(Variables::Get().mutex);
        Variables::Get().names.insert(name);
    }
    const auto next = reinterpret_cast<char* (*)(const char*)>(dlsym(RTLD_NEXT, function));
    return next(name);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] char* getenv(const char* name) noexcept
{
    return Look("getenv", name);
}

extern "C" [[gnu::visibility("default")]] char* secure_getenv(const char* name) noexcept
{
    return Look("secure_getenv", name);
}

TEST_F(Security, AChildMadeByForkHasNoWorkers)
{
    Gate started;
    Gate goOn;
    Stream stream(Request(Odd().Url("/bytes/1000000")), {}, [&](const Bytes&) {
        started.Open();
        EXPECT_TRUE(goOn.Wait());
    });
    ASSERT_TRUE(started.Wait());
    EXPECT_GE(Threads(), 2);
    EXPECT_GE(InheritedSockets(), 1);
    const pid_t child = fork();
    if (child == 0) {
        _exit(Threads() == 1 ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) << status;
    goOn.Open();
    EXPECT_TRUE(stream.WaitForSuccess());
    stream.ShutDown();
}

TEST_F(Security, SignalsMayBeHandledOnWorkers)
{
    sigset_t blocked;
    sigemptyset(&blocked);
    const auto workerBlocks = [] {
        bool blocks = false;
        Stream stream(Request(Odd().Url("/bytes/1")), {}, [&](const Bytes&) {
            sigset_t own;
            pthread_sigmask(SIG_SETMASK, nullptr, &own);
            blocks = sigismember(&own, SIGUSR1) == 1;
        });
        EXPECT_TRUE(stream.WaitForSuccess());
        stream.ShutDown();
        return blocks;
    };
    EXPECT_FALSE(workerBlocks());
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    EXPECT_TRUE(workerBlocks());
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
}

TEST_F(Security, ATransferIgnoresSigpipeMeanwhile)
{
    const auto handler = [](int) {};
    const auto current = [] {
        struct sigaction action = {};
        sigaction(SIGPIPE, nullptr, &action);
        return action.sa_handler;
    };
    std::signal(SIGPIPE, handler);
    Stream stream(Request(Odd().Url("/bytes/1")), {},
                  [&](const Bytes&) { EXPECT_EQ(current(), SIG_IGN); });
    EXPECT_TRUE(stream.WaitForSuccess());
    stream.ShutDown();
    EXPECT_EQ(current(), static_cast<void (*)(int)>(handler));
    std::signal(SIGPIPE, SIG_DFL);
}

TEST_F(Security, TheLibraryStaysLoadedAfterDlclose)
{
#ifdef VORTAN_SANITIZED
    GTEST_SKIP() << "AddressSanitizer refuses a second copy of the library's tables in one program";
#endif
    EXPECT_EQ(dlopen(VORTAN_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
    void* const library = dlopen(VORTAN_LIBRARY, RTLD_NOW);
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(dlclose(library), 0);
    void* const stayed = dlopen(VORTAN_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(stayed, nullptr);
}

TEST_F(Security, TheseEnvironmentVariablesAreRead)
{
    const TrustedAuthority authority(Nginx().Folder().Path("ca.pem"));
    EXPECT_TRUE(Fetch(Odd().Url("/bytes/1")).success);
    EXPECT_TRUE(Fetch(Nginx().TlsUrl("/method")).success);
    Fetch("ftp" + Ftp().Url("/a").substr(4));
    Configuration vendor = Request(Nginx().TlsUrl("/method"));
    vendor.halvordConfig = Configuration::HalvordConfig{"method", {}};
    Fetch(VORTAN_MW::QXCurlEasyHandlerFactory(), vendor);
    std::ifstream file(VORTAN_SECURITY_PAGE);
    const std::string page{std::istreambuf_iterator<char>(file), {}};
    const auto isStated = [&](const std::string& name) {
        return page.find('`' + name + '`') != std::string::npos;
    };
    for (const std::string& name : Variables::Get().names) {
        const std::string family = name.substr(0, name.find('_')) + "_*";
        EXPECT_TRUE(isStated(name) || isStated(family) || IsForTests(name)) << name;
    }
    EXPECT_THAT(Variables::Get().names,
                IsSupersetOf({"http_proxy", "https_proxy", "HTTPS_PROXY", "ftp_proxy", "FTP_PROXY",
                              "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY", "SSLKEYLOGFILE",
                              "OPENSSL_CONF", "QXCURL_BASE_URL", "QXCURL_CA_FILE"}));
}
