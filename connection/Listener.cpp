#include "connection/Listener.h"

#include <cstring>

#include "connection/Worker.h"
#include "monitors/Monitors.h"
#include "platform/Thread.h"
#include "protocol/Codes.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

constexpr int kListenBacklog = 4096;
constexpr int kAcceptsPerTurn = 10000;

}  // namespace

Listener::Listener(int32_t port, void* parentWindow, void* instance, Monitors& monitors,
                   SeedHashMon& seeds)
    : port_(port),
      parentWindow_(parentWindow),
      instance_(instance),
      monitors_(monitors),
      seeds_(seeds) {
    CopyBounded(name_, "listener", sizeof name_);
    logText_[0] = logText2_[0] = '\0';
    std::memset(buffer_, 0, sizeof buffer_);

    // Each failure stops the whole library: Initialization has already returned.
    listenSocket_ = platform::OpenTcpSocket();
    if (listenSocket_ == platform::kInvalidSocket) {
        LogSocketError(kLogFatal, "[Listener::Listener] Error on socket",
                       platform::LastSocketError());
        monitors_.handleMon->SetTerminating(1);
        return;
    }
    platform::SetReuseAddress(listenSocket_);
    // The notification of a pending connection is a poll of a non-blocking socket here.
    if (platform::SetNonBlocking(listenSocket_) != 0) {
        LogSocketError(kLogFatal, "[Listener::Listener] Error on WSAAsyncSelect",
                       platform::LastSocketError());
        monitors_.handleMon->SetTerminating(1);
        return;
    }
    if (platform::BindAny(listenSocket_, port_) != 0) {
        LogSocketError(kLogFatal, "[Listener::Listener] Error on bind",
                       platform::LastSocketError());
        monitors_.handleMon->SetTerminating(1);
        return;
    }
    // A backlog for a whole site reconnecting at once after a switch restarts.
    if (platform::Listen(listenSocket_, kListenBacklog) != 0) {
        LogSocketError(kLogFatal, "[Listener::Listener] Error on listen",
                       platform::LastSocketError());
        monitors_.handleMon->SetTerminating(1);
    }
}

Listener::~Listener() {
    if (listenSocket_ != platform::kInvalidSocket && platform::CloseSocket(listenSocket_) != 0) {
        LogSocketError(kLogError, "[Listener::~Listener] Error on closesocket",
                       platform::LastSocketError());
    }
    if (!monitors_.Terminating()) {
        // Only this listener's registration goes; a newer one may stand under the name already.
        if (monitors_.handleMon->ThreadIdOf("listener") == platform::CurrentThreadId()) {
            int32_t index = 0;
            monitors_.handleMon->Remove("listener", &index);
        }
    }
    Log(name_, kLogTrace, "[Listener::~Listener] Listener thread terminated");
}

void Listener::LogSocketError(int32_t level, const char* text, int error) {
    MessageUtil::SocketErrorText(error, logText2_, sizeof logText2_);
    Log(name_, level, text, logText2_);
}

void Listener::Run() {
    for (;;) {
        uint32_t message = 0;
        while (platform::PeekThreadMessage(&message)) {
            if (message == platform::TERM_MSG) {
                Log(name_, kLogTrace,
                    "[Listener::Run] GetMessage = WSA_ASYNC : WSAEvent = TERM_MSG");
                return;
            }
        }
        // Every connection pending at this turn is taken, not one a turn: after a network
        // outage a whole site calls at once. A bound keeps a flood from holding the turn.
        for (int taken = 0; taken < kAcceptsPerTurn && listenSocket_ != platform::kInvalidSocket &&
                            platform::Readable(listenSocket_, 0);
             ++taken) {
            Log(name_, kLogTrace, "[Listener::Run] GetMessage = WSA_ASYNC : WSAEvent = FD_ACCEPT");
            {
                std::lock_guard<std::mutex> g(acceptLock_);
                Accept();
            }
            Log(name_, kLogTrace, "[Listener::Run] DispatchMessage FD_ACCEPT");
            if (monitors_.Terminating()) break;
        }
        // Workers that ended (a storm of links that never identified, say) give back their
        // threads' stacks and records now, rather than when the next link comes.
        platform::ReapFinishedThreads();
        platform::Sleep(100);
        if (monitors_.Terminating()) return;
    }
}

