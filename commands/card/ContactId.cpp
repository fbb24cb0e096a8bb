// Contact ID records, group records and communication records: updated, read and deleted as
// typed value lists on the common parameter exchange. The library checks none of the fields;
// their meaning lies with the controller.

#include <mutex>

#include "frame/Master.h"
#include "frame/ParameterList.h"
#include "protocol/Codes.h"

namespace zanth {
namespace {

// The request lists hold texts as char*, the type the exchange writes as text; a request text
// is only read.
char* RequestText(const char* text) {
    return const_cast<char*>(text);
}

}  // namespace

int32_t Master::UpdateContactIDRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                      const char* contactText1, int32_t contactValue1,
                                      int32_t contactValue2, int32_t contactValue3,
                                      int32_t contactValue4, int32_t contactValue5,
                                      int32_t contactValue6, int32_t contactValue7,
                                      const char* contactText2, const char* contactText3) {
    std::lock_guard<std::recursive_mutex> lock(transactionLock_);
    ParameterList request{RequestText(contactText1),
                          contactValue1,
                          contactValue2,
                          contactValue3,
                          contactValue4,
                          contactValue5,
                          contactValue6,
                          contactValue7,
                          RequestText(contactText2),
                          RequestText(contactText3)};
    // The controller's answer is stored and dropped: the caller learns only whether the
    // message went out (a field that is no number still throws out of the store).
    int answer = 0;
    ReplyList reply;
    result_ =
        ExchangeParameters(rspfunc, rspid, mac, ZANTH_UPDATE_CONTACTID_RECORD, request, reply, ';');
    StoreReplyFields(reply, {&answer});
    return result_;
}

int32_t Master::GetContactIDRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                   char* contactText1, int32_t* contactValue1,
                                   int32_t* contactValue2, int32_t* contactValue3,
                                   int32_t* contactValue4, int32_t* contactValue5,
                                   int32_t* contactValue6, int32_t* contactValue7,
                                   char* contactText2, char* contactText3) {
    // The key travels in the third value and the reply overwrites it. No result field leads
    // the reply: whatever comes first is the first text.
    ParameterList outputs{contactText1,  contactValue1, contactValue2, contactValue3, contactValue4,
                          contactValue5, contactValue6, contactValue7, contactText2,  contactText3};
    return ResultCommand(rspfunc, rspid, mac, ZANTH_GET_CONTACTID_RECORD, {contactValue3}, outputs);
}

int32_t Master::DeleteContactIDRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                      int32_t contactId) {
    std::lock_guard<std::recursive_mutex> lock(transactionLock_);
    // Nothing of the reply is kept: any reply, or none, is a success once the message went out.
    ReplyList reply;
    result_ = ExchangeParameters(rspfunc, rspid, mac, ZANTH_DELETE_CONTACTID_RECORD, {contactId},
                                 reply, ';');
    return result_;
}

int32_t Master::UpdateContactIDGroupRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                           int32_t groupId, const char* groupText,
                                           int32_t groupValue) {
    // The text goes first on the wire, though the number comes first from the host.
    return StatusCommand(rspfunc, rspid, mac, ZANTH_UPDATE_CONTACTID_GROUP_RECORD,
                         {RequestText(groupText), groupId, groupValue});
}

int32_t Master::GetContactIDGroupRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                        int32_t* groupId, char* groupText, int32_t* groupValue) {
    // The third field lands in the key's own place, which the export keeps as a local.
    return ResultCommand(rspfunc, rspid, mac, ZANTH_GET_CONTACTID_GROUP_RECORD, {groupId},
                         {groupText, groupValue, groupId});
}

int32_t Master::DeleteContactIDGroupRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                           int32_t groupId) {
    return StatusCommand(rspfunc, rspid, mac, ZANTH_DELETE_CONTACTID_GROUP_RECORD, {groupId});
}

int32_t Master::UpdateContactIDCommRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                          int32_t commId, const char* commText,
                                          uint16_t commValue) {
    return StatusCommand(rspfunc, rspid, mac, ZANTH_UPDATE_CONTACTID_COMM_RECORD,
                         {commId, RequestText(commText), static_cast<unsigned short>(commValue)});
}

int32_t Master::GetContactIDCommRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                       int32_t commId, char* commText) {
    // Cut at '#', not ';': the one output takes the reply's payload whole, semicolons and all.
    return ResultCommand(rspfunc, rspid, mac, ZANTH_GET_CONTACTID_COMM_RECORD, {commId}, {commText},
                         '#');
}

int32_t Master::DeleteContactIDCommRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                          const char* commText, int32_t commId) {
    // The host gives the text first; the wire has the number first.
    return StatusCommand(rspfunc, rspid, mac, ZANTH_DELETE_CONTACTID_COMM_RECORD,
                         {commId, RequestText(commText)});
}

}  // namespace zanth
