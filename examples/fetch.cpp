// fetch PAGE URL FILE: prints what the URL PAGE names, and downloads URL into FILE at the same
// time. Exits with 0 if both arrived, and otherwise prints why not.

#include <TransferQueue.h>

#include <exception>
#include <future>
#include <iostream>
#include <memory>
#include <string>

using namespace VORTAN_MW;

namespace {

bool HasSucceeded(const KIT::TransferOutcome& outcome)
{
    if (outcome.GetCategory() == KIT::Category::Success) {
        return true;
    }
    std::cerr << outcome.GetSentence() << '\n';
    return false;
}

bool FetchAndDownload(const std::string& page, const std::string& url, const std::string& path)
{
    //! [session]
    KIT::TransferPolicy policy;
    policy.SetSchemes({"http", "https"});  // by default only https
    KIT::TransferQueue queue(std::make_shared<KIT::HttpSession>(policy));
    //! [session]
    //! [calls]
    std::future<KIT::Response> response = queue.Fetch(page);
    std::future<KIT::TransferOutcome> file = queue.Download(url, path);
    //! [calls]
    //! [outcomes]
    const KIT::Response fetched = response.get();  // waits for it
    std::cout.write(reinterpret_cast<const char*>(fetched.body.data()),
                    static_cast<std::streamsize>(fetched.body.size()));
    const bool isFetched = HasSucceeded(fetched.outcome);
    return HasSucceeded(file.get()) && isFetched;
    //! [outcomes]
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::cerr << "fetch PAGE URL FILE\n";
        return 2;
    }
    try {
        const bool succeeded = FetchAndDownload(argv[1], argv[2], argv[3]);
        if (!std::cout.flush()) {
            std::cerr << "cannot write to standard output\n";
            return 1;
        }
        return succeeded ? 0 : 1;
    } catch (const std::exception& error) {  // for example, FILE is a folder
        std::cerr << error.what() << '\n';
        return 1;
    }
}
