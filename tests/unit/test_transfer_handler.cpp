#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "CaughtLog.h"
#include "FullConfiguration.h"
#include "ITransferHandler.h"

namespace {

using testing::ElementsAre;
using VORTAN_MW::ITransferHandler;
using VORTAN_MW::ITransferHandlerFactory;
using Bytes = ITransferHandler::Bytes;
using Configuration = ITransferHandler::Configuration;
using TransferDetail = ITransferHandler::TransferDetail;
using Result = ITransferHandler::Result;

static_assert(std::is_copy_constructible_v<Configuration>);
static_assert(std::is_copy_assignable_v<Configuration>);
static_assert(std::is_base_of_v<Configuration, TransferDetail>);
static_assert(std::is_nothrow_move_constructible_v<Result>);
static_assert(std::is_move_assignable_v<Result>);
static_assert(!std::is_copy_constructible_v<Result>);
static_assert(!std::is_copy_assignable_v<Result>);
static_assert(std::is_same_v<decltype(Result::httpCode), std::unique_ptr<long>>);
static_assert(std::is_abstract_v<ITransferHandler>);
static_assert(std::is_abstract_v<ITransferHandlerFactory>);
static_assert(std::has_virtual_destructor_v<ITransferHandler>);
static_assert(std::has_virtual_destructor_v<ITransferHandlerFactory>);
static_assert(sizeof(ITransferHandler) == sizeof(void*), "no data members");
static_assert(sizeof(ITransferHandlerFactory) == sizeof(void*), "no data members");
static_assert(std::is_same_v<decltype(TransferDetail::bodyOffset), std::size_t>);

template <typename Enumeration>
constexpr std::uint32_t NumberOf(Enumeration enumerator)
{
    static_assert(std::is_same_v<std::underlying_type_t<Enumeration>, std::uint32_t>);
    return static_cast<std::uint32_t>(enumerator);
}

// Hands the detail of each transfer to a script, whose result it returns.
class ScriptedHandler : public ITransferHandler
{
public:
    using Script = std::function<Result(const TransferDetail&)>;

    explicit ScriptedHandler(Script script) : m_Script(std::move(script)) {}

    Result DoTransfer(const TransferDetail& detail) const override { return m_Script(detail); }

private:
    Script m_Script;
};

Result MakeResult(bool success, std::unique_ptr<long> httpCode)
{
    Result result;
    result.success = success;
    result.httpCode = std::move(httpCode);
    return result;
}

ITransferHandler::ChunkCallback KeepAlive(const std::shared_ptr<int>& object)
{
    return [object](std::unique_ptr<Bytes>, void*) { return true; };
}

}  // namespace

TEST(Configuration, StartsWithTheStatedDefaults)
{
    const Configuration configuration;
    EXPECT_EQ(configuration.url, "");
    EXPECT_TRUE(configuration.failOnError);
    EXPECT_FALSE(configuration.reservedFlag);
    EXPECT_EQ(configuration.method, Configuration::HttpMethod::Default);
    EXPECT_EQ(configuration.httpVersion, Configuration::HttpVersion::Eversion11);
    EXPECT_TRUE(configuration.headers.empty());
    EXPECT_TRUE(configuration.requestBody.empty());
    EXPECT_TRUE(configuration.bodyParts.empty());
    EXPECT_FALSE(configuration.halvordConfig.has_value());
    EXPECT_FALSE(configuration.allowSelfSignedCertificates);
    EXPECT_EQ(configuration.timeoutArg1, 0);
    EXPECT_EQ(configuration.wrapperOption30, 30);
    EXPECT_EQ(configuration.timeoutArg2, 10);
    EXPECT_EQ(configuration.wrapperOption20, 1);
    EXPECT_EQ(configuration.wrapperOption21, 1);
    EXPECT_EQ(configuration.wrapperOption31, 100);
    EXPECT_EQ(configuration.wrapperOption32, 30);
    EXPECT_EQ(configuration.wrapperOption27, 15728640);
    EXPECT_FALSE(configuration.verbose);
    EXPECT_FALSE(configuration.randomDelay.has_value());
    EXPECT_FALSE(configuration.fixedDelay.has_value());
}

TEST(Configuration, KeepsItsFieldsInTheStatedOrder)
{
    const Configuration c;
    const std::vector<const void*> places = {
        &c.url,
        &c.failOnError,
        &c.reservedFlag,
        &c.method,
        &c.httpVersion,
        &c.headers,
        &c.requestBody,
        &c.bodyParts,
        &c.halvordConfig,
        &c.allowSelfSignedCertificates,
        &c.timeoutArg1,
        &c.wrapperOption30,
        &c.timeoutArg2,
        &c.wrapperOption20,
        &c.wrapperOption21,
        &c.wrapperOption31,
        &c.wrapperOption32,
        &c.wrapperOption27,
        &c.verbose,
        &c.randomDelay,
        &c.fixedDelay,
    };
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end(), std::less<>()));
}

