#include <gmock/gmock.h>

#include "AgentTestSupport.h"
#include "CaughtLog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VORTAN_MW::AsyncTransferAgentManager;
using VORTAN_MW::AsyncTransferAgentManagerPeer;
using VORTAN_MW::ITransferAgentManager;
using HttpMethod = VORTAN_MW::ITransferHandler::Configuration::HttpMethod;

// A request whose handler waits until the test ends, so that a passing request logs nothing more.
class AgentValidation : public testing::Test
{
protected:
    ~AgentValidation() override { m_Release.Open(); }

    std::unique_ptr<RecordingClient::Request> MakeRequest()
    {
        return m_Client.MakeRequest([this](const auto&) {
            m_Release.Wait();
            return MakeResult(true, 200);
        });
    }

    // Requests and expects refusal with this one line.
    void ExpectRefusal(std::unique_ptr<RecordingClient::Request> request, const std::string& line)
    {
        const CaughtLog log;
        EXPECT_EQ(m_Manager->RequestTransfer(std::move(request)),
                  ITransferAgentManager::InvalidHandle);
        EXPECT_THAT(log.Summaries(), ElementsAre("E m_ValidateTransferConfig: " + line));
        EXPECT_EQ(AsyncTransferAgentManagerPeer(*m_Manager).JobCount(), 0U);
        EXPECT_EQ(AsyncTransferAgentManagerPeer(*m_Manager).ThreadCount(), 0U);
        EXPECT_THAT(m_Client.Events(), IsEmpty());
    }

    void ExpectAcceptance(std::unique_ptr<RecordingClient::Request> request)
    {
        const CaughtLog log;
        EXPECT_EQ(m_Manager->RequestTransfer(std::move(request)), 0U);
        EXPECT_THAT(log.MessagesOf("m_ValidateTransferConfig"), IsEmpty());
        m_Release.Open();
    }

    Gate m_Release;
    RecordingClient m_Client;
    std::unique_ptr<ITransferAgentManager> m_Manager = AsyncTransferAgentManager::Create();
};

TEST_F(AgentValidation, RefusesNoConfiguration)
{
    ExpectRefusal(nullptr, "transfer configuration is empty");
}

TEST_F(AgentValidation, RefusesAHalvordConfigurationWithoutResourceBeforeAnythingElse)
{
    auto request = MakeRequest();
    request->halvordConfig.emplace();
    request->url.clear();
    request->method = HttpMethod::EhttpPost;
    ExpectRefusal(std::move(request), "Halvord config was given without a resource");
}

TEST_F(AgentValidation, RefusesAPostWithoutBodyBeforeItLooksAtTheUrl)
{
    auto request = MakeRequest();
    request->method = HttpMethod::EhttpPost;
    request->url.clear();
    ExpectRefusal(std::move(request), "Request body of the HTTP post can't be empty");
}

TEST_F(AgentValidation, RefusesAGetWithABodyBeforeItLooksAtTheUrl)
{
    auto request = MakeRequest();
    request->method = HttpMethod::EhttpGet;
    request->requestBody = "x";
    request->url.clear();
    ExpectRefusal(std::move(request), "Request body of a HTTP GET can not contain data");
}

TEST_F(AgentValidation, RefusesAnEmptyUrlBeforeItLooksAtTheCallbacks)
{
    auto request = MakeRequest();
    request->url.clear();
    request->headerCallback = nullptr;
    request->dataCallback = nullptr;
    ExpectRefusal(std::move(request), "URL is empty");
}

TEST_F(AgentValidation, RefusesACompleteCallbackAloneBeforeItLooksAtTheFactory)
{
    auto request = MakeRequest();
    request->headerCallback = nullptr;
    request->dataCallback = nullptr;
    request->handlerFactory = nullptr;
    ExpectRefusal(std::move(request), "neither data or header download requested");
}

TEST_F(AgentValidation, RefusesARequestWithoutFactory)
{
    auto request = MakeRequest();
    request->handlerFactory = nullptr;
    ExpectRefusal(std::move(request), "Transfer Handler Factory is not set");
}

TEST_F(AgentValidation, AcceptsAHeaderCallbackAlone)
{
    auto request = MakeRequest();
    request->dataCallback = nullptr;
    request->completeCallback = nullptr;
    ExpectAcceptance(std::move(request));
}

TEST_F(AgentValidation, AcceptsADataCallbackAlone)
{
    auto request = MakeRequest();
    request->headerCallback = nullptr;
    request->completeCallback = nullptr;
    ExpectAcceptance(std::move(request));
}

TEST_F(AgentValidation, AcceptsAHalvordConfigurationWithAResource)
{
    auto request = MakeRequest();
    request->halvordConfig.emplace();
    request->halvordConfig->resource = "r";
    ExpectAcceptance(std::move(request));
}

class AgentValidationOfMethods
    : public AgentValidation,
      public testing::WithParamInterface<std::pair<HttpMethod, std::string>>
{
};

TEST_P(AgentValidationOfMethods, AcceptsTheBodyWithTheMethod)
{
    auto request = MakeRequest();
    std::tie(request->method, request->requestBody) = GetParam();
    ExpectAcceptance(std::move(request));
}

INSTANTIATE_TEST_SUITE_P(
    AllButTheTwoRefused, AgentValidationOfMethods,
    testing::Values(std::pair(HttpMethod::Default, ""), std::pair(HttpMethod::Default, "x"),
                    std::pair(HttpMethod::EhttpGet, ""), std::pair(HttpMethod::EhttpHead, ""),
                    std::pair(HttpMethod::EhttpHead, "x"), std::pair(HttpMethod::EhttpPost, "x"),
                    std::pair(HttpMethod::EhttpPut, ""), std::pair(HttpMethod::EhttpPut, "x")));

TEST_F(AgentValidation, DestroysARefusedRequestBeforeTheCallReturnsAndWithTheMutexFree)
{
    bool destroyed = false;
    auto request = MakeRequest();
    request->url.clear();
    // The last owner of this runs client code that calls the agent.
    const auto onDestruction = [&](void*) {
        m_Manager->CancelTransfer(7);
        destroyed = true;
    };
    std::shared_ptr<void> owned(this, onDestruction);
    request->completeCallback = [owned](VORTAN_MW::ITransferHandler::Result, void*) {};
    owned.reset();
    EXPECT_EQ(m_Manager->RequestTransfer(std::move(request)), ITransferAgentManager::InvalidHandle);
    EXPECT_TRUE(destroyed);
}

}  // namespace
