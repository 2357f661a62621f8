// The thread object: run, stop and exit from several callers, the last release, and what its job does.
// Stands for src/concurrency/TnRobotThread.cpp; the name behind each step is the function of it that
// makes it.
//
// Bounds: CALLERS holders that make OPS calls each (Run, Stop), then Release; EXITER makes one of them end
// with Exit. JOBOPS: how often the job sets or resets its event, adds or releases references.
// What callers know to wait for ever is left out: Stop and Exit before the first Run, Run and Stop after
// Exit, and Stop and Exit from within the job.
//
// Checked: nothing is touched after its end; Run and Stop return, which is an invalid end state otherwise;
// a Run that made its caller wait was answered by a pass, a Stop by a pause; in the end the object is
// destroyed and its thread joined. WITHOUT_... takes one mend out; scripts/models.sh says which property
// must fail then.

#ifndef CALLERS
#define CALLERS 2
#endif
#ifndef OPS
#define OPS 2
#endif
#ifndef JOBOPS
#define JOBOPS 1
#endif

mtype = { CREATED, RUNNING, PAUSED, EXITED };

byte refs = 1;                       // m_nRefCount
byte control;                        // m_controlMutex: its owner's number + 1
bool worker;                         // m_pWorker
byte workers;
bool stopEvent;                      // m_pStopEvent
bool exitEvent;                      // m_pExitEvent
mtype state = CREATED;               // m_state
byte begins;                         // m_nBegins
bool destroy;                        // m_bDestroy
bool alive = true;
bool passedOn;                       // Worker::Leave has taken the worker over
bool jobGone;                        // what the job holds is destroyed
bool gone;                           // the worker's thread has ended
bool started;                        // a Run has returned: Stop and Exit may be called
byte kept;                           // references that the job has added
byte offered;                        // the callers' that it may release
byte jobOps;
byte done;
bool finished;

#define TOUCH assert(alive)
#ifdef WITHOUT_CONTROL_LOCK
#define LOCK_CONTROL TOUCH
#define UNLOCK_CONTROL TOUCH
#else
#define LOCK_CONTROL atomic { (control == 0) -> TOUCH; control = _pid + 1 }
#define UNLOCK_CONTROL atomic { TOUCH; control = 0 }
#endif

// ~CTnRobotThread, and ~Worker or Worker::Leave
inline Destroy(onWorker) {
    if
    :: onWorker ->
#ifndef WITHOUT_LEAVING_FIRST
       passedOn = true;                                                         // Leave: others may join it now
#endif
       atomic { assert(passedOn); jobGone = true };                             // m_job.reset: the library may go
#ifdef WITHOUT_LEAVING_FIRST
       passedOn = true
#endif
    :: !onWorker && worker -> (gone); jobGone = true                            // join
    :: else -> jobGone = true
    fi;
    atomic { TOUCH; assert(control == 0); alive = false }
}

// _Drop
inline Drop(onWorker) {
    atomic { TOUCH; n = refs; refs = n - 1; assert(n > 0) };
    if
    :: n == 1 -> Destroy(onWorker)
    :: else
    fi;
    n = 0
}

// Release
inline Release(onWorker) {
#ifdef WITHOUT_COUNT_HELD
    // The count falls first; the destructor waits for the worker.
    atomic { TOUCH; n = refs; refs = n - 1; assert(n > 0) };
    if
    :: n == 1 ->
       atomic { TOUCH; exitEvent = true };
       if
       :: worker -> (state == EXITED)
       :: else
       fi;
       Destroy(onWorker)
    :: else
    fi;
    n = 0
#else
    do
    :: atomic { TOUCH; n = refs };                                              // ChangeCountIf: load
       if
       :: n == 1 -> break
       :: else ->
          atomic {
              TOUCH;                                                            // ChangeCountIf: exchange
              if
              :: refs == n -> refs = n - 1; break
              :: else
              fi
          }
       fi
    od;
    if
    :: n != 1
#ifndef WITHOUT_SELF_TEST
    :: n == 1 && onWorker -> atomic { TOUCH; destroy = true; exitEvent = true }
    :: n == 1 && !onWorker ->
#else
    :: n == 1 ->
#endif
       if
       :: atomic { worker -> TOUCH; exitEvent = true };
          atomic { (state == EXITED) -> TOUCH }                                 // _PollState
       :: !worker
       fi;
       Drop(onWorker)
    fi;
    n = 0
#endif
}

