// What every handler does, whatever it transfers with.

#include <gmock/gmock.h>

#include <array>
#include <stdexcept>
#include <thread>
#include <vector>

#include "CaughtLog.h"
#include "HandlerTraits.h"

using ::testing::Each;
using ::testing::IsEmpty;
using ::testing::Ne;
using VORTAN_MW::ITransferHandler;

namespace {

using Bytes = ITransferHandler::Bytes;
using Result = ITransferHandler::Result;

constexpr std::array<std::size_t, 3> Lengths = {0, 1, LongLength};

// What buffers hold before a transfer; no header has it.
constexpr std::uint8_t Leftover = 0xFF;

// Writes down what the two callbacks of a transfer receive.
struct Recorder
{
    ITransferHandler::ChunkCallback Header() { return Take(header, "header", headerAnswer); }
    ITransferHandler::ChunkCallback Data() { return Take(data, "data", dataAnswer); }

    ITransferHandler::ChunkCallback Take(Bytes& bytes, const char* kind, const bool& answer)
    {
        return [this, &bytes, kind, &answer](std::unique_ptr<Bytes> chunk, void* userData) {
            kinds.emplace_back(kind);
            users.push_back(userData);
            threads.push_back(std::this_thread::get_id());
            bytes.insert(bytes.end(), chunk->begin(), chunk->end());
            return answer;
        };
    }

    std::size_t Count(const std::string& kind) const
    {
        return static_cast<std::size_t>(std::count(kinds.begin(), kinds.end(), kind));
    }

    bool headerAnswer = true;
    bool dataAnswer = true;
    Bytes header;
    Bytes data;
    std::vector<std::string> kinds;
    std::vector<void*> users;
    std::vector<std::thread::id> threads;
};

template <typename Traits>
class HandlerContract : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { s_Traits = std::make_unique<Traits>(); }
    static void TearDownTestSuite() { s_Traits.reset(); }

    void SetUp() override
    {
        if (!s_Traits->IsAvailable() && VORTAN_REQUIRE_TEST_PEERS) {
            FAIL() << "what the handler transfers from is not installed";
        }
        if (!s_Traits->IsAvailable()) {
            GTEST_SKIP() << "what the handler transfers from is not installed";
        }
    }

    static std::unique_ptr<ITransferHandler> Make() { return typename Traits::Factory().Create(); }

    static ITransferHandler::Configuration Present(std::size_t length)
    {
        return At(s_Traits->UrlOf(length));
    }
    static ITransferHandler::Configuration Broken() { return At(s_Traits->BrokenUrl()); }

    static Result Buffered(const ITransferHandler::Configuration& configuration,
                           boost::optional<Bytes&> header, boost::optional<Bytes&> data)
    {
        return Make()->GetTransfer(configuration, header, data);
    }

    static Result Streamed(const ITransferHandler::Configuration& configuration, Recorder& recorder,
                           void* userData = nullptr)
    {
        return Make()->GetTransfer(configuration, recorder.Header(), recorder.Data(), userData);
    }

    const CaughtLog log;

private:
    static ITransferHandler::Configuration At(const std::string& url)
    {
        ITransferHandler::Configuration configuration;
        configuration.url = url;
        return configuration;
    }

    static inline std::unique_ptr<Traits> s_Traits;
};

struct NameOfHandler
{
    template <typename Traits>
    static std::string GetName(int)
    {
        return Traits::Name;
    }
};

using Handlers = ::testing::Types<FakeTraits, FileReaderTraits, CurlEasyHandlerTraits,
                                  QXCurlEasyHandlerTraits, KitTraits>;
TYPED_TEST_SUITE(HandlerContract, Handlers, NameOfHandler);

TYPED_TEST(HandlerContract, BuffersReceiveABodyOfAnyLengthByteForByte)
{
    for (const std::size_t length : Lengths) {
        Bytes header;
        Bytes data;
        EXPECT_TRUE(this->Buffered(this->Present(length), header, data).success);
        EXPECT_FALSE(header.empty());
        EXPECT_TRUE(data == IndexedBytes(length));
    }
}

