#include <ThreadSafeFileSystemAccessor.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "IndexedBytes.h"
#include "TemporaryFolder.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Accessor = VORTAN_MW::ThreadSafeFileSystemAccessor;

// What read(2) does while it is set: it gets the place and the room for bytes.
std::function<ssize_t(void*, std::size_t)> readInPlaceOfTheSystem;

class FileSystemAccessor : public testing::Test
{
protected:
    ~FileSystemAccessor() override { readInPlaceOfTheSystem = nullptr; }

    std::string Path(const std::string& name) const { return m_Folder.Path(name); }

    std::string FileWith(const Bytes& contents, const std::string& name = "file") const
    {
        return m_Folder.FileWith(contents, name);
    }

private:
    TemporaryFolder m_Folder;
};

// A file in memory that only says that it is so large.
class FileOfSize
{
public:
    explicit FileOfSize(off_t size) : m_Descriptor(memfd_create("large", 0))
    {
        EXPECT_EQ(ftruncate(m_Descriptor, size), 0);
    }
    FileOfSize(const FileOfSize&) = delete;
    FileOfSize& operator=(const FileOfSize&) = delete;
    ~FileOfSize() { close(m_Descriptor); }

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_Descriptor); }

private:
    int m_Descriptor;
};

void ExpectUnreadable(const std::string& path)
{
    Bytes contents = {1, 2, 3};
    EXPECT_FALSE(Accessor::ReadFile(path, contents)) << path;
    EXPECT_TRUE(contents.empty()) << path;
}

void ExpectNoFile(const std::string& path)
{
    EXPECT_FALSE(Accessor::FileExists(path)) << path;
    ExpectUnreadable(path);
}

}  // namespace

// Takes the place of the C library's read() for the whole program. It has that name for the linker
// only: with _FORTIFY_SOURCE the headers define a read() themselves.
extern "C" ssize_t ReadForTheProgram(int descriptor, void* to, std::size_t size) __asm__("read");

extern "C" ssize_t ReadForTheProgram(int descriptor, void* to, std::size_t size)
{
    return readInPlaceOfTheSystem ? readInPlaceOfTheSystem(to, size)
                                  : syscall(SYS_read, descriptor, to, size);
}

TEST_F(FileSystemAccessor, AWholeFileIsRead)
{
    const Bytes bytes = IndexedBytes(1234567);
    const std::string path = FileWith(bytes);
    EXPECT_TRUE(Accessor::FileExists(path));
    Bytes contents;
    EXPECT_TRUE(Accessor::ReadFile(path, contents));
    EXPECT_TRUE(contents == bytes);
}

TEST_F(FileSystemAccessor, FilesOfEveryLengthAroundTheFirstReadAreWhole)
{
    for (const std::size_t length : {1U, 4095U, 4096U, 4097U, 8191U, 8192U, 8193U}) {
        const Bytes bytes = IndexedBytes(length);
        Bytes contents;
        EXPECT_TRUE(Accessor::ReadFile(FileWith(bytes), contents)) << length;
        EXPECT_TRUE(contents == bytes) << length;
    }
}

TEST_F(FileSystemAccessor, AnEmptyFileIsAFileWithoutBytes)
{
    const std::string path = FileWith({});
    EXPECT_TRUE(Accessor::FileExists(path));
    Bytes contents;
    EXPECT_TRUE(Accessor::ReadFile(path, contents));
    EXPECT_TRUE(contents.empty());
}

TEST_F(FileSystemAccessor, WhatTheVectorHeldIsReplaced)
{
    Bytes contents = IndexedBytes(100);
    EXPECT_TRUE(Accessor::ReadFile(FileWith({7}), contents));
    EXPECT_EQ(contents, Bytes({7}));
}

TEST_F(FileSystemAccessor, AFileThatReportsNoSizeIsReadToItsEnd)
{
    ASSERT_EQ(prctl(PR_SET_NAME, "reader"), 0);
    EXPECT_TRUE(Accessor::FileExists("/proc/self/comm"));
    Bytes contents;
    EXPECT_TRUE(Accessor::ReadFile("/proc/self/comm", contents));
    EXPECT_EQ(std::string(contents.begin(), contents.end()), "reader\n");
}

TEST_F(FileSystemAccessor, ALinkToAFileIsAFile)
{
    std::filesystem::create_symlink(FileWith({1, 2}), Path("link"));
    EXPECT_TRUE(Accessor::FileExists(Path("link")));
    Bytes contents;
    EXPECT_TRUE(Accessor::ReadFile(Path("link"), contents));
    EXPECT_EQ(contents, Bytes({1, 2}));
}

TEST_F(FileSystemAccessor, AMissingFileIsNoFile)
{
    ExpectNoFile(Path("missing"));
    ExpectNoFile("");
}

