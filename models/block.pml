// A block's release against what its pool does: lending, sweeping and the pool's end.
// Stands for src/memory/TnRobotMemoryBlock.cpp, TnRobotFixedMemBlockPool.cpp and core/TnCounting.h; the name
// behind each step is the function of them that makes it. The elements of a recycling pool
// (src/values/TnPoolElement.cpp) release in the same way; their pool's end must not meet a release, by contract.
//
// Bounds: BLOCKS blocks at most; CALLERS callers that query and release ROUNDS times, and may hand a second
// reference to the block to a friend; STRANGER calls of RecoveryMemBuff by hand with a block that is held;
// SWEEPS sweeps for which every block is old enough. A block that was taken back by hand while it was held,
// and lent again, must not be released while its pool goes, so the pool's end comes after the callers then,
// and may only meet the friend. (ANY_END shows why: the count comes back to 2 under a Release that has read it
// when there was a pool.)
//
// Checked: nothing is touched after its end; a block is destroyed once; no block is lent to two; whoever
// returns a block finds its pool; in the end every block is destroyed, and the pool's end has not waited for
// ever (an invalid end state). WITHOUT_... takes one mend out; scripts/models.sh says which property must fail.

#ifndef BLOCKS
#define BLOCKS 2
#endif
#ifndef CALLERS
#define CALLERS 2
#endif
#ifndef ROUNDS
#define ROUNDS 1
#endif
#ifndef STRANGER
#define STRANGER 0
#endif
#ifndef SWEEPS
#define SWEEPS 0
#endif
#define PLACES 4
#if SWEEPS > 0
#define SWEEPERS 1
#else
#define SWEEPERS 0
#endif

byte refs[BLOCKS];                   // m_nRefCount
bool parent[BLOCKS];                 // m_pParent
bool lent[BLOCKS];                   // m_bLent
byte listed[BLOCKS];                 // m_nListed
bool alive[BLOCKS];
byte holders[BLOCKS];                // callers that think that they have got it from the pool
bool owned[BLOCKS];                  // in m_allBlocks
byte lock;                           // m_mutex
bool closing;                        // m_bClosing
bool poolAlive = true;
chan free = [PLACES] of { byte };    // m_freeBlocks; the front is where blocks are lent from
byte strangers;
byte querying = CALLERS;             // callers that will ask again
byte done;
byte friends;                        // second references that are handed on
bool finished;

#define TOUCH(b) assert(alive[b])
#define POOL assert(poolAlive)
#define UNLOCK atomic { POOL; lock = 0 }

// tnrobot::Destroy
inline Destroy(b) {
    assert(alive[b]);
    alive[b] = false
}

// CTnRobotFixedMemBlockPool::RecoveryMemBuff
inline Recover(b) {
    atomic { POOL; TOUCH(b) };                                                  // ClearResource
    atomic {
        (lock == 0) -> POOL;
        TOUCH(b);
        lock = _pid + 1;
        if
        :: parent[b] ->                                                         // IsOf
           if
           :: refs[b] == 1 -> lent[b] = false                                   // NoteReturned
           :: else
           fi;
           listed[b]++                                                          // NoteListed
        :: else
        fi;
        assert(nfull(free));
        PushFront(b)                                                            // with notify_all
    };
    UNLOCK
}

// FollowFall
inline FollowFall(b) {
    if
    :: before == 2 && p -> Recover(b)
    :: before == 1 -> Destroy(b)
    :: else
    fi
}

// CTnRobotMemoryBlock::Release
inline Release(b) {
#ifdef WITHOUT_EXCHANGE
    atomic { TOUCH(b); before = refs[b]; refs[b] = before - 1 };                // fetch_sub, then the parent
    if
    :: before == 2 -> atomic { TOUCH(b); p = parent[b] }
    :: else
    fi;
#else
    do
    :: atomic { TOUCH(b); before = refs[b] };                                   // ChangeCountIf: load
       atomic { TOUCH(b); p = parent[b] };
       atomic {
           TOUCH(b);                                                            // ChangeCountIf: exchange
           if
           :: refs[b] == before -> refs[b] = before - 1; break
           :: else
           fi
       }
    od;
#endif
    FollowFall(b);
    atomic { before = 0; p = false }
}

