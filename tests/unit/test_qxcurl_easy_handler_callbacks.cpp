#include <gmock/gmock.h>

#include <stdexcept>

#include "CaughtLog.h"
#include "QXCurlEasyHandler.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::QXCurlEasyHandler;
using Bytes = ITransferHandler::Bytes;

class QXCurlEasyHandlerCallbacks : public testing::Test
{
protected:
    // Asks for size times count bytes of the upload.
    std::string Read(unsigned int size, unsigned int count)
    {
        std::string buffer(64, '.');
        const unsigned int given =
            QXCurlEasyHandler::s_ReadBodyCallback(buffer.data(), size, count, &detail);
        EXPECT_EQ(buffer.find_first_not_of('.', given), std::string::npos);
        return buffer.substr(0, given);
    }

    unsigned int WriteHeader(std::string bytes)
    {
        return QXCurlEasyHandler::s_WriteHeaderCallback(
            bytes.data(), 1, static_cast<unsigned int>(bytes.size()), &detail);
    }

    unsigned int WriteBody(std::string bytes)
    {
        return QXCurlEasyHandler::s_WriteBodyCallback(
            bytes.data(), 1, static_cast<unsigned int>(bytes.size()), &detail);
    }

    // A callback that keeps what it gets, and answers so.
    ITransferHandler::ChunkCallback KeepAndReturn(bool answer)
    {
        return [this, answer](std::unique_ptr<Bytes> chunk, void* userData) {
            chunks.push_back(*chunk);
            userDatas.push_back(userData);
            return answer;
        };
    }

    CaughtLog log;
    ITransferHandler::TransferDetail detail;
    std::vector<Bytes> chunks;
    std::vector<void*> userDatas;
};

}  // namespace

TEST_F(QXCurlEasyHandlerCallbacks, AnUploadIsServedInPiecesAndThenEnds)
{
    detail.requestBody = "0123456789";
    EXPECT_EQ(Read(1, 4), "0123");
    EXPECT_EQ(Read(2, 2), "4567");
    EXPECT_EQ(Read(4, 1), "89");
    EXPECT_EQ(Read(1, 4), "");
    EXPECT_EQ(detail.bodyOffset, 10U);
    EXPECT_THAT(
        log.Summaries(),
        ElementsAre("D s_ReadBodyCallback:  ", "D s_ReadBodyCallback: remain: 10 buffer-size: 4",
                    "D s_ReadBodyCallback:  ", "D s_ReadBodyCallback: remain: 6 buffer-size: 4",
                    "D s_ReadBodyCallback:  ", "D s_ReadBodyCallback: remain: 2 buffer-size: 4",
                    "D s_ReadBodyCallback:  ", "D s_ReadBodyCallback: remain: 0 buffer-size: 4"));
}

TEST_F(QXCurlEasyHandlerCallbacks, ABufferOfTheBodysSizeTakesItWhole)
{
    detail.requestBody = std::string("a\0\xff", 3);
    EXPECT_EQ(Read(1, 3), std::string("a\0\xff", 3));
    EXPECT_EQ(Read(1, 3), "");
}

TEST_F(QXCurlEasyHandlerCallbacks, AnEmptyBodyEndsTheUploadAtOnce)
{
    EXPECT_EQ(Read(1, 4), "");
    EXPECT_EQ(detail.bodyOffset, 0U);
}

TEST_F(QXCurlEasyHandlerCallbacks, ABufferOfNoSizeTakesNothing)
{
    detail.requestBody = "abc";
    EXPECT_EQ(QXCurlEasyHandler::s_ReadBodyCallback(nullptr, 1, 0, &detail), 0U);
    EXPECT_EQ(detail.bodyOffset, 0U);
}

TEST_F(QXCurlEasyHandlerCallbacks, TheSizeOfTheUploadBufferWrapsAt32Bits)
{
    detail.requestBody = "abc";
    EXPECT_EQ(Read(65536, 65536), "");
    EXPECT_EQ(Read(2147483649U, 2), "ab");
    EXPECT_THAT(log.MessagesOf("s_ReadBodyCallback"),
                ElementsAre(" ", "remain: 3 buffer-size: 0", " ", "remain: 3 buffer-size: 2"));
}

