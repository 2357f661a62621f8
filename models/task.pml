// Task control: callers, the job, the worker, notices, the pool's thread and the pool's end.
// Stands for src/concurrency/TnRobotTask.cpp and TnRobotTaskPool.cpp; the name behind each step is
// the function of them that makes it. One step is one access to what another thread can see.
//
// Bounds (scripts/models.sh gives them):
//   TASKS         tasks, 1 or 2; the job of task 0 also starts, stops and awaits task 1
//   CALLERS OPS   callers, and how many calls each makes before it lets go
//   JOBOPS        how many things a job does in all its runs
//   RECYCLE       callers take their task from the pool, ROUNDS times; otherwise they share what is there
//   ENDLESS       runners are never done, so that only Stop ends a run
//   SCRIPT        two tasks: caller 0 starts, stops and starts task 0, may stop it, and releases it; the job of
//                 its second run starts task 1 and awaits the end of that, which the pool's thread brings about
//   OWNER_LAST    the pool goes after the callers; otherwise at any moment
//   MEMORY        notices that find no memory
//
// Checked: nothing is touched after its end (TOUCH, POOL); an idle task has one place on the list, no
// holder and no worker in its runner; each run that a Start began has one Init, at least one Execute (one,
// unless ENDLESS) and one ClearResource; a notice stops no run but its own; no notice is left behind; in
// the end every task is destroyed and every thread joined. Who waits for ever shows as an invalid end
// state, who runs for ever as a cycle without "ends" (with weak fairness).
//
// Polling is written as waiting for what the poll asks for: nothing else changes while it sleeps.
// WITHOUT_... takes one mend out; scripts/models.sh says which property must fail then.

#ifndef TASKS
#define TASKS 1
#endif
#ifndef CALLERS
#define CALLERS 2
#endif
#ifndef OPS
#define OPS 1
#endif
#ifndef JOBOPS
#define JOBOPS 2
#endif
#ifndef ROUNDS
#define ROUNDS 1
#endif

#define NOBODY 255
mtype = { NOT_STARTED, STOPPED, RUNNING };

// CTnRobotTask
byte refs[TASKS];                    // m_nRefCount
bool event[TASKS];                   // m_pRunEvent is set
byte runs[TASKS];                    // m_nRun
byte begun[TASKS];                   // m_nBegun
mtype state[TASKS];                  // m_state
bool worker[TASKS];                  // m_pWorker
bool parent[TASKS];                  // m_pParent
byte leftTo[TASKS];                  // m_nLeft
bool going[TASKS];                   // m_bGoing
bool quit[TASKS];                    // m_bExit
byte control[TASKS];                 // m_controlMutex: its owner's number + 1
byte parentLock[TASKS];              // m_parentMutex
bool alive[TASKS];                   // between construction and destruction
bool gone[TASKS];                    // the worker's thread has ended
bool left[TASKS];                    // in Worker's list of those that have left

// CTnRobotTaskPool
byte lists;                          // m_mutex
byte notifyLock;                     // m_notifyMutex
bool idle[TASKS];                    // IsIdle
byte places[TASKS];                  // on m_idleTasks
bool listed[TASKS];                  // in m_allTasks
bool closed;                         // m_bNoticesClosed
bool hasNotify;                      // m_bHasNotify
bool lent;                           // m_pNotifyQueue is null
chan queue = [4] of { byte, byte };  // what it points to: task, run
chan taken = [4] of { byte, byte };  // the pool's thread's own
bool exitPool;                       // m_pExitEvent
bool poolThreadGone;
bool poolAlive = true;

// The runner, and what the application knows.
bool executed[TASKS];                // CTnRobotTaskRunner::m_bExecuted
byte inits[TASKS];
byte clears[TASKS];
byte executes[TASKS];
byte jobOps[TASKS];
byte kept[TASKS];                    // references that the job has added
byte handed[TASKS];                  // and handed out
byte offered[TASKS];                 // references of callers that the job may release
byte callersDone;
byte takersDone;
bool ownerDone;
byte memoryFails;
bool finished;

