/*
 * libzanth: host-side communications library of the Zanth network door controllers.
 *
 * The library accepts (or opens) one TCP connection per controller, turns each call into a
 * message for that controller, and hands back what the controllers send of their own accord
 * through callbacks or polling queues. It keeps one central object per process, built when the
 * library is loaded.
 *
 * Conventions of every export:
 * - The result is 0 or a positive value from the controller on success; a library result from
 *   -10001 to -10030; a controller's own negative value; or a positive system (socket) error
 *   number. Treat any non-zero value as a failure.
 * - A MAC names a controller by the last three octets of its hardware address, "XX:XX:XX"; case
 *   and separators don't matter. The library never writes to a MAC text.
 * - Blocking commands X(mac, ...) wait for the controller's reply up to the wait time
 *   (RecvWaitTime, 300000 ms by default). RspX(rspid, mac, ...) only queue the message: the
 *   whole reply frame arrives later under `rspid` through GetNextResponse or the response
 *   callback. Commands are serialised inside the library: one runs at a time.
 * - Output buffers are owned by the caller and always come with their size in bytes.
 * - Callbacks run on the library's own threads, never on the caller's, with no library lock
 *   held: a callback may call any export.
 *
 * Library results (zanth::ResultCode inside the library):
 *   -10001 kTerminating        the library is terminating; a controller result from -99 to -1;
 *                              a reset wait that timed out
 *   -10002 kBadArgument        an argument out of bounds (logged), a null pointer, no such address
 *   -10003 kNotConnected       the MAC is valid but its controller is not connected
 *   -10004 kNotValid           the MAC is not in the valid list
 *   -10005 kNoReply            no (complete) reply within the wait time
 *   -10006 kTooLarge           a buffer too small, or a message too large
 *   -10007 kFileError          a message file could not be read or updated
 *   -10008 kNoMessage          no unread message in the message file
 *   -10009 kNoEntry            the queue is empty
 *   -10010 kUnexpectedReply    an unexpected reply, or the connection ended
 *   -10011 kMissingField       the reply lacks a field
 *   -10014 kErrorLogEmpty      the controller's error log is empty
 *   -10015 kNoContactThread    the thread of an outbound contact could not be created
 *   -10017 kNoTransferResult   a transfer reply without its result
 *   -10018 kPostFailed         a thread message could not be posted
 *   -10021 kNoWorker           no connection under that MAC
 *   -10022 kCipherFailed       the encryption library failed
 *   -10023 kShortFrame         a frame shorter than its header
 *   -10024 kBadHeader          a malformed frame header
 *   -10025 kNoSuchPath         a file or folder that does not exist
 *   -10026 kBadLength          a frame length below the header's size
 *   -10027 kTransferBusy       a file transfer is already in progress
 *   -10028 kModeRefused1512    the controller refused the operation mode (its -1512)
 *   -10029 kModeRefused1513    the controller refused the operation mode (its -1513)
 *   -10030 kCannotProcess      the controller can't carry out the command
 *
 * The declarations are grouped by family, in the order below; each family has its section,
 * opened by a "---- <family> ----" line, and new exports go at the end of their own section.
 */
#ifndef ZANTH_H
#define ZANTH_H

#include <stdint.h>

#if defined(_WIN32)
#define ZANTH_API __declspec(dllexport)
#elif defined(ZANTH_BUILDING_LIBRARY)
#define ZANTH_API __attribute__((visibility("default")))
#else
#define ZANTH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Callback shapes ---------------------------------------------------------------------- */

/* Unsolicited text: a NUL-terminated text for the short kinds (here-I-am, look-ups, key pad,
 * command keys, events, alarms); for post-access and smart-card data 4117 bytes of text padded
 * with blanks (the library adds a NUL after them). A negative return ends the current delivery
 * pass; the rest of the queue follows about a second later. */
typedef int32_t (*ZanthTextCallback)(char* text);

/* A reply to an Rsp... call: its rspid and the whole reply frame "CCCC;LLLL;payload",
 * zero-filled after its end. */
typedef struct ZanthResponse {
    int32_t rspid;
    char text[4117];
} ZanthResponse;
typedef int32_t (*ZanthResponseCallback)(ZanthResponse* response);

