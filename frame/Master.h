#pragma once
// The one central object: it builds the library's context (every monitor, the log, the message
// files) at load, owns the transaction's shared buffers and has one method for each exported
// function. Command methods live in the files of their families (commands/...); they all follow
// the shape in Transaction.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "connection/WorkerStartRecord.h"
#include "frame/CardRecord.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"
#include "security/Crypto.h"
#include "zanth.h"

namespace zanth {

class Transaction;
class ParameterList;
class CharQueueMon;
class MsgMon;
struct Monitors;
struct Context;

// One of the text queues of the context, as an export names the queue it polls or calls back
// from: &Monitors::lookupMon, say.
using TextQueue = std::unique_ptr<CharQueueMon> Monitors::*;

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
    int32_t ResetDLLTime(int32_t mode, int32_t* value);

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

    // Time, time zone and message upload. SystemTime: mode 0 reads the date and time, 1 sets
    // them, 2 reads the current zone; SystemTZ: mode 0 reads the time-zone text, 1 sets it.
    // CmdEventLog: the upload kind by mode 1, 2, 4 to 8.
    int32_t SystemTime(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode, char* date,
                       int32_t dateSize, char* time, int32_t timeSize, char* zone,
                       int32_t zoneSize);
    int32_t SystemTZ(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode, char* tz,
                     int32_t size);
    int32_t CmdEventLog(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                        int32_t value1, int32_t value2);
    // Card database: card records (add, modify, get, delete, undelete), cardholder status,
    // database maintenance and smart card modes. Text arguments the host lets the library write
    // (card number, PIN, dates and times) may come back trimmed, zeroed or cut.
    // AddModCardRecord, AddModCardRecord2 and AddModCardRecord3 are `generation` 1, 2 and 3.
    int32_t AddModCardRecord(int32_t rspfunc, int32_t rspid, const char* mac, int32_t generation,
                             const CardRecord& record);
    // GetCardRecord is `generation` 1, GetCardRecord2 and GetCardRecord4 are 2. The code the
    // second sends follows from `uniqueid` (26 when non-zero) and the record's role output (35
    // when given, else 25).
    int32_t GetCardRecord(int32_t rspfunc, int32_t rspid, const char* mac, int32_t generation,
                          const CardRecordOutputs& record, uint32_t uniqueid);
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
    // Interface boards and controller administration: discovery, programming and memory of the
    // boards, the module bus, tasks, addressing, login, firmware steps and the error log.
    int32_t DiscoverInterfaces(const char* mac, char* buffer, int32_t size);
    int32_t DiscoverInterfaces2(const char* mac, char* buffer, int32_t size);
    int32_t RspDiscoverInterfaces(int32_t rspid, const char* mac, int32_t chain);
    int32_t DownloadInterfaceCode(int32_t rspfunc, int32_t rspid, const char* mac,
                                  int32_t interface, int32_t mode);
    int32_t ReadInterfaceMemory(int32_t rspfunc, int32_t rspid, const char* mac, int32_t interface,
                                int32_t memoryType, const char* address, int32_t numberOfBytes,
                                char* data, int32_t size, char outputType);
    int32_t WriteEEPROM_IsLastWrite(int32_t rspfunc, int32_t rspid, const char* mac,
                                    int32_t interface, const char* address, int32_t numberOfBytes,
                                    const char* data, int32_t bIsLastWrite);
    int32_t WriteEEPROM(int32_t rspfunc, int32_t rspid, const char* mac, int32_t interface,
                        const char* address, int32_t numberOfBytes, const char* data);
    int32_t SetInterfaceInternalID(int32_t rspfunc, int32_t rspid, const char* mac,
                                   int32_t interface, const char* id);
    int32_t GetMoxModuleRevs(int32_t rspfunc, int32_t rspid, const char* mac, char* buffer,
                             int32_t size);
    int32_t GetMoxOperationMode(int32_t rspfunc, int32_t rspid, const char* mac, int32_t* mode);
    int32_t SetMoxOperationMode(int32_t rspfunc, int32_t rspid, const char* mac,
                                const char* password, int32_t mode);
    int32_t RestartStopTask(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                            int32_t task);
    int32_t EnableDHCP(int32_t rspfunc, int32_t rspid, const char* mac, const char* text);
    int32_t EnableStaticIP(int32_t rspfunc, int32_t rspid, const char* mac, const char* text1,
                           const char* text2, const char* text3, const char* text4,
                           const char* text5, const char* text6, const char* text7,
                           const char* text8);
    int32_t EnableP2P(int32_t rspfunc, int32_t rspid, const char* mac);
    int32_t DisableP2P(int32_t rspfunc, int32_t rspid, const char* mac);
    int32_t SetPassword(int32_t rspfunc, int32_t rspid, const char* mac, const char* username,
                        const char* password);
    int32_t FirmwareCommand(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t value);
    int32_t GetErrorLog(int32_t rspfunc, int32_t rspid, const char* mac, const char* pcPathFile);