#define TOUCH(t) assert(alive[t])
#define POOL assert(poolAlive)
#define LOCK(lock) atomic { (lock == 0) -> lock = _pid + 1 }
#define UNLOCK(lock) lock = 0
#define LAST(t) (refs[t] == 1 || (refs[t] == 2 && parent[t]))
#ifdef WITHOUT_SELF_TEST
#define ON_WORKER(t) false
#else
#define ON_WORKER(t) (me == t)
#endif
#ifdef WITHOUT_CONTROL_LOCK
#define LOCK_CONTROL(t) skip
#define UNLOCK_CONTROL(t) skip
#else
#define LOCK_CONTROL(t) atomic { (control[t] == 0) -> TOUCH(t); control[t] = _pid + 1 }
#define UNLOCK_CONTROL(t) atomic { TOUCH(t); control[t] = 0 }
#endif
#define LOCK_PARENT(t) atomic { (parentLock[t] == 0) -> TOUCH(t); parentLock[t] = _pid + 1 }
#define UNLOCK_PARENT(t) atomic { TOUCH(t); parentLock[t] = 0 }
// Every process has these: what it reads, and whose worker it is.
#define LOCALS byte n; byte before; bool last; bool ok; bool p; byte me = NOBODY

// _DropUnlessLast: the exchange fails when the count has changed since it was read.
inline DropUnlessLast(t) {
    do
    :: atomic { TOUCH(t); n = refs[t] };                                        // ChangeCountIf: load
       atomic { TOUCH(t); last = (n == 1 || (n == 2 && parent[t])) };           // _IsLastHolder
       if
       :: last -> break
       :: else ->
          atomic {
              TOUCH(t);                                                         // ChangeCountIf: exchange
              if
              :: refs[t] == n -> refs[t] = n - 1; n = 0; break
              :: else
              fi
          }
       fi
    od
}

// _StopLocked. The event is looked at before the state, in every step.
inline StopLocked(t) {
#ifdef WITHOUT_STATE_WAIT
    if
    :: atomic { event[t] -> TOUCH(t); event[t] = false }; (state[t] != RUNNING)
    :: atomic { !event[t] -> TOUCH(t) }
    fi
#else
    do
    :: atomic { TOUCH(t); event[t] = false };                                   // ResetEvent
       atomic { (state[t] != RUNNING || event[t]) -> TOUCH(t); ok = (state[t] != RUNNING) };
       if
       :: ok -> break                                                           // !IsInRunner
       :: else
       fi
    od;
    ok = false
#endif
}

// Stop
inline Stop(t) {
    if
    :: ON_WORKER(t) -> atomic { TOUCH(t); event[t] = false }
    :: else -> LOCK_CONTROL(t); StopLocked(t); UNLOCK_CONTROL(t)
    fi
}

// ~CTnRobotTask, and ~Worker or Worker::Leave
inline Destroy(t) {
    if
    :: worker[t] ->
       Stop(t);
       atomic { TOUCH(t); quit[t] = true };
       if
       :: me == t ->
          left[t] = true                                                        // Leave, m_pRunner.reset
       :: else -> (gone[t])                                                     // join
       fi
    :: else
    fi;
    atomic { TOUCH(t); assert(control[t] == 0 && parentLock[t] == 0); alive[t] = false; n = 0 }
}

// CTnRobotTaskPool::RecoveryTask
inline Recover(t) {
    Stop(t);
    if
    :: atomic { state[t] == RUNNING -> TOUCH(t) }                               // IsInRunner: left to its holder
    :: atomic { state[t] != RUNNING -> TOUCH(t) };
       atomic {
           (lists == 0) -> POOL;
           lists = _pid + 1;
           if
           :: idle[t]
           :: else ->
              idle[t] = true;                                                   // PushBack, SetIdle
              places[t]++;
              assert(places[t] == 1);
              assert(refs[t] == 1);
              assert(state[t] != RUNNING)
           fi
       };
       atomic { POOL; UNLOCK(lists) }
    fi
}

