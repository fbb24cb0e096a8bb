#pragma once
// The one shape of every command method: valid and connected checks, argument checks, framing
// and queueing, the blocking wait, and the reading of the reply. A command method states only
// its code, its checks, its payload and how it reads the reply; each step runs only while the
// result is still 0, so the first failure stands.
//
//     Transaction t(*this, "Master::RebootBoard", rspfunc, rspid, mac);
//     if (!t.Admit() || !t.CheckRange(target, 0, 32, "... between %d and %d")) return t.Result();
//     if (!t.Send(ZANTH_REBOOT_INTERFACE, "%d;", target)) return t.Result();
//     if (!t.Await() || !t.Expect(ZANTH_REBOOT_INTERFACE_RSP)) return t.Result();
//     return t.BareResult();

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <mutex>

#include "frame/Master.h"

namespace zanth {

class Transaction {
public:
    struct Output {
        void* buffer;
        int32_t size;
    };

    // Takes the transaction lock for the life of the object and sets the result to 0.
    Transaction(Master& master, const char* method, int32_t rspfunc, int32_t rspid,
                const char* mac);

    // The MAC must be valid (-10004) and, if it is, connected (-10003).
    bool Admit();
    // Only the valid test (-10004).
    bool AdmitValid();
    // One argument check: outside [low, high] logs `text` with the two bounds at level 50 and
    // gives -10002.
    bool CheckRange(int64_t value, int64_t low, int64_t high, const char* text);
    // A failed check with a text of its own.
    bool Refuse(const char* text);
    // Formats the payload, frames it under `code` and queues it for the Worker. True when the
    // caller is to wait for the reply: nothing failed and the call is the blocking form.
    bool Send(int32_t code, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // A message with an empty payload.
    bool Send(int32_t code) { return SendPayload(code, "", 0); }
    bool SendPayload(int32_t code, const char* payload, size_t length,
                     const char* gatewayPathFile = "", const char* pcPathFile = "");
    // The blocking wait, then the clearing of the caller's outputs, then the parse of the reply
    // into the payload. False with -10005 when no whole message came.
    bool Await(std::initializer_list<Output> outputs = {});
    // False, with CheckErrorCode's result, when the reply isn't `reply`.
    bool Expect(int32_t reply);
    bool ExpectAny(std::initializer_list<int32_t> replies);
    // The reply's first field as the controller's result; -99 to -1 become -10001. -10011 when
    // there is no field.
    int32_t BareResult();

    int32_t Result() const { return m_.result_; }
    void SetResult(int32_t result) { m_.result_ = result; }
    bool Ok() const { return m_.result_ == 0; }
    int32_t Code() const { return m_.code_; }
    // The reply's payload after Await, and its length by the header.
    char* Payload() { return m_.msgBuffer_; }
    int32_t PayloadLength() const { return m_.dataLen_; }
    // The whole raw reply after Await.
    const char* Reply() const { return m_.recvBuffer_; }
    Tokens& Fields(const char* delimiters = ";");
    const char* Method() const { return method_; }
    const char* Mac() const { return m_.mac_; }
    bool Blocking() const { return rspfunc_ == 0; }
    void LogTrace(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    Master& m_;
    std::unique_lock<std::recursive_mutex> lock_;
    const char* method_;
    int32_t rspfunc_;
    int32_t rspid_;
};

}  // namespace zanth
