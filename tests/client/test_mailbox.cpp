#include <gtest/gtest.h>
#include <pthread.h>

#include <future>
#include <thread>

#include "transfer/Mailbox.h"

using namespace VORTAN_TRANSFER;

namespace {

// Thread-specific data, as libraries keep it.
struct LibraryData
{
    std::shared_ptr<Mailbox> mailbox;
    std::size_t eventsSoFar = 0;
};

void Free(void* data)
{
    auto* const library = static_cast<LibraryData*>(data);
    library->eventsSoFar += library->mailbox->ReceiveAtOnce().size();
}

TEST(Mailbox, HearsOfAThreadWhenLibrariesHaveFreedTheirData)
{
    const auto mailbox = std::make_shared<Mailbox>();
    LibraryData before{mailbox};
    LibraryData after{mailbox};
    pthread_key_t keyBefore = 0;
    pthread_key_t keyAfter = 0;
    ASSERT_EQ(pthread_key_create(&keyBefore, &Free), 0);
    std::promise<void> isToPost;
    std::thread thread([&] {
        pthread_setspecific(keyBefore, &before);
        Mailbox::PostAtThreadEnd(mailbox);
        pthread_key_create(&keyAfter, &Free);
        pthread_setspecific(keyAfter, &after);
        isToPost.set_value();
    });
    thread.detach();
    isToPost.get_future().wait();
    mailbox->WaitForThreads();
    pthread_key_delete(keyBefore);
    pthread_key_delete(keyAfter);
    EXPECT_EQ(before.eventsSoFar, 0U);
    EXPECT_EQ(after.eventsSoFar, 0U);
    const std::vector<Event> events = mailbox->ReceiveAtOnce();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events.front().kind, Event::Kind::WorkerEnded);
}

TEST(Mailbox, WaitsForNoThreadThatHasNothingToPost)
{
    Mailbox mailbox;
    mailbox.WaitForThreads();
    EXPECT_TRUE(mailbox.ReceiveAtOnce().empty());
}

}  // namespace
