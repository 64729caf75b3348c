// The agent's protocol: one mutex, three tables, a flag, and everybody who meets there.
//
// Processes: clients, which request and cancel; workers, which do as much from inside callbacks;
// and the destructor, which may begin at any time. Each inline and proctype says which function of
// AsyncTransferAgentManager.cpp (or of its State) it mirrors, in the same order of steps. Steps are
// taken together (atomic, d_step) only where nobody who goes without the mutex could tell.
//
// Nothing repeats without end, so what is not blocked comes to its end: a worker, a wait, shutdown.
//
// verification/run checks this model in several sizes (configurations), and that mistakes seeded
// into it are found.

#ifndef REQUESTS
#define REQUESTS 2  // calls of RequestTransfer, by clients and callbacks together
#endif
#ifndef CANCELS
#define CANCELS 1   // calls of CancelTransfer, likewise
#endif
#ifndef LIMIT
#define LIMIT 2     // transfers in progress at a time
#endif
#ifndef CHUNKS
#define CHUNKS 1    // chunks of a segmented transfer, at most
#endif
#ifndef HANDLES
#define HANDLES REQUESTS  // different handles; with fewer than requests, they are used again
#endif
#ifndef PACED
#define PACED 1  // the kinds of transfer that there are
#endif
#ifndef PLAIN
#define PLAIN 1
#endif
#ifndef SEGMENTED
#define SEGMENTED 1
#endif
#ifndef WAITS_END
#define WAITS_END 1  // a wait may end by itself: its time is up, or it wakes spuriously
#endif

// The properties. Each is an assertion that names it; the names are false, and stand there for the
// report. Besides, no execution may end with a process still blocked (no deadlock).
bool JobsLeaveTable;              // no accepted job is left when the agent is gone
bool CompletesAtMostOnce;         // the complete callback
bool CompletesUnlessCancelled;    // exactly once, then
bool NoNotificationAfterRemoval;  // none begins; those that are under way are delivered
bool JoinedOrDetachedOnce;        // each worker, either by the destructor or by itself
bool PlacesAreGivenBack;          // a worker that has ended has no entry, unless it is to be joined
bool NoOversleep;                 // once shutdown has woken the sleepers, all waits are notified
bool WalksMeetNoWriter;           // nobody changes a table that the destructor walks unlocked
bool TablesNeedMutex;             // everybody else touches the tables with the mutex held
bool ClientCodeRunsUnlocked;      // callbacks, and the destruction of what a request owns
bool NothingAfterShutdown;        // no worker uses the agent, or runs client code, once it is gone

#define CHECK(property, condition) assert((condition) || property)

// Mistakes to be found, at most one at a time.
#define SleeperErasedAfterFlag 1      // a woken sleeper erases its entry during shutdown, too
#define SleeperFiledAfterFlag 2       // a worker registers its wait although the flag is set
#define WaitBeginsAfterFlag 3         // a worker waits although the flag is set
#define SleepersNotWoken 4            // the destructor sets the flag and goes straight to the joins
#define FlagSetWithoutMutex 5         // the destructor does not lock
#define JoinsWithMutexHeld 6          // the destructor does not unlock
#define RequestAcceptedAfterFlag 7    // RequestTransfer does not look at the flag
#define ThreadFiledAfterUnlock 8      // RequestTransfer unlocks too early
#define NoLookupAfterTransfer 9       // the worker notifies with what it read before the gap
#define NoLookupBeforeCompletion 10   // the same, for the complete callback
#define CompletionTakenAfterCall 11   // the complete callback is in the job while it is called
#define CompletionSkippedAtShutdown 12
#define CallbackWithMutexHeld 13      // the complete callback
#define WorkerErasedUndetached 14     // the entry is destroyed with a thread to be joined in it
#define WorkerKeepsEntry 15           // neither detached nor erased
#define FlagReadBeforeCompletion 16   // the worker decides to detach itself before the gap
#define JobKeptAtShutdown 17          // the worker leaves its job to the destructor as well
#define ClientPartsKept 18            // callbacks and factory stay in the job until it is destroyed

#ifndef FAULT
#define FAULT 0
#endif
#define SEEDED(fault) (FAULT == fault)

