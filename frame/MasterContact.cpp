// Outbound contact: the library opens the TCP connection and invites the controller to identify.

#include <cstdio>
#include <cstring>

#include "connection/Worker.h"
#include "frame/ArgumentCheck.h"
#include "frame/Context.h"
#include "frame/Master.h"
#include "platform/Thread.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

int32_t Master::ContactGateway(int32_t rspfunc, int32_t rspid, const char* iphostname,
                               int32_t port) {
    std::lock_guard<std::recursive_mutex> g(transactionLock_);
    result_ = 0;
    if (context_->Terminating()) result_ = kTerminating;
    ArgumentCheck("Master::ContactGateway", result_, logText_, masterName_)
        .Check("port", port, 1025, 65535);
    if (result_ != 0) return result_;

    contactArgs_ = WorkerStartRecord{};
    contactArgs_.type = kOutboundLink;
    CopyBounded(contactArgs_.iphostname, iphostname ? iphostname : "",
                sizeof contactArgs_.iphostname);
    contactArgs_.port = port;
    contactArgs_.rspfunc = rspfunc;
    contactArgs_.rspid = rspid;
    WorkerStartRecord start = contactArgs_;
    Context& c = *context_;
    int error = platform::CreateThread(
        [start, &c] {
            Worker* worker = new Worker(start, c, *c.seedMon);
            worker->Run();
            delete worker;
        },
        &threadId_, true, kWorkerStackBytes);
    if (error != 0) {
        FormatText(logText2_, sizeof logText2_, "Error code = %d", error);
        Log(masterName_, kLogError, "[Master::ContactGateway] Error on CreateThread", logText2_);
        return result_ = kNoContactThread;
    }
    c.workerMon->AddUnidentified(threadId_);
    platform::ResumeThread(threadId_);

    if (rspfunc == 0) {
        c.recvMon->GetBuffer(recvBuffer_, "0001", *c.workerMon);
        recvBuffer_[kMessageBufferSize] = '\0';
        // A timed-out wait leaves the text empty, and the result 0.
        if (std::sscanf(recvBuffer_, "%d", &result_) != 1) result_ = 0;
        int32_t removed = 0;
        c.workerMon->RemoveWorker("0001", &removed);
    }
    return result_;
}

}  // namespace zanth