/* A controller connected or went: its MAC ("0" for a link that never identified itself). The
 * return value is ignored. An identified controller's end is reported twice. */
typedef int32_t (*ZanthConnectionCallback)(char* mac);

/* ---- Library frame and lifecycle ---------------------------------------------------------- */

/* Opens the library to controllers on `port` (1025 to 65535): starts the listener and the reset
 * thread, and reads the seed file zanth.txt. -10001 while the library is terminating, -10002
 * for a bad port, or the system's error number. A second call replaces the listener (about two
 * seconds per running thread). The window and instance handles are kept but not used here. */
ZANTH_API int32_t Initialization(int32_t port, void* parentWindow, void* instance);
/* Ends the run: every connected controller is sent the terminate command. Returns 0 after about
 * a second. Initialization works again once the reset thread has ended. */
ZANTH_API int32_t Shutdown(void);
/* Tells one controller's connection to end, without waiting. */
ZANTH_API int32_t Terminate(const char* mac);
/* Replaces the valid list: comma-separated MACs, blanks around items allowed, ALL for every
 * controller. Connected controllers no longer listed are sent the terminate command. 0. */
ZANTH_API int32_t SetValidControllers(const char* list);
ZANTH_API int32_t SetValidGateways(const char* list);
/* The valid list as comma-separated text, ALL first. -10006 when it doesn't fit: the text then
 * ends after the last whole entry. */
ZANTH_API int32_t GetValidControllers(char* buffer, int32_t size);
ZANTH_API int32_t GetValidGateways(char* buffer, int32_t size);
/* "2.6.0.10"; -10006 when size is not greater than its length. */
ZANTH_API int32_t GetDLLVersion(char* buffer, int32_t size);
/* mode 0 reads the log level into *level; mode 1 sets it (0 to 75). Levels: 0 always, 25 fatal,
 * 50 errors (the default), 75 trace. */
ZANTH_API int32_t DebugLevel(int32_t mode, int32_t* level);
/* mode 0 reads the wait of blocking commands (ms) into *value; mode 1 sets it (0 to 600000). */
ZANTH_API int32_t RecvWaitTime(int32_t mode, int32_t* value);

/* The controller's description as one text. -10006 when size is not greater than it. */
ZANTH_API int32_t ControllerInfo(const char* mac, char* buffer, int32_t size);
ZANTH_API int32_t GatewayInfo(const char* mac, char* buffer, int32_t size);
ZANTH_API int32_t RspControllerInfo(uint32_t rspid, const char* mac);
ZANTH_API int32_t RspGatewayInfo(uint32_t rspid, const char* mac);

/* Calls a controller that can't reach the host: opens a TCP connection to iphostname:port (IPv4
 * address or host name, cut to 50 characters) and invites it to identify. The result says only
 * that TCP connected (0), -10002 for a bad port or address, -10015, or the socket error number
 * (10061 for a refused connection); the identification shows in the connect callback. The Rsp
 * form's reply is a frame of code 0 whose first field is that result, "0000;0012;0;". */
ZANTH_API int32_t ContactController(const char* iphostname, int32_t port);
ZANTH_API int32_t ContactGateway(const char* iphostname, int32_t port);
ZANTH_API int32_t RspContactController(uint32_t rspid, const char* iphostname, int32_t port);
ZANTH_API int32_t RspContactGateway(uint32_t rspid, const char* iphostname, int32_t port);

/* ---- Monitors and links: connected controllers, cipher plugin, log folder ----------------- */

/* The MACs of identified controllers, comma-separated; -10006 when the text doesn't fit (it
 * then ends after the last whole entry). */
ZANTH_API int32_t GetConnectedControllers(char* buffer, int32_t size);
ZANTH_API int32_t GetConnectedGateways(char* buffer, int32_t size);
/* The cipher plugin's version text; -10022 when the plugin or its entry point is missing. */
ZANTH_API int32_t GetEncryptionDLLVersion(char* buffer, int32_t size);
/* The log folder from the per-user setting (empty when unset). `path` holds 256 bytes. */
ZANTH_API int32_t GetLogFilePath(char* path);
/* Moves the diagnostic log and both message files to an existing folder: -10002 for an empty
 * text, -10025 for a folder that does not exist. Call it before Initialization. */