TEST_F(QXCurlEasyHandlerCallbacks, WhatRemainsOfTheUploadWrapsAt32Bits)
{
    detail.requestBody = "abc";
    detail.bodyOffset = 4;
    EXPECT_EQ(Read(1, 0), "");
    EXPECT_THAT(log.MessagesOf("s_ReadBodyCallback"),
                ElementsAre(" ", "remain: 4294967295 buffer-size: 0"));
}

TEST_F(QXCurlEasyHandlerCallbacks, AnUploadWithoutADetailIsAnErrorAndEnds)
{
    char buffer = '.';
    EXPECT_EQ(QXCurlEasyHandler::s_ReadBodyCallback(&buffer, 1, 1, nullptr), 0U);
    EXPECT_EQ(buffer, '.');
    EXPECT_THAT(log.Summaries(), ElementsAre("D s_ReadBodyCallback:  ",
                                             "E s_ReadBodyCallback: transfer detail is empty"));
}

TEST_F(QXCurlEasyHandlerCallbacks, AHeaderChunkGoesToItsBufferAndAsACopyToItsCallback)
{
    Bytes header;
    Bytes body;
    detail.headerBuffer = &header;
    detail.dataBuffer = &body;
    detail.headerCallback = KeepAndReturn(true);
    detail.dataCallback = KeepAndReturn(false);
    detail.userData = &body;
    EXPECT_EQ(WriteHeader("A: b"), 4U);
    EXPECT_THAT(header, ElementsAre('A', ':', ' ', 'b'));
    EXPECT_THAT(body, IsEmpty());
    EXPECT_THAT(chunks, ElementsAre(header));
    EXPECT_THAT(userDatas, ElementsAre(&body));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(QXCurlEasyHandlerCallbacks, ABodyChunkGoesToItsBufferAndAsACopyToItsCallback)
{
    Bytes header;
    Bytes body;
    detail.headerBuffer = &header;
    detail.dataBuffer = &body;
    detail.headerCallback = KeepAndReturn(false);
    detail.dataCallback = KeepAndReturn(true);
    EXPECT_EQ(WriteBody("xy"), 2U);
    EXPECT_THAT(body, ElementsAre('x', 'y'));
    EXPECT_THAT(header, IsEmpty());
    EXPECT_THAT(chunks, ElementsAre(body));
    EXPECT_THAT(userDatas, ElementsAre(nullptr));
}

TEST_F(QXCurlEasyHandlerCallbacks, ABufferAloneCollectsEveryChunk)
{
    Bytes body = {9};
    detail.dataBuffer = &body;
    EXPECT_EQ(WriteBody(std::string("\0\xff", 2)), 2U);
    EXPECT_EQ(WriteBody("a"), 1U);
    EXPECT_THAT(body, ElementsAre(9, 0, 0xff, 'a'));
}

TEST_F(QXCurlEasyHandlerCallbacks, ACallbackAloneGetsEveryChunk)
{
    detail.dataCallback = KeepAndReturn(true);
    EXPECT_EQ(WriteBody("a"), 1U);
    EXPECT_EQ(WriteBody("bc"), 2U);
    EXPECT_THAT(chunks, ElementsAre(Bytes{'a'}, Bytes{'b', 'c'}));
}

TEST_F(QXCurlEasyHandlerCallbacks, WithoutBufferAndCallbackAChunkIsAccepted)
{
    EXPECT_EQ(WriteBody("abc"), 3U);
    EXPECT_EQ(WriteHeader("ab"), 2U);
}

TEST_F(QXCurlEasyHandlerCallbacks, ARefusedChunkStaysInTheBufferAndAbortsTheTransfer)
{
    Bytes body;
    detail.url = "http://host/";
    detail.halvordConfig = ITransferHandler::Configuration::HalvordConfig{"res", {}};
    detail.dataBuffer = &body;
    detail.dataCallback = KeepAndReturn(false);
    EXPECT_EQ(WriteBody("abc"), 0U);
    EXPECT_THAT(body, ElementsAre('a', 'b', 'c'));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D s_WriteCallback: callback failed processing: http://host/"));
}

TEST_F(QXCurlEasyHandlerCallbacks, ARefusedHeaderChunkStaysInTheBufferAndAbortsTheTransfer)
{
    Bytes header;
    detail.url = "http://host/";
    detail.headerBuffer = &header;
    detail.headerCallback = KeepAndReturn(false);
    EXPECT_EQ(WriteHeader("A: b"), 0U);
    EXPECT_THAT(header, ElementsAre('A', ':', ' ', 'b'));
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D s_WriteCallback: callback failed processing: http://host/"));
}

TEST_F(QXCurlEasyHandlerCallbacks, AnEmptyChunkIsRefusedLikeAnyOther)
{
    detail.url = "http://host/";
    detail.dataCallback = KeepAndReturn(false);
    EXPECT_EQ(WriteBody(""), 0U);
    EXPECT_THAT(log.Summaries(),
                ElementsAre("D s_WriteCallback: callback failed processing: http://host/"));
}

TEST_F(QXCurlEasyHandlerCallbacks, AnEmptyChunkStillReachesTheCallback)
{
    Bytes body;
    detail.dataBuffer = &body;
    detail.dataCallback = KeepAndReturn(true);
    EXPECT_EQ(QXCurlEasyHandler::s_WriteBodyCallback(nullptr, 1, 0, &detail), 0U);
    EXPECT_THAT(body, IsEmpty());
    EXPECT_THAT(chunks, ElementsAre(Bytes{}));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(QXCurlEasyHandlerCallbacks, TheSizeOfAChunkWrapsAt32Bits)
{
    Bytes header;
    detail.headerBuffer = &header;
    std::string bytes = "abc";
    EXPECT_EQ(QXCurlEasyHandler::s_WriteHeaderCallback(bytes.data(), 65536, 65536, &detail), 0U);
    EXPECT_THAT(header, IsEmpty());
    EXPECT_EQ(QXCurlEasyHandler::s_WriteHeaderCallback(bytes.data(), 2147483649U, 2, &detail), 2U);
    EXPECT_THAT(header, ElementsAre('a', 'b'));
    detail.dataCallback = KeepAndReturn(true);
    EXPECT_EQ(QXCurlEasyHandler::s_WriteBodyCallback(bytes.data(), 3, 1431655766U, &detail), 2U);
    EXPECT_THAT(chunks, ElementsAre(Bytes{'a', 'b'}));
}

TEST_F(QXCurlEasyHandlerCallbacks, AnElementsSizeCounts)
{
    detail.dataCallback = KeepAndReturn(true);
    std::string bytes = "abcdef";
    EXPECT_EQ(QXCurlEasyHandler::s_WriteBodyCallback(bytes.data(), 3, 2, &detail), 6U);
    EXPECT_THAT(chunks, ElementsAre(Bytes{'a', 'b', 'c', 'd', 'e', 'f'}));
}

TEST_F(QXCurlEasyHandlerCallbacks, AChunkWithoutADetailIsAnErrorAndAbortsTheTransfer)
{
    char byte = 'x';
    EXPECT_EQ(QXCurlEasyHandler::s_WriteHeaderCallback(&byte, 1, 1, nullptr), 0U);
    EXPECT_EQ(QXCurlEasyHandler::s_WriteBodyCallback(&byte, 1, 1, nullptr), 0U);
    EXPECT_EQ(QXCurlEasyHandler::s_WriteCallback(&byte, 1, nullptr, true), 0U);
    EXPECT_THAT(log.Summaries(), ElementsAre("E s_WriteCallback: transfer detail is empty",
                                             "E s_WriteCallback: transfer detail is empty",
                                             "E s_WriteCallback: transfer detail is empty"));
}

TEST_F(QXCurlEasyHandlerCallbacks, AClientsExceptionPassesThrough)
{
    Bytes body;
    detail.dataBuffer = &body;
    detail.dataCallback = [](std::unique_ptr<Bytes>, void*) -> bool {
        throw std::runtime_error("client");
    };
    EXPECT_THROW(WriteBody("x"), std::runtime_error);
    EXPECT_THAT(body, ElementsAre('x'));
}