// Run
inline Run() {
    if
    :: atomic { state == RUNNING -> TOUCH };                                    // _IsRunning
       if
       :: atomic { !stopEvent -> TOUCH; ok = true }
       :: atomic { stopEvent -> TOUCH }
       fi
    :: atomic { state != RUNNING -> TOUCH }
    fi;
    if
    :: ok
    :: else ->
       LOCK_CONTROL;
       if
       :: exitEvent                                                             // waits for ever, as callers know
       :: else ->
       if
       :: !worker -> atomic { TOUCH; worker = true; workers++; assert(workers == 1); run Worker() }
       :: else
       fi;
       atomic { TOUCH; n = begins };
#ifndef WITHOUT_EARLY_STATE
       atomic { TOUCH; ok = (state == RUNNING) };
#endif
       atomic { TOUCH; stopEvent = false };
#ifdef WITHOUT_BEGINS
       atomic { (ok || state == RUNNING) -> TOUCH; n = 0; ok = false }          // _AwaitAnswer
#else
       atomic { (ok || state == RUNNING || begins != n) -> TOUCH; n = 0; ok = false }  // _AwaitAnswer
#endif
       fi;
       UNLOCK_CONTROL
    fi;
    atomic { started = true; ok = false }
}

// Stop. In every step of the wait the event is set again.
inline Stop() {
    LOCK_CONTROL;
    do
    :: exitEvent -> break                                                       // waits for ever, as callers know
    :: atomic { !exitEvent -> TOUCH; stopEvent = true };
       do                                                                       // _AwaitAnswer
#ifndef WITHOUT_ASKING_AGAIN
       :: atomic { !stopEvent && state != PAUSED -> TOUCH; stopEvent = true }
#endif
       :: atomic { state == PAUSED -> TOUCH; break }
       od;
       break
    od;
    UNLOCK_CONTROL
}

// Exit
inline Exit() {
#ifdef WITHOUT_EXIT_LOCK
    atomic { TOUCH; exitEvent = true };
#else
    LOCK_CONTROL;
    atomic { TOUCH; assert(control == _pid + 1); exitEvent = true };
    UNLOCK_CONTROL;
#endif
    atomic { (state == EXITED) -> TOUCH }                                       // _PollState
}

// _OnThreadWorkLoop
proctype Worker() {
    byte n;
    bool running;
    do
    :: atomic { exitEvent -> TOUCH; break }
    :: atomic { !exitEvent && (!stopEvent || running) -> TOUCH };               // until there is something to do
       if
       :: atomic { stopEvent -> TOUCH };
          if
          :: running -> atomic { TOUCH; running = false; state = PAUSED }
          :: else
          fi
       :: atomic { !stopEvent -> TOUCH };
          if
          :: !running -> atomic { TOUCH; state = RUNNING }; atomic { TOUCH; begins++ }
          :: else
          fi;
          do                                                                    // the job
          :: jobOps < JOBOPS ->
             jobOps++;
             if
             :: atomic { TOUCH; stopEvent = true }
             :: atomic { TOUCH; stopEvent = false }
             :: atomic { TOUCH; refs++; kept++ }
             :: atomic { offered > 0 -> offered--; kept++ }
             fi
          :: kept > 0 -> kept--; Release(true)
          :: kept == 0 -> break
          od;
          running = true
       fi
    od;
    atomic { TOUCH; running = destroy; state = EXITED };                        // bDestroy is read first
    if
    :: running -> Drop(true)
    :: else
    fi;
    gone = true
}

proctype Caller(bool exits) {
    byte n;
    byte ops;
    bool ok;
    do
    :: ops < OPS && !exits -> ops++; Run()
    :: ops < OPS && !exits && started -> ops++; Stop()
    :: break
    od;
#ifdef EXITER
    if
    :: exits && started -> Exit()
    :: else
    fi;
#endif
    atomic { offered++; ops = 0 };
    if
    :: atomic { offered > 0 -> offered-- }; Release(false)
    :: atomic { offered == 0 }
    fi;
    done++
}

init {
    atomic {
        run Caller(false);
        run Caller(false);
        refs++;
#ifdef EXITER
        run Caller(true);
        refs++
#endif
    };
    // Whoever waits for ever keeps this from being reached. Nobody has to have run it.
#ifdef EXITER
    (done == CALLERS + 1 && !alive);
#else
    (done == CALLERS && !alive);
#endif
    (!worker || gone);                                                          // Worker::JoinLeft
    assert(jobGone);
    finished = true
}

ltl ends { <> finished }
