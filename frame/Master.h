#pragma once
// The one central object: it creates every monitor at load, owns the transaction's shared
// buffers and has one method for each exported function. Command methods live in the files of
// their families (commands/...); they all follow the shape in Transaction.

#include <cstdint>
#include <functional>
#include <mutex>

#include "connection/WorkerStartRecord.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"
#include "zanth.h"

namespace zanth {

class Transaction;
class CharQueueMon;
class MsgMon;

struct ListenerArgs {
    int32_t port = 0;
    void* parentWindow = nullptr;
    void* instance = nullptr;
};

struct ResetArgs {
    void* parentWindow = nullptr;
    void* instance = nullptr;
};

class Master {
  public:
    explicit Master(const char* name);
    ~Master();
    Master(const Master&) = delete;
    Master& operator=(const Master&) = delete;

    // Lifecycle.
    int32_t Initialization(int32_t port, void* parentWindow, void* instance);
    int32_t Shutdown();
    int32_t Terminate(const char* mac);
    int32_t SetValidControllers(const char* list);
    int32_t GetValidControllers(char* buffer, int32_t size);
    int32_t GetConnectedControllers(char* buffer, int32_t size);
    int32_t GetDLLVersion(char* buffer, int32_t size);
    int32_t DebugLevel(int32_t mode, int32_t* level);
    int32_t RecvWaitTime(int32_t mode, int32_t* value);

    // The log folder.
    int32_t GetLogFilePath(char* path);
    int32_t SetLogFilePath(const char* path);
    int32_t LogFilePath(int32_t mode, char* path);

    // Outbound contact.
    int32_t ContactGateway(int32_t rspfunc, int32_t rspid, const char* iphostname, int32_t port);

    // Controller commands.
    int32_t GatewayInfo(int32_t rspfunc, int32_t rspid, const char* mac, char* buffer,
                        int32_t size);
    int32_t RebootBoard(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target);
    int32_t RebootBoard2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target);