// Situations that must be possible, or else the properties would say nothing about them. The one
// that is sought ends the search.
#define CancelDuringWait 101
#define CancelInsideOwnCallback 102
#define RequestInsideCallback 103
#define DataNotificationUnderWayAtRemoval 104
#define CompletionUnderWayAtRemoval 105
#define ChunkRefusedAfterCancel 106
#define CancelledBeforeWorkerBegins 107
#define SleeperWokenByShutdown 108
#define SleeperLeftInPlace 109
#define PacingReachedAfterFlag 110
#define WaitEndsByItself 111
#define NotificationMeetsNoWaiter 112
#define RequestRefusedAtShutdown 113
#define RequestRefusedInsideCallbackAtShutdown 114
#define RequestRefusedAtLimit 115
#define WorkerDetachesItself 116
#define WorkerJoined 117
#define HandleReused 118
#define SecondSleeperRefused 119

#ifndef SOUGHT
#define SOUGHT 0
#endif
#define SITUATION(name) assert(name != SOUGHT)

#define NONE 255

// The agent's members (State).
byte owner = NONE;  // the process that holds the mutex

typedef Job {
    bool filed;
    byte request;      // which request this is, for the observer
    bool clientParts;  // the callbacks and the factory are still there
}
Job jobs[HANDLES];
byte nextHandle;

typedef Thread {
    bool filed;
    bool joinable;
}
Thread threads[REQUESTS];  // a worker's identifier is the number of its request
byte threadCount;

typedef Sleeper {
    bool filed;
    bool waiting;   // the condition variable: its worker waits,
    bool notified;  // and has been notified
}
Sleeper sleepers[HANDLES];

bool terminating;

// What the system knows: which threads have come to their end.
bool ended[REQUESTS];

// What the observer notes.
byte accepted;
bool cancelled[REQUESTS];
bool removed[REQUESTS];
bool completed[REQUESTS];
bool disposed[REQUESTS];   // joined or detached
bool shared[REQUESTS];     // has, or had, its handle together with another
byte users[HANDLES];       // workers that have not ended, by their handle
bool dataUnderWay[REQUESTS];
bool completionUnderWay[REQUESTS];
bool walking;  // the destructor is in its walks of sleepers and threads
bool sleepersWoken;
bool destroyed;

// The calls that are left.
byte requestsLeft = REQUESTS;
byte cancelsLeft = CANCELS;

// The mutex (State::MutexScope, State::MutexGap)

inline Lock()
{
    d_step {
        owner == NONE -> owner = _pid;
        CHECK(NothingAfterShutdown, !destroyed)
    }
}

inline Unlock()
{
    d_step {
        CHECK(TablesNeedMutex, owner == _pid);
        owner = NONE
    }
}

// The tables

inline ChangeSleepers()
{
    CHECK(TablesNeedMutex, owner == _pid);
    CHECK(WalksMeetNoWriter, !walking)
}

// The destructor's join changes the entry: nobody else may as much as read the table then.
inline TouchThreads()
{
    CHECK(TablesNeedMutex, owner == _pid);
    CHECK(WalksMeetNoWriter, !walking)
}

// What happens to a job that leaves the table, by m_RemoveJob or at the end of its worker.
inline EraseJob(handle)
{
    CHECK(TablesNeedMutex, owner == _pid);
    removed[jobs[handle].request] = true;
    jobs[handle].filed = false;
    jobs[handle].clientParts = false;
    jobs[handle].request = 0
}

// std::condition_variable::notify_one
inline NotifyOne(handle)
{
    if
    :: sleepers[handle].waiting -> sleepers[handle].notified = true
    :: else -> SITUATION(NotificationMeetsNoWaiter)
    fi
}

// What clients and callbacks call. own is the caller's request, or NONE on a client's thread. A
// call is one step (OneCall): all of it happens under the mutex, so nobody can tell.

