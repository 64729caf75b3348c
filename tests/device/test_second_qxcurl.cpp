#include <QXCurlEasyHandlerFactory.h>
#include <gmock/gmock.h>

TEST(AnotherWrapperLibrary, TakesTheStandInsPlaceWithoutARebuild)
{
    using VORTAN_MW::ITransferHandler;
    ITransferHandler::Configuration configuration;
    configuration.halvordConfig =
        ITransferHandler::Configuration::HalvordConfig{"res", {{"k", "v"}}};
    ITransferHandler::Bytes header;
    ITransferHandler::Bytes body;
    const ITransferHandler::Result result =
        VORTAN_MW::QXCurlEasyHandlerFactory().Create()->GetTransfer(configuration, header, body);
    EXPECT_TRUE(result.success);
    EXPECT_THAT(result.httpCode, testing::Pointee(299));
    EXPECT_EQ(std::string(header.begin(), header.end()), "dorix-cloud");
    EXPECT_EQ(std::string(body.begin(), body.end()), "second:res<k,v>");
}