    // Card database: card records (add, modify, get, delete, undelete), cardholder status,
    // database maintenance and smart card modes. Text arguments the host lets the library write
    // (card number, PIN, dates and times) may come back trimmed, zeroed or cut.
    int32_t AddModCardRecord(int32_t rspfunc, int32_t rspid, const char* mac, int32_t cardSetId,
                             int32_t noFormat, char* cardNumber, char* pin, int32_t accessType,
                             uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
                             int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5,
                             int32_t accessGroup6, int32_t accessGroup7, int32_t accessGroup8,
                             int32_t extendedAccess, int32_t passbackExempt, int32_t pinCommands,
                             char* startDate, char* startTime, char* endDate, char* endTime,
                             uint32_t escortId, int32_t inScheduleElevatorGroup,
                             int32_t outScheduleElevatorGroup);
    int32_t AddModCardRecord2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t cardSetId,
                              int32_t noFormat, char* cardNumber, char* pin, int32_t accessType,
                              uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
                              int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5,
                              int32_t accessGroup6, int32_t accessGroup7, int32_t accessGroup8,
                              int32_t extendedAccess, int32_t passbackExempt, int32_t pinCommands,
                              char* startDate, char* startTime, char* endDate, char* endTime,
                              uint32_t escortId, int32_t inScheduleElevatorGroup,
                              int32_t outScheduleElevatorGroup, int32_t pinExempt);
    int32_t AddModCardRecord3(int32_t rspfunc, int32_t rspid, const char* mac, int32_t cardSetId,
                              int32_t noFormat, char* cardNumber, char* pin, int32_t accessType,
                              uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
                              int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5,
                              int32_t accessGroup6, int32_t accessGroup7, int32_t accessGroup8,
                              int32_t extendedAccess, int32_t passbackExempt, int32_t pinCommands,
                              char* startDate, char* startTime, char* endDate, char* endTime,
                              uint32_t escortId, int32_t inScheduleElevatorGroup,
                              int32_t outScheduleElevatorGroup, int32_t pinExempt,
                              uint16_t cardRole);
    int32_t GetCardRecord(int32_t rspfunc, int32_t rspid, const char* mac, int32_t* cardSetId,
                          int32_t* noFormat, char* cardNumber, int32_t cardNumberSize, char* pin,
                          int32_t pinSize, int32_t* accessType, uint32_t* uniqueId,
                          int32_t* accessGroup1, int32_t* accessGroup2, int32_t* accessGroup3,
                          int32_t* accessGroup4, int32_t* accessGroup5, int32_t* accessGroup6,
                          int32_t* accessGroup7, int32_t* accessGroup8, int32_t* extendedAccess,
                          int32_t* passbackExempt, int32_t* pinCommands, char* startDate,
                          int32_t startDateSize, char* startTime, int32_t startTimeSize,
                          char* endDate, int32_t endDateSize, char* endTime, int32_t endTimeSize,
                          uint32_t* escortId, int32_t* inScheduleElevatorGroup,
                          int32_t* outScheduleElevatorGroup, int32_t* field7Value);
    // GetCardRecord2 and GetCardRecord4: the code sent follows from `uniqueid` (26 when
    // non-zero) and `role` (35 when non-null, else 25).
    int32_t GetCardRecord2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t* cardSetId,
                           int32_t* noFormat, char* cardNumber, int32_t cardNumberSize, char* pin,
                           int32_t pinSize, int32_t* accessType, uint32_t* uniqueId,
                           int32_t* accessGroup1, int32_t* accessGroup2, int32_t* accessGroup3,
                           int32_t* accessGroup4, int32_t* accessGroup5, int32_t* accessGroup6,
                           int32_t* accessGroup7, int32_t* accessGroup8, int32_t* extendedAccess,
                           int32_t* passbackExempt, int32_t* pinCommands, char* startDate,
                           int32_t startDateSize, char* startTime, int32_t startTimeSize,
                           char* endDate, int32_t endDateSize, char* endTime, int32_t endTimeSize,
                           uint32_t* escortId, int32_t* inScheduleElevatorGroup,
                           int32_t* outScheduleElevatorGroup, int32_t* field7Value,
                           int32_t* pinExempt, uint32_t uniqueid, uint32_t* role);
    // Delete (mode 1) or undelete (mode 2), by unique ID when it is non-zero, else by card.
    int32_t UpdateCardRecord(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                             int32_t cardSetId, int32_t noFormat, char* cardNumber, char* pin,
                             uint32_t uniqueId);
    int32_t GetCardholderStatus(const char* mac, int32_t uniqueId, char* statusDate,
                                int32_t statusDateSize, char* statusTime, int32_t statusTimeSize,
                                int32_t* statusValue1, int32_t* statusValue2, int32_t* statusValue3,
                                int32_t* statusValue4);
    int32_t GetCardholderStatus2(const char* mac, int32_t uniqueId, char* statusDate,
                                 int32_t statusDateSize, char* statusTime, int32_t statusTimeSize,
                                 int32_t* statusValue1, int32_t* statusValue2,
                                 int32_t* statusValue3, int32_t* statusValue4,
                                 int32_t* statusValue5);
    int32_t GetCardholderStatus3(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t uniqueId,
                                 char* statusDate, int32_t statusDateSize, char* statusTime,
                                 int32_t statusTimeSize, int32_t* statusValue1,
                                 int32_t* statusValue2, int32_t* statusValue3,
                                 int32_t* statusValue4, int32_t* statusValue5,
                                 int32_t* statusValue6, int32_t* statusValue7,
                                 int32_t* statusValue8);
    // Mode 1 resets one cardholder's status, mode 2 every one.
    int32_t ResetCardholderStatus(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                                  uint32_t uniqueId);
    int32_t ExecuteChangeOverDB(int32_t rspfunc, int32_t rspid, const char* mac,
                                int32_t numberOfCardholders);
    int32_t ExecutePreindexDB(int32_t rspfunc, int32_t rspid, const char* mac);
    int32_t ExecuteReloadDB(int32_t rspfunc, int32_t rspid, const char* mac);
    int32_t GetNumberOfCards(int32_t rspfunc, int32_t rspid, const char* mac, int32_t* firstCount,
                             int32_t* secondCount);
    int32_t GetNumberDelRecords(int32_t rspfunc, int32_t rspid, const char* mac, int32_t* count);
    // `code` is 150 (raw mode) or 151 (command mode); only the Rsp form exists.
    int32_t SmartCardMode(int32_t rspfunc, int32_t rspid, const char* mac, int32_t code,
                          int32_t value, const char* data);

    // Host access decisions.
    int32_t RecheckLookupCard(int32_t rspfunc, int32_t rspid, const char* mac, const char* data);
    int32_t RequestPin(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t pinValue1,
                       uint32_t pinValue2, uint32_t pinValue3);
    int32_t SendPostAccessMsg(const char* mac, const char* message);

    // Callbacks and polling. `exportName` names the export in the failure's log text.
    int32_t SetTextCallback(const char* exportName, const char* threadName,
                            ZanthTextCallback callback, CharQueueMon* queue, bool big);
    int32_t SetResponseCallback(ZanthResponseCallback callback);
    int32_t SetConnectedControllersCallback(ZanthConnectionCallback callback);
    int32_t SetDisconnectedControllersCallback(ZanthConnectionCallback callback);
    static int32_t GetNext(CharQueueMon* queue, char* buffer, int32_t size);
    static int32_t GetNumber(CharQueueMon* queue, int32_t* count);
    static int32_t GetNextResponse(int32_t* rspid, char* buffer, int32_t size);
    static int32_t GetNumberResponse(int32_t* count);

    // Message files.
    int32_t GetNextEvent(char* buffer, int32_t size);
    int32_t GetNextAlarm(char* buffer, int32_t size);
    int32_t NumberUnreadEvents(uint64_t* count);
    int32_t NumberUnreadAlarms(uint64_t* count);
    int32_t EventLogSize(int32_t mode, uint64_t* value);
    int32_t AlarmLogSize(int32_t mode, uint64_t* value);

    // Encrypted links.
    int32_t GetEncryptionDLLVersion(char* buffer, int32_t size);

    // The library result for a reply whose code was not the expected one.
    int32_t CheckErrorCode(int32_t code, const char* methodName);

    const char* Name() const { return masterName_; }

  private:
    friend class Transaction;

    int32_t ChangeLogFolder(const char* path, const char* method, bool announce);
    int32_t LogSize(MsgMon* store, const char* method, int32_t mode, uint64_t* value);
    int32_t StartCallbackThread(const char* exportName, const char* threadName,
                                std::function<void()> body);

    char masterName_[32];
    MessageUtil util_;
    // The command as it goes into sendMon.
    CommandRecord record_{};
    int32_t socketResult_ = 0;
    uint32_t threadId_ = 0;
    uint8_t flag_ = 0;
    int32_t result_ = 0;
    int32_t code_ = 0;
    int32_t rslt_ = 0;
    int32_t dataLen_ = 0;
    // One spare byte beyond the 4097 of a message, so that a frame that fills the message
    // buffer completely is still terminated.
    char msgBuffer_[kMessageBufferSize + 1];
    char recvBuffer_[kMessageBufferSize + 1];
    char logText_[kLogTextSize];
    char logText2_[kLogTextSize];
    // The caller's MAC, copied: the valid test raises its text in place, and the host's text
    // is never written to.
    char mac_[256];
    ListenerArgs listenerArgs_;
    ResetArgs resetArgs_;
    WorkerStartRecord contactArgs_;
    // Concurrent host threads are serialised here for a whole command, so that they can't
    // corrupt each other's buffers.
    std::recursive_mutex transactionLock_;
};

}  // namespace zanth
