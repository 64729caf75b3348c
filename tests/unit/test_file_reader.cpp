#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CaughtLog.h"
#include "FileReaderFactory.h"
#include "IndexedBytes.h"
#include "TemporaryFolder.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using VORTAN_MW::FileReaderFactory;
using VORTAN_MW::ITransferHandler;
using Bytes = ITransferHandler::Bytes;
using Result = ITransferHandler::Result;
using TransferDetail = ITransferHandler::TransferDetail;

// It exists, but nothing is mapped at the beginning of the address space: root cannot read it.
const std::string unreadable = "/proc/self/mem";

const Bytes placeholder = {0x01, 0x02, 0x03};

ITransferHandler::Configuration ForPath(const std::string& path)
{
    ITransferHandler::Configuration configuration;
    configuration.url = path;
    return configuration;
}

// The chunks that a transfer hands out, in order, each with its kind.
struct Chunks
{
    std::vector<std::pair<std::string, Bytes>> all;
    bool answer = true;

    ITransferHandler::ChunkCallback Record(const std::string& kind)
    {
        return [this, kind](std::unique_ptr<Bytes> chunk, void* userData) {
            EXPECT_EQ(userData, this);
            EXPECT_EQ(std::this_thread::get_id(), thread);
            all.emplace_back(kind, *chunk);
            return answer;
        };
    }

    const std::thread::id thread = std::this_thread::get_id();
};

Result ReadInChunks(const std::string& path, Chunks& chunks)
{
    return FileReaderFactory().Create()->GetTransfer(ForPath(path), chunks.Record("header"),
                                                     chunks.Record("data"), &chunks);
}

struct Buffers
{
    // Older bytes, which a transfer must not leave.
    Bytes header = {9, 9, 9, 9, 9};
    Bytes data = {8};
};

Result ReadIntoBuffers(const std::string& path, Buffers& buffers)
{
    return FileReaderFactory().Create()->GetTransfer(ForPath(path), buffers.header, buffers.data);
}

auto Header()
{
    return std::make_pair(std::string("header"), placeholder);
}

auto Data(const Bytes& bytes)
{
    return std::make_pair(std::string("data"), bytes);
}

auto LineIn(const std::string& file, const std::string& function, const std::string& message)
{
    return AllOf(Field(&LogLine::file, file), Field(&LogLine::function, function),
                 Field(&LogLine::message, message));
}

}  // namespace

TEST(FileReader, TheFactoryMakesANewHandlerEachTime)
{
    FileReaderFactory factory;
    const auto first = factory.Create();
    const auto second = factory.Create();
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_NE(first, second);
}

TEST(FileReader, AFileIsTheBodyAndThreeBytesStandForTheHeader)
{
    const TemporaryFolder folder;
    Buffers buffers;
    const Result result = ReadIntoBuffers(folder.FileWith(IndexedBytes(1234567)), buffers);
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.httpCode, nullptr);
    EXPECT_EQ(buffers.header, placeholder);
    EXPECT_TRUE(buffers.data == IndexedBytes(1234567));
}

TEST(FileReader, CallbacksGetTheHeaderAndTheWholeBodyInOneChunkEach)
{
    const TemporaryFolder folder;
    Chunks chunks;
    const Result result = ReadInChunks(folder.FileWith(IndexedBytes(1234567)), chunks);
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.httpCode, nullptr);
    EXPECT_TRUE((chunks.all == decltype(chunks.all){Header(), Data(IndexedBytes(1234567))}));
}

TEST(FileReader, AnEmptyFileHasAnEmptyBodyAndStillItsHeader)
{
    const TemporaryFolder folder;
    Buffers buffers;
    EXPECT_TRUE(ReadIntoBuffers(folder.FileWith({}), buffers).success);
    EXPECT_EQ(buffers.header, placeholder);
    EXPECT_EQ(buffers.data, Bytes());
}

TEST(FileReader, TheDataCallbackOfAnEmptyFileGetsAnEmptyChunk)
{
    const TemporaryFolder folder;
    Chunks chunks;
    EXPECT_TRUE(ReadInChunks(folder.FileWith({}), chunks).success);
    EXPECT_THAT(chunks.all, ElementsAre(Header(), Data({})));
}

