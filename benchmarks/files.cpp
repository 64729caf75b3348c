// What a download into a file takes through session, queue and file sink, beside libcurl that
// writes a file itself:
//
//     vortan_files FOLDER [ROUNDS]
//
// The files are in FOLDER. In each round, seven unless told otherwise, each way takes its turn.
// Prints the medians of the process's CPU time, and their ratios to bare libcurl.

#include <TransferQueue.h>
#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "LoopbackServer.h"
#include "Usage.h"

namespace {

namespace KIT = VORTAN_MW::KIT;

constexpr std::size_t Body = std::size_t{256} * 1024 * 1024;

void Check(bool isTrue, const char* what)
{
    if (!isTrue) {
        throw std::runtime_error(what);
    }
}

std::size_t WriteToStream(char* data, std::size_t size, std::size_t count, void* stream)
{
    return std::fwrite(data, size, count, static_cast<std::FILE*>(stream)) * size;
}

void WithLibcurl(const std::string& url, const std::string& path)
{
    std::FILE* const stream = std::fopen(path.c_str(), "wb");
    CURL* const easy = curl_easy_init();
    Check(stream && easy, "no file or handle");
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &WriteToStream);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, stream);
    const CURLcode code = curl_easy_perform(easy);
    curl_easy_cleanup(easy);
    Check(std::fclose(stream) == 0 && code == CURLE_OK, "libcurl failed");
}

// sha256: empty for none; else any, because a body that is compared has been hashed whole.
void WithQueue(const std::string& url, const std::string& path, const std::string& sha256)
{
    KIT::TransferQueue queue(
        std::make_shared<KIT::HttpSession>(KIT::TransferPolicy().SetSchemes({"http"})));
    const KIT::Category category = queue.Download(url, path, sha256).get().GetCategory();
    Check(category == (sha256.empty() ? KIT::Category::Success : KIT::Category::WrongHash),
          "the download failed");
}

struct Row
{
    const char* name;
    std::function<void()> work;
    std::vector<double> milliseconds;
};

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void Measure(std::vector<Row>& rows, long rounds)
{
    for (Row& row : rows) {
        row.work();  // libraries are loaded and files made
    }
    for (long round = 0; round < rounds; ++round) {
        for (Row& row : rows) {
            const auto before = CpuTime();
            row.work();
            row.milliseconds.push_back(static_cast<double>((CpuTime() - before).count()) / 1000);
        }
    }
}

int Run(const std::string& folder, long rounds)
{
    const LoopbackServer server;  // forks
    const std::string url = server.Url(Body);
    const std::string path = folder + "/vortan-file";
    std::vector<Row> rows = {
        {"libcurl", [&] { WithLibcurl(url, path); }, {}},
        {"session, queue, file sink", [&] { WithQueue(url, path, ""); }, {}},
        {"the same with a hash", [&] { WithQueue(url, path, std::string(64, '0')); }, {}}};
    curl_global_init(CURL_GLOBAL_ALL);
    Measure(rows, rounds);
    const double bare = Median(rows[0].milliseconds);
    std::printf("%zu MiB into a file in %s, CPU time\n", Body / 1024 / 1024, folder.c_str());
    for (const Row& row : rows) {
        const double median = Median(row.milliseconds);
        std::printf("%-26s %8.1f ms %6.2f\n", row.name, median, median / bare);
    }
    std::remove(path.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3) {
        std::fputs("Usage: vortan_files FOLDER [ROUNDS]\n", stderr);
        return 2;
    }
    try {
        return Run(argv[1], std::max(1L, argc == 3 ? std::atol(argv[2]) : 7L));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