TYPED_TEST(HandlerContract, CallbacksReceiveTheSameBytesAsBuffers)
{
    for (const std::size_t length : Lengths) {
        Bytes header;
        Bytes data;
        this->Buffered(this->Present(length), header, data);
        Recorder recorder;
        EXPECT_TRUE(this->Streamed(this->Present(length), recorder).success);
        EXPECT_EQ(recorder.header, header);
        EXPECT_TRUE(recorder.data == data);
    }
}

TYPED_TEST(HandlerContract, BuffersAreEmptiedFirst)
{
    Bytes header;
    Bytes data;
    this->Buffered(this->Present(1), header, data);
    Bytes usedHeader(1000, Leftover);
    Bytes usedData(1000, Leftover);
    this->Buffered(this->Present(1), usedHeader, usedData);
    EXPECT_EQ(usedHeader, header);
    EXPECT_EQ(usedData, data);
}

TYPED_TEST(HandlerContract, BuffersAreEmptiedAlsoWhenTheTransferFails)
{
    Bytes header(1000, Leftover);
    Bytes data(1000, Leftover);
    EXPECT_FALSE(this->Buffered(this->Broken(), header, data).success);
    EXPECT_THAT(header, Each(Ne(Leftover)));
    EXPECT_THAT(data, IsEmpty());
}

TYPED_TEST(HandlerContract, AFailedTransferDeliversNoBody)
{
    Recorder recorder;
    EXPECT_FALSE(this->Streamed(this->Broken(), recorder).success);
    EXPECT_EQ(recorder.Count("data"), 0U);
}

TYPED_TEST(HandlerContract, TheHeaderComesBeforeTheBody)
{
    Recorder recorder;
    this->Streamed(this->Present(LongLength), recorder);
    EXPECT_GT(recorder.Count("header"), 0U);
    EXPECT_GT(recorder.Count("data"), 0U);
    EXPECT_TRUE(std::is_sorted(recorder.kinds.rbegin(), recorder.kinds.rend()));
}

TYPED_TEST(HandlerContract, WithOnlyTheHeaderWantedOnlyTheHeaderArrives)
{
    Bytes header;
    EXPECT_TRUE(this->Buffered(this->Present(100), header, boost::none).success);
    EXPECT_FALSE(header.empty());
    Recorder recorder;
    EXPECT_TRUE(
        this->Make()->GetTransfer(this->Present(100), recorder.Header(), nullptr, nullptr).success);
    EXPECT_FALSE(recorder.header.empty());
}

TYPED_TEST(HandlerContract, WithOnlyTheBodyWantedOnlyTheBodyArrives)
{
    Bytes data;
    EXPECT_TRUE(this->Buffered(this->Present(100), boost::none, data).success);
    EXPECT_EQ(data, IndexedBytes(100));
    Recorder recorder;
    EXPECT_TRUE(
        this->Make()->GetTransfer(this->Present(100), nullptr, recorder.Data(), nullptr).success);
    EXPECT_EQ(recorder.data, IndexedBytes(100));
}

TYPED_TEST(HandlerContract, WithNothingWantedThereIsStillAResult)
{
    EXPECT_TRUE(this->Buffered(this->Present(100), boost::none, boost::none).success);
    EXPECT_TRUE(this->Make()->GetTransfer(this->Present(100), nullptr, nullptr, nullptr).success);
    EXPECT_FALSE(this->Buffered(this->Broken(), boost::none, boost::none).success);
}

TYPED_TEST(HandlerContract, TheUserDataReachesEveryCallback)
{
    int userData = 0;
    Recorder recorder;
    this->Streamed(this->Present(LongLength), recorder, &userData);
    EXPECT_THAT(recorder.users, Each(&userData));
}

TYPED_TEST(HandlerContract, CallbacksRunOnTheCallingThread)
{
    Recorder recorder;
    this->Streamed(this->Present(LongLength), recorder);
    EXPECT_THAT(recorder.threads, Each(std::this_thread::get_id()));
}

TYPED_TEST(HandlerContract, ARefusedBodyChunkEndsATransferThatCanBeStopped)
{
    Recorder recorder;
    recorder.dataAnswer = false;
    const Result result = this->Streamed(this->Present(LongLength), recorder);
    EXPECT_EQ(result.success, !TypeParam::CanBeStopped);
    EXPECT_EQ(recorder.Count("data"), 1U);
    EXPECT_EQ(recorder.data.size() < LongLength, TypeParam::CanBeStopped);
}