// _FollowFall
inline FollowFall(t) {
    if
    :: atomic { before == 2 && p -> POOL }; Recover(t)
    :: before == 1 -> Destroy(t)
    :: else
    fi
}

// _GiveUp: the caller holds m_controlMutex.
inline GiveUp(t, leftNow) {
    atomic {
        (parentLock[t] == 0) -> TOUCH(t);
        parentLock[t] = _pid + 1;
        going[t] = false;
        leftTo[t] = leftTo[t] - leftNow;
        before = refs[t];                                                       // fetch_sub
        refs[t] = before - 1;
        p = parent[t]
    };
    UNLOCK_PARENT(t);
    UNLOCK_CONTROL(t);
    FollowFall(t)
}

// _LeaveToWorker
inline LeaveToWorker(t) {
    atomic {
        (parentLock[t] == 0) -> TOUCH(t);
        ok = LAST(t);                                                           // _IsLastHolder
        if
        :: ok -> leftTo[t]++
        :: else
        fi
    };
    if
    :: ok -> atomic { TOUCH(t); event[t] = false }                              // ResetEvent
    :: else
    fi
}

// Release
inline Release(t) {
#ifdef WITHOUT_COUNT_HELD
    // The count falls first, and the task is stopped by RecoveryTask and by the destructor.
    atomic { TOUCH(t); before = refs[t]; refs[t] = before - 1; p = parent[t] };
    FollowFall(t);
#else
    do
    :: DropUnlessLast(t);
       if
       :: !last -> break
       :: last && !ON_WORKER(t) ->                                              // _StopAndGiveBack
          atomic { TOUCH(t); going[t] = true };
          LOCK_CONTROL(t);
          StopLocked(t);
          GiveUp(t, 0);
          break
       :: last && ON_WORKER(t) ->
          LeaveToWorker(t);
          if
          :: ok -> break
          :: else
          fi
       fi
    od;
#endif
    atomic { n = 0; before = 0; last = false; ok = false; p = false }
}

// ReleaseWithoutWaiting, for the pool's thread
inline ReleaseWithoutWaiting(t) {
#ifdef WITHOUT_LEAVING
    Release(t);
#else
    do
    :: DropUnlessLast(t);
       if
       :: !last -> break
       :: else ->
          if
          :: atomic { control[t] != 0 && LAST(t) -> TOUCH(t) };                 // PollSleep
             (control[t] == 0 || !LAST(t))
          :: atomic { control[t] != 0 && !LAST(t) -> TOUCH(t) }
          :: atomic { control[t] == 0 -> TOUCH(t); control[t] = _pid + 1 };     // try_to_lock
             if
             :: atomic { state[t] != RUNNING -> TOUCH(t) }; GiveUp(t, 0); break
             :: atomic { state[t] == RUNNING -> TOUCH(t) };
                LeaveToWorker(t);
                UNLOCK_CONTROL(t);
                if
                :: ok -> break
                :: else
                fi
             fi
          fi
       fi
    od;
#endif
    atomic { n = 0; before = 0; last = false; ok = false; p = false }
}

