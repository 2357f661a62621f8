// The buffers of the circular pool: choose, cut, return, start over, spent, and the pool's end.
// Stands for src/memory/TnRobotCircleMemBlockPool.cpp; the name behind each step is the function of it that
// makes it. A block's count is that of block.pml, with one holder.
//
// Bounds: CALLERS callers that ask ROUNDS times for one unit or two and release what they get; BUFFERS buffers
// at most, of two units; the first is there from the beginning.
//
// Checked: no unit belongs to two blocks that are held; a buffer is in exactly one list; nothing is touched
// after its end; in the end no block is left, and nobody has waited for ever (an invalid end state).
// WITHOUT_... takes one mend out; scripts/models.sh says which property must fail then.

#ifndef CALLERS
#define CALLERS 2
#endif
#ifndef ROUNDS
#define ROUNDS 2
#endif
#ifndef BUFFERS
#define BUFFERS 2
#endif
#define UNITS 2
#define SLOTS 4                      // block objects of each buffer at most

byte poolLock;                       // m_mutex
chan readyList = [BUFFERS] of { byte };  // m_readyBuffers
bool inReady[BUFFERS];
bool inSpent[BUFFERS];               // m_spentBuffers
byte made;                           // buffers that exist
byte bufferLock[BUFFERS];            // Buffer::m_mutex
byte cursor[BUFFERS];                // m_pCursor; what is behind it is m_nRoom
byte inUse[BUFFERS];                 // the size of m_blocksInUse
bool ready[BUFFERS];                 // m_bReady
bool closing[BUFFERS];               // m_bClosing
bool poolAlive = true;

#define BLOCKS (BUFFERS * SLOTS)
byte refs[BLOCKS];                   // 0: there is no such block
bool parent[BLOCKS];
bool used[BLOCKS];                   // in m_blocksInUse; otherwise spare
byte held[BUFFERS * UNITS];          // callers that use this unit
byte querying = CALLERS;
byte done;
bool finished;

#define POOL assert(poolAlive)
#define LOCK(lock) atomic { (lock == 0) -> POOL; lock = _pid + 1 }
#define UNLOCK(lock) atomic { POOL; lock = 0 }
#define ONE_LIST(f) assert(inReady[f] != inSpent[f])
#define ROOM(f, size) (cursor[f] + size <= UNITS)
#define SPENT_BUT(f, count) (!ready[f] && !closing[f] && inUse[f] == count)

// Buffer::Rewind
inline Rewind(f) {
    cursor[f] = 0;
    ready[f] = true
}

// Buffer::TakeBack
inline TakeBack(f, b) {
    if
    :: used[b] -> used[b] = false; inUse[f]--
    :: else
    fi
}

// _ChooseBuffer. "f" is the buffer.
inline Choose(size) {
    LOCK(poolLock);
    do
    :: empty(readyList) ->
       atomic {                                                                 // _AddBuffer
           if
           :: made < BUFFERS -> f = made; made++; ready[f] = true; inReady[f] = true; readyList ! f
           :: else -> f = BUFFERS                                               // beyond the model's bounds
           fi
       };
       break
    :: atomic { nempty(readyList) -> readyList ? <f> };
       LOCK(bufferLock[f]);
       if
       :: ROOM(f, size) -> UNLOCK(bufferLock[f]); break
       :: else ->
          if
          :: inUse[f] == 0 -> atomic { Rewind(f) }; UNLOCK(bufferLock[f]); break  // IsInUse
          :: else ->
             atomic { ready[f] = false; readyList ? f; inReady[f] = false; inSpent[f] = true; ONE_LIST(f) };  // SetSpent
             UNLOCK(bufferLock[f])
          fi
       fi
    od;
    UNLOCK(poolLock)
}

// _CutBlock with Buffer::Cut. "b" is the block, or BLOCKS for a lost race.
inline Cut(size) {
#ifdef WITHOUT_CHOSEN
    atomic { assert(nempty(readyList)); readyList ? <n>; assert(n == f); n = 0 };  // the first one by now
#endif
    LOCK(bufferLock[f]);
    if
    :: ROOM(f, size) ->
       atomic {                                                                 // _LendSpareBlock
           b = f * SLOTS;
           do
           :: used[b] -> b++
           :: else -> break
           od;
           assert(b < (f + 1) * SLOTS);
           refs[b] = 2;
           parent[b] = true;
           used[b] = true;
           inUse[f]++;
           from = cursor[f];
           cursor[f] = cursor[f] + size;
           held[f * UNITS + from]++;
           assert(held[f * UNITS + from] == 1);
           if
           :: size == 2 -> held[f * UNITS + 1]++; assert(held[f * UNITS + 1] == 1)
           :: else
           fi
       }
    :: else -> b = BLOCKS
    fi;
    UNLOCK(bufferLock[f])
}