ZANTH_API int32_t SetLogFilePath(const char* path);
/* mode 0 as GetLogFilePath, mode 1 as SetLogFilePath. */
ZANTH_API int32_t LogFilePath(int32_t mode, char* path);

/* ---- Library reset ------------------------------------------------------------------------ */

/* (declarations of this family follow) */

/* ---- Host notification: callbacks and polling --------------------------------------------- */

/* Callbacks. */
/* Each registration starts a thread that drains its queue into the callback about once a second
 * (the response thread every 200 ms). Registering again replaces the callback, which takes two
 * seconds; there is no way to unregister. 0, or the system's error number. A host uses either a
 * callback or polling for a kind: each item goes to whichever asks first. */
ZANTH_API int32_t SetHereIAmCallback(ZanthTextCallback callback);
ZANTH_API int32_t SetLookupCallback(ZanthTextCallback callback);
ZANTH_API int32_t SetKeyPadDataCallback(ZanthTextCallback callback);
ZANTH_API int32_t SetCommandKeyDataCallback(ZanthTextCallback callback);
ZANTH_API int32_t SetAlarmCallback(ZanthTextCallback callback);
ZANTH_API int32_t SetEventCallback(ZanthTextCallback callback);
ZANTH_API int32_t SetPostAccessCallback(ZanthTextCallback callback);
ZANTH_API int32_t SetSmartCardDataCallback(ZanthTextCallback callback);
ZANTH_API int32_t SetResponseCallback(ZanthResponseCallback callback);
/* Connects and disconnects, one thread for both, one notice every 200 ms. Always 0. */
ZANTH_API int32_t SetConnectedControllersCallback(ZanthConnectionCallback callback);
ZANTH_API int32_t SetDisconnectedControllersCallback(ZanthConnectionCallback callback);

/* Polling. */
/* Take the oldest item: 0, or -10009 when the queue is empty, -10002 for a null buffer or a
 * negative size (nothing is taken). `size` is the longest text accepted and `buffer` must hold
 * size + 1 bytes. A longer item is lost (logged) and the result is still 0. */
ZANTH_API int32_t GetNextHereIAm(char* buffer, int32_t size);
ZANTH_API int32_t GetNextLookup(char* buffer, int32_t size);
ZANTH_API int32_t GetNextPin(char* buffer, int32_t size);
ZANTH_API int32_t GetNextPostAccess(char* buffer, int32_t size);
ZANTH_API int32_t GetNextKeyPadData(char* buffer, int32_t size);
ZANTH_API int32_t GetNextCommandKeyData(char* buffer, int32_t size);
ZANTH_API int32_t GetNextSmartCardData(char* buffer, int32_t size);
/* The oldest Rsp reply and its rspid; `size` bytes of `buffer` are zeroed first. A command's
 * reply is queued as a block of 4117 bytes, so give a buffer of at least 4117: a block longer
 * than size is lost (logged), rspid stays as it was and the result is still 0. */
ZANTH_API int32_t GetNextResponse(int32_t* rspid, char* buffer, int32_t size);
/* The number of waiting items. 0. */
ZANTH_API int32_t GetNumberHereIAm(int32_t* count);
ZANTH_API int32_t GetNumberLookups(int32_t* count);
ZANTH_API int32_t GetNumberPin(int32_t* count);
ZANTH_API int32_t GetNumberPostAccess(int32_t* count);
ZANTH_API int32_t GetNumberKeyPadData(int32_t* count);
ZANTH_API int32_t GetNumberCommandKeyData(int32_t* count);
ZANTH_API int32_t GetNumberSmartCardData(int32_t* count);
ZANTH_API int32_t GetNumberResponse(int32_t* count);

/* ---- Message files ------------------------------------------------------------------------ */

/* Events and alarms are kept in the circular files ZanthEvents.log and ZanthAlarms.log (5000
 * records of 144 bytes by default) until read. GetNext... copies the oldest unread record,
 * exactly 144 bytes after zeroing the whole buffer: size must be at least 144 (-10006);
 * -10008 when none is unread; -10007 on a file error. Independent of the callbacks. */