TEST(FileReader, AMissingFileFailsAndEmptiesBothBuffers)
{
    const TemporaryFolder folder;
    Buffers buffers;
    const Result result = ReadIntoBuffers(folder.Path("missing"), buffers);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.httpCode, nullptr);
    EXPECT_EQ(buffers.header, Bytes());
    EXPECT_EQ(buffers.data, Bytes());
}

TEST(FileReader, AMissingFileCallsNobody)
{
    const TemporaryFolder folder;
    Chunks chunks;
    const Result result = ReadInChunks(folder.Path("missing"), chunks);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.httpCode, nullptr);
    EXPECT_THAT(chunks.all, ElementsAre());
}

TEST(FileReader, ADirectoryIsAMissingFile)
{
    const TemporaryFolder folder;
    Chunks chunks;
    EXPECT_FALSE(ReadInChunks(folder.Path("."), chunks).success);
    EXPECT_THAT(chunks.all, ElementsAre());
}

TEST(FileReader, ALoopOfLinksIsAMissingFile)
{
    const TemporaryFolder folder;
    std::filesystem::create_symlink(folder.Path("loop"), folder.Path("loop"));
    Chunks chunks;
    EXPECT_FALSE(ReadInChunks(folder.Path("loop"), chunks).success);
    EXPECT_THAT(chunks.all, ElementsAre());
}

TEST(FileReader, AFileThatCannotBeReadFailsWithItsHeaderAndAnEmptyBody)
{
    Buffers buffers;
    const Result result = ReadIntoBuffers(unreadable, buffers);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.httpCode, nullptr);
    EXPECT_EQ(buffers.header, placeholder);
    EXPECT_EQ(buffers.data, Bytes());
}

TEST(FileReader, AFileThatCannotBeReadStillGivesBothChunks)
{
    Chunks chunks;
    const Result result = ReadInChunks(unreadable, chunks);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.httpCode, nullptr);
    EXPECT_THAT(chunks.all, ElementsAre(Header(), Data({})));
}

TEST(FileReader, AFileThatReportsNoSizeIsReadWhole)
{
    Buffers buffers;
    EXPECT_TRUE(ReadIntoBuffers("/proc/self/status", buffers).success);
    const std::string text(buffers.data.begin(), buffers.data.end());
    EXPECT_THAT(text, testing::StartsWith("Name:"));
    EXPECT_THAT(text, testing::EndsWith("\n"));
}

TEST(FileReader, ARefusedChunkChangesNothing)
{
    const TemporaryFolder folder;
    Chunks chunks;
    chunks.answer = false;
    EXPECT_TRUE(ReadInChunks(folder.FileWith({7}), chunks).success);
    EXPECT_THAT(chunks.all, ElementsAre(Header(), Data({7})));
}

TEST(FileReader, OnlyWhatIsWantedIsDelivered)
{
    const TemporaryFolder folder;
    const std::string path = folder.FileWith({7});
    const auto reader = FileReaderFactory().Create();
    Buffers buffers;
    EXPECT_TRUE(reader->GetTransfer(ForPath(path), buffers.header, boost::none).success);
    EXPECT_EQ(buffers.header, placeholder);
    EXPECT_TRUE(reader->GetTransfer(ForPath(path), boost::none, buffers.data).success);
    EXPECT_EQ(buffers.data, Bytes{7});
    Chunks chunks;
    EXPECT_TRUE(
        reader->GetTransfer(ForPath(path), chunks.Record("header"), nullptr, &chunks).success);
    EXPECT_TRUE(
        reader->GetTransfer(ForPath(path), nullptr, chunks.Record("data"), &chunks).success);
    EXPECT_THAT(chunks.all, ElementsAre(Header(), Data({7})));
}

TEST(FileReader, AFileIsReadAlsoWhenNothingIsWanted)
{
    const TemporaryFolder folder;
    const CaughtLog log;
    const auto reader = FileReaderFactory().Create();
    const auto read = [&](const std::string& path) {
        return reader->GetTransfer(ForPath(path), boost::none, boost::none).success;
    };
    EXPECT_TRUE(read(folder.FileWith({7})));
    EXPECT_FALSE(read(folder.Path("missing")));
    EXPECT_FALSE(read(unreadable));
    EXPECT_EQ(log.Count("Failed to read file: " + unreadable), 1U);
}

