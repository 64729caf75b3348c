// libaria2. It downloads to files; they go to a folder that is removed afterwards.

#include <aria2/aria2.h>

#include <cstdlib>
#include <filesystem>

#include "Peer.h"

namespace {

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        if (!mkdtemp(m_Path.data())) {
            throw std::runtime_error("cannot make " + m_Path);
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }

    const std::string& Path() const { return m_Path; }

private:
    std::string m_Path = (std::filesystem::temp_directory_path() / "vortan_peer_XXXXXX").string();
};

// Called when a download is complete; adds what it received.
int Count(aria2::Session* session, aria2::DownloadEvent event, aria2::A2Gid gid, void* received)
{
    if (event == aria2::EVENT_ON_DOWNLOAD_COMPLETE) {
        const std::unique_ptr<aria2::DownloadHandle, void (*)(aria2::DownloadHandle*)> download(
            aria2::getDownloadHandle(session, gid), &aria2::deleteDownloadHandle);
        *static_cast<std::size_t*>(received) +=
            static_cast<std::size_t>(download->getCompletedLength());
    }
    return 0;
}

class Aria2 : public Peer
{
public:
    explicit Aria2(const std::string& authorities) : m_Authorities(authorities)
    {
        if (std::filesystem::is_directory(authorities)) {
            throw CannotDo("takes authorities from a file only");
        }
        aria2::libraryInit();
    }
    ~Aria2() override { aria2::libraryDeinit(); }

    std::size_t Stream(const std::string& url) override { return FetchMany(url, 1); }

    std::size_t Fetch(const std::string&) override { throw CannotDo("downloads to files only"); }

    std::size_t FetchMany(const std::string& url, std::size_t count) override
    {
        std::size_t received = 0;
        const TemporaryFolder folder;
        aria2::SessionConfig config;
        config.downloadEventCallback = &Count;
        config.userData = &received;
        const std::unique_ptr<aria2::Session, int (*)(aria2::Session*)> session(
            aria2::sessionNew({{"dir", folder.Path()},
                               {"ca-certificate", m_Authorities},
                               {"max-concurrent-downloads", "4"},
                               {"split", "1"},
                               {"enable-http-keep-alive", "false"},
                               {"file-allocation", "none"},
                               {"auto-save-interval", "0"}},
                              config),
            &aria2::sessionFinal);
        for (std::size_t number = 0; number < count; ++number) {
            aria2::addUri(session.get(), nullptr, {url}, {{"out", std::to_string(number)}});
        }
        aria2::run(session.get(), aria2::RUN_DEFAULT);
        return received;
    }

    std::size_t Upload(const std::string&, std::string) override
    {
        throw CannotDo("has no uploads over HTTP");
    }

private:
    std::string m_Authorities;
};

}  // namespace

std::unique_ptr<Peer> MakePeer(const std::string& authorities)
{
    return std::make_unique<Aria2>(authorities);
}