// Start. "ok" is its answer.
inline Start(t) {
    if
    :: atomic { event[t] -> TOUCH(t); ok = true }                               // IsRunning
    :: atomic { !event[t] -> TOUCH(t) };
       if
       :: ON_WORKER(t) -> ok = false
       :: else ->
          LOCK_CONTROL(t);
#ifndef WITHOUT_START_WAIT
          atomic { (state[t] != RUNNING || event[t]) -> TOUCH(t); ok = event[t] };  // PollUntil
#endif
#if defined(WITHOUT_START_WAIT) || defined(WITHOUT_ONE_LOOK)
          atomic { TOUCH(t); ok = event[t] };                                   // IsRunning once more
#endif
          if
          :: ok
          :: else ->
             if
             :: !worker[t] ->
                atomic { TOUCH(t); state[t] = STOPPED; worker[t] = true; run Worker(t) }  // _StartWorker
             :: else
             fi;
             atomic { TOUCH(t); runs[t]++; n = runs[t] };                       // _BeginRun
             atomic { TOUCH(t); event[t] = true };
             atomic { (begun[t] == n) -> TOUCH(t); assert(inits[t] == n); n = 0 }
          fi;
          UNLOCK_CONTROL(t);
          ok = true
       fi
    fi;
    ok = false
}

// StopRun
inline StopRun(t, nRun) {
    do
    :: atomic { TOUCH(t); ok = (runs[t] == nRun && event[t]) };
#ifdef WITHOUT_RUN_NUMBER
       ok = event[t];
#endif
       if
#ifndef WITHOUT_RUN_LOOK
       :: !ok -> break
       :: ok && control[t] != 0 -> (control[t] == 0 || runs[t] != nRun || !event[t])  // PollSleep
       :: atomic { ok && control[t] == 0 -> TOUCH(t); control[t] = _pid + 1 };  // try_to_lock
#else
       :: LOCK_CONTROL(t);
#endif
          atomic { TOUCH(t); ok = (runs[t] == nRun && event[t]) };
#ifdef WITHOUT_RUN_NUMBER
          ok = event[t];
#endif
          if
          :: ok -> assert(runs[t] == nRun); StopLocked(t)
          :: else
          fi;
          UNLOCK_CONTROL(t)
#ifdef WITHOUT_RUN_LOOK
          ; break
#endif
       fi
    od;
    ok = false
}

// _MindLeft with _DropLeftIfHeld
inline MindLeft(t) {
    atomic {
        (parentLock[t] == 0) -> TOUCH(t);
        ok = (refs[t] > leftTo[t] + parent[t]);                                 // ChangeCountIf
        if
        :: ok -> refs[t] = refs[t] - leftTo[t]; leftTo[t] = 0
        :: else
        fi
    };
    if
    :: !ok -> atomic { TOUCH(t); event[t] = false }                             // ResetEvent
    :: else
    fi;
    ok = false
}

// _NotifyParent with CTnRobotTaskPool::OnNotifyStop. "ok": there is nothing left to tell.
inline NotifyParent(t) {
#ifndef WITHOUT_PARENT_LOCK
    LOCK_PARENT(t);
#endif
    ok = true;
    if
    :: atomic { parent[t] -> TOUCH(t) };
       atomic { (notifyLock == 0) -> POOL; notifyLock = _pid + 1 };
       if
       :: closed
       :: atomic { !closed -> lent = true };                                    // QueueLoan: exchange for null
          if
#ifdef MEMORY
          :: memoryFails == 0 ->                                                // std::bad_alloc
             memoryFails = 1;
#ifndef WITHOUT_TELLING_LATER
             ok = false;
#endif
#endif
          :: true ->
             do
             :: atomic { TOUCH(t); n = refs[t]; last = (n > 1 && !going[t]) };  // AddRefWhileHeld
                if
                :: !last -> break
                :: else ->
                   atomic {
                       TOUCH(t);
                       if
                       :: refs[t] == n -> refs[t]++; queue ! t, runs[t]; break
                       :: else
                       fi
                   }
                fi
             od;
             atomic { n = 0; last = false }
          fi;
          atomic { POOL; lent = false };                                        // ~QueueLoan
          hasNotify = true
       fi;
       atomic { POOL; UNLOCK(notifyLock) }
    :: atomic { !parent[t] -> TOUCH(t) }
    fi
#ifndef WITHOUT_PARENT_LOCK
    ; UNLOCK_PARENT(t)
#endif
}