// LetGo with Abandon; the caller holds the pool's lock. "ok" is its answer.
inline LetGo(b) {
    atomic { TOUCH(b); before = refs[b]; refs[b] = before + 1 };                // fetch_add
    if
    :: before == 1 ->
       atomic { TOUCH(b); refs[b]-- };
#ifdef WITHOUT_WAITING_FOR_RETURN
       if
       :: false
#else
       if
       :: atomic { lent[b] -> TOUCH(b); ok = false }
       :: atomic { !lent[b] -> TOUCH(b) };
#endif
#ifdef WITHOUT_WAITING_FOR_RETURN
       :: true ->
#endif
          atomic { assert(refs[b] == 1); refs[b] = 0 };
          Destroy(b);
          ok = true
       fi
    :: else ->
       atomic { TOUCH(b); parent[b] = false };
       atomic { TOUCH(b); before = refs[b]; refs[b] = before - 2 };             // fetch_sub
       if
       :: before == 2 -> Destroy(b)
       :: else
       fi;
       ok = true
    fi;
    before = 0
}

inline PushFront(b) {
    if
    :: len(free) == 0 -> free ! b
    :: len(free) == 1 -> free ! b; free ? n; free ! n
    :: len(free) == 2 -> free ! b; free ? n; free ! n; free ? n; free ! n
    :: len(free) == 3 -> free ! b; free ? n; free ! n; free ? n; free ! n; free ? n; free ! n
    fi;
    n = 0
}

// Takes the last one.
inline PopBack(b) {
    if
    :: len(free) == 1 -> free ? b
    :: len(free) == 2 -> free ? n; free ! n; free ? b
    :: len(free) == 3 -> free ? n; free ! n; free ? n; free ! n; free ? b
    :: len(free) == 4 -> free ? n; free ! n; free ? n; free ! n; free ? n; free ! n; free ? b
    fi;
    n = 0
}

proctype Caller() {
    byte b;
    byte n;
    byte before;
    byte round;
    bool p;
    bool ok;
    for (round : 1 .. ROUNDS) {
        atomic { (lock == 0) -> POOL; lock = _pid + 1 };                        // QueryBlock
        do
        :: empty(free) ->
           atomic {                                                             // _MakeBlock
               if
               :: !alive[0] && !owned[0] -> b = 0; ok = true
               :: (alive[0] || owned[0]) && !alive[1] && !owned[1] -> b = 1; ok = true
#if BLOCKS > 2
               :: (alive[0] || owned[0]) && (alive[1] || owned[1]) && !alive[2] && !owned[2] -> b = 2; ok = true
#endif
               :: else -> ok = false
               fi;
               if
               :: ok ->
                  alive[b] = true; refs[b] = 1; parent[b] = true; owned[b] = true; lent[b] = false; listed[b] = 1;
                  free ! b
               :: else -> break
               fi
           }
        :: nempty(free) ->
           free ? b;
           if
           :: atomic { parent[b] -> TOUCH(b); listed[b]-- };                    // NoteUnlisted
              atomic { TOUCH(b); before = refs[b]; refs[b] = before + 1 };      // Lend: fetch_add
              if
#ifndef WITHOUT_LENT_TEST
              :: atomic { before == 1 && lent[b] -> TOUCH(b); refs[b]-- }
              :: before == 1 && !lent[b] ->
#else
              :: before == 1 ->
#endif
                 atomic { TOUCH(b); lent[b] = true; ok = true; holders[b]++; assert(holders[b] == 1) }; break
              :: before != 1 -> atomic { TOUCH(b); lent[b] = true; ok = true; holders[b]++ }; break
              fi
           :: atomic { !parent[b] -> TOUCH(b); refs[b]++; ok = true; holders[b]++ }; break
           fi
        od;
        atomic { POOL; before = 0; lock = 0 };
        if
        :: ok ->
           ok = false;
#if STRANGER > 0
           if
           :: strangers < STRANGER -> strangers++; Recover(b)                   // by hand, while it is held
           :: true
           fi;
#endif
           querying = querying - (round == ROUNDS);                             // from here on the pool may go
           if
           :: atomic { friends == 0 -> TOUCH(b); refs[b]++; friends = 1; run Friend(b) }
           :: true
           fi;
           holders[b]--;
           Release(b)
        :: else -> querying = querying - (round == ROUNDS)
        fi;
        b = 0
    }
    done++
}

