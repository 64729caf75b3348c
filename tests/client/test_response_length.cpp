#include <gtest/gtest.h>

#include <string>

#include "ResponseLength.h"

using namespace VORTAN_TRANSFER;

namespace {

std::optional<std::uint64_t> LengthIn(const std::string& header)
{
    ResponseLength length;
    length.Add(header);
    return length.Bytes();
}

const std::string Ok = "HTTP/1.1 200 OK\r\n";

}  // namespace

TEST(ResponseLength, IsWhatTheServerSays)
{
    EXPECT_EQ(LengthIn(Ok + "Content-Length: 1234567\r\n\r\n"), 1234567U);
    EXPECT_EQ(LengthIn("HTTP/2 200\r\ncontent-length:0\r\n\r\n"), 0U);
    EXPECT_EQ(LengthIn(Ok + "CONTENT-LENGTH: 18446744073709551615 \r\n"), 18446744073709551615U);
}

TEST(ResponseLength, IsUnknownWhenTheServerIsSilent)
{
    EXPECT_EQ(LengthIn(""), std::nullopt);
    EXPECT_EQ(LengthIn(Ok + "\r\n"), std::nullopt);
    EXPECT_EQ(LengthIn(Ok + "X-Content-Length: 5\r\n\r\n"), std::nullopt);
}

TEST(ResponseLength, IsUnknownWhenItIsNoNumber)
{
    for (const char* const value : {"", "x", "5x", "-5", "18446744073709551616"}) {
        EXPECT_EQ(LengthIn(Ok + "Content-Length: " + value + "\r\n\r\n"), std::nullopt) << value;
    }
}

TEST(ResponseLength, IsUnknownWhenTheBodyIsEncoded)
{
    EXPECT_EQ(LengthIn(Ok + "Content-Encoding: gzip\r\nContent-Length: 5\r\n\r\n"), std::nullopt);
    EXPECT_EQ(LengthIn(Ok + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n"),
              std::nullopt);
    EXPECT_EQ(LengthIn(Ok + "Content-Encoding: identity\r\nContent-Length: 5\r\n\r\n"), 5U);
}

TEST(ResponseLength, IsThatOfTheLastResponse)
{
    const std::string redirect =
        "HTTP/1.1 302 Found\r\nContent-Encoding: gzip\r\nContent-Length: 5\r\n\r\n";
    EXPECT_EQ(LengthIn(redirect + Ok + "Content-Length: 7\r\n\r\n"), 7U);
    EXPECT_EQ(LengthIn(Ok + "Content-Length: 7\r\n\r\n" + Ok + "\r\n"), std::nullopt);
    EXPECT_EQ(LengthIn("HTTP/1.1 100 Continue\r\n\r\n" + Ok + "Content-Length: 7\r\n\r\n"), 7U);
}

TEST(ResponseLength, IsFoundHoweverTheHeaderIsCut)
{
    const std::string header = Ok + "A: b\r\nContent-Length: 1234567\r\nC: d\r\n\r\n";
    for (std::size_t cut = 0; cut <= header.size(); ++cut) {
        ResponseLength length;
        length.Add(header.substr(0, cut));
        length.Add(header.substr(cut));
        EXPECT_EQ(length.Bytes(), 1234567U) << cut;
    }
}