TEST(Configuration, KeepsTheNumbersOfMethodsAndVersions)
{
    EXPECT_EQ(NumberOf(Configuration::HttpMethod::Default), 0U);
    EXPECT_EQ(NumberOf(Configuration::HttpMethod::EhttpGet), 1U);
    EXPECT_EQ(NumberOf(Configuration::HttpMethod::EhttpHead), 2U);
    EXPECT_EQ(NumberOf(Configuration::HttpMethod::EhttpPost), 3U);
    EXPECT_EQ(NumberOf(Configuration::HttpMethod::EhttpPut), 4U);
    EXPECT_EQ(NumberOf(Configuration::HttpVersion::EversionUnspecified), 0U);
    EXPECT_EQ(NumberOf(Configuration::HttpVersion::Eversion10), 1U);
    EXPECT_EQ(NumberOf(Configuration::HttpVersion::Eversion11), 2U);
    EXPECT_EQ(NumberOf(Configuration::HttpVersion::Eversion20), 3U);
}

TEST(Configuration, IsCopiedDeeply)
{
    Configuration source = FullConfiguration();
    const Configuration copy = source;
    source = Configuration();
    ExpectSame(copy, FullConfiguration());
}

TEST(TransferDetail, StartsWithNothingWanted)
{
    const TransferDetail detail;
    EXPECT_EQ(detail.headerBuffer, nullptr);
    EXPECT_EQ(detail.dataBuffer, nullptr);
    EXPECT_FALSE(detail.headerCallback);
    EXPECT_FALSE(detail.dataCallback);
    EXPECT_EQ(detail.userData, nullptr);
    EXPECT_EQ(detail.bodyOffset, 0U);
}

TEST(Result, StartsAsAFailureWithoutAStatus)
{
    const Result result;
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.httpCode, nullptr);
}

TEST(GetTransferIntoBuffers, HandsTheConfigurationAndBothBuffersToTheHandler)
{
    Bytes header;
    Bytes data;
    int calls = 0;
    const ScriptedHandler handler([&](const TransferDetail& detail) {
        ++calls;
        ExpectSame(detail, FullConfiguration());
        EXPECT_EQ(detail.headerBuffer, &header);
        EXPECT_EQ(detail.dataBuffer, &data);
        EXPECT_FALSE(detail.headerCallback);
        EXPECT_FALSE(detail.dataCallback);
        EXPECT_EQ(detail.userData, nullptr);
        EXPECT_EQ(detail.bodyOffset, 0U);
        return Result();
    });
    handler.GetTransfer(FullConfiguration(), header, data);
    EXPECT_EQ(calls, 1);
}

TEST(GetTransferIntoBuffers, ABufferThatIsNotGivenIsNull)
{
    Bytes bytes;
    std::vector<std::pair<Bytes*, Bytes*>> seen;
    const ScriptedHandler handler([&](const TransferDetail& detail) {
        seen.emplace_back(detail.headerBuffer, detail.dataBuffer);
        return Result();
    });
    handler.GetTransfer({}, bytes, boost::none);
    handler.GetTransfer({}, boost::none, bytes);
    handler.GetTransfer({}, boost::none, boost::none);
    const std::pair<Bytes*, Bytes*> headerOnly(&bytes, nullptr);
    const std::pair<Bytes*, Bytes*> dataOnly(nullptr, &bytes);
    const std::pair<Bytes*, Bytes*> neither(nullptr, nullptr);
    EXPECT_THAT(seen, ElementsAre(headerOnly, dataOnly, neither));
}

TEST(GetTransferIntoBuffers, BuffersAreLeftForTheHandlerToEmpty)
{
    Bytes header = {1};
    Bytes data = {2};
    const ScriptedHandler handler([&](const TransferDetail& detail) {
        EXPECT_EQ(*detail.headerBuffer, Bytes{1});
        EXPECT_EQ(*detail.dataBuffer, Bytes{2});
        return Result();
    });
    handler.GetTransfer({}, header, data);
}

TEST(GetTransferToCallbacks, HandsTheConfigurationAndTheCallbacksToTheHandler)
{
    int userData = 0;
    std::vector<std::string> events;
    const auto record = [&](const std::string& name, bool answer) {
        return [&events, &userData, name, answer](std::unique_ptr<Bytes> chunk, void* context) {
            EXPECT_EQ(context, &userData);
            events.push_back(name + std::string(chunk->begin(), chunk->end()));
            return answer;
        };
    };
    const ScriptedHandler handler([&](const TransferDetail& detail) {
        ExpectSame(detail, FullConfiguration());
        EXPECT_EQ(detail.headerBuffer, nullptr);
        EXPECT_EQ(detail.dataBuffer, nullptr);
        EXPECT_EQ(detail.userData, &userData);
        EXPECT_EQ(detail.bodyOffset, 0U);
        EXPECT_TRUE(detail.headerCallback(std::make_unique<Bytes>(1, 'h'), detail.userData));
        EXPECT_FALSE(detail.dataCallback(std::make_unique<Bytes>(1, 'd'), detail.userData));
        return Result();
    });
    handler.GetTransfer(FullConfiguration(), record("header ", true), record("data ", false),
                        &userData);
    EXPECT_THAT(events, ElementsAre("header h", "data d"));
}

