// A part is written, kept, found again and never trusted for more than it is.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "IndexedBytes.h"
#include "PartFile.h"
#include "PartRecord.h"
#include "SystemCalls.h"
#include "TemporaryFolder.h"

using namespace VORTAN_MW::KIT;  // NOLINT(google-build-using-namespace)

namespace {

constexpr std::size_t Length = 100000;
constexpr std::size_t Kept = 60000;
constexpr char HashOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

Digest HashOf(const std::string& text)
{
    Sha256 hash;
    hash.Update(text.data(), text.size());
    return hash.Finish();
}

class KitPart : public ::testing::Test
{
protected:
    // A transfer that receives some bytes and ends.
    void LeavePart(std::size_t length = Kept, bool isWorthKeeping = true)
    {
        PartFile part(target);
        ASSERT_TRUE(part.Open());
        ASSERT_TRUE(part.Begin(version));
        ASSERT_TRUE(part.Write(body.data(), length));
        part.Close(isWorthKeeping);
    }

    // How much a later transfer goes on with.
    std::uint64_t LengthFound(const std::string& url = "http://host/a")
    {
        PartFile part(target);
        EXPECT_TRUE(part.Open());
        const auto found = part.Resume(url, listener);
        EXPECT_TRUE(!found || (found->validator == "\"a\"" && found->total == Length));
        return found ? part.Length() : 0;
    }

    void ExpectWhole()
    {
        EXPECT_TRUE(folder.Read("file") == IndexedBytes(Length));
        EXPECT_FALSE(HasParts());
    }
    bool HasParts() const
    {
        return std::filesystem::exists(folder.Path("file.part")) ||
               std::filesystem::exists(folder.Path("file.part.meta"));
    }

    const TemporaryFolder folder;
    const std::string body = IndexedText(Length);
    FileTarget target{folder.Path("file"), std::nullopt};
    const PartFile::Version version{"http://host/a", "\"a\"", Length};
    StopListener listener;
};

}  // namespace

TEST(KitSha256, IsThatOfTheStandard)
{
    EXPECT_EQ(HexOf(HashOf("abc")), HashOfAbc);
    EXPECT_EQ(ParseDigest(HashOfAbc), HashOf("abc"));
    std::string upper(HashOfAbc);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    EXPECT_EQ(ParseDigest(upper), HashOf("abc"));
}

TEST(KitSha256, IsNotReadFromAnythingElse)
{
    const std::string good = HashOfAbc;
    for (const std::string& text : {std::string(), good.substr(1), good + "0", "g" + good.substr(1),
                                    std::string(1, '\0') + good.substr(1), " " + good.substr(1)}) {
        EXPECT_FALSE(ParseDigest(text)) << text;
    }
}

TEST(KitRecord, ComesBackAsItWasWritten)
{
    const PartRecord record{"http://host/a b", "\"a b\"", ~std::uint64_t{0}, 1, 2, 3};
    const auto read = PartRecord::Parse(record.Format());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->url, record.url);
    EXPECT_EQ(read->validator, record.validator);
    EXPECT_EQ(read->total, record.total);
    EXPECT_EQ(read->synced, record.synced);
    EXPECT_EQ(read->device, record.device);
    EXPECT_EQ(read->inode, record.inode);
}

TEST(KitRecord, IsIgnoredWhenOneByteIsWrongOrMissing)
{
    const std::string good = PartRecord{"http://host/a", "\"a\"", 10, 5, 2, 3}.Format();
    ASSERT_TRUE(PartRecord::Parse(good));
    EXPECT_FALSE(PartRecord::Parse(good + '\n'));
    for (std::size_t index = 0; index < good.size(); ++index) {
        std::string changed = good;
        changed[index] = static_cast<char>(changed[index] ^ 1);
        EXPECT_FALSE(PartRecord::Parse(changed)) << index;
        EXPECT_FALSE(PartRecord::Parse(good.substr(0, index)));
    }
}

