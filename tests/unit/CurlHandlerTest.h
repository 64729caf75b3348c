#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "CaughtLog.h"
#include "CurlDouble.h"
#include "CurlEasyHandler.h"

// A libcurl handler over the double, and the one request that a test changes to its needs.
class CurlHandlerTest : public ::testing::Test
{
protected:
    using Handler = VORTAN_MW::ITransferHandler;
    using Bytes = Handler::Bytes;
    using HttpMethod = Handler::Configuration::HttpMethod;
    using Strings = std::vector<std::string>;

    CurlHandlerTest()
    {
        detail.url = "http://server/";
        curl.Name(&detail, "detail");
    }

    Handler::Result Transfer() const { return VORTAN_MW::CurlEasyHandler().DoTransfer(detail); }

    static Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

    CaughtLog log;
    CurlDouble curl;
    Handler::TransferDetail detail;
    Bytes header;
    Bytes body;
};
