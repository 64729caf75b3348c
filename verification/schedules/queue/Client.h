#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Explorer.h"
#include "QueueCore.h"

// A client of the queue, for scenarios. It adds tasks, notes what becomes of them, and expects the
// queue to keep its promises: wherever the queue calls a task, and at the end.

class Client;

// What a ticket stands for, and what the client knows of it.
struct Task
{
    Task(Client& ownClient, std::string ownName) : client(ownClient), name(std::move(ownName)) {}

    Client& client;
    const std::string name;
    VORTAN_MW::KIT::Priority priority = VORTAN_MW::KIT::Priority::Normal;
    std::chrono::milliseconds delay{0};  // before it may begin
    int retries = 0;                     // after a second each
    bool isValid = true;                 // as a request to the agent
    bool findsNoThread = false;          // a thread may fail to start, again and again

    // What the client's code does in each place.
    std::function<void()> inPerform;
    std::function<void()> inEnd;

    VORTAN_MW::KIT::Ticket ticket = 0;
    EXPLORER::Moment addedAt;
    bool accepted = false;
    bool refused = false;
    int works = 0;  // that are not destroyed
    bool described = false;
    int performs = 0;
    bool isPerforming = false;
    bool isDone = false;  // performed, without need of a further attempt
    EXPLORER::Moment performedAt;
    std::chrono::steady_clock::time_point mayPerformAt;
    bool stopped = false;
    int cancels = 0;               // that have begun
    bool cancelled = false;        // a cancel has returned true
    bool mayStillPerform = false;  // although it is cancelled
    bool endsByItself = false;     // before the queue is closed, or all are cancelled
    int ends = 0;
    VORTAN_MW::KIT::Category reason = VORTAN_MW::KIT::Category::Success;
    EXPLORER::Moment endedAt;
};

class Client
{
public:
    static constexpr int MostPerforming = 4;

    Client();
    // Lets go of the queue, which is closed, and checks what must hold then.
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    Task& New();
    // Returns whether the queue accepted it.
    bool Add(Task& task);
    Task& AddNew();
    // Returns what the queue does.
    bool Cancel(Task& task);
    void CancelAll();
    // Closes the queue, and checks what must hold then.
    void Close();

    // Called where the queue calls a task.
    void Describe(Task& task);
    std::optional<std::chrono::milliseconds> Perform(Task& task);
    void Stop(Task& task);
    void End(Task& task, VORTAN_MW::KIT::Category reason);
    // Called for each line of the agent's log.
    void Log(const std::string& text);

    int clientThreads = 0;  // that were not joined
    bool isMade = false;    // or the queue's thread could not be started
    std::string order;      // the names of the tasks in the order in which they begin

private:
    void m_Enter(const Task& task, const char* where) const;
    void m_NoteCancelled(Task& task) const;
    void m_CheckReason(const Task& task) const;
    void m_CheckEnd(const Task& task) const;

    std::shared_ptr<VORTAN_MW::KIT::QueueCore> m_Queue;
    std::vector<std::unique_ptr<Task>> m_Tasks;
    std::vector<char> m_Cancels;  // by thread: it is inside a call that cancels
    int m_Performing = 0;
    int m_CancelsOfAll = 0;  // that have begun; closing is one, too
    bool m_Closes = false;
    bool m_Closed = false;
};