TEST(KitRecord, IsIgnoredWhenItCannotBeGoneOnWith)
{
    EXPECT_FALSE(PartRecord::Parse(PartRecord{"u", "v", 10, 0, 2, 3}.Format()));
    EXPECT_FALSE(PartRecord::Parse(PartRecord{"u", "v", 10, 11, 2, 3}.Format()));
    EXPECT_FALSE(PartRecord::Parse(PartRecord{"", "v", 10, 5, 2, 3}.Format()));
    EXPECT_FALSE(PartRecord::Parse(PartRecord{"u", "", 10, 5, 2, 3}.Format()));
}

TEST_F(KitPart, TakesTheNameWhenItIsWhole)
{
    PartFile part(target);
    ASSERT_TRUE(part.Open());
    ASSERT_TRUE(part.Begin(version));
    ASSERT_TRUE(part.Write(body.data(), Length));
    EXPECT_FALSE(std::filesystem::exists(target.path));
    EXPECT_TRUE(part.Commit());
    ExpectWhole();
}

TEST_F(KitPart, IsGoneOnWith)
{
    LeavePart();
    EXPECT_EQ(LengthFound(), Kept);
    PartFile part(target);
    ASSERT_TRUE(part.Open());
    ASSERT_TRUE(part.Resume(version.url, listener));
    ASSERT_TRUE(part.Reserve());
    ASSERT_TRUE(part.Write(body.data() + Kept, Length - Kept));
    EXPECT_TRUE(part.Commit());
    ExpectWhole();
}

TEST_F(KitPart, IsHashedAgain)
{
    target.sha256 = HashOf(body);
    LeavePart();
    PartFile part(target);
    ASSERT_TRUE(part.Open());
    ASSERT_TRUE(part.Resume(version.url, listener));
    ASSERT_TRUE(part.Write(body.data() + Kept, Length - Kept));
    EXPECT_TRUE(part.Commit());
    ExpectWhole();
}

TEST_F(KitPart, StaysWhenHashingIsStopped)
{
    target.sha256 = HashOf(body);
    LeavePart();
    StopListener stopped;
    stopped.Stop();
    {
        PartFile part(target);
        ASSERT_TRUE(part.Open());
        EXPECT_FALSE(part.Resume(version.url, stopped));
    }
    EXPECT_EQ(LengthFound(), Kept);
}

TEST_F(KitPart, OfAWrongHashNeverTakesTheName)
{
    folder.Write("file", {1});
    target.sha256 = HashOf("abc");
    PartFile part(target);
    ASSERT_TRUE(part.Open());
    ASSERT_TRUE(part.Begin(version));
    ASSERT_TRUE(part.Write(body.data(), Length));
    EXPECT_FALSE(part.Commit());
    EXPECT_EQ(part.Fault(), Category::WrongHash);
    part.Close(false);
    EXPECT_EQ(folder.Read("file").size(), 1U);
    EXPECT_FALSE(HasParts());
}

TEST_F(KitPart, HasExactlyTheAnnouncedLength)
{
    for (const std::size_t length : {Length - 1, Length + 1}) {
        PartFile part(target);
        ASSERT_TRUE(part.Open());
        ASSERT_TRUE(part.Begin(version));
        const std::string bytes(length, 'x');
        EXPECT_FALSE(part.Write(bytes.data(), length) && part.Commit());
        EXPECT_EQ(part.Fault(), Category::InvalidResponse);
        part.Close(false);
    }
    EXPECT_FALSE(std::filesystem::exists(target.path));
}

TEST_F(KitPart, IsNotTrustedForAnotherUrl)
{
    LeavePart();
    EXPECT_EQ(LengthFound("http://host/b"), 0U);
}

TEST_F(KitPart, IsNotTrustedWhenItIsShorterThanRecorded)
{
    LeavePart();
    ASSERT_EQ(truncate(folder.Path("file.part").c_str(), Kept - 1), 0);
    EXPECT_EQ(LengthFound(), 0U);
}