TEST(FileReader, BuffersAndCallbacksMayBeUsedTogether)
{
    const TemporaryFolder folder;
    Buffers buffers;
    Chunks chunks;
    TransferDetail detail;
    detail.url = folder.FileWith({7});
    detail.headerBuffer = &buffers.header;
    detail.dataBuffer = &buffers.data;
    detail.headerCallback = chunks.Record("header");
    detail.dataCallback = chunks.Record("data");
    detail.userData = &chunks;
    EXPECT_TRUE(FileReaderFactory().Create()->DoTransfer(detail).success);
    EXPECT_EQ(buffers.header, placeholder);
    EXPECT_EQ(buffers.data, Bytes{7});
    EXPECT_THAT(chunks.all, ElementsAre(Header(), Data({7})));
}

TEST(FileReader, ACallbacksExceptionLeavesGetTransfer)
{
    const TemporaryFolder folder;
    Chunks chunks;
    const auto throwing = [](std::unique_ptr<Bytes>, void*) -> bool {
        throw std::out_of_range("of the client");
    };
    EXPECT_THROW(FileReaderFactory().Create()->GetTransfer(ForPath(folder.FileWith({7})), throwing,
                                                           chunks.Record("data"), &chunks),
                 std::out_of_range);
    EXPECT_THAT(chunks.all, ElementsAre());
}

TEST(FileReader, OneHandlerServesTransfersThatKnowNothingOfEachOther)
{
    const TemporaryFolder folder;
    const auto reader = FileReaderFactory().Create();
    Bytes data;
    EXPECT_TRUE(
        reader->GetTransfer(ForPath(folder.FileWith({1, 2}, "a")), boost::none, data).success);
    EXPECT_FALSE(reader->GetTransfer(ForPath(folder.Path("b")), boost::none, data).success);
    EXPECT_EQ(data, Bytes());
    EXPECT_TRUE(reader->GetTransfer(ForPath(folder.FileWith({3}, "c")), boost::none, data).success);
    EXPECT_EQ(data, Bytes{3});
}

TEST(FileReader, ManyReadersRunAtOnce)
{
    const TemporaryFolder folder;
    const std::string path = folder.FileWith(IndexedBytes(100000));
    std::vector<std::thread> threads(8);
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            Chunks chunks;
            EXPECT_TRUE(ReadInChunks(path, chunks).success);
            EXPECT_TRUE((chunks.all == decltype(chunks.all){Header(), Data(IndexedBytes(100000))}));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(FileReader, EachStepIsLoggedInItsPlace)
{
    const TemporaryFolder folder;
    const std::string path = folder.FileWith({7});
    const CaughtLog log;
    Buffers buffers;
    ReadIntoBuffers(path, buffers);
    EXPECT_THAT(log.Lines(), ElementsAre(LineIn("ITransferHandler.cpp", "GetTransfer", " "),
                                         LineIn("FileReader.cpp", "DoTransfer", " "),
                                         LineIn("FileReader.cpp", "m_CheckFileExists",
                                                "File " + path + "exist: 1")));
    EXPECT_EQ(log.Lines().back().priority, 3);
    EXPECT_EQ(log.Lines()[1].priority, 3);
}

TEST(FileReader, AMissingFileIsLoggedAsSuch)
{
    const CaughtLog log;
    Chunks chunks;
    ReadInChunks("/missing", chunks);
    EXPECT_THAT(log.Summaries(), ElementsAre("D GetTransfer:  ", "D DoTransfer:  ",
                                             "D m_CheckFileExists: File /missingexist: 0"));
}

TEST(FileReader, AReadFailureIsLoggedAsAnError)
{
    const CaughtLog log;
    Chunks chunks;
    ReadInChunks(unreadable, chunks);
    EXPECT_THAT(log.Summaries(), ElementsAre("D GetTransfer:  ", "D DoTransfer:  ",
                                             "D m_CheckFileExists: File /proc/self/memexist: 1",
                                             "E DoTransfer: Failed to read file: /proc/self/mem"));
    EXPECT_EQ(log.Lines().back().file, "FileReader.cpp");
}