// Has a second reference to a block, and may outlive the pool.
proctype Friend(byte b) {
    byte n;
    byte before;
    bool p;
    Release(b);
    friends = 2
}

#if SWEEPS > 0
proctype Sweeper() {
    byte b;
    byte n;
    byte before;
    byte sweep;
    bool ok;
    for (sweep : 1 .. SWEEPS) {
        atomic { (lock == 0) -> POOL; lock = _pid + 1 };                        // FreeUnuseMemory
        do
        :: empty(free) -> break
        :: atomic { nempty(free) -> PopBack(b); TOUCH(b) };                     // GetRecoveryTime, _FreeOldestBlock
#ifdef WITHOUT_PLACES
           ok = owned[b];
#else
           atomic {
               if
               :: owned[b] -> TOUCH(b); listed[b]--; ok = (listed[b] == 0)      // NoteUnlisted
               :: else -> ok = false
               fi
           };
#endif
           if
           :: ok ->
              LetGo(b);
              if
              :: ok -> owned[b] = false
              :: else
              fi
           :: else
           fi
        od;
        atomic { ok = false; b = 0; POOL; lock = 0 }
    };
    atomic { querying--; done++ }
}
#endif

#if BLOCKS > 2
#define NONE_OWNED (!owned[0] && !owned[1] && !owned[2])
#else
#define NONE_OWNED (!owned[0] && !owned[1])
#endif

// ~CTnRobotFixedMemBlockPool. The pool's last reference goes when nobody queries any more; blocks may be held.
proctype Owner() {
    byte b;
    byte n;
    byte before;
    bool ok;
#if STRANGER > 0 && !defined(ANY_END)
    (done == CALLERS + SWEEPERS);
#endif
    atomic { (querying == 0 && lock == 0) -> lock = _pid + 1; closing = true };
    do
    :: do                                                                       // _LetGoOfAllBlocks
       :: nempty(free) -> free ? n
       :: empty(free) -> n = 0; break
       od;
       b = 0;
       do
       :: b < BLOCKS && owned[b] ->
          LetGo(b);
          if
          :: ok -> owned[b] = false
          :: else
          fi;
          ok = false;
          b++
       :: b < BLOCKS && !owned[b] -> b++
       :: b == BLOCKS -> b = 0; break
       od;
       if
       :: NONE_OWNED -> break
       :: else
       fi;
       atomic { lock = 0 };
       atomic { (nempty(free) && lock == 0) -> lock = _pid + 1 }                // m_returned.wait
    od;
    atomic { lock = 0; poolAlive = false };
    done++
}

#if BLOCKS > 2
#define NONE_ALIVE (!alive[0] && !alive[1] && !alive[2])
#else
#define NONE_ALIVE (!alive[0] && !alive[1])
#endif

init {
    byte i;
    atomic {
        run Owner();
#if SWEEPS > 0
        run Sweeper();
        querying++;
#endif
        for (i : 1 .. CALLERS) {
            run Caller()
        }
        i = 0
    };
    // Whoever waits for ever, and a block that is lost, keep this from being reached.
    (done == CALLERS + SWEEPERS + 1 && friends != 1 && NONE_ALIVE);
    finished = true
}

ltl ends { <> finished }