// RecoveryMemBuff with _ReturnLastBlock
inline Recover(b) {
    LOCK(bufferLock[f]);
#ifdef WITHOUT_BOTH_LOCKS
    // The last block is taken back under one lock, and the buffer starts over behind it.
    atomic { TakeBack(f, b); p = SPENT_BUT(f, 0) };
    UNLOCK(bufferLock[f]);
    if
    :: p ->
       atomic { Rewind(f) };
       LOCK(poolLock);
       atomic { inSpent[f] = false; inReady[f] = true; readyList ! f };
       UNLOCK(poolLock)
    :: else
    fi;
#else
    if
    :: !SPENT_BUT(f, 1) -> atomic { TakeBack(f, b) }; UNLOCK(bufferLock[f])
    :: else ->
       UNLOCK(bufferLock[f]);
       LOCK(poolLock);                                                          // _ReturnLastBlock
       LOCK(bufferLock[f]);
       atomic {
           TakeBack(f, b);
           if
           :: SPENT_BUT(f, 0) ->
              Rewind(f);
              inSpent[f] = false;
              inReady[f] = true;
              ONE_LIST(f);
              readyList ! f
           :: else
           fi
       };
       UNLOCK(bufferLock[f]);
       UNLOCK(poolLock)
    fi;
#endif
    p = false
}

proctype Caller() {
    byte f;
    byte b;
    byte n;
    byte from;
    byte size;
    byte round;
    bool p;
    for (round : 1 .. ROUNDS) {
        if
        :: size = 1
        :: size = 2
        fi;
        b = BLOCKS;
        Choose(size);
        if
        :: f < BUFFERS -> Cut(size)
        :: else
        fi;
        querying = querying - (round == ROUNDS);                                // from here on the pool may go
        if
        :: b < BLOCKS ->
           atomic {                                                             // the memory is not used any more
               held[f * UNITS + from]--;
               if
               :: size == 2 -> held[f * UNITS + 1]--
               :: else
               fi;
               from = 0; size = 0
           };
           do                                                                   // CTnRobotMemoryBlock::Release
           :: atomic { assert(refs[b] > 0); n = refs[b] };
              p = parent[b];
              atomic {
                  assert(refs[b] > 0);
                  if
                  :: refs[b] == n -> refs[b] = n - 1; break
                  :: else
                  fi
              }
           od;
           if
           :: n == 2 && p -> p = false; Recover(b)
           :: else
           fi
        :: else
        fi;
        atomic { f = 0; b = 0; n = 0; p = false; from = 0; size = 0 }
    }
    done++
}

// ~CTnRobotCircleMemBlockPool with Buffer::Close
proctype Owner() {
    byte f;
    byte b;
    byte n;
    (querying == 0);
    LOCK(poolLock);
    do
    :: f < made ->
       atomic { (bufferLock[f] == 0) -> closing[f] = true };                    // BeginClose
       f++
    :: f == made -> f = 0; break
    od;
    UNLOCK(poolLock);
    do
    :: f < made ->
       LOCK(bufferLock[f]);
       b = f * SLOTS;
       do
       :: b < (f + 1) * SLOTS && used[b] ->                                     // LetGo: Abandon
          atomic { n = refs[b]; refs[b] = n + 1 };
          if
          :: n == 1 ->
             atomic { refs[b]-- };
#ifdef WITHOUT_WAITING_FOR_RETURN
             atomic { refs[b] = 0; used[b] = false; inUse[f]-- }
#endif
          :: else ->
             parent[b] = false;
             atomic { refs[b] = refs[b] - 2; used[b] = false; inUse[f]-- }
          fi;
          b++
       :: b < (f + 1) * SLOTS && !used[b] -> b++
       :: b == (f + 1) * SLOTS -> break
       od;
       UNLOCK(bufferLock[f]);
       atomic { (inUse[f] == 0 && bufferLock[f] == 0) -> n = 0; b = f * SLOTS;  // m_returned.wait
           do                                                                   // _LetGoOfSpareBlocks
           :: b < (f + 1) * SLOTS && parent[b] && refs[b] == 1 -> refs[b] = 0; parent[b] = false; b++
           :: b < (f + 1) * SLOTS && !(parent[b] && refs[b] == 1) -> b++
           :: b == (f + 1) * SLOTS -> b = 0; break
           od
       };
       f++
    :: f == made -> f = 0; break
    od;
#ifndef WITHOUT_LAST_LOCK
    LOCK(poolLock);
    UNLOCK(poolLock);
#endif
    poolAlive = false;
    done++
}

init {
    byte i;
    atomic {
        made = 1;
        ready[0] = true;
        inReady[0] = true;
        readyList ! 0;
        run Owner();
        for (i : 1 .. CALLERS) {
            run Caller()
        }
        i = 0
    };
    // Whoever waits for ever, and a block that is lost, keep this from being reached.
    atomic {
        (done == CALLERS + 1);
        do
        :: i < BLOCKS -> assert(refs[i] == 0); i++
        :: i == BLOCKS -> break
        od;
        finished = true
    }
}

ltl ends { <> finished }
