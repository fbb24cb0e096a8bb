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

/* (declarations of this family follow) */

/* ---- Message upload ----------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* ---- File transfer ------------------------------------------------------------------------ */

/* Files move in chunks of at most 4086 bytes, one chunk per round trip (a Worker turn is 47 ms),
 * and one transfer runs on a controller at a time: other commands to it wait for the end, except
 * short queries and settings the controller can answer between two chunks. Such a command's
 * reply takes the stream's road: issue it in the same form as the stream (Rsp during RspX,
 * since a blocking stream holds the library's one caller), and expect a reply read after a
 * RspSendFile's end under the stream's rspid. `controllerPathFile` is the file's path on the
 * controller; paths may not hold ';'. */

/* Whole files, streamed by the library between the local file `pcPathFile` and the controller.
 * GetFile creates or truncates the local file; SendFile reads it. Both paths are required
 * (-10002 when empty or 256 bytes or longer). The blocking form returns when the stream ends:
 * 0; -10007 when the local file can't be opened (the controller is never asked); -10003 when
 * the link fails (is reset) mid-stream, 9990 when the controller closes it in order; or the
 * controller's own number when it gives up. The wait time
 * (RecvWaitTime) bounds the whole file, so set it to fit the largest one; a wait that runs out
 * returns 0 though the stream hasn't ended. A partly received file stays on disk. SendFile
 * reports 0 once the last chunk is written to the link.
 * RspGetFile/RspSendFile return at once; the end arrives under `rspid` as the frame
 * "0000;0012;0;" (success), "0000;0017;-10007;" (local file), "0000;0029;Connection failure;"
 * (link reset; "9990;0010;" when closed in order), or the controller's own 9980 frame
 * "9980;LLLL;result;text;". */
ZANTH_API int32_t GetFile(const char* mac, const char* controllerPathFile, const char* pcPathFile);
ZANTH_API int32_t RspGetFile(uint32_t rspid, const char* mac, const char* controllerPathFile,
                             const char* pcPathFile);
ZANTH_API int32_t SendFile(const char* mac, const char* controllerPathFile, const char* pcPathFile);
ZANTH_API int32_t RspSendFile(uint32_t rspid, const char* mac, const char* controllerPathFile,
                              const char* pcPathFile);

/* One chunk per call, through the caller's memory; both always block.
 * GetData: the first call for a file asks for it, each later call for the same path asks for
 * the next chunk. `size` bytes of `buffer` are zeroed first, whatever follows; the chunk's
 * bytes (binary, not terminated) are copied there, their count goes to *bytesRead and *isLast
 * becomes 1 on the file's last chunk, after which the next call starts the file anew. A chunk
 * larger than `size` gives -10006 and the controller is told to give up. A call for another
 * path while a file is open gives -10027 and closes the open one in the library, so that the
 * next call starts the new file.
 * SendData: the first call for a path opens the file on the controller, then sends `size`
 * bytes of `data` (0 to 4086; more gives -10006 and the controller is told to give up);
 * `endOfData` 1 marks the last chunk and closes the file, 0 keeps it open for the next call.
 * -10027 for another path while a file is open, as above.
 * One chunked transfer stands open in the whole library, not one per controller. After a
 * -10006 the controller owes no reply, and the link takes no further command until the
 * controller answers something: the next call on it runs into the wait time.
 * Both: 0, or the controller's own number when it gives up (9980); -10010 for another reply. */
ZANTH_API int32_t GetData(const char* mac, const char* controllerPathFile, char* buffer,
                          int32_t size, int32_t* bytesRead, int32_t* isLast);
ZANTH_API int32_t SendData(const char* mac, const char* controllerPathFile, const char* data,
                           int32_t size, int32_t endOfData);
/* The same chunk steps without blocking, the order kept by the host: RspGetDataFilename asks
 * for a file, and each RspGetData for its next chunk, until the reply's code is 1034 (1033: more
 * follow); RspSendDataFilename opens a file, and each RspSendData sends a chunk (endOfData 1: the
 * last). Every reply ("1030;...", "1033;LLLL;bytes", "1034;LLLL;bytes" or "9980;LLLL;result;
 * text;") arrives under `rspid`; a chunk is binary and measured by its frame's length field.
 * They don't touch the blocking forms' open transfer. */
ZANTH_API int32_t RspGetDataFilename(uint32_t rspid, const char* mac,
                                     const char* controllerPathFile);
ZANTH_API int32_t RspGetData(uint32_t rspid, const char* mac, const char* controllerPathFile);
ZANTH_API int32_t RspSendDataFilename(uint32_t rspid, const char* mac,
                                      const char* controllerPathFile);
ZANTH_API int32_t RspSendData(uint32_t rspid, const char* mac, const char* controllerPathFile,
                              const char* data, int32_t size, int32_t endOfData);

/* A controller file's permission, three octal digits such as "644". `mode` 0 reads it into
 * `permission` (`size` must exceed its length: 4 for three digits, else -10006); `mode` 1 sets
 * it from `permission` (anything but three digits 0 to 7 gives -10002 and sends nothing).
 * GetFileStatus and SetFileStatus are modes 0 and 1. The controller's result is returned
 * (-1 to -99 as -10001). The Rsp forms return at once only for a non-zero `rspid`: with rspid 0
 * the reply still goes to the response queue, and the call waits in vain for the wait time
 * (-10005), which also drops the link. */
ZANTH_API int32_t FileStatus(const char* mac, int32_t mode, const char* path, char* permission,
                             int32_t size);
ZANTH_API int32_t GetFileStatus(const char* mac, const char* path, char* permission,
                                int32_t size);
ZANTH_API int32_t SetFileStatus(const char* mac, const char* path, const char* permission);
ZANTH_API int32_t RspFileStatus(uint32_t rspid, const char* mac, int32_t mode, const char* path,
                                const char* permission);
ZANTH_API int32_t RspGetFileStatus(uint32_t rspid, const char* mac, const char* path);
ZANTH_API int32_t RspSetFileStatus(uint32_t rspid, const char* mac, const char* path,
                                   const char* permission);

/* Removes a controller file. Returns the first number of the reply as it stands (the
 * controller's result, negative ones included), -10010 for a reply without one, and 0 when no
 * whole reply came within the wait time. */
ZANTH_API int32_t ZanthDeleteFile(const char* mac, const char* path);
ZANTH_API int32_t RspZanthDeleteFile(uint32_t rspid, const char* mac, const char* path);

#ifdef __cplusplus
}
#endif

#endif /* ZANTH_H */
