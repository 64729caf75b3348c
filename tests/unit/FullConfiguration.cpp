#include "FullConfiguration.h"

#include <gtest/gtest.h>

#include <string>

using VORTAN_MW::ITransferHandler;
using Configuration = ITransferHandler::Configuration;

Configuration FullConfiguration()
{
    Configuration configuration;
    configuration.url = "url";
    configuration.failOnError = false;
    configuration.reservedFlag = true;
    configuration.method = Configuration::HttpMethod::EhttpPut;
    configuration.httpVersion = Configuration::HttpVersion::Eversion20;
    configuration.headers = {{"a", "1"}, {"b", ""}};
    configuration.requestBody = std::string("x\0y", 3);
    configuration.bodyParts = {{1, 2}, {}};
    configuration.halvordConfig = Configuration::HalvordConfig{"resource", {{"key", "value"}}};
    configuration.allowSelfSignedCertificates = true;
    configuration.timeoutArg1 = 1;
    configuration.wrapperOption30 = 2;
    configuration.timeoutArg2 = 3;
    configuration.wrapperOption20 = 4;
    configuration.wrapperOption21 = 5;
    configuration.wrapperOption31 = 6;
    configuration.wrapperOption32 = 7;
    configuration.wrapperOption27 = 8;
    configuration.verbose = true;
    configuration.randomDelay = Configuration::RandomDelay{9, 10};
    configuration.fixedDelay = -11;
    return configuration;
}

void ExpectSame(const Configuration& seen, const Configuration& sent)
{
    EXPECT_EQ(seen.url, sent.url);
    EXPECT_EQ(seen.failOnError, sent.failOnError);
    EXPECT_EQ(seen.reservedFlag, sent.reservedFlag);
    EXPECT_EQ(seen.method, sent.method);
    EXPECT_EQ(seen.httpVersion, sent.httpVersion);
    EXPECT_EQ(seen.headers, sent.headers);
    EXPECT_EQ(seen.requestBody, sent.requestBody);
    EXPECT_EQ(seen.bodyParts, sent.bodyParts);
    EXPECT_EQ(seen.halvordConfig.value().resource, sent.halvordConfig->resource);
    EXPECT_EQ(seen.halvordConfig.value().queryParameters, sent.halvordConfig->queryParameters);
    EXPECT_EQ(seen.allowSelfSignedCertificates, sent.allowSelfSignedCertificates);
    EXPECT_EQ(seen.timeoutArg1, sent.timeoutArg1);
    EXPECT_EQ(seen.wrapperOption30, sent.wrapperOption30);
    EXPECT_EQ(seen.timeoutArg2, sent.timeoutArg2);
    EXPECT_EQ(seen.wrapperOption20, sent.wrapperOption20);
    EXPECT_EQ(seen.wrapperOption21, sent.wrapperOption21);
    EXPECT_EQ(seen.wrapperOption31, sent.wrapperOption31);
    EXPECT_EQ(seen.wrapperOption32, sent.wrapperOption32);
    EXPECT_EQ(seen.wrapperOption27, sent.wrapperOption27);
    EXPECT_EQ(seen.verbose, sent.verbose);
    EXPECT_EQ(seen.randomDelay.value().min, sent.randomDelay->min);
    EXPECT_EQ(seen.randomDelay.value().max, sent.randomDelay->max);
    EXPECT_EQ(seen.fixedDelay.value(), *sent.fixedDelay);
}
