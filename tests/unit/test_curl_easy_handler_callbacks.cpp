// The functions that libcurl calls, each driven by itself.

#include <limits>
#include <stdexcept>

#include "CurlHandlerTest.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using VORTAN_MW::CurlEasyHandler;

namespace {

class CurlHandlerCallbacks : public CurlHandlerTest
{
protected:
    // What the callbacks received.
    Strings received;

    Handler::ChunkCallback Recorder(bool answer)
    {
        return [this, answer](std::unique_ptr<Bytes> chunk, void* userData) {
            EXPECT_EQ(userData, detail.userData);
            received.emplace_back(chunk->begin(), chunk->end());
            return answer;
        };
    }

    std::size_t Write(std::string bytes, bool isHeader)
    {
        return CurlEasyHandler::s_WriteCallback(bytes.data(), bytes.size(), &detail, isHeader);
    }

    std::string Read(std::size_t size, std::size_t count)
    {
        std::string bytes(size * count, '?');
        bytes.resize(CurlEasyHandler::s_ReadBodyCallback(&bytes[0], size, count, &detail));
        return bytes;
    }
};

TEST_F(CurlHandlerCallbacks, WithoutADetailNothingIsDelivered)
{
    char bytes[] = "abc";
    EXPECT_EQ(CurlEasyHandler::s_ReadBodyCallback(bytes, 1, 3, nullptr), 0U);
    EXPECT_EQ(CurlEasyHandler::s_WriteHeaderCallback(bytes, 1, 3, nullptr), 0U);
    EXPECT_EQ(CurlEasyHandler::s_WriteBodyCallback(bytes, 1, 3, nullptr), 0U);
    EXPECT_EQ(CurlEasyHandler::s_WriteCallback(bytes, 3, nullptr, true), 0U);
    EXPECT_THAT(log.Summaries(), IsEmpty());
}

TEST_F(CurlHandlerCallbacks, TheBodyIsReadInPiecesWithOneLineForEachRead)
{
    detail.requestBody = std::string("ab\0defg", 7);
    EXPECT_EQ(Read(1, 4), std::string("ab\0d", 4));
    EXPECT_EQ(detail.bodyOffset, 4U);
    EXPECT_EQ(Read(2, 2), "efg");
    EXPECT_EQ(detail.bodyOffset, 7U);
    EXPECT_EQ(Read(1, 4), "");
    EXPECT_EQ(detail.bodyOffset, 7U);
    EXPECT_THAT(log.Summaries(), ElementsAre("D s_ReadBodyCallback: remain: 7 buffer-size: 4",
                                             "D s_ReadBodyCallback: remain: 3 buffer-size: 4",
                                             "D s_ReadBodyCallback: remain: 0 buffer-size: 4"));
}

TEST_F(CurlHandlerCallbacks, ReadingIntoNoRoomReturnsNothingAndIsTold)
{
    detail.requestBody = "abc";
    EXPECT_EQ(CurlEasyHandler::s_ReadBodyCallback(nullptr, 1, 0, &detail), 0U);
    EXPECT_EQ(CurlEasyHandler::s_ReadBodyCallback(nullptr, 0, 7, &detail), 0U);
    EXPECT_EQ(detail.bodyOffset, 0U);
    EXPECT_THAT(log.Summaries(), ElementsAre("D s_ReadBodyCallback: remain: 3 buffer-size: 0",
                                             "D s_ReadBodyCallback: remain: 3 buffer-size: 0"));
}

TEST_F(CurlHandlerCallbacks, HeaderAndBodyFunctionsDeliverSizeTimesCountBytesEachToItsOwn)
{
    detail.headerBuffer = &header;
    detail.dataBuffer = &body;
    char bytes[] = "abcdef";
    EXPECT_EQ(CurlEasyHandler::s_WriteHeaderCallback(bytes, 2, 3, &detail), 6U);
    EXPECT_EQ(CurlEasyHandler::s_WriteBodyCallback(bytes, 1, 4, &detail), 4U);
    EXPECT_EQ(header, BytesOf("abcdef"));
    EXPECT_EQ(body, BytesOf("abcd"));
    EXPECT_THAT(log.Summaries(), IsEmpty());
}

TEST_F(CurlHandlerCallbacks, ABufferAndACallbackBothReceiveAChunk)
{
    int userData = 0;
    detail.userData = &userData;
    detail.dataBuffer = &body;
    detail.dataCallback = Recorder(true);
    EXPECT_EQ(Write("ab", false), 2U);
    EXPECT_EQ(Write("cd", false), 2U);
    EXPECT_EQ(body, BytesOf("abcd"));
    EXPECT_THAT(received, ElementsAre("ab", "cd"));
}

TEST_F(CurlHandlerCallbacks, AHeaderChunkReachesOnlyTheHeaderCallback)
{
    detail.headerCallback = Recorder(true);
    detail.dataCallback = [](std::unique_ptr<Bytes>, void*) -> bool { throw 0; };
    EXPECT_EQ(Write("ab", true), 2U);
    EXPECT_THAT(received, ElementsAre("ab"));
}

TEST_F(CurlHandlerCallbacks, AChunkThatNobodyWantsIsAccepted)
{
    EXPECT_EQ(Write("abc", true), 3U);
    EXPECT_EQ(Write("abc", false), 3U);
}

TEST_F(CurlHandlerCallbacks, ARefusedChunkIsToldAndNotAcceptedButStaysInTheBuffer)
{
    detail.headerBuffer = &header;
    detail.headerCallback = Recorder(false);
    EXPECT_EQ(Write("ab", true), 0U);
    EXPECT_EQ(header, BytesOf("ab"));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D s_WriteCallback: callback failed processing: http://server/"));
}

TEST_F(CurlHandlerCallbacks, AChunkOfNoBytesReachesTheCallbackAndNotTheBuffer)
{
    detail.dataBuffer = &body;
    detail.dataCallback = Recorder(true);
    EXPECT_EQ(Write("", false), 0U);
    EXPECT_THAT(body, IsEmpty());
    EXPECT_THAT(received, ElementsAre(""));
    EXPECT_THAT(log.Summaries(), IsEmpty());
}

TEST_F(CurlHandlerCallbacks, ASizeThatIsNegativeAsASignedNumberIsNotAppended)
{
    detail.dataBuffer = &body;
    const std::size_t size = std::numeric_limits<std::size_t>::max();
    EXPECT_EQ(CurlEasyHandler::s_WriteCallback("abc", size, &detail, false), size);
    EXPECT_THAT(body, IsEmpty());
}

TEST_F(CurlHandlerCallbacks, OutsideATransferAnExceptionGoesOnToTheCaller)
{
    detail.dataCallback = [](std::unique_ptr<Bytes>, void*) -> bool {
        throw std::runtime_error("data");
    };
    char bytes[] = "abc";
    EXPECT_THROW(CurlEasyHandler::s_WriteBodyCallback(bytes, 1, 3, &detail), std::runtime_error);
    EXPECT_THROW(Write("abc", false), std::runtime_error);
}

}  // namespace
