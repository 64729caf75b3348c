#pragma once

#include <functional>
#include <memory>

namespace VORTAN_MW {
namespace KIT {

// Notices that a worker of the agent exits. The agent tells nobody when the place of a transfer is
// free again, and it is free later than all that the agent calls or destroys. But a worker gives
// its place back before it returns, and its thread's own data is destroyed after that.
class WorkerExit
{
public:
    // What exiting workers are told to.
    class Listener
    {
    public:
        virtual void OnWorkerExit() = 0;

    protected:
        ~Listener() = default;
    };

    // Before the first call of Watch. Throws std::system_error if the process has used up its
    // thread-specific keys.
    static void Prepare();

    // Has the listener told when the calling thread exits; it lives on until then. A thread has
    // one listener. Throws std::bad_alloc.
    static void Watch(std::shared_ptr<Listener> listener);
};

}  // namespace KIT
}  // namespace VORTAN_MW
