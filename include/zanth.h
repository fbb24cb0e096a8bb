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

/* (declarations of this family follow) */

/* ---- Controller administration ------------------------------------------------------------ */

/* Reboots interface board `target` (0 to 31) or, with 32, the controller, whose reboot is not
 * awaited. RebootBoard2 uses the newer command for all targets. */
ZANTH_API int32_t RebootBoard(const char* mac, int32_t target);
ZANTH_API int32_t RspRebootBoard(uint32_t rspid, const char* mac, int32_t target);
ZANTH_API int32_t RebootBoard2(const char* mac, int32_t target);
ZANTH_API int32_t RspRebootBoard2(uint32_t rspid, const char* mac, int32_t target);

/* ---- Time and time zone ------------------------------------------------------------------- */

/* A controller's clock and zone. The host's date is "yyyy/mm/dd" and its time "hh:mm:ss"; the
 * library reorders them for the wire. None of these clears an output on failure: a failed call
 * leaves the buffers as they were, except that a reply cut short after the date leaves the time
 * partly written.
 *
 * SystemTime mode 0 (GetTimeDate) reads the date and time: dateSize must be at least 11 and
 * timeSize at least 9 (-10006, nothing sent); the texts come back as the controller's fields
 * stand, without added zeros ("2024/12/25", "8:30:0"). A reply without the date's three fields
 * gives -10011; one too long for a buffer -10006.
 * Mode 1 (SetTimeDate) sets them. `date` and `time` are WRITTEN TO: they are cut in place at each
 * '/' and ':' while being checked, so pass copies you don't need afterwards. Bounds: year 1901 to
 * 2037, month 1 to 12, day 1 to 31 in every month (the controller judges 2024/2/31), hour 0 to
 * 23, minute and second 0 to 59; a bound or a missing part gives -10002 and sends nothing.
 * Mode 2 (GetCurrentTimeZone) reads the zone in effect into `zone`; zoneSize must exceed its
 * length (-10006). Any other mode: -10002.
 * RspSystemTime takes `date` and `time` for mode 1 only; the Rsp reads return the reply frame
 * under rspid (1019 "rslt;month;day;year;hour;minute;second;", 1046 "rslt;zone;"). */
ZANTH_API int32_t SystemTime(const char* mac, int32_t mode, char* date, int32_t dateSize,
                             char* time, int32_t timeSize, char* zone, int32_t zoneSize);
ZANTH_API int32_t RspSystemTime(uint32_t rspid, const char* mac, int32_t mode, char* date,
                                char* time);
ZANTH_API int32_t GetTimeDate(const char* mac, char* date, int32_t dateSize, char* time,
                              int32_t timeSize);
ZANTH_API int32_t RspGetTimeDate(uint32_t rspid, const char* mac);
ZANTH_API int32_t SetTimeDate(const char* mac, char* date, char* time);
ZANTH_API int32_t RspSetTimeDate(uint32_t rspid, const char* mac, char* date, char* time);
ZANTH_API int32_t GetCurrentTimeZone(const char* mac, char* zone, int32_t zoneSize);
ZANTH_API int32_t RspGetCurrentTimeZone(uint32_t rspid, const char* mac);
/* SystemTZ mode 0 (GetTZ) reads the controller's time-zone text into `tz`; size must exceed its
 * length (-10006). Mode 1 (SetTZ) sends `tz` unchecked and unchanged; its meaning is the
 * controller's. Any other mode: -10002. RspGetTZ's reply is 1087 "rslt;tz;". */
ZANTH_API int32_t SystemTZ(const char* mac, int32_t mode, char* tz, int32_t size);
ZANTH_API int32_t RspSystemTZ(uint32_t rspid, const char* mac, int32_t mode, char* tz);
ZANTH_API int32_t GetTZ(const char* mac, char* tz, int32_t size);
ZANTH_API int32_t RspGetTZ(uint32_t rspid, const char* mac);
ZANTH_API int32_t SetTZ(const char* mac, const char* tz);
ZANTH_API int32_t RspSetTZ(uint32_t rspid, const char* mac, const char* tz);

/* ---- Message upload ----------------------------------------------------------------------- */

/* Ask a controller to send stored events and alarms again: the current ones (not yet delivered
 * to a host) or all it holds, optionally only one class code or priority (0 to 255), or the
 * message IDs from start to end (each 1 to 99999; a start above the end goes as it is). The
 * result only says the controller accepted the upload (its 1062 "rslt;"). The messages follow
 * as ordinary events and alarms: into ZanthEvents.log / ZanthAlarms.log and to the event and
 * alarm callbacks, like live ones. Nothing marks the end of an upload.
 * CmdEventLog is the general form: mode 1 current, 2 all, 4 current by class code, 5 all by
 * class code, 6 by message ID (value1 start, value2 end), 7 current by priority, 8 all by
 * priority; value1 is ignored in modes 1 and 2, value2 outside mode 6. Bounds and unknown
 * modes give -10002 and send nothing. */
ZANTH_API int32_t CmdEventLog(const char* mac, int32_t mode, int32_t value1, int32_t value2);
ZANTH_API int32_t RspCmdEventLog(uint32_t rspid, const char* mac, int32_t mode, int32_t value1,
                                 int32_t value2);
ZANTH_API int32_t UploadCurrentMsgs(const char* mac);
ZANTH_API int32_t RspUploadCurrentMsgs(uint32_t rspid, const char* mac);
ZANTH_API int32_t UploadAllMsgs(const char* mac);
ZANTH_API int32_t RspUploadAllMsgs(uint32_t rspid, const char* mac);
ZANTH_API int32_t UploadCurrentMsgsByClassCode(const char* mac, int32_t classCode);
ZANTH_API int32_t RspUploadCurrentMsgsByClassCode(uint32_t rspid, const char* mac,
                                                  int32_t classCode);
ZANTH_API int32_t UploadAllMsgsByClassCode(const char* mac, int32_t classCode);
ZANTH_API int32_t RspUploadAllMsgsByClassCode(uint32_t rspid, const char* mac, int32_t classCode);
ZANTH_API int32_t UploadMsgsByMsgID(const char* mac, int32_t start, int32_t end);
ZANTH_API int32_t RspUploadMsgsByMsgID(uint32_t rspid, const char* mac, int32_t start,
                                       int32_t end);
ZANTH_API int32_t UploadCurrentMsgsByPriority(const char* mac, int32_t priority);
ZANTH_API int32_t RspUploadCurrentMsgsByPriority(uint32_t rspid, const char* mac,
                                                 int32_t priority);
ZANTH_API int32_t UploadAllMsgsByPriority(const char* mac, int32_t priority);
ZANTH_API int32_t RspUploadAllMsgsByPriority(uint32_t rspid, const char* mac, int32_t priority);

/* ---- File transfer ------------------------------------------------------------------------ */

/* (declarations of this family follow) */

#ifdef __cplusplus
}
#endif

#endif /* ZANTH_H */
