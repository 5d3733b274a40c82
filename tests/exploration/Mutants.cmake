# Wrong builds of the explored sources. Each weakens an order, or leaves out or moves a check, a wait or a step. The
# scenarios that it names must find it; or it is equal to the original for the reason given, and must pass.

set(GATE XapelAccessControl.cpp)
set(PIN XapelBypassSlot.h)
set(LIFE XapelBypassSlot.cpp)
set(CALLS XapelCallCount.h)
set(COPY XapelSharedCopy.h)
set(EQUAL_${GATE} rw fc cw ef:1:4 eb:1:3 ffc:1:3 rrw:1:3 fbc:1:2 wwr:1:2 is igs:1:2 id:1:4 rrw:2:~20000 ffc:2:~20000)
set(EQUAL_${PIN} lh llh ln lln is id:1:4 igs:1:2 lln:2:~20000)
set(EQUAL_${LIFE} ${EQUAL_${PIN}})
set(EQUAL_${CALLS} op oq ooq opq:1:3 oop:1:3 opq:1:~20000)

set(SOURCE_NAMES ${GATE} XapelAccessControl.h ${PIN} ${LIFE} ${CALLS} ${COPY} XapelThreading.h)
list(TRANSFORM SOURCE_NAMES PREPEND ${LIBRARY_FOLDER}/ OUTPUT_VARIABLE SOURCE_FILES)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${SOURCE_FILES})
add_custom_target(xapel2-exploration-mutants)

# mutant(NAME FILE VERDICT OLD NEW [OLD NEW]...): a build with each OLD, which must stand once in FILE, replaced by NEW.
# VERDICT: the scenarios that find it, or "equal: reason".
function(mutant NAME FILE VERDICT)
  set(FOLDER ${CMAKE_CURRENT_BINARY_DIR}/mutants/${NAME})
  file(READ ${LIBRARY_FOLDER}/${FILE} TEXT)
  math(EXPR LAST "${ARGC} - 2")
  foreach(OLD RANGE 3 ${LAST} 2)
    math(EXPR NEW "${OLD} + 1")
    string(FIND "${TEXT}" "${ARGV${OLD}}" FIRST_PLACE)
    string(FIND "${TEXT}" "${ARGV${OLD}}" LAST_PLACE REVERSE)
    if(FIRST_PLACE EQUAL -1 OR NOT FIRST_PLACE EQUAL LAST_PLACE)
      message(FATAL_ERROR "mutant ${NAME}: this does not stand once in ${FILE}: ${ARGV${OLD}}")
    endif()
    string(REPLACE "${ARGV${OLD}}" "${ARGV${NEW}}" TEXT "${TEXT}")
  endforeach()
  foreach(SOURCE ${SOURCE_NAMES})
    file(READ ${LIBRARY_FOLDER}/${SOURCE} ORIGINAL)
    if(SOURCE STREQUAL FILE)
      set(ORIGINAL "${TEXT}")
    endif()
    file(GENERATE OUTPUT ${FOLDER}/${SOURCE} CONTENT "${ORIGINAL}")
  endforeach()

  exploration_program(mutant-${NAME} ${FOLDER})
  target_compile_options(mutant-${NAME} PRIVATE -O1 -g0)
  set_target_properties(mutant-${NAME} PROPERTIES EXCLUDE_FROM_ALL ON RUNTIME_OUTPUT_DIRECTORY ${FOLDER})
  add_dependencies(xapel2-exploration-mutants mutant-${NAME})
  if(VERDICT MATCHES "^equal: ")
    set(SCENARIOS ${EQUAL_${FILE}})
    set(EXPECTED "all explored")
  else()
    separate_arguments(SCENARIOS UNIX_COMMAND "${VERDICT}")
    set(EXPECTED "found: (DATA RACE|LIVELOCK|DEADLOCK|USER ASSERT)")
  endif()
  add_test(NAME exploration.mutant.${NAME} COMMAND mutant-${NAME} ${SCENARIOS} CONFIGURATIONS Check)
  set_tests_properties(exploration.mutant.${NAME} PROPERTIES LABELS exploration TIMEOUT 600
    PASS_REGULAR_EXPRESSION "${EXPECTED}")
endfunction()