// What an application's job does with its own task, and task 0's with task 1.
inline Job(t) {
#ifdef SCRIPT
    if
    :: t == 0 && runs[0] == 2 -> Start(1); (!event[1])                          // awaits the end of its run
    :: else
    fi;
#endif
    do
    :: jobOps[t] < JOBOPS ->
       jobOps[t]++;
       if
#ifdef JOB_EVENT
       :: atomic { TOUCH(t); event[t] = false }                                 // resets its run event
       :: atomic { TOUCH(t); event[t] = true }                                  // sets it again
#endif
#ifdef JOB_COUNTS
       :: atomic { TOUCH(t); refs[t]++; kept[t]++ }                             // AddRef
       :: atomic { offered[t] > 0 -> offered[t]--; kept[t]++ }                  // takes a caller's
#endif
#ifdef JOB_CALLS
       :: Start(t)
       :: Stop(t)
#endif
       :: skip
#if TASKS > 1
       :: t == 0 -> Start(1)
       :: t == 0 -> Stop(1)
#ifdef OWNER_LAST
       :: t == 0 -> (!event[1])                                                 // awaits its end
#endif
#endif
       fi
    :: kept[t] > 0 -> kept[t]--; Release(t)
#ifdef TAKER
    :: atomic { kept[t] > 0 -> kept[t]--; handed[t]++ }
#endif
    :: kept[t] == 0 -> break
    od
}

// _OnTaskWork
proctype Worker(byte t) {
    LOCALS;
    bool inited;
    bool told = true;
    me = t;
    do
    :: atomic {                                                                 // PollSleep, until there is something to do
           (quit[t] || event[t] != inited || (inited && (!executed[t] || !told))
            || (leftTo[t] > 0 && (event[t] || control[t] == 0 || refs[t] > leftTo[t] + parent[t])));
           TOUCH(t);
           if
           :: quit[t] -> break
           :: else
           fi
       };
       if
#ifndef WITHOUT_MINDING
       :: leftTo[t] > 0 -> MindLeft(t)
#endif
       :: else
       fi;
       if
       :: atomic { !event[t] -> TOUCH(t) };
          if
          :: inited ->
             atomic { inited = false; assert(state[t] == RUNNING); clears[t]++ };  // ClearResource
             atomic { TOUCH(t); state[t] = STOPPED }
          :: else
          fi;
          if
          :: leftTo[t] > 0 ->                                                   // _TakeBackLeft
             if
             :: atomic { control[t] == 0 -> TOUCH(t); control[t] = _pid + 1 };
                GiveUp(t, 1);
                ok = (before == 1);
                atomic { before = 0; p = false };
                if
                :: ok -> goto ended
                :: else
                fi
             :: else
             fi
          :: else
          fi
       :: atomic { event[t] -> TOUCH(t) };
          if
          :: !inited ->
             atomic { TOUCH(t); inited = true; state[t] = RUNNING };
             atomic { TOUCH(t); executed[t] = false; inits[t]++; begun[t] = runs[t] }  // Init
          :: else
          fi;
          if
          :: !executed[t] ->                                                    // IsStop
             atomic {
                 told = false;
#ifdef ENDLESS
                 if
                 :: executes[t] < inits[t] -> executes[t]++
                 :: else
                 fi
#else
                 executed[t] = true;
                 executes[t]++
#endif
             };
             Job(t)                                                             // Execute
          :: executed[t] && !told -> NotifyParent(t); atomic { told = ok; ok = false }
          :: else
          fi
       fi
    od;
    atomic { TOUCH(t); state[t] = NOT_STARTED };
ended:
    atomic { n = 0; ok = false; gone[t] = true }
}