// RequestTransfer, m_CreateJob
inline RequestTransfer(own)
{
    Lock();
    if
    :: terminating && !SEEDED(RequestAcceptedAfterFlag) ->
        SITUATION(RequestRefusedAtShutdown);
        if
        :: own != NONE -> SITUATION(RequestRefusedInsideCallbackAtShutdown)
        :: else
        fi
    :: else ->
        TouchThreads();
        if
        :: threadCount >= LIMIT -> SITUATION(RequestRefusedAtLimit)
        :: else ->
            if
            :: jobs[nextHandle].filed ->
                SITUATION(HandleReused);
                shared[jobs[nextHandle].request] = true;
                shared[accepted] = true
            :: else -> shared[accepted] = users[nextHandle] > 0
            fi;
            users[nextHandle]++;
            jobs[nextHandle].filed = true;
            jobs[nextHandle].request = accepted;
            jobs[nextHandle].clientParts = true;
            run Worker(nextHandle, accepted);
            nextHandle = (nextHandle + 1) % HANDLES;
            if
            :: own != NONE -> SITUATION(RequestInsideCallback)
            :: else
            fi;
            if
            :: SEEDED(ThreadFiledAfterUnlock) -> Unlock()
            :: else
            fi;
            TouchThreads();
            threads[accepted].filed = true;
            threads[accepted].joinable = true;
            threadCount++;
            accepted++
        fi
    fi;
    Unlock()
}

// CancelTransfer, m_RemoveJob. What the request owned is destroyed by the caller, after this.
inline CancelTransfer(handle, own)
{
    Lock();
    if
    :: sleepers[handle].filed ->
        if
        :: sleepers[handle].waiting && jobs[handle].filed -> SITUATION(CancelDuringWait)
        :: else
        fi;
        NotifyOne(handle)
    :: else
    fi;
    if
    :: jobs[handle].filed ->
        if
        :: own == jobs[handle].request -> SITUATION(CancelInsideOwnCallback)
        :: own != jobs[handle].request && dataUnderWay[jobs[handle].request] ->
            SITUATION(DataNotificationUnderWayAtRemoval)
        :: own != jobs[handle].request && completionUnderWay[jobs[handle].request] ->
            SITUATION(CompletionUnderWayAtRemoval)
        :: else
        fi;
        cancelled[jobs[handle].request] = true;
        EraseJob(handle)
    :: else
    fi;
    Unlock()
}

// One of the calls that are left, with any handle. To wait for the mutex is like calling later.
// Nobody calls an agent that is gone.
inline OneCall(own)
{
    if
    :: atomic {
            requestsLeft > 0 && owner == NONE && !destroyed -> requestsLeft--;
            RequestTransfer(own)
        }
    :: atomic {
            cancelsLeft > 0 && accepted > 0 && owner == NONE && !destroyed -> cancelsLeft--;
            select(target : 0 .. HANDLES - 1);
            CancelTransfer(target, own);
            target = 0
        }
    fi
}

// A callback, and the destruction of what a request owns beside it
inline ClientCode()
{
    d_step {
        CHECK(ClientCodeRunsUnlocked, owner != _pid);
        CHECK(NothingAfterShutdown, !destroyed)
    }
    do
    :: OneCall(self)
    :: break
    od
}

// All client threads: as each call is one step, one process stands for any number of them.
active proctype Clients()
{
    byte target;
end:
    do
    :: OneCall(NONE)
    od
}

// The worker. self is its identifier and its request; handle is all that the code knows.

// m_NotifyClientData with the mutex held. The overload that takes it by itself does not take it again
// after the client's call; a refusal leaves it held here in either case.
inline NotifyClientData(locksAgain)
{
    atomic {
        goOn = jobs[handle].filed || SEEDED(NoLookupAfterTransfer);
        if
        :: jobs[handle].filed ->
            request = jobs[handle].request;
            calls = jobs[handle].clientParts
        :: !jobs[handle].filed && SEEDED(NoLookupAfterTransfer) ->
            request = self;
            calls = true
        :: else
        fi;
        if
        :: goOn ->
            CHECK(NoNotificationAfterRemoval, !removed[request]);
            dataUnderWay[request] = true;
            Unlock()
        :: else
        fi
    }
    if
    :: goOn ->
        if
        :: calls -> ClientCode()
        :: else
        fi;
        atomic {
            if
            :: locksAgain -> Lock()
            :: else
            fi;
            dataUnderWay[request] = false;
            request = 0;
            calls = false
        }
    :: else
    fi
}