# weaker(NAME FILE VERDICT CALL FROM TO): a weaker memory order in the call that begins so.
function(weaker NAME FILE VERDICT CALL FROM TO)
  mutant(${NAME} ${FILE} "${VERDICT}" "${CALL}std::memory_order_${FROM}" "${CALL}std::memory_order_${TO}")
  set_property(DIRECTORY APPEND PROPERTY "WEAKENED_${FILE}" "${CALL}std::memory_order_${FROM}")
endfunction()

# all_weakened(FILE...): stops where a file has an order that no wrong build above weakens.
function(all_weakened)
  foreach(FILE ${ARGN})
    file(READ ${LIBRARY_FOLDER}/${FILE} TEXT)
    get_property(WEAKENED DIRECTORY PROPERTY "WEAKENED_${FILE}")
    foreach(ORDER ${WEAKENED})
      string(REPLACE "${ORDER}" "" TEXT "${TEXT}")
    endforeach()
    if(TEXT MATCHES "[^\n]*memory_order_(consume|acquire|release|acq_rel|seq_cst)[^\n]*")
      message(FATAL_ERROR "no wrong build weakens this order of ${FILE}: ${CMAKE_MATCH_0}")
    endif()
  endforeach()
endfunction()

# The gate
weaker(gate-closed-read ${GATE} rw [[if (m_rData.m_bExclusive.load(]] acquire relaxed)
weaker(gate-reopen ${GATE} rw [[m_bExclusive.store(false, ]] seq_cst relaxed)
weaker(gate-reopen-release ${GATE} "equal: a load that acquires is all that looks at it" [[m_bExclusive.store(false, ]]
  seq_cst release)
weaker(gate-close ${GATE} "equal: whoever looks holds the mutex" [[m_bExclusive.store(true, ]] seq_cst relaxed)
weaker(gate-empty-read ${GATE} igs:1:3 [[::IsEmpty() const {
    return m_nUsers.load(]] acquire relaxed)
weaker(gate-alone-read ${GATE} rw [[::IsExclusive() const {
    return m_nUsers.load(]] acquire relaxed)
weaker(gate-users-leave ${GATE} rw [[m_nUsers.fetch_sub(1, ]] release relaxed)
weaker(gate-users-enter ${GATE} "equal: the mutex orders it before whoever waits" [[m_nUsers.fetch_add(1, ]]
  acq_rel relaxed)
weaker(gate-flags-read ${GATE} "equal: no data comes with a flag" [[m_uFlags[i].load(]] acquire relaxed)
weaker(gate-flags-enter ${GATE} "equal: the mutex orders it before whoever waits" [[m_uFlags[i].fetch_add(1, ]]
  acq_rel relaxed)
weaker(gate-flags-leave ${GATE} "equal: no data comes with a flag, and lowering the users orders it"
  [[m_uFlags[i].fetch_sub(1, ]] acq_rel relaxed)
mutant(gate-no-mutex ${GATE} ww [[const XapelLock lock(mtx);]] [[static_cast<void>(mtx);]])
mutant(gate-no-check ${GATE} rw [[if (m_rData.m_bExclusive.load(std::memory_order_acquire))]] [[if (false)]])
mutant(gate-no-close ${GATE} rw [[m_rData.m_bExclusive.store(true, std::memory_order_seq_cst);]] [[{}]])
mutant(gate-readers-close ${GATE} rr [[if (m_bExclusive) {
        m_rData.m_bExclusive.store(true,]] [[{
        m_rData.m_bExclusive.store(true,]])
mutant(gate-no-reopen ${GATE} rw [[m_rData.m_bExclusive.store(false, std::memory_order_seq_cst);]] [[{}]])
mutant(gate-readers-reopen ${GATE} "rw:2:3 rrw:1:3" [[if (m_bExclusive) {
        m_rData.m_bExclusive.store(false]] [[{
        m_rData.m_bExclusive.store(false]])
mutant(gate-wait-not-exclusive ${GATE} rw [[mode == eExclusive || mode == eExclusiveWait]] [[mode == eExclusive]])
mutant(gate-exclusive-is-shared ${GATE} rc [[mode == eExclusive || mode == eExclusiveWait]] [[mode == eExclusiveWait]])
mutant(gate-enter-no-wait ${GATE} rw [[if (mode == eExclusiveWait)]] [[if (false)]])
mutant(gate-no-wait ${GATE} rw [[while (!IsExclusive()) {]] [[while (false) {]])
mutant(gate-guard-no-wait ${GATE} rc [[if (m_bExclusive) {
        m_rData.WaitExclusive();]] [[{]])
mutant(gate-readers-wait ${GATE} rr [[if (m_bExclusive) {
        m_rData.WaitExclusive();]] [[{
        m_rData.WaitExclusive();]])
mutant(gate-spin-no-pause ${GATE} rw
  [[while (m_rData.m_bExclusive.load(std::memory_order_relaxed)) {
            xapelSpinPause();]] [[{]])
mutant(gate-two-are-alone ${GATE} rw [[<= 1;]] [[<= 2;]])
mutant(gate-one-is-not-alone ${GATE} rw [[<= 1;]] [[< 1;]])
mutant(gate-users-not-raised ${GATE} rw [[m_rData.m_nUsers.fetch_add(1, std::memory_order_acq_rel);]] "")
mutant(gate-users-not-lowered ${GATE} rw [[m_rData.m_nUsers.fetch_sub(1, std::memory_order_release);]] "")
mutant(gate-users-after-unlock ${GATE} rw [[m_rData.m_nUsers.fetch_add(1, std::memory_order_acq_rel);]] ""
  [[    if (mode == eExclusiveWait)]] [[    m_rData.m_nUsers.fetch_add(1, std::memory_order_acq_rel);
    if (mode == eExclusiveWait)]])
mutant(gate-users-lowered-first ${GATE} ef:1:4 [[    m_rData.m_nUsers.fetch_sub(1, std::memory_order_release);]] ""
  [[    if (m_bExclusive) {
        m_rData.m_bExclusive.store(false]] [[    m_rData.m_nUsers.fetch_sub(1, std::memory_order_release);
    if (m_bExclusive) {
        m_rData.m_bExclusive.store(false]])
mutant(gate-flags-after-unlock ${GATE} bc:1:3
  [[forEachBit(m_uFlags, [this](unsigned i) { m_rData.m_uFlags[i].fetch_add(1, std::memory_order_acq_rel); });]] ""
  [[    if (mode == eExclusiveWait)]]
  [[    forEachBit(m_uFlags, [this](unsigned i) { m_rData.m_uFlags[i].fetch_add(1, std::memory_order_acq_rel); });
    if (mode == eExclusiveWait)]])
mutant(gate-flags-not-raised ${GATE} bc:1:3 [[m_rData.m_uFlags[i].fetch_add(1, std::memory_order_acq_rel);]]
  [[static_cast<void>(i);]])
mutant(gate-flags-not-lowered ${GATE} fw [[m_rData.m_uFlags[i].fetch_sub(1, std::memory_order_acq_rel);]]
  [[static_cast<void>(i);]])
mutant(gate-flags-are-bits ${GATE} fbc:1:2 [[m_uFlags[i].fetch_add(1]] [[m_uFlags[i].fetch_or(1]]
  [[m_uFlags[i].fetch_sub(1]] [[m_uFlags[i].fetch_and(0]])

# The pin word
weaker(pin-enter ${PIN} ln [[m_rWord.fetch_add(2, ]] acq_rel release)
weaker(pin-enter-acquire ${PIN} "equal: a pin shows nothing to others" [[m_rWord.fetch_add(2, ]] acq_rel acquire)
weaker(pin-leave ${PIN} lh [[m_rWord.fetch_sub(2, ]] release relaxed)
weaker(pin-begin ${LIFE} ln [[m_rWord.fetch_or(1, ]] release relaxed)
weaker(pin-end ${LIFE} "equal: the wait acquires, and a dead word leads nobody in" [[m_rWord.fetch_and(~uint64_t{1}, ]]
  acq_rel relaxed)
weaker(pin-wait ${LIFE} lh [[m_rWord.load(]] acquire relaxed)
mutant(pin-no-check ${PIN} lh [[return m_bAlive;]] [[return true;]])
mutant(pin-check-first ${PIN} lh [[m_rWord.fetch_add(2, std::memory_order_acq_rel) & 1) != 0) {}]]
  [[m_rWord.load(std::memory_order_acquire) & 1) != 0) { m_rWord.fetch_add(2, std::memory_order_acq_rel); }]])
mutant(pin-stays ${PIN} lh [[m_rWord.fetch_sub(2, std::memory_order_release);]] "")
mutant(pin-no-end ${LIFE} lh [[m_rWord.fetch_and(~uint64_t{1}, std::memory_order_acq_rel);]] "")
mutant(pin-no-wait ${LIFE} lh [[while (m_rWord.load(std::memory_order_acquire) >= 2) {]] [[while (false) {]])
mutant(pin-wait-first ${LIFE} lh [[m_rWord.fetch_and(~uint64_t{1}, std::memory_order_acq_rel);]] ""
  [[xapelSpinPause();
    }
}]] [[xapelSpinPause();
    }
    m_rWord.fetch_and(~uint64_t{1}, std::memory_order_acq_rel);
}]])
mutant(pin-one-is-none ${LIFE} lh [[>= 2]] [[> 2]])
mutant(pin-begin-forgets ${LIFE} ln [[fetch_or(1, ]] [[store(1, ]])
mutant(pin-end-forgets ${LIFE} lh [[fetch_and(~uint64_t{1}, std::memory_order_acq_rel)]]
  [[store(0, std::memory_order_seq_cst)]])

# The call count
weaker(calls-enter ${CALLS} "equal: the list is read under its lock, and the closing bit is in the word"
  [[m_uWord.fetch_add(2, ]] acq_rel relaxed)
weaker(calls-leave ${CALLS} op [[m_uWord.fetch_sub(2, ]] release relaxed)
weaker(calls-wait ${CALLS} op [[m_uWord.load(]] acquire relaxed)
weaker(calls-close ${CALLS} "equal: the wait acquires, and a closing count leads nobody in" [[m_uWord.fetch_or(1, ]]
  acq_rel relaxed)
mutant(calls-no-check ${CALLS} oq [[return m_bClosing;]] [[return false;]])
mutant(calls-check-first ${CALLS} oq [[m_uWord.fetch_add(2, std::memory_order_acq_rel) & 1) != 0) {}]]
  [[m_uWord.load(std::memory_order_acquire) & 1) != 0) { m_rCount.m_uWord.fetch_add(2, std::memory_order_acq_rel); }]])
mutant(calls-stay ${CALLS} op [[m_rCount.m_uWord.fetch_sub(2, std::memory_order_release);]] "")
mutant(calls-no-close ${CALLS} oq [[m_uWord.fetch_or(1, std::memory_order_acq_rel);]] "")
mutant(calls-no-wait ${CALLS} op [[while (m_uWord.load(std::memory_order_acquire) >= 2) {]] [[while (false) {]])
mutant(calls-one-is-none ${CALLS} op [[>= 2]] [[> 2]])
mutant(calls-close-forgets ${CALLS} oq [[m_uWord.fetch_or(1, std::memory_order_acq_rel)]]
  [[m_uWord.store(1, std::memory_order_seq_cst)]])

# The copy of the host functions
weaker(copy-version-read ${COPY} vu:2:4 [[const uint64_t uBefore = m_uVersion.load(]] acquire relaxed)
weaker(copy-word-read ${COPY} vu:2:4 [[uWord = rWord.load(]] acquire relaxed)
weaker(copy-word-write ${COPY} vu:2:4 [[rWord.store(*pWord++, ]] release relaxed)
weaker(copy-version-write ${COPY} vu:2:4 [[.store(uBefore + 2, ]] release relaxed)
mutant(copy-no-odd ${COPY} vu [[m_uVersion.store(uBefore + 1, std::memory_order_relaxed);]] "")
mutant(copy-no-odd-check ${COPY} vu [[(uBefore & 1) == 0 &&]] "")
mutant(copy-no-second-look ${COPY} vu [[m_uVersion.load(std::memory_order_relaxed) == uBefore]] true)
mutant(copy-same-version ${COPY} vu [[uBefore + 2]] [[uBefore]])

all_weakened(${GATE} XapelAccessControl.h ${PIN} ${LIFE} ${CALLS} ${COPY})