// CTnRobotTaskPool::_OnThreadPoolWork
proctype PoolThread() {
    LOCALS;
    byte t;
    byte nRun;
    do
    :: exitPool -> break
    :: !exitPool && empty(taken) ->
       atomic { (exitPool || (hasNotify && lists == 0)) };                      // PollSleep
       if
       :: exitPool -> break
       :: atomic { hasNotify && lists == 0 -> lists = _pid + 1 };               // _TakeNotices: try_to_lock
#ifndef WITHOUT_FLAG_FIRST
          hasNotify = false;
#endif
          atomic {                                                              // exchange for null
              if
#ifndef WITHOUT_LOAN
              :: lent
#endif
              :: else ->
                 assert(!lent);
                 do
                 :: queue ? t, nRun -> taken ! t, nRun
                 :: empty(queue) -> break
                 od;
                 t = 0; nRun = 0
              fi
          };
#ifdef WITHOUT_FLAG_FIRST
          hasNotify = false;
#endif
          UNLOCK(lists)
       :: else
       fi
    :: !exitPool && nempty(taken) ->
       taken ? t, nRun;                                                         // _Obey
       StopRun(t, nRun);
       ReleaseWithoutWaiting(t);
       atomic { t = 0; nRun = 0 }
    od;
    do                                                                          // the end of "notices"
    :: atomic { nempty(taken) -> taken ? t, nRun }; Release(t)
    :: empty(taken) -> break
    od;
    poolThreadGone = true
}

#if TASKS > 1
#define ALL_IDLE ((!listed[0] || idle[0]) && (!listed[1] || idle[1]))
#else
#define ALL_IDLE (!listed[0] || idle[0])
#endif
#define MAY_ABANDON(t) (!going[t] && refs[t] - 1 != leftTo[t])

// ~CTnRobotTaskPool, and Abandon for each task
proctype Owner() {
    LOCALS;
    byte t;
    byte nRun;
#if defined(OWNER_LAST) || defined(RECYCLE)
    (callersDone == CALLERS && clears[0] == runs[0]);                           // no job waits for the pool's thread
#endif
    exitPool = true;
    (poolThreadGone);                                                           // join
    atomic { (notifyLock == 0) -> assert(empty(queue) || hasNotify); closed = true };  // _DropNotices
#ifndef WITHOUT_DROPPING_NOTICES
    do
    :: atomic { nempty(queue) -> queue ? t, nRun }; Release(t)
    :: empty(queue) -> break
    od;
#endif
    do                                                                          // _LetGoOfTasks
    :: t = 0;
       do
       :: t < TASKS && listed[t] ->
          atomic {
              (parentLock[t] == 0) -> TOUCH(t);                                 // Abandon
              ok = MAY_ABANDON(t);
              if
              :: ok -> parent[t] = false; listed[t] = false
              :: else
              fi
          };
          if
          :: ok -> ok = false; Release(t)
          :: else
          fi;
          t++
       :: t < TASKS && !listed[t] -> t++
       :: t == TASKS -> t = 0; break
       od;
       atomic { (lists == 0) -> ok = ALL_IDLE };                                // _AreAllIdle
       if
       :: ok -> ok = false; break
       :: else                                                                  // PollSleep
       fi;
       ((listed[0] && (idle[0] || MAY_ABANDON(0)))
#if TASKS > 1
        || (listed[1] && (idle[1] || MAY_ABANDON(1)))
#endif
       )
    od;
    do
    :: t < TASKS && listed[t] ->
       atomic { (parentLock[t] == 0) -> TOUCH(t); parent[t] = false };          // FreeParent
       Release(t);
       t++
    :: t < TASKS && !listed[t] -> t++
    :: t == TASKS -> t = 0; break
    od;
    assert(lists == 0 && notifyLock == 0);
    poolAlive = false;
    ownerDone = true
}

// Calls that whoever holds a reference may make.
inline UseTask(t) {
    do
    :: ops < OPS -> ops++; Start(t)
    :: ops < OPS -> ops++; Stop(t)
#ifdef OWNER_LAST
    :: ops < OPS -> ops++; (!event[t])                                          // polls IsRunning
#endif
    :: break
    od
}