    // Host access decisions.
    int32_t RecheckLookupCard(int32_t rspfunc, int32_t rspid, const char* mac, const char* data);
    int32_t RequestPin(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t pinValue1,
                       uint32_t pinValue2, uint32_t pinValue3);
    int32_t SendPostAccessMsg(const char* mac, const char* message);

    // Schedules and Contact ID records: the parameter-list commands. They share one exchange and
    // one store (frame/ParameterExchange.cpp), with their own return conventions: no reply code
    // is tested, nothing is logged, the controller's result is not mapped, and -1 comes back in
    // many places, from the Rsp forms too.
    int32_t ExchangeParameters(int32_t rspfunc, int32_t rspid, const char* mac, int32_t code,
                               const ParameterList& requestList,
                               std::vector<std::string>& replyList, char delimiter,
                               const ParameterList* callerOutputs = nullptr);
    int32_t StoreReplyFields(const std::vector<std::string>& replyList,
                             const ParameterList& outputList);
    // The two kinds of return: a command's own `status` (its one reply field, else -1), or
    // `result` (the exchange's failure, else the store's 0 or -1).
    int32_t StatusCommand(int32_t rspfunc, int32_t rspid, const char* mac, int32_t code,
                          const ParameterList& requestList);
    int32_t ResultCommand(int32_t rspfunc, int32_t rspid, const char* mac, int32_t code,
                          const ParameterList& requestList, const ParameterList& outputList,
                          char delimiter = ';');
    int32_t UpdateSchedule(int32_t rspfunc, int32_t rspid, const char* mac,
                           const char* scheduleText1, const char* scheduleText2,
                           const char* scheduleText3, const char* scheduleText4,
                           const char* scheduleText5, int32_t scheduleValue1,
                           int32_t scheduleValue2, int32_t scheduleValue3, int32_t scheduleValue4,
                           int32_t scheduleValue5, int32_t scheduleValue6);
    int32_t GetSchedule(int32_t rspfunc, int32_t rspid, const char* mac, int32_t scheduleId,
                        char* scheduleText1, char* scheduleText2, char* scheduleText3,
                        char* scheduleText4, char* scheduleText5, int32_t* scheduleValue1,
                        int32_t* scheduleValue2, int32_t* scheduleValue3, int32_t* scheduleValue4,
                        int32_t* scheduleValue5);
    int32_t DeleteSchedule(int32_t rspfunc, int32_t rspid, const char* mac, int32_t scheduleId);
    int32_t UpdateContactIDRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                  const char* contactText1, int32_t contactValue1,
                                  int32_t contactValue2, int32_t contactValue3,
                                  int32_t contactValue4, int32_t contactValue5,
                                  int32_t contactValue6, int32_t contactValue7,
                                  const char* contactText2, const char* contactText3);
    int32_t GetContactIDRecord(int32_t rspfunc, int32_t rspid, const char* mac, char* contactText1,
                               int32_t* contactValue1, int32_t* contactValue2,
                               int32_t* contactValue3, int32_t* contactValue4,
                               int32_t* contactValue5, int32_t* contactValue6,
                               int32_t* contactValue7, char* contactText2, char* contactText3);
    int32_t DeleteContactIDRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                  int32_t contactId);
    int32_t UpdateContactIDGroupRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                       int32_t groupId, const char* groupText, int32_t groupValue);
    int32_t GetContactIDGroupRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                    int32_t* groupId, char* groupText, int32_t* groupValue);
    int32_t DeleteContactIDGroupRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                       int32_t groupId);
    int32_t UpdateContactIDCommRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                      int32_t commId, const char* commText, uint16_t commValue);
    int32_t GetContactIDCommRecord(int32_t rspfunc, int32_t rspid, const char* mac, int32_t commId,
                                   char* commText);
    int32_t DeleteContactIDCommRecord(int32_t rspfunc, int32_t rspid, const char* mac,
                                      const char* commText, int32_t commId);
    // Outputs, inputs and local settings (commands/device/Io*.cpp). `target` is an interface
    // board (0 to 31) or the controller (32); the settings take `mode` 0 to read, 1 to set.
    // The first generations have methods of their own without rspfunc and rspid.
    int32_t CmdOutputFunction(const char* mac, int32_t target, int32_t bitOrFunctionCode,
                              int32_t state);
    int32_t CmdOutputFunction2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                               int32_t bitOrFunctionCode, int32_t state);
    int32_t CmdOutputFunction3(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                               int32_t bitOrFunctionCode, int32_t state);
    int32_t GetSavedOutputs(int32_t rspfunc, int32_t rspid, const char* mac, int32_t interface,
                            char* buffer, int32_t size);
    int32_t DriveSavedOutputs(int32_t rspfunc, int32_t rspid, const char* mac, int32_t interface);
    int32_t LocalFcnCode(int32_t rspfunc, int32_t rspid, const char* mac, uint32_t output,
                         int32_t* value);
    int32_t GetInputStatus(const char* mac, int32_t target, char* buffer, int32_t size);
    int32_t GetInputStatus2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                            int32_t* status, char* buffer, int32_t size);
    int32_t GetInputStatus3(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                            int32_t* status, char* buffer, int32_t size);
    int32_t ReadA2D(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                    int32_t adNumber, char* buffer, int32_t size);
    int32_t ReadA2D_2(int32_t rspfunc, int32_t rspid, const char* mac, int32_t target,
                      int32_t adNumber, char* buffer, int32_t size);
    int32_t LocalA2DLimits(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                           int32_t adNumber, char* upperHigh, int32_t upperHighSize,
                           char* lowerHigh, int32_t lowerHighSize, char* upperLow,
                           int32_t upperLowSize, char* lowerLow, int32_t lowerLowSize);
    int32_t LocalDebounce(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                          int32_t number, int32_t* value);
    int32_t LocalRelayTimer(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                            int32_t relay, int32_t* value);
    int32_t LogicalInput(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                         int32_t number, int32_t* value);
    int32_t LocalPollDelay(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                           int32_t* value);
    // File transfer: whole files streamed by the Worker, single chunks through the caller's
    // memory, a file's permission, and its removal. GetData, SendData and their Rsp forms take no
    // rspfunc: each method is one form.
    int32_t GetFile(int32_t rspfunc, int32_t rspid, const char* mac, const char* controllerPathFile,
                    const char* pcPathFile);
    int32_t SendFile(int32_t rspfunc, int32_t rspid, const char* mac,
                     const char* controllerPathFile, const char* pcPathFile);
    int32_t GetData(const char* mac, const char* controllerPathFile, char* buffer, int32_t size,
                    int32_t* bytesRead, int32_t* isLast);
    int32_t SendData(const char* mac, const char* controllerPathFile, const char* data,
                     int32_t size, int32_t endOfData);
    int32_t RspGetDataFilename(int32_t rspid, const char* mac, const char* controllerPathFile);
    int32_t RspGetData(int32_t rspid, const char* mac, const char* controllerPathFile);
    int32_t RspSendDataFilename(int32_t rspid, const char* mac, const char* controllerPathFile);
    int32_t RspSendData(int32_t rspid, const char* mac, const char* controllerPathFile,
                        const char* data, int32_t size, int32_t endOfData);
    // mode 0 reads the permission into `permission` (`size` bytes), mode 1 sets it from there.
    int32_t FileStatus(int32_t rspfunc, int32_t rspid, const char* mac, int32_t mode,
                       const char* path, char* permission, int32_t size);
    int32_t ZanthDeleteFile(int32_t rspfunc, int32_t rspid, const char* mac, const char* path);

  private:
    int32_t StreamFile(int32_t rspfunc, int32_t rspid, const char* mac, const char* method,
                       int32_t code, const char* controllerPathFile, const char* pcPathFile);
    // The wait for the 1030 that answers SendData's opening or chunk; false when the result was
    // set instead.
    bool AwaitSendDataReply(Transaction& t);
    void EndChunkedTransfer();

    // The one chunked GetData or SendData transfer standing between two calls, library-wide.
    uint8_t transferInProgress_ = 0;
    char transferFilename_[kPathSize] = {};

  public:
    // Callbacks and polling. `exportName` names the export in the failure's log text.
    int32_t SetTextCallback(const char* exportName, const char* threadName,
                            ZanthTextCallback callback, TextQueue queue, bool big);
    int32_t SetResponseCallback(ZanthResponseCallback callback);
    int32_t SetConnectedControllersCallback(ZanthConnectionCallback callback);
    int32_t SetDisconnectedControllersCallback(ZanthConnectionCallback callback);
    int32_t GetNext(TextQueue queue, char* buffer, int32_t size);
    int32_t GetNumber(TextQueue queue, int32_t* count);
    int32_t GetNextResponse(int32_t* rspid, char* buffer, int32_t size);
    int32_t GetNumberResponse(int32_t* count);

    // Library reset, carried out by the Reset thread (notify/Reset.h).
    int32_t ResetDLL();
    int32_t ResetThread(const char* mac);
    int32_t RspResetThread(int32_t rspid, const char* mac);

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
    // The library's context, for the exports and the tests; the threads are handed its parts.
    Context& Shared() { return *context_; }

  private:
    friend class Transaction;

    // What unloading does first: tells every library thread to stop and waits for them, up to a
    // bound. True when none is left, so that the context may go.
    bool StopLibraryThreads();

    int32_t ChangeLogFolder(const char* path, const char* method, bool announce);
    // A setting read (mode 0) or set (mode 1) through `value`, within `low` to `high`; `subject`
    // names it in the refusal of a value out of bounds.
    int32_t Setting(const char* method, const char* subject, int32_t mode, int32_t* value,
                    int32_t low, int32_t high, const std::function<void(int32_t*)>& get,
                    const std::function<void(const int32_t*)>& set);
    int32_t LogSize(MsgMon* store, const char* method, int32_t mode, uint64_t* value);
    int32_t StartCallbackThread(const char* exportName, const char* threadName,
                                std::function<void()> body);

    char masterName_[32];
    // Built first and taken down last; left in place when a library thread doesn't end.
    std::unique_ptr<Context> context_;
    // Only asked for the cipher plugin's version: Master frames no encrypted message.
    Crypto crypto_;
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