TEST_F(FileSystemAccessor, ADirectoryIsNoFile)
{
    ExpectNoFile(Path("."));
    std::filesystem::create_directory_symlink(Path("."), Path("link"));
    ExpectNoFile(Path("link"));
}

TEST_F(FileSystemAccessor, AFileIsNoDirectoryOnTheWayToAnother)
{
    ExpectNoFile(FileWith({1}) + "/file");
}

TEST_F(FileSystemAccessor, ALinkToNothingIsNoFile)
{
    std::filesystem::create_symlink(Path("missing"), Path("link"));
    ExpectNoFile(Path("link"));
}

TEST_F(FileSystemAccessor, ALoopOfLinksIsNoFile)
{
    std::filesystem::create_symlink(Path("b"), Path("a"));
    std::filesystem::create_symlink(Path("a"), Path("b"));
    ExpectNoFile(Path("a"));
}

TEST_F(FileSystemAccessor, ADeviceIsNoFile)
{
    ExpectNoFile("/dev/zero");
}

TEST_F(FileSystemAccessor, APipeWithoutAWriterIsNoFileAndIsNotWaitedFor)
{
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), S_IRWXU), 0);
    ExpectNoFile(Path("pipe"));
}

TEST_F(FileSystemAccessor, AReadErrorIsAFailure)
{
    ASSERT_TRUE(Accessor::FileExists("/proc/self/mem"));  // nothing is mapped at its beginning
    ExpectUnreadable("/proc/self/mem");
}

TEST_F(FileSystemAccessor, AReadErrorHalfWayLeavesNothing)
{
    const std::string path = FileWith(IndexedBytes(100));
    int calls = 0;
    readInPlaceOfTheSystem = [&](void* to, std::size_t) -> ssize_t {
        if (++calls == 2) {
            errno = EIO;
            return -1;
        }
        std::fill_n(static_cast<std::uint8_t*>(to), 50, std::uint8_t{1});
        return 50;
    };
    ExpectUnreadable(path);
    EXPECT_EQ(calls, 2);
}

TEST_F(FileSystemAccessor, AnInterruptedReadGoesOn)
{
    const Bytes bytes = IndexedBytes(1000);
    const std::string path = FileWith(bytes);
    std::size_t done = 0;
    bool interrupted = false;
    readInPlaceOfTheSystem = [&](void* to, std::size_t room) -> ssize_t {
        interrupted = !interrupted;
        if (interrupted) {
            errno = EINTR;
            return -1;
        }
        const std::size_t count = std::min({room, bytes.size() - done, std::size_t{300}});
        std::copy_n(bytes.data() + done, count, static_cast<std::uint8_t*>(to));
        done += count;
        return static_cast<ssize_t>(count);
    };
    Bytes contents;
    EXPECT_TRUE(Accessor::ReadFile(path, contents));
    EXPECT_EQ(contents, bytes);
}

TEST_F(FileSystemAccessor, AFileThatHoldsMoreThanItReportsIsReadToItsEnd)
{
    const Bytes bytes = IndexedBytes(1234567);
    const std::string path = FileWith({1});
    std::size_t done = 0;
    readInPlaceOfTheSystem = [&](void* to, std::size_t room) {
        const std::size_t count = std::min(room, bytes.size() - done);
        std::copy_n(bytes.data() + done, count, static_cast<std::uint8_t*>(to));
        done += count;
        return static_cast<ssize_t>(count);
    };
    Bytes contents;
    EXPECT_TRUE(Accessor::ReadFile(path, contents));
    EXPECT_TRUE(contents == bytes);
}

TEST_F(FileSystemAccessor, AFileLargerThanAnyVectorExistsButIsNotRead)
{
    const FileOfSize file(std::numeric_limits<off_t>::max());
    EXPECT_TRUE(Accessor::FileExists(file.Path()));
    ExpectUnreadable(file.Path());
}

TEST_F(FileSystemAccessor, AFileLargerThanTheMemoryIsNotRead)
{
#ifdef VORTAN_SANITIZED
    GTEST_SKIP() << "the sanitizers' operator new ends the process where it should throw";
#endif
    const FileOfSize file(std::numeric_limits<off_t>::max() / 2);
    ExpectUnreadable(file.Path());
}

TEST_F(FileSystemAccessor, ManyThreadsReadAtOnce)
{
    const std::string shared = FileWith(IndexedBytes(1234567), "shared");
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 8; ++i) {
        const std::string own = FileWith(IndexedBytes(1000 + i), std::to_string(i));
        threads.emplace_back([=] {
            for (int round = 0; round < 10; ++round) {
                Bytes contents;
                EXPECT_TRUE(Accessor::FileExists(own) && Accessor::ReadFile(own, contents));
                EXPECT_TRUE(contents == IndexedBytes(1000 + i));
                EXPECT_TRUE(Accessor::ReadFile(shared, contents));
                EXPECT_TRUE(contents == IndexedBytes(1234567));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