// m_NotifyClientComplete
inline NotifyClientComplete()
{
    atomic {
        leaves = SEEDED(FlagReadBeforeCompletion) && !terminating;
        goOn = (jobs[handle].filed || SEEDED(NoLookupBeforeCompletion)) &&
            !(terminating && SEEDED(CompletionSkippedAtShutdown));
        if
        :: jobs[handle].filed ->
            request = jobs[handle].request;
            calls = jobs[handle].clientParts;
            jobs[handle].clientParts = SEEDED(CompletionTakenAfterCall) || SEEDED(ClientPartsKept)
        :: !jobs[handle].filed && SEEDED(NoLookupBeforeCompletion) ->
            request = self;
            calls = true
        :: else
        fi;
        if
        :: goOn ->
            CHECK(NoNotificationAfterRemoval, !removed[request]);
            completionUnderWay[request] = true;
            if
            :: !SEEDED(CallbackWithMutexHeld) -> Unlock()
            :: else
            fi
        :: else
        fi
    }
    if
    :: goOn ->
        if
        :: calls ->
            d_step {
                CHECK(CompletesAtMostOnce, !completed[request]);
                completed[request] = true
            }
            ClientCode()
        :: else
        fi;
        atomic {
            Lock();
            jobs[handle].clientParts =
                jobs[handle].clientParts && !SEEDED(CompletionTakenAfterCall);
            completionUnderWay[request] = false;
            request = 0;
            calls = false;
            goOn = false
        }
    :: else
    fi
}

// m_PerformDataTransfer, from its pacing step on: State::AddSleeper, Sleep, RemoveSleeper
inline Pace()
{
    if
    :: terminating && !SEEDED(SleeperFiledAfterFlag) ->
        SITUATION(PacingReachedAfterFlag)
    :: else ->
        if
        :: sleepers[handle].filed ->
            SITUATION(SecondSleeperRefused);
            goto performed
        :: else ->
            d_step {
                ChangeSleepers();
                sleepers[handle].filed = true
            }
        fi
    fi;
    if
    :: terminating && !SEEDED(WaitBeginsAfterFlag)
    :: else ->
        d_step {  // std::condition_variable::wait_for
            CHECK(NoOversleep, !sleepersWoken);
            sleepers[handle].waiting = true;
            owner = NONE
        }
        if
        :: sleepers[handle].notified
        :: WAITS_END -> SITUATION(WaitEndsByItself)
        fi;
        d_step {
            sleepers[handle].waiting = false;
            sleepers[handle].notified = false
        }
        Lock()
    fi;
    if
    :: !terminating || SEEDED(SleeperErasedAfterFlag) ->
        d_step {
            ChangeSleepers();
            sleepers[handle].filed = false
        }
    :: else -> SITUATION(SleeperLeftInPlace)
    fi
}

// m_PerformDataTransfer. A transfer that failed is not notified if both data callbacks are set.
inline PerformDataTransfer(paced)
{
    if
    :: paced -> Pace()
    :: else
    fi;
    Unlock();
    Lock();
    if
    :: NotifyClientData(true)
    :: skip
    fi
}

// m_PerformDataTransferSegmented: a handler that pushes chunks through s_CurlHeaderCb and
// s_CurlBodyCb, and stops when it is refused or fails
inline PerformDataTransferSegmented()
{
    Unlock();
    do
    :: chunks < CHUNKS ->
        chunks++;
        Lock();
        NotifyClientData(false);
        if
        :: goOn
        :: else ->
            SITUATION(ChunkRefusedAfterCancel);
            Unlock();
            break
        fi
    :: break
    od;
    chunks = 0;
    Lock()
}

// m_PerformTransferThread, once it has completed: detach and erase, which is to destroy a
// ScopedExceptionSafeThread. That would join a thread that is still joinable: here, itself.
inline TakeLeave()
{
    if
    :: !terminating || SEEDED(FlagReadBeforeCompletion) && leaves ->
        d_step {
            TouchThreads();
            CHECK(JoinedOrDetachedOnce, threads[self].filed);
            if
            :: !SEEDED(WorkerErasedUndetached) && !SEEDED(WorkerKeepsEntry) ->
                CHECK(JoinedOrDetachedOnce, threads[self].joinable && !disposed[self]);
                threads[self].joinable = false;
                disposed[self] = true;
                SITUATION(WorkerDetachesItself)
            :: else
            fi;
            if
            :: !SEEDED(WorkerKeepsEntry) ->
                CHECK(JoinedOrDetachedOnce, !threads[self].joinable);
                threads[self].filed = false;
                threadCount--
            :: else
            fi
        }
    :: else
    fi
}

