#pragma once

#include <ITransferAgentManager.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

// The agent's protocol in its plainest form: the floor under what the agent adds to bare threads.
// One mutex, a table of jobs and one of threads, a thread for each job that is started under the
// mutex and detaches itself, a look-up of the job after each gap, callbacks copied for each
// notification and destroyed without the mutex, and the agent's log lines, composed in the agent's
// way. Plain transfers of a body, and segmented ones. It checks no request, survives no failure and
// cannot cancel.
class PlainManager : public VORTAN_MW::ITransferAgentManager
{
public:
    PlainManager() = default;
    PlainManager(const PlainManager&) = delete;
    PlainManager& operator=(const PlainManager&) = delete;
    // Wakes those that wait, and joins all.
    ~PlainManager() override;

    std::uint64_t RequestTransfer(std::unique_ptr<TransferConfiguration> request) override;
    bool CancelTransfer(std::uint64_t) override { return false; }

private:
    using Lock = std::unique_lock<std::mutex>;

    void m_Work(std::uint64_t handle);
    VORTAN_MW::ITransferHandler::Result m_Transfer(Lock& lock, std::uint64_t handle);
    VORTAN_MW::ITransferHandler::Result m_TransferSegmented(Lock& lock, std::uint64_t handle);
    // False if the job is gone.
    bool m_Notify(std::uint64_t handle, std::unique_ptr<VORTAN_MW::ITransferHandler::Bytes> header,
                  std::unique_ptr<VORTAN_MW::ITransferHandler::Bytes> data);
    void m_Pace(Lock& lock, std::uint64_t handle,
                const VORTAN_MW::ITransferHandler::Configuration& configuration);
    void m_Deliver(Lock& lock, std::uint64_t handle,
                   std::unique_ptr<VORTAN_MW::ITransferHandler::Bytes> data);
    void m_Complete(Lock& lock, std::uint64_t handle, VORTAN_MW::ITransferHandler::Result result);

    std::mutex m_Mutex;
    std::uint64_t m_Next = 0;
    bool m_Terminating = false;
    std::map<std::uint64_t, std::unique_ptr<TransferConfiguration>> m_Jobs;
    std::map<std::thread::id, std::thread> m_Threads;
    std::map<std::uint64_t, std::condition_variable> m_Sleepers;
};