void Listener::Accept() {
    acceptSocket_ = platform::Accept(listenSocket_);
    if (acceptSocket_ == platform::kInvalidSocket) {
        int error = platform::LastSocketError();
        if (error != platform::WSAEWOULDBLOCK) {
            LogSocketError(kLogError, "[Listener::Accept] Error on accept", error);
        }
        return;
    }
    if (platform::SetNoDelay(acceptSocket_) != 0) {
        LogSocketError(kLogError, "[Listener::Accept] Error disabling the Nagle algorithm",
                       platform::LastSocketError());
    }
    if (platform::SetNonBlocking(acceptSocket_) != 0) {
        LogSocketError(kLogError, "[Listener::Accept] Error on ioctlsocket setting non-blocking",
                       platform::LastSocketError());
    }
    if (monitors_.Terminating()) {
        Refuse(1);
        return;
    }
    startRecord_ = WorkerStartRecord{};
    startRecord_.socket = acceptSocket_;
    startRecord_.parentWindow = parentWindow_;
    startRecord_.instance = instance_;
    startRecord_.type = kAcceptedLink;
    WorkerStartRecord start = startRecord_;
    Monitors& monitors = monitors_;
    SeedHashMon& seeds = seeds_;
    platform::ThreadId id = 0;
    // Created suspended so that the Worker can't identify before it is listed.
    int error = platform::CreateThread(
        [start, &monitors, &seeds] {
            Worker* worker = new Worker(start, monitors, seeds);
            worker->Run();
            delete worker;
        },
        &id, true, kWorkerStackBytes);
    if (error != 0) {
        FormatText(logText2_, sizeof logText2_, "Error code = %d", error);
        Log(name_, kLogError, "[Listener::Accept] Error on CreateThread", logText2_);
        // Not left dangling: the controller sees the link close and calls again.
        platform::CloseSocket(acceptSocket_);
        return;
    }
    Log(name_, kLogTrace, "[Listener::Accept] accept connection and add worker thread");
    monitors_.workerMon->AddUnidentified(id);
    platform::ResumeThread(id);
}

void Listener::Refuse(int which) {
    const char* where = which == 1 ? "Listener::Accept" : "Listener::TERM_MSG";
    std::memset(buffer_, 0, sizeof buffer_);
    if (platform::Recv(acceptSocket_, buffer_, kMessageBufferSize, false) < 0) {
        FormatText(logText_, sizeof logText_, "[%s] Error on recv", where);
        LogSocketError(kLogError, logText_, platform::LastSocketError());
    }
    char frame[kMessageBufferSize + 1];
    util_.BuildMessage(ZANTH_TERMINATE, "", 0, frame, kMessageBufferSize);
    if (platform::Send(acceptSocket_, frame, kClearHeaderSize) < 0) {
        FormatText(logText_, sizeof logText_, "[%s] Error on send", where);
        LogSocketError(kLogError, logText_, platform::LastSocketError());
    }
    if (platform::ShutdownBoth(acceptSocket_) != 0) {
        FormatText(logText_, sizeof logText_, "[%s] Error on shutdown", where);
        LogSocketError(kLogError, logText_, platform::LastSocketError());
    }
    if (platform::CloseSocket(acceptSocket_) != 0) {
        FormatText(logText_, sizeof logText_, "[%s] Error on closesocket", where);
        LogSocketError(kLogError, logText_, platform::LastSocketError());
    }
    acceptSocket_ = platform::kInvalidSocket;
}

}  // namespace zanth
