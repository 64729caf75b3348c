#include <gtest/gtest.h>

#include "CurlOption.h"

namespace {

using VORTAN_MW::UTILS::IsReadAs;

TEST(CurlOption, ALongIsReadForOptionsBelowTheObjects)
{
    EXPECT_TRUE((IsReadAs<CURLOPT_POST, long>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_POST, int>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_POST, bool>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_POST, void*>()));
    EXPECT_EQ((IsReadAs<CURLOPT_POST, curl_off_t>()), sizeof(long) == sizeof(curl_off_t));
}

TEST(CurlOption, AnAddressIsReadForObjects)
{
    EXPECT_TRUE((IsReadAs<CURLOPT_URL, const char*>()));
    EXPECT_TRUE((IsReadAs<CURLOPT_HTTPHEADER, curl_slist*>()));
    EXPECT_TRUE((IsReadAs<CURLOPT_WRITEDATA, void*>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_WRITEDATA, curl_write_callback>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_WRITEDATA, long>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_WRITEDATA, decltype(nullptr)>()));
}

TEST(CurlOption, AFunctionOfLibcurlsTypeIsReadForFunctions)
{
    EXPECT_TRUE((IsReadAs<CURLOPT_WRITEFUNCTION, curl_write_callback>()));
    EXPECT_TRUE((IsReadAs<CURLOPT_READFUNCTION, curl_read_callback>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_WRITEFUNCTION, void (*)()>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_WRITEFUNCTION, void*>()));
}

TEST(CurlOption, ALargeNumberIsReadForLargeOptions)
{
    EXPECT_TRUE((IsReadAs<CURLOPT_INFILESIZE_LARGE, curl_off_t>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_INFILESIZE_LARGE, int>()));
    EXPECT_FALSE((IsReadAs<CURLOPT_INFILESIZE_LARGE, std::size_t>()));
    EXPECT_EQ((IsReadAs<CURLOPT_INFILESIZE_LARGE, long>()), sizeof(long) == sizeof(curl_off_t));
}

}  // namespace
