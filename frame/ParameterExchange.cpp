// The common path of the schedule and Contact ID commands: a request built from a typed value
// list, one exchange with the controller, and the reply's fields stored through a second list.
//
// It differs from the ordinary transaction on purpose, and hosts rely on the differences: the
// reply's code is not tested (any message is taken as the answer, so an error message fails
// only by its field count), nothing is logged, the controller's result is passed on as sent,
// and an incomplete reply or a Rsp call leaves the reply list empty instead of failing.

#include <boost/any.hpp>
#include <boost/lexical_cast.hpp>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <sstream>

#include "frame/Context.h"
#include "frame/Master.h"
#include "frame/ParameterList.h"
#include "frame/Transaction.h"
#include "protocol/Result.h"
#include "protocol/Text.h"

namespace zanth {
namespace {

constexpr int32_t kListFailure = -1;
static_assert(kParameterTextSize == ZANTH_PARAMETER_TEXT_SIZE);

// True when `value` is a pointer of a meaningful type that is null: such a list can't be walked.
bool IsNullPointer(const boost::any& value) {
    if (const auto* p = boost::any_cast<int*>(&value)) return *p == nullptr;
    if (const auto* p = boost::any_cast<char*>(&value)) return *p == nullptr;
    return false;
}

bool HasNullPointer(const ParameterList& list) {
    for (const boost::any& value : list.Values()) {
        if (IsNullPointer(value)) return true;
    }
    return false;
}

}  // namespace

int32_t Master::ExchangeParameters(int32_t rspfunc, int32_t rspid, const char* mac, int32_t code,
                                   const ParameterList& requestList, ReplyList& replyList,
                                   char delimiter, const ParameterList* callerOutputs) {
    // The shared transaction gives the admission, the framing and the queueing, none of which
    // logs; the wait and the reading of the reply are this path's own.
    Transaction t(*this, "Master::ExchangeParameters", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    // A null pointer in either list would be followed by the walks below: refused before
    // anything goes out.
    if (HasNullPointer(requestList) || (callerOutputs && HasNullPointer(*callerOutputs))) {
        t.SetResult(kBadArgument);
        return t.Result();
    }

    Payload payload;
    for (const boost::any& value : requestList.Values()) {
        if (const auto* v = boost::any_cast<int>(&value)) {
            payload.Int(*v);
        } else if (const auto* p = boost::any_cast<int*>(&value)) {
            payload.Int(**p);
        } else if (const auto* s = boost::any_cast<char*>(&value)) {
            payload.Text(*s);
        } else if (const auto* u = boost::any_cast<unsigned short>(&value)) {
            payload.Uint(*u);
        } else {
            // The walk ends at the first value it can't write; nothing goes out.
            CopyBounded(recvBuffer_, "UNKNOWN TYPE", sizeof recvBuffer_);
            t.SetResult(kListFailure);
            return t.Result();
        }
    }
    if (!t.Send(code, payload)) return t.Result();

    // The slot's own result isn't looked at: a time-out leaves it all zero, which is no whole
    // message, and that leaves the reply list empty.
    context_->recvMon->GetBuffer(recvBuffer_, mac_, *context_->workerMon);
    recvBuffer_[kMessageBufferSize] = '\0';
    if (!util_.IsCompleteMessage(recvBuffer_, -1)) return t.Result();
    util_.ParseMessage(recvBuffer_, std::strlen(recvBuffer_), msgBuffer_, kMessageBufferSize,
                       &code_, &dataLen_);
    msgBuffer_[kMessageBufferSize] = '\0';

    // Every delimiter ends a field, empty ones included; text after the last delimiter is a
    // field too, and nothing follows a final one.
    std::istringstream in(std::string(msgBuffer_, ::strnlen(msgBuffer_, kMessageBufferSize)));
    for (std::string field; std::getline(in, field, delimiter);) replyList.push_back(field);
    return t.Result();
}

int32_t Master::StoreReplyFields(const ReplyList& replyList, const ParameterList& outputList) {
    if (replyList.size() != outputList.Size()) return kListFailure;
    int32_t stored = kOk;
    auto field = replyList.begin();
    for (const boost::any& value : outputList.Values()) {
        if (const auto* p = boost::any_cast<int*>(&value)) {
            // Strict: a field that isn't wholly a decimal number, the empty one included,
            // throws bad_lexical_cast out of the command. The export turns that into -1.
            int converted = boost::lexical_cast<int>(*field);
            if (*p) **p = converted;
        } else if (const auto* s = boost::any_cast<char*>(&value)) {
            // A field is never longer than one message's payload; the bound only makes sure.
            if (*s) std::snprintf(*s, kParameterTextSize, "%s", field->c_str());
        } else if (boost::any_cast<int>(&value) == nullptr) {
            stored = kListFailure;
        }
        ++field;
    }
    return stored;
}

int32_t Master::StatusCommand(int32_t rspfunc, int32_t rspid, const char* mac, int32_t code,
                              const ParameterList& requestList) {
    std::lock_guard<std::recursive_mutex> lock(transactionLock_);
    // Only a blocking call with a one-field reply changes it; a Rsp call, a failed exchange and
    // a reply of another length all give -1.
    int status = -1;
    ParameterList outputs{&status};
    ReplyList reply;
    result_ = ExchangeParameters(rspfunc, rspid, mac, code, requestList, reply, ';');
    result_ = StoreReplyFields(reply, outputs);
    return status;
}

int32_t Master::ResultCommand(int32_t rspfunc, int32_t rspid, const char* mac, int32_t code,
                              const ParameterList& requestList, const ParameterList& outputList,
                              char delimiter) {
    std::lock_guard<std::recursive_mutex> lock(transactionLock_);
    // Counted, not read: a reply with the right number of fields is 0 whatever it says, and a
    // Rsp call's empty reply list is -1 by the same count.
    ReplyList reply;
    result_ =
        ExchangeParameters(rspfunc, rspid, mac, code, requestList, reply, delimiter, &outputList);
    if (result_ == kOk) result_ = StoreReplyFields(reply, outputList);
    return result_;
}

}  // namespace zanth
