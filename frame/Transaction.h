#pragma once
// The one shape of every command method: valid and connected checks, argument checks, framing
// and queueing, the blocking wait, and the reading of the reply. A command method states only
// its code, its checks, its payload and how it reads the reply; each step runs only while the
// result is still 0, so the first failure stands.
//
//     Transaction t(*this, "Master::RebootBoard2", rspfunc, rspid, mac);
//     if (!t.Admit() || !t.Check("target", target, 0, 32)) return t.Result();
//     if (!t.Send(ZANTH_REBOOT, Payload().Int(target)) || target == 32) return t.Result();
//     if (!t.Await() || !t.Expect(ZANTH_REBOOT_RSP)) return t.Result();
//     return t.BareResult();
//
// A reply of several fields is read with Fields() (see ReplyFields.h); docs/DESIGN.md walks
// through a whole command.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <mutex>

#include "frame/ArgumentCheck.h"
#include "frame/Master.h"
#include "frame/ReplyFields.h"
#include "protocol/Payload.h"
#include "protocol/Result.h"

namespace zanth {

class Transaction : public ArgumentCheck {
  public:
    // A caller's output buffer, cleared once a blocking wait has ended.
    struct Output {
        void* buffer;
        int32_t size;
    };

    // Takes the transaction lock for the life of the object and sets the result to 0. `method`
    // is the name the log texts carry, "Master::X".
    Transaction(Master& master, const char* method, int32_t rspfunc, int32_t rspid,
                const char* mac);

    // The MAC must be valid (-10004) and, if it is, connected (-10003).
    bool Admit();
    // Only the valid test (-10004).
    bool AdmitValid();

    // The argument checks of ArgumentCheck (Check, CheckBetween, CheckRange, Refuse, Present)
    // come with the method's name; each gives -10002 once the MAC has passed.

    // Frames the payload under `code` and queues it for the Worker. True when the caller is to
    // wait for the reply: nothing failed and the call is the blocking form. A payload longer
    // than a frame gives -10006 and nothing is queued.
    bool Send(int32_t code, const Payload& payload, const char* gatewayPathFile = "",
              const char* pcPathFile = "");
    // A message with an empty payload.
    bool Send(int32_t code);
    // A message that no caller awaits (rspfunc 0, rspid 0), whichever form the call is: the
    // file transfers' refusal of a chunk. The result stays as it is.
    void SendUnawaited(int32_t code, const Payload& payload);

    // Words between the method's name and "code=%d" in the reply's code line, for methods whose
    // modes name themselves there ("[Master::SystemTime] get time code=%d").
    void CodeWords(const char* words) { codeWords_ = words; }

    // The blocking wait, then the clearing of the caller's outputs, then the parse of the reply
    // into the payload. False with -10005 when no whole message came.
    bool Await(std::initializer_list<Output> outputs = {});
    // The wait alone, for the replies that skip Await's completeness test and its log lines:
    // the raw reply, or zeros after a time-out, is then in Reply(). Nothing is parsed, so a
    // binary chunk keeps its bytes. False when the wait ran out.
    bool ReceiveRaw();
    // The wait of the newer commands that read their replies loosely and log them in their own
    // words: no standard log lines and no result set. The outputs are cleared as in Await, and a
    // whole message is parsed into the payload and the code.
    enum class Reception {
        kNothing,     // the reply slot gave nothing: the wait ended
        kIncomplete,  // something came, but no whole message
        kMessage,     // a whole message, parsed
    };
    Reception Receive(std::initializer_list<Output> outputs = {});
    // The wait for a file's chunk, which is binary and may be empty: the raw reply parsed by the
    // length its header gives, with no completeness test and no log lines. After a time-out the
    // zeroed slot parses as code 0.
    void ReceiveChunk();
    // The file transfers' lines of a reply: "[Master::X] code=%d count=%d", then the payload
    // as Await logs it.
    void LogReplyAndCount();

    // False, with CheckErrorCode's result, when the reply isn't `reply`.
    bool Expect(int32_t reply);
    bool ExpectAny(std::initializer_list<int32_t> replies);

    // The reply's fields, in order, into typed outputs; failures become the result.
    ReplyFields Fields(FieldWalk walk = FieldWalk::kTokens);
    // The reply's first field as the controller's result ("[Master::X] rslt=%d"); -99 to -1
    // become -10001. -10011 when there is no field.
    int32_t BareResult();
    // The whole payload as one text; -10006 when `size` isn't greater than its length.
    bool TakePayload(char* buffer, int32_t size);

    int32_t Result() const { return m_.result_; }
    void SetResult(int32_t result) { m_.result_ = result; }
    bool Ok() const { return m_.result_ == 0; }
    int32_t Code() const { return m_.code_; }
    // The reply's payload after Await, and its length by the header.
    const char* ReplyPayload() const { return m_.msgBuffer_; }
    int32_t PayloadLength() const { return m_.dataLen_; }
    // The whole raw reply after Await.
    const char* Reply() const { return m_.recvBuffer_; }
    const char* Mac() const { return m_.mac_; }
    bool Blocking() const { return rspfunc_ == 0; }
    // A log line of the method's own, at `level`.
    void LogLine(int32_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // The log's source column for lines of two texts.
    const char* LogSource() const { return m_.masterName_; }

  private:
    // "[Master::X] code=%d", with the code words if any, into the first log text.
    void FormatCodeLine();
    // "[Master::X] recv:" and the payload, filtered, when it is shorter than the log's limit.
    void LogPayload();

    Master& m_;
    std::unique_lock<std::recursive_mutex> lock_;
    const char* method_;
    int32_t rspfunc_;
    int32_t rspid_;
    const char* codeWords_ = nullptr;
};

}  // namespace zanth
