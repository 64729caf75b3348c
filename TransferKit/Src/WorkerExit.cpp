#include "WorkerExit.h"

#include <pthread.h>

#include <new>
#include <system_error>
#include <utility>

namespace VORTAN_MW {
namespace KIT {

namespace {

using ListenerPtr = std::shared_ptr<WorkerExit::Listener>;

extern "C" void TellOfExit(void* value)
{
    const std::unique_ptr<ListenerPtr> listener(static_cast<ListenerPtr*>(value));
    (*listener)->OnWorkerExit();
}

// Never deleted: a worker may exit after everything else.
pthread_key_t Key()
{
    static const pthread_key_t key = [] {
        pthread_key_t made = 0;
        const int error = pthread_key_create(&made, &TellOfExit);
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), "pthread_key_create");
        }
        return made;
    }();
    return key;
}

}  // namespace

void WorkerExit::Prepare()
{
    Key();
}

void WorkerExit::Watch(ListenerPtr listener)
{
    auto value = std::make_unique<ListenerPtr>(std::move(listener));
    if (pthread_setspecific(Key(), value.get()) != 0) {
        throw std::bad_alloc();
    }
    (void)value.release();  // the key's destructor owns it
}

}  // namespace KIT
}  // namespace VORTAN_MW