TEST_F(KitPart, IsNotTrustedAsAnotherFile)
{
    LeavePart();
    std::filesystem::copy_file(folder.Path("file.part"), folder.Path("copy"));
    std::filesystem::rename(folder.Path("copy"), folder.Path("file.part"));
    EXPECT_EQ(LengthFound(), 0U);
}

TEST_F(KitPart, IsNotTrustedWithADamagedRecord)
{
    LeavePart();
    auto record = folder.Read("file.part.meta");
    record[record.size() / 2] ^= 1U;
    folder.Write("file.part.meta", record);
    EXPECT_EQ(LengthFound(), 0U);
}

TEST_F(KitPart, IsNotTrustedUnderASecondName)
{
    LeavePart();
    ASSERT_EQ(link(folder.Path("file.part").c_str(), folder.Path("second").c_str()), 0);
    EXPECT_EQ(LengthFound(), 0U);
    EXPECT_EQ(folder.Read("second").size(), Kept);
}

TEST_F(KitPart, LosesBytesThatWereNotRecorded)
{
    LeavePart();
    auto bytes = folder.Read("file.part");
    bytes.resize(Length + 1, 'x');
    folder.Write("file.part", bytes);
    PartFile part(target);
    ASSERT_TRUE(part.Open());
    ASSERT_TRUE(part.Resume(version.url, listener));
    EXPECT_EQ(part.Length(), Kept);
    EXPECT_EQ(folder.Read("file.part").size(), Kept);
    ASSERT_TRUE(part.Write(body.data() + Kept, 1));
    part.Close(true);
    EXPECT_EQ(folder.Read("file.part").size(), Kept + 1);
    EXPECT_EQ(LengthFound(), Kept + 1);
}

TEST_F(KitPart, IsRemovedWhenNobodyCanGoOnWithIt)
{
    LeavePart(0);
    EXPECT_FALSE(HasParts());
    LeavePart(Kept, false);
    EXPECT_FALSE(HasParts());
    for (const PartFile::Version& other : {PartFile::Version{"http://host/a", "", Length},
                                           {"http://host/a", "\"a\"", std::nullopt},
                                           {"", "\"a\"", Length},
                                           {"http://host/a\n", "\"a\"", Length}}) {
        PartFile part(target);
        ASSERT_TRUE(part.Open());
        ASSERT_TRUE(part.Begin(other));
        ASSERT_TRUE(part.Write(body.data(), Kept));
        part.Close(true);
        EXPECT_FALSE(HasParts());
    }
}

TEST_F(KitPart, IsLocked)
{
    PartFile first(target);
    ASSERT_TRUE(first.Open());
    ASSERT_TRUE(first.Begin(version));
    ASSERT_TRUE(first.Write(body.data(), Kept));
    {
        PartFile second(target);
        EXPECT_FALSE(second.Open());
        EXPECT_EQ(second.Fault(), Category::Busy);
        EXPECT_EQ(second.Detail(), "process " + std::to_string(getpid()));
    }
    first.Close(true);
    EXPECT_EQ(LengthFound(), Kept);
}

// The first takes the name after the second has opened the part, and before it locks it.
TEST_F(KitPart, OfALateLockerIsAnotherFile)
{
    PartFile first(target);
    ASSERT_TRUE(first.Open());
    ASSERT_TRUE(first.Begin(version));
    ASSERT_TRUE(first.Write(body.data(), Length));
    const SystemCalls calls;
    SystemCalls::Before("flock part", [&first] { EXPECT_TRUE(first.Commit()); });
    PartFile second(target);
    ASSERT_TRUE(second.Open());
    ASSERT_TRUE(second.Begin(version));
    ASSERT_TRUE(second.Write("x", 1));
    EXPECT_TRUE(folder.Read("file") == IndexedBytes(Length));
    second.Close(false);
    ExpectWhole();
}