TEST(GetTransferToCallbacks, ACallbackThatIsNotGivenIsEmpty)
{
    const auto object = std::make_shared<int>();
    std::vector<std::pair<bool, bool>> seen;
    const ScriptedHandler handler([&](const TransferDetail& detail) {
        seen.emplace_back(detail.headerCallback != nullptr, detail.dataCallback != nullptr);
        return Result();
    });
    handler.GetTransfer({}, KeepAlive(object), nullptr, nullptr);
    handler.GetTransfer({}, nullptr, KeepAlive(object), nullptr);
    handler.GetTransfer({}, nullptr, nullptr, nullptr);
    const std::pair<bool, bool> headerOnly(true, false);
    const std::pair<bool, bool> dataOnly(false, true);
    const std::pair<bool, bool> neither(false, false);
    EXPECT_THAT(seen, ElementsAre(headerOnly, dataOnly, neither));
}

TEST(GetTransferToCallbacks, TheCallbacksAreDestroyedWithTheDetail)
{
    const auto object = std::make_shared<int>();
    const ScriptedHandler handler([&](const TransferDetail&) {
        EXPECT_GT(object.use_count(), 1);
        return Result();
    });
    handler.GetTransfer({}, KeepAlive(object), KeepAlive(object), nullptr);
    EXPECT_EQ(object.use_count(), 1);
}

// Both forms, called with nothing wanted.
class GetTransfer : public testing::TestWithParam<bool>
{
protected:
    static Result Call(const ITransferHandler& handler, const Configuration& configuration = {})
    {
        return GetParam() ? handler.GetTransfer(configuration, boost::none, boost::none)
                          : handler.GetTransfer(configuration, nullptr, nullptr, nullptr);
    }
};

INSTANTIATE_TEST_SUITE_P(InBothForms, GetTransfer, testing::Bool(), [](const auto& form) {
    return std::string(form.param ? "IntoBuffers" : "ToCallbacks");
});

TEST_P(GetTransfer, ReturnsTheHandlersResultUnchanged)
{
    const long* status = nullptr;
    const Result failure = Call(ScriptedHandler([&](const TransferDetail&) {
        auto httpCode = std::make_unique<long>(404);
        status = httpCode.get();
        return MakeResult(false, std::move(httpCode));
    }));
    EXPECT_FALSE(failure.success);
    EXPECT_EQ(failure.httpCode.get(), status);
    EXPECT_EQ(*failure.httpCode, 404);
    const Result success =
        Call(ScriptedHandler([](const TransferDetail&) { return MakeResult(true, nullptr); }));
    EXPECT_TRUE(success.success);
    EXPECT_EQ(success.httpCode, nullptr);
}

TEST_P(GetTransfer, LetsTheHandlersExceptionPass)
{
    const ScriptedHandler handler(
        [](const TransferDetail&) -> Result { throw std::out_of_range("of the handler"); });
    EXPECT_THROW(Call(handler), std::out_of_range);
}

TEST_P(GetTransfer, StartsEachTransferAtTheBeginningOfTheBody)
{
    std::vector<std::size_t> offsets;
    const ScriptedHandler handler([&](const TransferDetail& detail) {
        offsets.push_back(detail.bodyOffset);
        detail.bodyOffset += 3;  // the handler's own count, in a detail that is constant otherwise
        offsets.push_back(detail.bodyOffset);
        return Result();
    });
    Call(handler);
    Call(handler);
    EXPECT_THAT(offsets, ElementsAre(0U, 3U, 0U, 3U));
}

TEST_P(GetTransfer, GivesTheHandlerACopyOfTheConfiguration)
{
    const Configuration configuration = FullConfiguration();
    const ScriptedHandler handler([&](const TransferDetail& detail) {
        EXPECT_NE(static_cast<const Configuration*>(&detail), &configuration);
        EXPECT_NE(detail.url.data(), configuration.url.data());
        return Result();
    });
    Call(handler, configuration);
}

TEST_P(GetTransfer, LogsABlankBeforeTheHandlerIsCalled)
{
    const CaughtLog log;
    std::vector<LogLine> seen;
    Call(ScriptedHandler([&](const TransferDetail&) {
        seen = log.Lines();
        return Result();
    }));
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen.front().Summary(), "D GetTransfer:  ");
    EXPECT_EQ(seen.front().file, GetParam() ? "ITransferHandler.cpp" : "ITransferHandler.h");
    EXPECT_EQ(seen.front().format, "%s: %s(%d) > %s");
    EXPECT_EQ(seen.front().tag, "VORTAN");
    EXPECT_EQ(seen.front().logId, 0);
    EXPECT_GT(seen.front().line, 0);
    EXPECT_EQ(log.Lines().size(), 1U);
}
