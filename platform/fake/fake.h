// The fake platform's remote control: virtual time, scripted answers, failures on demand, and a journal.
//
// The library implements include/kivo in memory. Threads are real but take turns: one runs at a time, and it
// hands the turn on only where it blocks in a platform call (sleep(3), OsSleep, a message loop, a synchronous
// send, OsRwLock) or ends. When every thread sleeps, virtual time jumps to the next wake-up, so a wait of
// hours costs nothing and every run has the same order. The thread that calls Reset takes its turns like any other.
//
// Everything here is for the test's own thread unless it says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"
#include "kivo/os_timer.h"

namespace kivo::fake {

using Bytes = std::vector<unsigned char>;

/// Forgets scripts, failures, journal, bus, timers, clients and accounted memory, and sets the time to kStartTime.
/// No thread of an earlier test may be alive: it aborts the test program with a message otherwise (see Finish).
void Reset();

/// Lets all other threads run, in virtual time, until they have ended; false when some still live after
/// `seconds` of virtual time.
bool Finish(uint64_t seconds = 1000000);

// ---- virtual time ----

constexpr uint64_t kStartTime = 1700000000000;  // what OsGetSystemTime says after Reset, in ms

uint64_t Now();               // the virtual system time in ms
void SetNow(uint64_t ms);     // sets the system clock without letting time pass
void Pass(uint64_t seconds);  // the calling thread sleeps: the others run as time goes by, also those due at its end
void Settle();                // lets the others run until all of them sleep; no time passes
size_t LiveThreads();         // threads of OsPthreadCreate, tasks and StartProcess that have not ended

// ---- failures ----

/// The next `times` calls of the named platform function ("OsSigAddSet") after `skip` good ones fail with
/// `code` and have no other effect (they are not recorded either); functions that return pointers give null,
/// sprintf_s and vsnprintf_s give -1. Calls of Fail for the same function follow one another. Aborts for an
/// unknown name.
void Fail(std::string_view function, uint32_t code, unsigned times = 1, unsigned skip = 0);

// ---- journal: what the code under test did, in order ----
//
// Sends, replies and broadcasts are recorded when their arguments are good, before it is known whether they reach
// anybody. The other calls, with their texts (numbers in decimal, names as they are):
//
//   OsSigEmptySet                              KivoOmLogClientInit(name)
//   OsSigAddSet(signal)                        KivoOmLogCreateLog(lineSize, fileCount, fileSize, fileName)
//   OsPthreadSigmask(how)                      KivoOmLogClientUnInit
//   OsPthreadDetach                            InspectClientInit(name)
//   OsTmrManagerInit(tick, priority, flags)    InspectRegHandler(name, timeout), once per record
//   OsTmrCreate(mode, period, repeat)          InspectUnRegHandler(name)
//   OsTmrDelete(id)                            InspectReportResult(name, status)
//   OsMonitorProReg(name, timeout)             OsTaskRun(name, count)
//   OsMonitorProActivate(name)                 OsMsgTaskRoutineByName(task)
//   OsMsgSetLogLevel(level)                    OsMsgSubscribeEvent(id, srcProc, srcTask, dstTask), once per record
//   OsMsgRegLogFunc                            OsMsgSynRespFree, for a reply that was released

enum class Kind {
    kLog,        // a line for the operations log
    kBroadcast,  // OsMsgBroadcastEvent
    kAsyncSend,  // OsMsgAsynSend
    kSyncSend,   // OsMsgSynSend
    kReply,      // OsMsgSynSendResp
    kCall,       // any other platform call worth knowing, as text
};

struct Entry {
    Kind kind{};
    uint64_t time{};         // virtual, in ms
    uint32_t level{};        // kLog
    uint16_t handle{};       // kLog: the log handle that was passed
    std::string unit;        // kLog
    uint32_t module{};       // kLog; 256 for a line without a module
    uint32_t line{};         // kLog
    std::string text;        // kLog: the line; kCall: "OsTmrManagerInit(1, 0, 0)"
    uint32_t id{};           // message or event id; kReply: that of the message answered
    uint32_t param{};        // sends: the parameter word; broadcasts: the scope
    std::string proc;        // sends: destination process; kReply: the process that asked
    std::string task;        // sends: destination task; broadcasts: sending task; kReply: the task that asked
    uint32_t timeout{};      // kSyncSend, in ms
    TagMsgBlock envelope{};  // sends and replies: as passed, its data pointer cleared
    Bytes data;              // payload, of a kReply the reply's
};

/// A copy of what was recorded since Reset or ClearJournal.
std::vector<Entry> Journal();
void ClearJournal();

// ---- scripted peers ----

/// What a scripted process answers to a synchronous message.
struct Answer {
    uint32_t code = OS_MSG_OK;  // else OsMsgSynSend fails with it
    Bytes data;                 // the reply's payload
    bool nullResponse = false;  // OsMsgSynSend succeeds but gives no reply envelope
    uint64_t afterMs = 0;       // virtual time until the answer; beyond the sender's limit it times out
};

/// Answers messages to a task of another process. Runs on the sending thread, before the wait.
using Script = std::function<Answer(const Entry& message)>;
void SetPeer(const std::string& proc, const std::string& task, Script script);
void RemovePeer(const std::string& proc, const std::string& task);

// ---- what was handed to the platform ----

std::vector<OsTimerParam> Timers();                      // live timers, oldest first; they fire as time passes
std::vector<InspectHandlerRecord> RegisteredHandlers();  // items given to InspectRegHandler, in order

// ---- simulated processes, for the suite that every platform must pass ----

/// From now until Reset, the test's own process must be on the bus (OsProcAttach, OsTaskRun) before it sends, replies
/// only to messages that it got, and broadcasts only from tasks that it has: as on every other platform. Without this
/// call a test may use the bus without joining it, and answer envelopes that it built by hand (msgType 1, reserved4
/// all zero).
void RequireAttach();

/// Runs `body` on a thread of its own as another process: its OsProcAttach, tasks and names are its own.
void StartProcess(std::function<void()> body);

/// The process of that name is gone at once, as after SIGKILL: its waiting calls and loops return.
void KillProcess(const std::string& procName);

}  // namespace kivo::fake