ZANTH_API int32_t GetNextEvent(char* buffer, int32_t size);
ZANTH_API int32_t GetNextAlarm(char* buffer, int32_t size);
/* The number of unread records, written as 8 bytes. 0. */
ZANTH_API int32_t NumberUnreadEvents(uint64_t* count);
ZANTH_API int32_t NumberUnreadAlarms(uint64_t* count);
/* mode 0 writes the ring's size as 8 bytes; mode 1 reads a 32-bit size (20 or more) from the
 * first four bytes and resizes, which discards every stored record unless the size is the same. */
ZANTH_API int32_t EventLogSize(int32_t mode, uint64_t* value);
ZANTH_API int32_t AlarmLogSize(int32_t mode, uint64_t* value);

/* ---- Card records: add, modify, get, delete, undelete, update ----------------------------- */

/* (declarations of this family follow) */

/* ---- Cardholder status -------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- Database maintenance ----------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- Host access decisions ---------------------------------------------------------------- */

/* A card look-up is acknowledged by the library at once; the host's decision goes back with
 * RecheckLookupCard, whose `data` is sent verbatim (no ';' is added). The reply's first field is
 * the result. */
ZANTH_API int32_t RecheckLookupCard(const char* mac, const char* data);
ZANTH_API int32_t RspRecheckLookupCard(uint32_t rspid, const char* mac, const char* data);
/* Asks the controller to collect a PIN; the PIN arrives later through GetNextPin. Returns 0
 * whatever the controller answers (the answer is only logged). */
ZANTH_API int32_t RequestPin(const char* mac, uint32_t pinValue1, uint32_t pinValue2,
                             uint32_t pinValue3);
ZANTH_API int32_t RspRequestPin(uint32_t rspid, const char* mac, uint32_t pinValue1,
                                uint32_t pinValue2, uint32_t pinValue3);
/* Sends `message` verbatim after an access; nothing is awaited. */
ZANTH_API int32_t SendPostAccessMsg(const char* mac, const char* message);

/* ---- Schedules ---------------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- Contact ID records ------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- Smart card modes --------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- Output commands ---------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- Inputs and local settings ------------------------------------------------------------ */

/* (declarations of this family follow) */

/* ---- Interface boards --------------------------------------------------------------------- */

/* A controller drives up to 32 interface boards, numbered 0 to 31 (`interface`), on two chains.
 * Argument checks give -10002 and send nothing; a controller result from -1 to -99 comes back
 * as -10001 unless told otherwise below; -10005 when no reply came, -10010 for an unexpected one.
 *
 * DiscoverInterfaces asks chain 0 and then chain 1, blocking, each with one transaction (the
 * older command; DiscoverInterfaces2 the newer). `buffer` (caller's, `size` bytes) is cleared,
 * then gets chain 0's text followed directly by chain 1's; -10006 when a text doesn't fit, with
 * what came before it left in place. The result is 0 when either chain answered 0: a chain that
 * failed is told by what the text lacks. Both failing gives chain 0's result, unmapped.
 * RspDiscoverInterfaces queues one query of the newer command for `chain` 0 or 1; the host calls
 * it once per chain and reads each reply, "rslt;text;", from the response queue. */
ZANTH_API int32_t DiscoverInterfaces(const char* mac, char* buffer, int32_t size);
ZANTH_API int32_t DiscoverInterfaces2(const char* mac, char* buffer, int32_t size);
ZANTH_API int32_t RspDiscoverInterfaces(uint32_t rspid, const char* mac, int32_t chain);
/* Has the controller load a board from the images it holds: `mode` 1 the program
 * (DownloadInterfaceProgram), 2 the EEPROM image (DownloadInterfaceEEPROM). The controller's
 * result. */
ZANTH_API int32_t DownloadInterfaceCode(const char* mac, int32_t interface, int32_t mode);
ZANTH_API int32_t RspDownloadInterfaceCode(uint32_t rspid, const char* mac, int32_t interface,
                                           int32_t mode);
