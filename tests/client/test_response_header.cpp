#include <gtest/gtest.h>

#include <string>

#include "transfer/ResponseHeader.h"

using namespace VORTAN_TRANSFER;

namespace {

std::optional<std::uint64_t> LengthIn(const std::string& header)
{
    ResponseHeader read;
    read.Add(header);
    return read.BodyLength();
}

bool IsWhole(const std::string& header)
{
    ResponseHeader read;
    read.Add(header);
    return read.IsWhole();
}

const std::string Ok = "HTTP/1.1 200 OK\r\n";

}  // namespace

TEST(BodyLength, IsWhatTheServerSays)
{
    EXPECT_EQ(LengthIn(Ok + "Content-Length: 1234567\r\n\r\n"), 1234567U);
    EXPECT_EQ(LengthIn("HTTP/2 200\r\ncontent-length:0\r\n\r\n"), 0U);
    EXPECT_EQ(LengthIn(Ok + "CONTENT-LENGTH: 18446744073709551615 \r\n"), 18446744073709551615U);
}

TEST(BodyLength, IsUnknownWhenTheServerIsSilent)
{
    EXPECT_EQ(LengthIn(""), std::nullopt);
    EXPECT_EQ(LengthIn(Ok + "\r\n"), std::nullopt);
    EXPECT_EQ(LengthIn(Ok + "X-Content-Length: 5\r\n\r\n"), std::nullopt);
}

TEST(BodyLength, IsUnknownWhenItIsNoNumber)
{
    for (const char* const value : {"", "x", "5x", "-5", "18446744073709551616"}) {
        EXPECT_EQ(LengthIn(Ok + "Content-Length: " + value + "\r\n\r\n"), std::nullopt) << value;
    }
}

TEST(BodyLength, IsUnknownWhenTheBodyIsEncoded)
{
    EXPECT_EQ(LengthIn(Ok + "Content-Encoding: gzip\r\nContent-Length: 5\r\n\r\n"), std::nullopt);
    EXPECT_EQ(LengthIn(Ok + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n"),
              std::nullopt);
    EXPECT_EQ(LengthIn(Ok + "Content-Encoding: identity\r\nContent-Length: 5\r\n\r\n"), 5U);
}

TEST(BodyLength, IsThatOfTheLastResponse)
{
    const std::string redirect =
        "HTTP/1.1 302 Found\r\nContent-Encoding: gzip\r\nContent-Length: 5\r\n\r\n";
    EXPECT_EQ(LengthIn(redirect + Ok + "Content-Length: 7\r\n\r\n"), 7U);
    EXPECT_EQ(LengthIn(Ok + "Content-Length: 7\r\n\r\n" + Ok + "\r\n"), std::nullopt);
    EXPECT_EQ(LengthIn("HTTP/1.1 100 Continue\r\n\r\n" + Ok + "Content-Length: 7\r\n\r\n"), 7U);
}

TEST(ResponseHeader, IsFoundHoweverTheHeaderIsCut)
{
    const std::string header = Ok + "A: b\r\nContent-Length: 1234567\r\nC: d\r\n\r\n";
    for (std::size_t cut = 0; cut <= header.size(); ++cut) {
        ResponseHeader read;
        read.Add(header.substr(0, cut));
        read.Add(header.substr(cut));
        EXPECT_EQ(read.BodyLength(), 1234567U) << cut;
        EXPECT_TRUE(read.IsWhole()) << cut;
    }
}

TEST(ResponseHeader, IsWholeAfterItsEmptyLine)
{
    EXPECT_TRUE(IsWhole(Ok + "A: b\r\n\r\n"));
    EXPECT_TRUE(IsWhole("HTTP/1.1 200 OK\nA: b\n\n"));
    EXPECT_TRUE(IsWhole("HTTP/2 204\r\n\r\n"));
}

TEST(ResponseHeader, IsNotWholeWhereverItIsCut)
{
    const std::string header = Ok + "A: b\r\n\r\n";
    for (std::size_t cut = 1; cut < header.size(); ++cut) {
        EXPECT_FALSE(IsWhole(header.substr(0, cut))) << cut;
    }
}

TEST(ResponseHeader, IsWholeIfThatOfTheLastResponseIs)
{
    const std::string redirect = "HTTP/1.1 302 Found\r\nLocation: /b\r\n";
    EXPECT_TRUE(IsWhole(redirect + Ok + "\r\n"));
    EXPECT_FALSE(IsWhole(redirect + "\r\n" + Ok));
}

TEST(ResponseHeader, IsNotWholeAfterAnInterimResponse)
{
    for (const char* const status : {"100 Continue", "103 Early Hints", "100"}) {
        const std::string interim = std::string("HTTP/1.1 ") + status + "\r\n\r\n";
        EXPECT_FALSE(IsWhole(interim)) << status;
        EXPECT_TRUE(IsWhole(interim + Ok + "\r\n")) << status;
    }
}

TEST(ResponseHeader, StaysWholeWithTrailers)
{
    EXPECT_TRUE(IsWhole(Ok + "\r\nX-Trailer: a\r\n"));
}

TEST(ResponseHeader, HasTheFieldsOfTheLastResponse)
{
    ResponseHeader read;
    read.Add("HTTP/1.1 302 Found\r\nETag: \"a\"\r\nX: 1\r\n\r\n" + Ok + "eTAG:  \"b\" \r\n\r\n");
    EXPECT_EQ(read.Field("etag"), "\"b\"");
    EXPECT_EQ(read.Field("x"), std::nullopt);
}