TEST_F(KitPart, KeepsThePermissionsOfTheTarget)
{
    folder.Write("file", {1});
    for (const mode_t mode : {0600U, 0640U, 0755U}) {
        ASSERT_EQ(chmod(target.path.c_str(), mode), 0);
        PartFile part(target);
        ASSERT_TRUE(part.Open());
        struct stat status = {};
        ASSERT_EQ(stat(folder.Path("file.part").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U);
        ASSERT_TRUE(part.Begin(version));
        ASSERT_TRUE(part.Write(body.data(), Length));
        ASSERT_TRUE(part.Commit());
        ASSERT_EQ(stat(target.path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, mode);
    }
}

TEST_F(KitPart, LeavesWhatIsNoFileAlone)
{
    std::filesystem::create_symlink(folder.Path("elsewhere"), folder.Path("file.part"));
    PartFile part(target);
    EXPECT_FALSE(part.Open());
    EXPECT_EQ(part.Fault(), Category::FileFailed);
    EXPECT_FALSE(std::filesystem::exists(folder.Path("elsewhere")));
}

TEST_F(KitPart, NoticesThatItWasRemoved)
{
    PartFile part(target);
    ASSERT_TRUE(part.Open());
    ASSERT_TRUE(part.Begin(version));
    ASSERT_TRUE(part.Write(body.data(), Length));
    std::filesystem::remove(folder.Path("file.part"));
    folder.Write("file.part", {1});
    EXPECT_FALSE(part.Commit());
    part.Close(true);
    EXPECT_FALSE(std::filesystem::exists(target.path));
    EXPECT_EQ(folder.Read("file.part").size(), 1U);
}

// Before bytes of another version are written, no trace of the first is left on the disk.
TEST_F(KitPart, IsSyncedBeforeAnotherVersionIsWritten)
{
    LeavePart();
    const SystemCalls calls;
    PartFile part(target);
    ASSERT_TRUE(part.Open());
    ASSERT_TRUE(part.Begin({"http://host/a", "\"b\"", Length}));
    ASSERT_TRUE(part.Write(body.data(), 1));
    const std::vector<std::string> order = {
        "open part",     "flock part",       "open record",  "ftruncate part", "fsync part",
        "pwrite record", "ftruncate record", "fsync record", "fallocate part", "pwrite part"};
    EXPECT_EQ(calls.Names(), order);
}

TEST_F(KitPart, IsSyncedBeforeItIsRecordedAndBeforeItTakesTheName)
{
    const SystemCalls calls;
    PartFile part(target);
    ASSERT_TRUE(part.Open());
    ASSERT_TRUE(part.Begin(version));
    ASSERT_TRUE(part.Write(body.data(), Kept));
    part.Close(true);
    PartFile next(target);
    ASSERT_TRUE(next.Open());
    ASSERT_TRUE(next.Resume(version.url, listener));
    ASSERT_TRUE(next.Write(body.data() + Kept, Length - Kept));
    ASSERT_TRUE(next.Commit());
    const std::vector<std::string> order = {
        "open part",      "flock part",       "open record",      "ftruncate part",
        "pwrite record",  "ftruncate record", "fallocate part",   "pwrite part",
        "ftruncate part", "fdatasync part",   "pwrite record",    "ftruncate record",
        "flock part",     "open part",        "flock part",       "open record",
        "pread record",   "pread record",     "ftruncate part",   "pwrite part",
        "fsync part",     "pwrite record",    "ftruncate record", "open other",
        "rename part",    "fsync other",      "unlink record"};
    EXPECT_EQ(calls.Names(), order);
}

TEST_F(KitPart, DoesNotTrustASecondSync)
{
    LeavePart();
    {
        const SystemCalls calls;
        PartFile part(target);
        ASSERT_TRUE(part.Open());
        ASSERT_TRUE(part.Resume(version.url, listener));
        ASSERT_TRUE(part.Write(body.data() + Kept, Length - Kept));
        SystemCalls::Fail("fsync part", EIO);
        EXPECT_FALSE(part.Commit());
    }
    EXPECT_EQ(LengthFound(), Kept);
}