TYPED_TEST(HandlerContract, ARefusedHeaderChunkEndsATransferThatCanBeStoppedBeforeItsBody)
{
    Recorder recorder;
    recorder.headerAnswer = false;
    const Result result = this->Streamed(this->Present(100), recorder);
    EXPECT_EQ(result.success, !TypeParam::CanBeStopped);
    EXPECT_EQ(recorder.Count("header"), 1U);
    EXPECT_EQ(recorder.Count("data"), TypeParam::CanBeStopped ? 0U : 1U);
}

TYPED_TEST(HandlerContract, ASuccessTellsAnHttpCodeWhereThereIsOne)
{
    Bytes data;
    const Result result = this->Buffered(this->Present(1), boost::none, data);
    EXPECT_EQ(result.httpCode != nullptr, TypeParam::HasHttpCode);
    if (result.httpCode) {
        EXPECT_EQ(*result.httpCode, 200);
    }
}

TYPED_TEST(HandlerContract, AHandlerCanBeUsedAgainAlsoAfterAFailure)
{
    const auto handler = this->Make();
    Bytes data;
    const boost::optional<Bytes&> wanted(data);
    EXPECT_TRUE(handler->GetTransfer(this->Present(100), boost::none, wanted).success);
    EXPECT_FALSE(handler->GetTransfer(this->Broken(), boost::none, wanted).success);
    EXPECT_TRUE(handler->GetTransfer(this->Present(7), boost::none, wanted).success);
    EXPECT_EQ(data, IndexedBytes(7));
}

TYPED_TEST(HandlerContract, NothingOfTheCallersIsKept)
{
    const auto handler = this->Make();
    const auto captured = std::make_shared<int>(0);
    const auto accept = [captured](std::unique_ptr<Bytes>, void*) { return true; };
    const long before = captured.use_count();
    handler->GetTransfer(this->Present(100), accept, accept, nullptr);
    EXPECT_EQ(captured.use_count(), before);
}

TYPED_TEST(HandlerContract, HandlersOfSeveralThreadsDoNotDisturbEachOther)
{
    constexpr std::size_t turns = 5;
    std::array<std::size_t, 4> lengths = {1, 1000, 70001, LongLength};
    std::array<std::thread, 4> threads;
    std::array<std::size_t, 4> agreements = {};
    for (std::size_t i = 0; i < threads.size(); ++i) {
        const ITransferHandler::Configuration present = this->Present(lengths[i]);
        threads[i] = std::thread([present, length = lengths[i], &agreed = agreements[i]] {
            const Bytes expected = IndexedBytes(length);
            for (std::size_t turn = 0; turn < turns; ++turn) {
                Recorder recorder;
                const Result result = HandlerContract<TypeParam>::Streamed(present, recorder);
                agreed += result.success && recorder.data == expected ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(agreements, Each(turns));
}

TYPED_TEST(HandlerContract, AFactoryMakesAHandlerOfItsOwnForEachCall)
{
    typename TypeParam::Factory factory;
    const auto first = factory.Create();
    const auto second = factory.Create();
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_NE(first, second);
}

// The maker's wrapper library is not required to let an exception through.
template <typename Traits>
class HandlerContractOnExceptions : public HandlerContract<Traits>
{
};

using HandlersThatStandExceptions =
    ::testing::Types<FakeTraits, FileReaderTraits, CurlEasyHandlerTraits, KitTraits>;
TYPED_TEST_SUITE(HandlerContractOnExceptions, HandlersThatStandExceptions, NameOfHandler);

TYPED_TEST(HandlerContractOnExceptions, AnExceptionFromACallbackReachesTheCallerAndTheHandlerGoesOn)
{
    const auto raise = [](std::unique_ptr<Bytes>, void*) -> bool {
        throw std::runtime_error("from the client");
    };
    const auto handler = this->Make();
    const ITransferHandler::Configuration present = this->Present(100);
    EXPECT_THROW(handler->GetTransfer(present, raise, nullptr, nullptr), std::runtime_error);
    EXPECT_THROW(handler->GetTransfer(present, nullptr, raise, nullptr), std::runtime_error);
    Recorder recorder;
    EXPECT_TRUE(handler->GetTransfer(present, nullptr, recorder.Data(), nullptr).success);
    EXPECT_EQ(recorder.data, IndexedBytes(100));
}

}  // namespace
