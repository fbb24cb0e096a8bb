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

    // Interface boards and controller administration: discovery, programming and memory of the
    // boards, the module bus, tasks, addressing, login, firmware steps and the error log.
    int32_t DiscoverInterfaces(const char* mac, char* buffer, int32_t size);
    int32_t DiscoverInterfaces2(const char* mac, char* buffer, int32_t size);
    int32_t RspDiscoverInterfaces(int32_t rspid, const char* mac, int32_t chain);
    int32_t DownloadInterfaceCode(int32_t rspfunc, int32_t rspid, const char* mac,
                                  int32_t interface, int32_t mode);
    int32_t ReadInterfaceMemory(int32_t rspfunc, int32_t rspid, const char* mac,
                                int32_t interface, int32_t memoryType, const char* address,
                                int32_t numberOfBytes, char* data, int32_t size,
                                char outputType);
    int32_t WriteEEPROM_IsLastWrite(int32_t rspfunc, int32_t rspid, const char* mac,
                                    int32_t interface, const char* address,
                                    int32_t numberOfBytes, const char* data,
                                    int32_t bIsLastWrite);
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