// CTnRobotTask::CreateInstance
inline MakeTask(t) {
    alive[t] = true;
    listed[t] = true;
    parent[t] = true;
    state[t] = NOT_STARTED;
    refs[t] = 1
}

// A caller with a reference; it may leave that to the job in the end.
proctype Caller(byte t) {
    LOCALS;
    byte ops;
#ifdef RECYCLE
    byte round;
    for (round : 1 .. ROUNDS) {
#if TASKS > 1
        LOCK(lists);                                                            // _TakeTask
#else
        atomic { (lists == 0 && (idle[0] || !alive[0])) -> lists = _pid + 1 };  // _TakeTask, within the bounds
#endif
        atomic {
            if
            :: idle[0] -> t = 0; idle[0] = false; places[0]--
#if TASKS > 1
            :: !idle[0] && idle[1] -> t = 1; idle[1] = false; places[1]--
            :: !idle[0] && !idle[1] && alive[0] -> t = 1; assert(!alive[1]); MakeTask(1)
#endif
            :: !idle[0] && !alive[0] -> t = 0; MakeTask(0)
            fi
        };
        UNLOCK(lists);
        atomic { TOUCH(t); assert(state[t] != RUNNING && refs[t] == 1 && leftTo[t] == 0) };  // BindRunner
        atomic { TOUCH(t); refs[t]++ };                                         // AddRef
        UseTask(t);
        Release(t);
        ops = 0
    }
#else
#ifdef SCRIPT
    if
    :: t == 0 -> Start(0); Stop(0); Start(0);
       if
       :: Stop(0)
       :: true
       fi
    :: else
    fi;
#else
    UseTask(t);
#endif
    atomic { offered[t]++; ops = 0 };
    if
    :: atomic { offered[t] > 0 -> offered[t]-- }; Release(t)
    :: atomic { offered[t] == 0 }
    fi;
#endif
    callersDone++
}

#ifdef TAKER
// Somebody to whom the job hands references out.
proctype Taker() {
    LOCALS;
    byte t;
    byte ops;
    do
    :: atomic { handed[0] > 0 -> handed[0]--; t = 0 }; UseTask(t); Release(t); ops = 0
#if TASKS > 1
    :: atomic { handed[1] > 0 -> handed[1]--; t = 1 }; UseTask(t); Release(t); ops = 0
#endif
    :: finished -> break
    od
}
#endif

#if TASKS > 1 && !defined(RECYCLE)
// The runner of task 0 holds task 1, and goes with task 0.
proctype Runner() {
    LOCALS;
    (!alive[0]);
    Release(1)
}
#endif

inline CheckCounts(t) {
    assert(!alive[t] && inits[t] == runs[t] && clears[t] == runs[t]);
    assert(executes[t] == runs[t])
}

init {
    atomic {
        run PoolThread();
        run Owner();
#ifdef TAKER
        run Taker();
#endif
#ifdef RECYCLE
        run Caller(0);
        run Caller(0);
#else
        MakeTask(0);
        run Caller(0);
        refs[0]++;
#if TASKS > 1
        MakeTask(1);
        run Caller(1);
        run Runner();
        refs[1] = refs[1] + 2;
#elif CALLERS > 1
        run Caller(0);
        refs[0]++;
#endif
#endif
    };
    // Whoever waits for ever keeps this from being reached.
    atomic {
        (ownerDone && callersDone == CALLERS && !alive[0]);
#if TASKS > 1
        (!alive[1]);
#endif
        (!left[0] || gone[0]);                                                  // Worker::JoinLeft
#if TASKS > 1
        (!left[1] || gone[1]);
#endif
        finished = true
    };
    CheckCounts(0)
#if TASKS > 1
    ; CheckCounts(1)
#endif
}

ltl ends { <> finished }