// m_PerformTransferThread. What kind of transfer it is, is chosen when the worker first asks.
proctype Worker(byte handle; byte self)
{
    byte request, chunks, target;
    bool goOn, calls, leaves;

    Lock();
    if
    :: jobs[handle].filed && jobs[handle].clientParts ->
        if
        :: PACED -> PerformDataTransfer(true)
        :: PLAIN -> PerformDataTransfer(false)
        :: SEGMENTED -> PerformDataTransferSegmented()
        fi
    :: jobs[handle].filed && !jobs[handle].clientParts  // m_CreateHandler returns no handler
    :: !jobs[handle].filed -> SITUATION(CancelledBeforeWorkerBegins)
    fi;
performed:
    NotifyClientComplete();
    TakeLeave();
    atomic {
        if
        :: jobs[handle].filed && !(terminating && SEEDED(JobKeptAtShutdown)) ->
            calls = jobs[handle].clientParts && !shared[jobs[handle].request];
            EraseJob(handle)
        :: else
        fi;
        Unlock()
    }
    // The removed job is destroyed here; of the client's, only a shared handle leaves it anything.
    d_step {
        CHECK(NothingAfterShutdown, !calls || !destroyed);
        calls = false;
        CHECK(PlacesAreGivenBack, !threads[self].filed || terminating);
        CHECK(JobsLeaveTable, !jobs[handle].filed || jobs[handle].request != self);
        CHECK(CompletesUnlessCancelled, completed[self] || cancelled[self] || shared[self]);
        completed[self] = false;
        cancelled[self] = false;
        removed[self] = false;
        shared[self] = false;
        users[handle]--;
        ended[self] = true
    }
}

// ~AsyncTransferAgentManager

inline WakeSleepers()
{
    do
    :: atomic {
            at < HANDLES ->
            if
            :: sleepers[at].filed ->
                if
                :: sleepers[at].waiting -> SITUATION(SleeperWokenByShutdown)
                :: else
                fi;
                NotifyOne(at)
            :: else
            fi;
            at++
        }
    :: else -> break
    od;
    at = 0
}

inline JoinThreads()
{
    do
    :: atomic {
            at < REQUESTS ->
            if
            :: threads[at].filed && threads[at].joinable ->
                ended[at];
                CHECK(JoinedOrDetachedOnce, !disposed[at]);
                disposed[at] = true;
                threads[at].joinable = false;
                SITUATION(WorkerJoined)
            :: else
            fi;
            at++
        }
    :: else -> break
    od;
    at = 0
}

inline ExpectWaitsAreNotified()
{
    do
    :: at < HANDLES ->
        CHECK(NoOversleep, !sleepers[at].waiting || sleepers[at].notified);
        at++
    :: else -> break
    od;
    at = 0
}

inline ExpectAllIsDone()
{
    do
    :: at < HANDLES ->
        CHECK(JobsLeaveTable, !jobs[at].filed);
        CHECK(NothingAfterShutdown, !sleepers[at].waiting);
        at++
    :: else -> break
    od;
    at = 0;
    do
    :: at < accepted ->
        CHECK(JoinedOrDetachedOnce, disposed[at] && !threads[at].joinable);
        at++
    :: else -> break
    od;
    at = 0
}

active proctype Destructor()
{
    byte at;

    if
    :: !SEEDED(FlagSetWithoutMutex) -> Lock()
    :: else
    fi;
    d_step {
        terminating = true;
        walking = true
    }
    if
    :: !SEEDED(FlagSetWithoutMutex) && !SEEDED(JoinsWithMutexHeld) -> Unlock()
    :: else
    fi;
    if
    :: !SEEDED(SleepersNotWoken) -> WakeSleepers()
    :: else
    fi;
    d_step {
        ExpectWaitsAreNotified();
        sleepersWoken = true
    }
    JoinThreads();
    d_step {
        walking = false;
        ExpectAllIsDone();
        destroyed = true
    }
}