ZANTH_API int32_t DownloadInterfaceProgram(const char* mac, int32_t interface);
ZANTH_API int32_t RspDownloadInterfaceProgram(uint32_t rspid, const char* mac, int32_t interface);
ZANTH_API int32_t DownloadInterfaceEEPROM(const char* mac, int32_t interface);
ZANTH_API int32_t RspDownloadInterfaceEEPROM(uint32_t rspid, const char* mac, int32_t interface);
/* Reads `numberOfBytes` (1 to 8) of a board's memory: `memoryType` 1 to 3, `address` in
 * hexadecimal digits. The controller's text of them goes to `data` (caller's, `size` bytes,
 * cleared once the reply is in; -10006 if size isn't greater than the text's length; a null
 * `data` gives -10002). `outputType` 'a' or 'd' (either case; ReadInterfaceMemory uses 'd')
 * chooses the controller's form of the text. -10011 when a successful reply lacks the text. */
ZANTH_API int32_t ReadInterfaceMemory(const char* mac, int32_t interface, int32_t memoryType,
                                      const char* address, int32_t numberOfBytes, char* data,
                                      int32_t size);
ZANTH_API int32_t RspReadInterfaceMemory(uint32_t rspid, const char* mac, int32_t interface,
                                         int32_t memoryType, const char* address,
                                         int32_t numberOfBytes);
ZANTH_API int32_t ReadInterfaceMemory_2(const char* mac, int32_t interface, int32_t memoryType,
                                        const char* address, int32_t numberOfBytes, char* data,
                                        int32_t size, char outputType);
ZANTH_API int32_t RspReadInterfaceMemory_2(uint32_t rspid, const char* mac, int32_t interface,
                                           int32_t memoryType, const char* address,
                                           int32_t numberOfBytes, char outputType);
/* Writes `numberOfBytes` (1 to 8) to a board's EEPROM at `address`; `address` and `data` are
 * hexadecimal digits, and `data` must have at least `numberOfBytes` characters. A board may be
 * written in several steps: `bIsLastWrite` non-zero marks the last, which commits them all. The
 * controller's result. */
ZANTH_API int32_t WriteEEPROM(const char* mac, int32_t interface, const char* address,
                              int32_t numberOfBytes, const char* data, int32_t bIsLastWrite);
ZANTH_API int32_t RspWriteEEPROM(uint32_t rspid, const char* mac, int32_t interface,
                                 const char* address, int32_t numberOfBytes, const char* data,
                                 int32_t bIsLastWrite);
/* Sets a board's ID, hexadecimal digits (checked before `interface`). Both names are one
 * command. The controller's result. */
ZANTH_API int32_t SetInterfaceInternalID(const char* mac, int32_t interface, const char* id);
ZANTH_API int32_t RspSetInterfaceInternalID(uint32_t rspid, const char* mac, int32_t interface,
                                            const char* id);
ZANTH_API int32_t SetHardwareID(const char* mac, int32_t interface, const char* id);
ZANTH_API int32_t RspSetHardwareID(uint32_t rspid, const char* mac, int32_t interface,
                                   const char* id);
/* The module bus. These newer commands read their replies loosely: the controller's result is
 * returned as it stands (no -10001 mapping), and a blocking call that got no whole reply gives
 * -10005.
 * GetMoxModuleRevs copies the revision list behind the result field, separators included, to
 * `buffer` (caller's, `size` bytes, cut to fit); -10030 when the controller doesn't know the
 * command (no module bus). GetMoxOperationMode writes the bus's mode to `*mode`; another reply
 * than its own leaves 0. SetMoxOperationMode sets `mode`, guarded by the controller's
 * `password`: -10029 and -10028 are the controller's refusals (its -1513 and -1512; the
 * simulator gives -1513 for a wrong password and -1512 for a mode it doesn't have). */
ZANTH_API int32_t GetMoxModuleRevs(const char* mac, char* buffer, int32_t size);
ZANTH_API int32_t RspGetMoxModuleRevs(uint32_t rspid, const char* mac);
ZANTH_API int32_t GetMoxOperationMode(const char* mac, int32_t* mode);
ZANTH_API int32_t RspGetMoxOperationMode(uint32_t rspid, const char* mac);
ZANTH_API int32_t SetMoxOperationMode(const char* mac, const char* password, int32_t mode);
ZANTH_API int32_t RspSetMoxOperationMode(uint32_t rspid, const char* mac, const char* password,
                                         int32_t mode);

