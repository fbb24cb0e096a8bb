#pragma once
// The typed value lists of the schedule and Contact ID commands. A command builds one list for
// its request and one for its outputs and hands both to Master's common parameter exchange:
//
//     ParameterList request{scheduleId};                       // "7;"
//     ParameterList outputs{&status};                          // the reply's one field
//     ReplyList reply;
//     ExchangeParameters(rspfunc, rspid, mac, ZANTH_DELETE_SCHEDULE, request, reply, ';');
//     StoreReplyFields(reply, outputs);
//
// Four held types have a meaning, and commands use no other:
//
//   held type        in a request                   as an output
//   int              its decimal value              its reply field is passed over
//   int*             the value pointed to           the field, strictly converted, stored there
//   char*            the text                       the field copied there as text
//   unsigned short   its decimal value              not allowed: the store gives -1
//
// Any other type fails the walk that meets it (-1).

#include <boost/any.hpp>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <list>
#include <string>
#include <type_traits>
#include <vector>

#include "protocol/CommandRecord.h"

namespace zanth {

// The exports' 32-bit integers must be the lists' int, or their pointers would be held as
// another type and refused.
static_assert(sizeof(int) == 4 && std::is_same_v<int32_t, int>);

class ParameterList {
  public:
    ParameterList() = default;
    ParameterList(std::initializer_list<boost::any> values) : values_(values) {}

    void Add(boost::any value) { values_.push_back(std::move(value)); }
    size_t Size() const { return values_.size(); }
    const std::list<boost::any>& Values() const { return values_; }

  private:
    std::list<boost::any> values_;
};

// The fields of a reply, in order, as the exchange cut them.
using ReplyList = std::vector<std::string>;

// A reply field copied into a char* output is at most the payload of one message, so an output
// text buffer of this size holds any reply; the copy never writes beyond it.
constexpr size_t kParameterTextSize = kMessageBufferSize - kClearHeaderSize + 1;

// The outputs a Rsp form of a reading command hands the method in place of the host's: the
// method takes its outputs unconditionally, and a Rsp call never writes them.
template <int Texts, int Values>
struct UnreadOutputs {
    char text[Texts][kParameterTextSize];
    int32_t value[Values];
};

}  // namespace zanth
