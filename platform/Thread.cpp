#include "platform/Thread.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "platform/NativeThread.h"
#include "platform/Waker.h"

namespace platform {
namespace {

struct ThreadState {
    ThreadId id = 0;
    std::mutex lock;
    std::condition_variable arrived;
    std::deque<uint32_t> mailbox;
    bool open = true;
    std::atomic<bool> killed{false};
    std::function<void()> killHook;
    bool finished = false;   // guarded by the registry lock
    bool suspended = false;  // guarded by `lock`
    // Keeps wake-ups until the thread waits; closed once the thread has ended. Signalled and
    // closed under `lock`; waited on without it, only by the thread itself.
    Waker waker;
    NativeThread thread;
};

struct Registry {
    std::mutex lock;
    std::condition_variable ended;
    std::unordered_map<ThreadId, std::shared_ptr<ThreadState>> threads;
    ThreadId next = 1;
    size_t live = 0;

    std::mutex unloadLock;
    std::condition_variable unloadSignal;
    std::atomic<bool> unloading{false};

    // Joins threads that have finished their bodies; called with `lock` held. A finished thread
    // touches nothing of the registry any more, so joining it here cannot deadlock.
    void Reap() {
        for (auto it = threads.begin(); it != threads.end();) {
            if (it->second->finished) {
                if (it->second->thread.Joinable()) it->second->thread.Join();
                it = threads.erase(it);
            } else {
                ++it;
            }
        }
    }
};

// Never destroyed: threads may outlive every static object of the library.
Registry& TheRegistry() {
    static Registry* registry = new Registry;
    return *registry;
}

thread_local std::shared_ptr<ThreadState> self;

// Called with the state's lock held.
void Wake(ThreadState& state) {
    state.waker.Signal();
}

std::shared_ptr<ThreadState> Find(ThreadId id) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> g(r.lock);
    auto it = r.threads.find(id);
    if (it == r.threads.end() || it->second->finished) return nullptr;
    return it->second;
}

}  // namespace

int CreateThread(std::function<void()> body, ThreadId* id, bool suspended, size_t stackBytes) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> g(r.lock);
    r.Reap();
    auto state = std::make_shared<ThreadState>();
    do {
        state->id = r.next++;
    } while (state->id == 0 || r.threads.count(state->id) != 0);
    state->suspended = suspended;
    int error = state->thread.Start(
        [state, body = std::move(body)]() {
            self = state;
            {
                std::unique_lock<std::mutex> m(state->lock);
                state->arrived.wait(m, [&state] { return !state->suspended; });
            }
            body();
            {
                std::lock_guard<std::mutex> m(state->lock);
                state->open = false;
                state->mailbox.clear();
                state->killHook = nullptr;
                state->waker.Close();
            }
            Registry& reg = TheRegistry();
            std::lock_guard<std::mutex> rg(reg.lock);
            state->finished = true;
            --reg.live;
            reg.ended.notify_all();
        },
        stackBytes);
    if (error != 0) return error;
    r.threads.emplace(state->id, state);
    ++r.live;
    if (id) *id = state->id;
    return 0;
}

void ResumeThread(ThreadId id) {
    auto state = Find(id);
    if (!state) return;
    {
        std::lock_guard<std::mutex> g(state->lock);
        state->suspended = false;
    }
    state->arrived.notify_all();
}

ThreadId CurrentThreadId() {
    return self ? self->id : 0;
}

bool PostThreadMessage(ThreadId id, uint32_t message) {
    auto state = Find(id);
    if (!state) return false;
    std::lock_guard<std::mutex> g(state->lock);
    if (!state->open) return false;
    state->mailbox.push_back(message);
    state->arrived.notify_one();
    return true;
}

bool PeekThreadMessage(uint32_t* message) {
    if (!self) return false;
    std::lock_guard<std::mutex> g(self->lock);
    if (self->mailbox.empty()) return false;
    *message = self->mailbox.front();
    self->mailbox.pop_front();
    return true;
}

int GetThreadMessage(uint32_t* message) {
    if (!self) return -1;
    std::unique_lock<std::mutex> g(self->lock);
    while (self->mailbox.empty()) {
        if (Unloading()) return 0;
        // A bounded wait so that the unload flag is seen even without a post.
        self->arrived.wait_for(g, std::chrono::milliseconds(100));
    }
    *message = self->mailbox.front();
    self->mailbox.pop_front();
    return 1;
}

bool TerminateThread(ThreadId id) {
    auto state = Find(id);
    if (!state) return false;
    std::lock_guard<std::mutex> g(state->lock);
    if (!state->open) return false;
    state->killed = true;
    if (state->killHook) state->killHook();
    state->arrived.notify_all();
    Wake(*state);
    return true;
}

void WakeThread(ThreadId id) {
    if (id == 0) return;
    auto state = Find(id);
    if (!state) return;
    std::lock_guard<std::mutex> g(state->lock);
    Wake(*state);
}

void WakeAllThreads() {
    std::vector<std::shared_ptr<ThreadState>> all;
    {
        Registry& r = TheRegistry();
        std::lock_guard<std::mutex> g(r.lock);
        for (auto& entry : r.threads) all.push_back(entry.second);
    }
    for (auto& state : all) {
        std::lock_guard<std::mutex> g(state->lock);
        Wake(*state);
    }
}

void WaitForSocketOrWake(SocketHandle socket, int timeoutMs) {
    if (!self || Unloading()) return;
    self->waker.Wait(socket, timeoutMs);
}

bool ThisThreadKilled() {
    return self && self->killed.load();
}

void SetKillHook(std::function<void()> hook) {
    if (!self) return;
    std::lock_guard<std::mutex> g(self->lock);
    self->killHook = std::move(hook);
}

void Sleep(uint32_t milliseconds) {
    Registry& r = TheRegistry();
    std::unique_lock<std::mutex> g(r.unloadLock);
    r.unloadSignal.wait_for(g, std::chrono::milliseconds(milliseconds),
                            [&r] { return r.unloading.load(); });
}

void BeginUnload() {
    Registry& r = TheRegistry();
    {
        std::lock_guard<std::mutex> g(r.unloadLock);
        r.unloading = true;
    }
    r.unloadSignal.notify_all();
    WakeAllThreads();
}

void EndUnload() {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> g(r.unloadLock);
    r.unloading = false;
}

bool Unloading() {
    return TheRegistry().unloading.load();
}

void ReapFinishedThreads() {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> g(r.lock);
    r.Reap();
}

bool WaitForLibraryThreads(std::chrono::milliseconds bound) {
    Registry& r = TheRegistry();
    std::unique_lock<std::mutex> g(r.lock);
    bool done = r.ended.wait_for(g, bound, [&r] { return r.live == 0; });
    if (done) r.Reap();
    return done;
}

namespace {
std::atomic<bool> processExiting{false};
}  // namespace

void NoteProcessExit() {
    processExiting = true;
}

bool ProcessExiting() {
    return processExiting.load();
}

size_t LiveThreadCount() {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> g(r.lock);
    return r.live;
}

}  // namespace platform