/* ---- Controller administration ------------------------------------------------------------ */

/* Reboots interface board `target` (0 to 31) or, with 32, the controller, whose reboot is not
 * awaited. RebootBoard2 uses the newer command for all targets. */
ZANTH_API int32_t RebootBoard(const char* mac, int32_t target);
ZANTH_API int32_t RspRebootBoard(uint32_t rspid, const char* mac, int32_t target);
ZANTH_API int32_t RebootBoard2(const char* mac, int32_t target);
ZANTH_API int32_t RspRebootBoard2(uint32_t rspid, const char* mac, int32_t target);
/* Restarts (`mode` 1, RestartTask) or stops (`mode` 2, StopTask) a controller task: `task` 1 to
 * 11, 20, 21, 22, 30, 31, 99 or 101. Tasks 9 and 99 take the command task itself down: nothing
 * is awaited, the call returns 0 once the command is queued, and the controller reads as not
 * connected until it has connected again. Otherwise the controller's result. */
ZANTH_API int32_t RestartStopTask(const char* mac, int32_t mode, int32_t task);
ZANTH_API int32_t RspRestartStopTask(uint32_t rspid, const char* mac, int32_t mode, int32_t task);
ZANTH_API int32_t RestartTask(const char* mac, int32_t task);
ZANTH_API int32_t RspRestartTask(uint32_t rspid, const char* mac, int32_t task);
ZANTH_API int32_t StopTask(const char* mac, int32_t task);
ZANTH_API int32_t RspStopTask(uint32_t rspid, const char* mac, int32_t task);
/* Network addressing: DHCP with one text, or a static address with eight texts; the library
 * gives the texts no meaning and sends them as they stand (they must hold no ';'). Only the
 * reply's code is read: 0 when the expected one came, -10005 for another or none. */
ZANTH_API int32_t EnableDHCP(const char* mac, const char* text);
ZANTH_API int32_t RspEnableDHCP(uint32_t rspid, const char* mac, const char* text);
ZANTH_API int32_t EnableStaticIP(const char* mac, const char* text1, const char* text2,
                                 const char* text3, const char* text4, const char* text5,
                                 const char* text6, const char* text7, const char* text8);
ZANTH_API int32_t RspEnableStaticIP(uint32_t rspid, const char* mac, const char* text1,
                                    const char* text2, const char* text3, const char* text4,
                                    const char* text5, const char* text6, const char* text7,
                                    const char* text8);
/* Sets the controller's login. The controller's answer is the result as it stands (no
 * mapping); -10005 without a whole reply; -10002 for a null text. */
ZANTH_API int32_t SetPassword(const char* mac, const char* username, const char* password);
ZANTH_API int32_t RspSetPassword(uint32_t rspid, const char* mac, const char* username,
                                 const char* password);
/* Sends a firmware step, `value`. Neither form waits: the controller's answer (code 1114)
 * reaches a RspFirmwareCommand caller through the response queue. After the blocking form that
 * answer is owed to no one and would be taken by the next blocking command on any controller as
 * its reply (-10010), so prefer RspFirmwareCommand. */
ZANTH_API int32_t FirmwareCommand(const char* mac, uint32_t value);
ZANTH_API int32_t RspFirmwareCommand(uint32_t rspid, const char* mac, uint32_t value);
/* Asks for the controller's error log and, if it holds entries, fetches its file into the local
 * file `pcPathFile` (created or cut to nothing) with a blocking file transfer. The result is the
 * controller's positive answer, or the transfer's negative result; -10014 when the log is empty
 * (no file is fetched). RspGetErrorLog only asks: the host reads the answer, "rslt;", from the
 * response queue and fetches the file with RspGetFile if it wants it. */
ZANTH_API int32_t GetErrorLog(const char* mac, const char* pcPathFile);
ZANTH_API int32_t RspGetErrorLog(uint32_t rspid, const char* mac, const char* pcPathFile);

/* ---- Time and time zone ------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- Message upload ----------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- File transfer ------------------------------------------------------------------------ */

/* (declarations of this family follow) */

#ifdef __cplusplus
}
#endif

#endif /* ZANTH_H */
