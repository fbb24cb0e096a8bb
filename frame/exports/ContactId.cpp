// Contact ID records, group records and communication records on the common parameter
// exchange.

#include "frame/ParameterList.h"
#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

ZANTH_API int32_t UpdateContactIDRecord(const char* mac, const char* contactText1,
                                        int32_t contactValue1, int32_t contactValue2,
                                        int32_t contactValue3, int32_t contactValue4,
                                        int32_t contactValue5, int32_t contactValue6,
                                        int32_t contactValue7, const char* contactText2,
                                        const char* contactText3) {
    return Blocking<&Master::UpdateContactIDRecord>(
        mac, contactText1, contactValue1, contactValue2, contactValue3, contactValue4,
        contactValue5, contactValue6, contactValue7, contactText2, contactText3);
}
ZANTH_API int32_t RspUpdateContactIDRecord(uint32_t rspid, const char* mac,
                                           const char* contactText1, int32_t contactValue1,
                                           int32_t contactValue2, int32_t contactValue3,
                                           int32_t contactValue4, int32_t contactValue5,
                                           int32_t contactValue6, int32_t contactValue7,
                                           const char* contactText2, const char* contactText3) {
    return Deferred<&Master::UpdateContactIDRecord>(
        rspid, mac, contactText1, contactValue1, contactValue2, contactValue3, contactValue4,
        contactValue5, contactValue6, contactValue7, contactText2, contactText3);
}
ZANTH_API int32_t GetContactIDRecord(const char* mac, char* contactText1, int32_t* contactValue1,
                                     int32_t* contactValue2, int32_t* contactValue3,
                                     int32_t* contactValue4, int32_t* contactValue5,
                                     int32_t* contactValue6, int32_t* contactValue7,
                                     char* contactText2, char* contactText3) {
    return Blocking<&Master::GetContactIDRecord>(
        mac, contactText1, contactValue1, contactValue2, contactValue3, contactValue4,
        contactValue5, contactValue6, contactValue7, contactText2, contactText3);
}
// The key goes in the third value, as in the blocking form.
ZANTH_API int32_t RspGetContactIDRecord(uint32_t rspid, const char* mac, int32_t contactValue3) {
    UnreadOutputs<3, 7> d;
    d.value[2] = contactValue3;
    return Deferred<&Master::GetContactIDRecord>(rspid, mac, d.text[0], &d.value[0], &d.value[1],
                                                 &d.value[2], &d.value[3], &d.value[4], &d.value[5],
                                                 &d.value[6], d.text[1], d.text[2]);
}
ZANTH_API int32_t DeleteContactIDRecord(const char* mac, int32_t contactId) {
    return Blocking<&Master::DeleteContactIDRecord>(mac, contactId);
}
ZANTH_API int32_t RspDeleteContactIDRecord(uint32_t rspid, const char* mac, int32_t contactId) {
    return Deferred<&Master::DeleteContactIDRecord>(rspid, mac, contactId);
}
ZANTH_API int32_t UpdateContactIDGroupRecord(const char* mac, int32_t groupId,
                                             const char* groupText, int32_t groupValue) {
    return Blocking<&Master::UpdateContactIDGroupRecord>(mac, groupId, groupText, groupValue);
}
ZANTH_API int32_t RspUpdateContactIDGroupRecord(uint32_t rspid, const char* mac, int32_t groupId,
                                                const char* groupText, int32_t groupValue) {
    return Deferred<&Master::UpdateContactIDGroupRecord>(rspid, mac, groupId, groupText,
                                                         groupValue);
}
// The key is copied: the reply's third field lands in the copy and goes no further.
ZANTH_API int32_t GetContactIDGroupRecord(const char* mac, int32_t groupId, char* groupText,
                                          int32_t* groupValue) {
    int32_t key = groupId;
    return Blocking<&Master::GetContactIDGroupRecord>(mac, &key, groupText, groupValue);
}
ZANTH_API int32_t RspGetContactIDGroupRecord(uint32_t rspid, const char* mac, int32_t groupId) {
    UnreadOutputs<1, 2> d;
    d.value[0] = groupId;
    return Deferred<&Master::GetContactIDGroupRecord>(rspid, mac, &d.value[0], d.text[0],
                                                      &d.value[1]);
}
ZANTH_API int32_t DeleteContactIDGroupRecord(const char* mac, int32_t groupId) {
    return Blocking<&Master::DeleteContactIDGroupRecord>(mac, groupId);
}
ZANTH_API int32_t RspDeleteContactIDGroupRecord(uint32_t rspid, const char* mac, int32_t groupId) {
    return Deferred<&Master::DeleteContactIDGroupRecord>(rspid, mac, groupId);
}
ZANTH_API int32_t UpdateContactIDCommRecord(const char* mac, int32_t commId, const char* commText,
                                            uint16_t commValue) {
    return Blocking<&Master::UpdateContactIDCommRecord>(mac, commId, commText, commValue);
}
ZANTH_API int32_t RspUpdateContactIDCommRecord(uint32_t rspid, const char* mac, int32_t commId,
                                               const char* commText, uint16_t commValue) {
    return Deferred<&Master::UpdateContactIDCommRecord>(rspid, mac, commId, commText, commValue);
}
ZANTH_API int32_t GetContactIDCommRecord(const char* mac, int32_t commId, char* commText) {
    return Blocking<&Master::GetContactIDCommRecord>(mac, commId, commText);
}
ZANTH_API int32_t RspGetContactIDCommRecord(uint32_t rspid, const char* mac, int32_t commId) {
    UnreadOutputs<1, 1> d;
    return Deferred<&Master::GetContactIDCommRecord>(rspid, mac, commId, d.text[0]);
}
ZANTH_API int32_t DeleteContactIDCommRecord(const char* mac, const char* commText, int32_t commId) {
    return Blocking<&Master::DeleteContactIDCommRecord>(mac, commText, commId);
}
ZANTH_API int32_t RspDeleteContactIDCommRecord(uint32_t rspid, const char* mac,
                                               const char* commText, int32_t commId) {
    return Deferred<&Master::DeleteContactIDCommRecord>(rspid, mac, commText, commId);
}

}  // extern "C"
