#pragma once
// Library threads with 32-bit ids and mailboxes, standing in for the system's thread
// handles and thread messages. Every thread the library starts goes through here, so
// that unloading can tell them to stop and wait for them.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "platform/Socket.h"

namespace platform {

using ThreadId = uint32_t;

// The thread messages the library posts to its own threads.
constexpr uint32_t WSA_ASYNC = 1101;
constexpr uint32_t TERM_MSG = 1103;        // the Listener and the Reset thread end
constexpr uint32_t WM_WORKER_KILL = 1104;  // a Worker that lost its link or its caller
constexpr uint32_t RESET_MSG = 1105;       // the Reset thread: ResetDLL
constexpr uint32_t KILL_MSG = 1106;        // ResetThread
constexpr uint32_t RKILL_MSG = 1107;       // RspResetThread

// Starts a library thread that runs `body`. Returns 0 and stores the new id (never 0), or the
// system's error number when no thread could be made. The thread's mailbox exists before this
// returns, so a post right after creation reaches it. `stackBytes` 0 takes the system's
// default stack.
int CreateThread(std::function<void()> body, ThreadId* id, bool suspended = false,
                 size_t stackBytes = 0);

// Lets a thread created suspended begin its body. The creator registers the new id first, so
// that nothing the thread does can come before its registration.
void ResumeThread(ThreadId id);

// The calling thread's library id, or 0 on a thread the library did not start.
ThreadId CurrentThreadId();

// Queues `message` in the mailbox of thread `id`. False when that thread has no mailbox
// (never started, or already ended).
bool PostThreadMessage(ThreadId id, uint32_t message);

// Takes the oldest message of the calling thread's mailbox without waiting.
bool PeekThreadMessage(uint32_t* message);

// Takes the oldest message, waiting for one. Returns 1 with a message, 0 when the library is
// being unloaded (the caller leaves its loop), -1 when the calling thread has no mailbox.
int GetThreadMessage(uint32_t* message);

// Forced end of a thread. Nothing is killed: the thread is marked, its kill hook runs (a
// Worker's shuts its socket down), and the thread is expected to leave without touching
// shared state. False when no such live thread exists.
bool TerminateThread(ThreadId id);

// True once TerminateThread has been called for the calling thread.
bool ThisThreadKilled();

// Sets what TerminateThread does to the calling thread; an empty function clears it.
void SetKillHook(std::function<void()> hook);

// Wake-ups of a thread that waits for its socket (WaitForSocketOrWake): a command for it, the
// library's end, its own forced end. A wake-up is kept until the thread waits, so none is lost.
void WakeThread(ThreadId id);
void WakeAllThreads();
// Waits until `socket` has something to read (or an error or end of stream), the calling thread
// is woken, or `timeoutMs` passes (negative: no limit). Returns at once while unloading.
void WaitForSocketOrWake(SocketHandle socket, int timeoutMs);

// Sleeps, or returns early when the library is being unloaded.
void Sleep(uint32_t milliseconds);

// Unloading: from BeginUnload on, sleeps and blocking takes return at once so that every
// library thread reaches its loop's end quickly. EndUnload clears the state again (a new
// load in the same process).
void BeginUnload();
void EndUnload();
bool Unloading();

// Joins the threads that have ended since the last look, so that their stacks and records go
// now, not at the next thread's start.
void ReapFinishedThreads();

// Waits up to `bound` for all library threads to end; true when none is left.
bool WaitForLibraryThreads(std::chrono::milliseconds bound);

// The process is ending while the library is loaded (on Windows, ExitProcess): the system has
// already ended every other thread, wherever it stood, and takes back all the process holds.
// Nothing is left to wait for, and a lock such a thread held stays held. Noted by the library's
// entry point on Windows; never on POSIX, where exit runs the destructors with the threads alive.
void NoteProcessExit();
bool ProcessExiting();
size_t LiveThreadCount();

}  // namespace platform
