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
 * - A controller that doesn't answer is never left holding its link. A blocking call that runs
 *   out of time returns -10005 (after the wait and five seconds more), and the library closes
 *   that controller's link, so that the controller calls again. An Rsp command (or file stream)
 *   that gets nothing within the wait time is answered "0000;0017;-10005;" under its rspid; the
 *   link's later commands go on, and a reply that comes after that is dropped. A connection that
 *   doesn't identify as a controller within 30 seconds is closed.
 * - Output buffers are owned by the caller and always come with their size in bytes. A null
 *   output buffer with a non-zero size, a null output pointer, or a null text that would go to
 *   the controller is refused with -10002, and nothing is sent.
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

#if defined(_WIN32) && defined(ZANTH_BUILDING_LIBRARY)
#define ZANTH_API __declspec(dllexport)
#elif defined(_WIN32)
#define ZANTH_API __declspec(dllimport)
#elif defined(ZANTH_BUILDING_LIBRARY)
#define ZANTH_API __attribute__((visibility("default")))
#else
#define ZANTH_API
#endif

/* <windows.h> defines `interface` as a macro, and some declarations below name a parameter so:
 * the macro is set aside here and put back at the end, so that the two headers may come in
 * either order. */
#if defined(_WIN32) && defined(interface)
#pragma push_macro("interface")
#undef interface
#define ZANTH_RESTORE_INTERFACE
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

/* Tears the whole library down while the process runs: every controller is told to terminate,
 * those still there after a second are cut off, the valid list becomes blank (no controller is
 * accepted until SetValidControllers is called again), and every library thread ends, callback
 * threads included. Takes at least 7 seconds and blocks the caller until then, or until the reset
 * time (ResetDLLTime) has passed; returns 0 either way, -10018 before Initialization. Call no
 * other export meanwhile. Afterwards the host calls Initialization again and registers its
 * callbacks again. */
ZANTH_API int32_t ResetDLL(void);
/* Ends one controller's link: it is told to terminate, then cut off a second later. Blocks until
 * done: 0, -10004 (MAC not valid), -10003 (not connected), -10018 (before Initialization). */
ZANTH_API int32_t ResetThread(const char* mac);
/* As ResetThread, returning at once; the result comes under `rspid` as the frame "0000;00LL;r;"
 * (code 0, the result as its one field) through GetNextResponse or the response callback. */
ZANTH_API int32_t RspResetThread(uint32_t rspid, const char* mac);
/* mode 0 reads into *value, mode 1 sets from *value, how long ResetDLL and ResetThread wait for
 * the reset (milliseconds, 0 to 600000, 300000 at the start). -10002 out of range. */
ZANTH_API int32_t ResetDLLTime(int32_t mode, int32_t* value);

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

/* A controller keeps its own database of cardholders; the library keeps no copy. A record is
 * keyed by its unique ID (1 to 4294967295); its card is the card set ID (0 to 2147483647) with the
 * card number. Bounds refused with -10002 (and a log line): noFormat, extendedAccess,
 * passbackExempt, pinCommands and pinExempt 0 or 1; accessType 1 to 3; access groups 0 to 65535;
 * elevator groups 0 to 255.
 *
 * AddModCardRecord adds a record or replaces the one of its unique ID; generation 2 adds
 * pinExempt, generation 3 cardRole. Dates are "yyyy/mm/dd" (years 1901 to 2037) or "0", times
 * "hh:mm:ss" or "0"; a date with a time of "0" covers the whole day, a time without a date is
 * dropped. The texts are writable and may come back changed: the card number and PIN are trimmed
 * of blanks in place, and an empty one becomes "0" (so each buffer must hold at least 2 bytes); a
 * date or time refused by its check comes back cut at its first '/' or ':'. No text may be null
 * (-10002). The result is the controller's: 0, or its own negative value (-1 to -99 become
 * -10001). */
ZANTH_API int32_t AddModCardRecord(
    const char* mac, int32_t cardSetId, int32_t noFormat, char* cardNumber, char* pin,
    int32_t accessType, uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
    int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5, int32_t accessGroup6,
    int32_t accessGroup7, int32_t accessGroup8, int32_t extendedAccess, int32_t passbackExempt,
    int32_t pinCommands, char* startDate, char* startTime, char* endDate, char* endTime,
    uint32_t escortId, int32_t inScheduleElevatorGroup, int32_t outScheduleElevatorGroup);
ZANTH_API int32_t RspAddModCardRecord(
    uint32_t rspid, const char* mac, int32_t cardSetId, int32_t noFormat, char* cardNumber,
    char* pin, int32_t accessType, uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
    int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5, int32_t accessGroup6,
    int32_t accessGroup7, int32_t accessGroup8, int32_t extendedAccess, int32_t passbackExempt,
    int32_t pinCommands, char* startDate, char* startTime, char* endDate, char* endTime,
    uint32_t escortId, int32_t inScheduleElevatorGroup, int32_t outScheduleElevatorGroup);
ZANTH_API int32_t AddModCardRecord2(
    const char* mac, int32_t cardSetId, int32_t noFormat, char* cardNumber, char* pin,
    int32_t accessType, uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
    int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5, int32_t accessGroup6,
    int32_t accessGroup7, int32_t accessGroup8, int32_t extendedAccess, int32_t passbackExempt,
    int32_t pinCommands, char* startDate, char* startTime, char* endDate, char* endTime,
    uint32_t escortId, int32_t inScheduleElevatorGroup, int32_t outScheduleElevatorGroup,
    int32_t pinExempt);
ZANTH_API int32_t RspAddModCardRecord2(
    uint32_t rspid, const char* mac, int32_t cardSetId, int32_t noFormat, char* cardNumber,
    char* pin, int32_t accessType, uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
    int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5, int32_t accessGroup6,
    int32_t accessGroup7, int32_t accessGroup8, int32_t extendedAccess, int32_t passbackExempt,
    int32_t pinCommands, char* startDate, char* startTime, char* endDate, char* endTime,
    uint32_t escortId, int32_t inScheduleElevatorGroup, int32_t outScheduleElevatorGroup,
    int32_t pinExempt);
ZANTH_API int32_t AddModCardRecord3(
    const char* mac, int32_t cardSetId, int32_t noFormat, char* cardNumber, char* pin,
    int32_t accessType, uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
    int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5, int32_t accessGroup6,
    int32_t accessGroup7, int32_t accessGroup8, int32_t extendedAccess, int32_t passbackExempt,
    int32_t pinCommands, char* startDate, char* startTime, char* endDate, char* endTime,
    uint32_t escortId, int32_t inScheduleElevatorGroup, int32_t outScheduleElevatorGroup,
    int32_t pinExempt, uint16_t cardRole);
ZANTH_API int32_t RspAddModCardRecord3(
    uint32_t rspid, const char* mac, int32_t cardSetId, int32_t noFormat, char* cardNumber,
    char* pin, int32_t accessType, uint32_t uniqueId, int32_t accessGroup1, int32_t accessGroup2,
    int32_t accessGroup3, int32_t accessGroup4, int32_t accessGroup5, int32_t accessGroup6,
    int32_t accessGroup7, int32_t accessGroup8, int32_t extendedAccess, int32_t passbackExempt,
    int32_t pinCommands, char* startDate, char* startTime, char* endDate, char* endTime,
    uint32_t escortId, int32_t inScheduleElevatorGroup, int32_t outScheduleElevatorGroup,
    int32_t pinExempt, uint16_t cardRole);
/* GetCardRecord reads the record of the card given by *cardSetId, *noFormat, cardNumber and pin
 * (all four are overwritten from the reply; the card number and PIN are trimmed first, as above).
 * Each text output has its buffer size behind it, which must exceed the text's length (-10006
 * otherwise, with the outputs before it written and those after it not). The card number and PIN
 * are read and written within their sizes only: each must end within its size, and the size be
 * at least 2 (an empty one becomes "0"), or the call gives -10006 before anything is sent. A start
 * or end stamp comes back split into its date and time; the stamp "0" writes "0" to both, which
 * needs both sizes of at least 2. field7Value is a field the add commands have no counterpart for.
 * The outputs are not cleared: a reply that stops short is a success and leaves the outputs of the
 * missing fields as they were, and a negative result (an unknown or deleted record) leaves them
 * all. Every output pointer must be given (-10002), except `role`: GetCardRecord4 with a null role
 * reads as GetCardRecord2. GetCardRecord2 adds pinExempt, GetCardRecord4 pinExempt and the card
 * role. The Rsp forms take the selection by value and have no outputs: the reply frame comes back
 * raw under rspid. Their card number and PIN have no size: they must be writable buffers of at
 * least 2 bytes, never string literals, as the library may write "0" into an empty one. */
ZANTH_API int32_t GetCardRecord(
    const char* mac, int32_t* cardSetId, int32_t* noFormat, char* cardNumber,
    int32_t cardNumberSize, char* pin, int32_t pinSize, int32_t* accessType, uint32_t* uniqueId,
    int32_t* accessGroup1, int32_t* accessGroup2, int32_t* accessGroup3, int32_t* accessGroup4,
    int32_t* accessGroup5, int32_t* accessGroup6, int32_t* accessGroup7, int32_t* accessGroup8,
    int32_t* extendedAccess, int32_t* passbackExempt, int32_t* pinCommands, char* startDate,
    int32_t startDateSize, char* startTime, int32_t startTimeSize, char* endDate,
    int32_t endDateSize, char* endTime, int32_t endTimeSize, uint32_t* escortId,
    int32_t* inScheduleElevatorGroup, int32_t* outScheduleElevatorGroup, int32_t* field7Value);
ZANTH_API int32_t RspGetCardRecord(uint32_t rspid, const char* mac, int32_t cardSetId,
                                   int32_t noFormat, char* cardNumber, char* pin);
ZANTH_API int32_t GetCardRecord2(
    const char* mac, int32_t* cardSetId, int32_t* noFormat, char* cardNumber,
    int32_t cardNumberSize, char* pin, int32_t pinSize, int32_t* accessType, uint32_t* uniqueId,
    int32_t* accessGroup1, int32_t* accessGroup2, int32_t* accessGroup3, int32_t* accessGroup4,
    int32_t* accessGroup5, int32_t* accessGroup6, int32_t* accessGroup7, int32_t* accessGroup8,
    int32_t* extendedAccess, int32_t* passbackExempt, int32_t* pinCommands, char* startDate,
    int32_t startDateSize, char* startTime, int32_t startTimeSize, char* endDate,
    int32_t endDateSize, char* endTime, int32_t endTimeSize, uint32_t* escortId,
    int32_t* inScheduleElevatorGroup, int32_t* outScheduleElevatorGroup, int32_t* field7Value,
    int32_t* pinExempt);
ZANTH_API int32_t RspGetCardRecord2(uint32_t rspid, const char* mac, int32_t cardSetId,
                                    int32_t noFormat, char* cardNumber, char* pin);
ZANTH_API int32_t GetCardRecord4(
    const char* mac, int32_t* cardSetId, int32_t* noFormat, char* cardNumber,
    int32_t cardNumberSize, char* pin, int32_t pinSize, int32_t* accessType, uint32_t* uniqueId,
    int32_t* accessGroup1, int32_t* accessGroup2, int32_t* accessGroup3, int32_t* accessGroup4,
    int32_t* accessGroup5, int32_t* accessGroup6, int32_t* accessGroup7, int32_t* accessGroup8,
    int32_t* extendedAccess, int32_t* passbackExempt, int32_t* pinCommands, char* startDate,
    int32_t startDateSize, char* startTime, int32_t startTimeSize, char* endDate,
    int32_t endDateSize, char* endTime, int32_t endTimeSize, uint32_t* escortId,
    int32_t* inScheduleElevatorGroup, int32_t* outScheduleElevatorGroup, int32_t* field7Value,
    int32_t* pinExempt, uint32_t* role);
ZANTH_API int32_t RspGetCardRecord4(uint32_t rspid, const char* mac, int32_t cardSetId,
                                    int32_t noFormat, char* cardNumber, char* pin);
/* Marks a record deleted or brings it back, named by its card (texts trimmed in place, as above)
 * or by its unique ID (non-zero; it goes out as a signed number). UpdateCardRecord takes the mode:
 * 1 delete, 2 undelete. Result: the controller's.
 * cardNumber and pin take no size, and the library writes into them: they must be writable
 * buffers of at least 2 bytes, never string literals. An empty one becomes "0" in place, so
 * DeleteCardRecord(mac, 1, 0, "", "") writes into read-only memory and crashes the host. */
ZANTH_API int32_t DeleteCardRecord(const char* mac, int32_t cardSetId, int32_t noFormat,
                                   char* cardNumber, char* pin);
ZANTH_API int32_t RspDeleteCardRecord(uint32_t rspid, const char* mac, int32_t cardSetId,
                                      int32_t noFormat, char* cardNumber, char* pin);
ZANTH_API int32_t DeleteCardRecord2(const char* mac, uint32_t uniqueId);
ZANTH_API int32_t RspDeleteCardRecord2(uint32_t rspid, const char* mac, uint32_t uniqueId);
ZANTH_API int32_t UndeleteCardRecord(const char* mac, int32_t cardSetId, int32_t noFormat,
                                     char* cardNumber, char* pin);
ZANTH_API int32_t RspUndeleteCardRecord(uint32_t rspid, const char* mac, int32_t cardSetId,
                                        int32_t noFormat, char* cardNumber, char* pin);
ZANTH_API int32_t UndeleteCardRecord2(const char* mac, uint32_t uniqueId);
ZANTH_API int32_t RspUndeleteCardRecord2(uint32_t rspid, const char* mac, uint32_t uniqueId);
ZANTH_API int32_t UpdateCardRecord(const char* mac, int32_t mode, int32_t cardSetId,
                                   int32_t noFormat, char* cardNumber, char* pin);
ZANTH_API int32_t RspUpdateCardRecord(uint32_t rspid, const char* mac, int32_t mode,
                                      int32_t cardSetId, int32_t noFormat, char* cardNumber,
                                      char* pin);

/* ---- Cardholder status -------------------------------------------------------------------- */

/* A cardholder's running status, by unique ID: a stamp (split into date and time as for
 * GetCardRecord; "0" writes "0" to both, needing sizes of at least 2) and up to eight values.
 * GetCardholderStatus and GetCardholderStatus2 take unique IDs 1 to 2147483647 and give four and
 * five values; GetCardholderStatus3 takes 1 to 4294967295 and gives eight, and its Rsp form is
 * RspGetCardholderStatus. A reply short of a field gives -10011 with the outputs before the gap
 * written; a negative result leaves all of them. No output may be null in a blocking call. */
ZANTH_API int32_t GetCardholderStatus(const char* mac, uint32_t uniqueId, char* statusDate,
                                      int32_t statusDateSize, char* statusTime,
                                      int32_t statusTimeSize, int32_t* statusValue1,
                                      int32_t* statusValue2, int32_t* statusValue3,
                                      int32_t* statusValue4);
ZANTH_API int32_t GetCardholderStatus2(const char* mac, uint32_t uniqueId, char* statusDate,
                                       int32_t statusDateSize, char* statusTime,
                                       int32_t statusTimeSize, int32_t* statusValue1,
                                       int32_t* statusValue2, int32_t* statusValue3,
                                       int32_t* statusValue4, int32_t* statusValue5);
ZANTH_API int32_t GetCardholderStatus3(const char* mac, uint32_t uniqueId, char* statusDate,
                                       int32_t statusDateSize, char* statusTime,
                                       int32_t statusTimeSize, int32_t* statusValue1,
                                       int32_t* statusValue2, int32_t* statusValue3,
                                       int32_t* statusValue4, int32_t* statusValue5,
                                       int32_t* statusValue6, int32_t* statusValue7,
                                       int32_t* statusValue8);
ZANTH_API int32_t RspGetCardholderStatus(uint32_t rspid, const char* mac, uint32_t uniqueId);
/* Clears the status of one cardholder (mode 1, a unique ID from 1) or of all of them (mode 2, the
 * unique ID is ignored). */
ZANTH_API int32_t ResetCardholderStatus(const char* mac, int32_t mode, uint32_t uniqueId);
ZANTH_API int32_t RspResetCardholderStatus(uint32_t rspid, const char* mac, int32_t mode,
                                           uint32_t uniqueId);
ZANTH_API int32_t ResetOneCardholderStatus(const char* mac, uint32_t uniqueId);
ZANTH_API int32_t RspResetOneCardholderStatus(uint32_t rspid, const char* mac, uint32_t uniqueId);
ZANTH_API int32_t ResetAllCardholderStatus(const char* mac);
ZANTH_API int32_t RspResetAllCardholderStatus(uint32_t rspid, const char* mac);

/* ---- Database maintenance ----------------------------------------------------------------- */

/* ExecuteChangeOverDB (also named ExecuteDBChangeover) re-dimensions the controller's database
 * for numberOfCardholders (1 to 500000); ExecutePreindexDB and ExecuteReloadDB act on the
 * database as a whole. Result: the controller's. */
ZANTH_API int32_t ExecuteChangeOverDB(const char* mac, int32_t numberOfCardholders);
ZANTH_API int32_t RspExecuteChangeOverDB(uint32_t rspid, const char* mac,
                                         int32_t numberOfCardholders);
ZANTH_API int32_t ExecuteDBChangeover(const char* mac, int32_t numberOfCardholders);
ZANTH_API int32_t RspExecuteDBChangeover(uint32_t rspid, const char* mac,
                                         int32_t numberOfCardholders);
ZANTH_API int32_t ExecutePreindexDB(const char* mac);
ZANTH_API int32_t RspExecutePreindexDB(uint32_t rspid, const char* mac);
ZANTH_API int32_t ExecuteReloadDB(const char* mac);
ZANTH_API int32_t RspExecuteReloadDB(uint32_t rspid, const char* mac);
/* The database's counts by the pointers (the result is the controller's, not a count; a negative
 * one leaves the counts as they were, a missing count gives -10011). GetNumberOfCards gives the
 * controller's two record counts, GetNumberDelRecords the records marked deleted. */
ZANTH_API int32_t GetNumberOfCards(const char* mac, int32_t* firstCount, int32_t* secondCount);
ZANTH_API int32_t RspGetNumberOfCards(uint32_t rspid, const char* mac);
ZANTH_API int32_t GetNumberDelRecords(const char* mac, int32_t* count);
ZANTH_API int32_t RspGetNumberDelRecords(uint32_t rspid, const char* mac);

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

/* Schedules and Contact ID records (next section) travel as lists of fields on a path of their
 * own, with return conventions unlike the other commands:
 * - Nothing is logged and no reply is checked for its code: any message the controller sends
 *   back is taken as the answer, and an error message fails only because its fields don't
 *   match. Not valid (-10004) and not connected (-10003) reach the caller only from the
 *   commands that return a `result` (below); the others give -1 for those.
 * - Kind `status`: the return is the reply's single field exactly as the controller sent it
 *   (its own -1 to -99 included, unmapped), and -1 in every other case: a reply of another
 *   length, no reply within the wait time, any failure before the send, and EVERY Rsp call.
 *   So -1 from a Rsp call of this kind does not mean the message failed to go out: the reply
 *   arrives under `rspid` through GetNextResponse or the response callback as usual.
 * - Kind `result`: 0 when the reply had exactly the expected number of fields, whatever they
 *   say (the controller's own result is not examined); -1 for any other count, for no reply
 *   within the wait time and for every Rsp call (again: the message did go out); -10004,
 *   -10003, -10006 (message too long) or -10002 (a null text or output) when nothing went out.
 * - Output texts have no size argument. Each output text buffer must hold
 *   ZANTH_PARAMETER_TEXT_SIZE (4088) bytes, the longest field one message can carry plus its
 *   NUL; the library never writes beyond that. Input texts must not contain ';'.
 * - A reply field that must become an integer and is not wholly a decimal number (an empty
 *   field included) makes the call return -1 at that field. The outputs before it in the
 *   documented order may have been written; the ones from it on are untouched.
 * - Reading commands write their outputs only when the reply has exactly the expected number
 *   of fields; otherwise every output stays as it was.
 *
 * Schedules: the controller keeps them; the library gives the texts and values no meaning. */
#define ZANTH_PARAMETER_TEXT_SIZE 4088

/* Writes a schedule: "text1;...;text5;value1;...;value6;". Kind `status`. */
ZANTH_API int32_t UpdateSchedule(const char* mac, const char* scheduleText1,
                                 const char* scheduleText2, const char* scheduleText3,
                                 const char* scheduleText4, const char* scheduleText5,
                                 int32_t scheduleValue1, int32_t scheduleValue2,
                                 int32_t scheduleValue3, int32_t scheduleValue4,
                                 int32_t scheduleValue5, int32_t scheduleValue6);
ZANTH_API int32_t RspUpdateSchedule(uint32_t rspid, const char* mac, const char* scheduleText1,
                                    const char* scheduleText2, const char* scheduleText3,
                                    const char* scheduleText4, const char* scheduleText5,
                                    int32_t scheduleValue1, int32_t scheduleValue2,
                                    int32_t scheduleValue3, int32_t scheduleValue4,
                                    int32_t scheduleValue5, int32_t scheduleValue6);
/* Reads schedule `scheduleId`. The reply has 12 fields: the controller's result, the five
 * texts, five values and one more; the result and the last field are not passed on, so 0 comes
 * back even when the controller's result is negative, as long as 12 fields came. A controller
 * that refuses answers with fewer fields: -1, outputs untouched. Kind `result`. Each text
 * buffer ZANTH_PARAMETER_TEXT_SIZE bytes; on a conversion failure the texts and the values
 * before the failing one may have been written. RspGetSchedule returns -1 once queued. */
ZANTH_API int32_t GetSchedule(const char* mac, int32_t scheduleId, char* scheduleText1,
                              char* scheduleText2, char* scheduleText3, char* scheduleText4,
                              char* scheduleText5, int32_t* scheduleValue1, int32_t* scheduleValue2,
                              int32_t* scheduleValue3, int32_t* scheduleValue4,
                              int32_t* scheduleValue5);
ZANTH_API int32_t RspGetSchedule(uint32_t rspid, const char* mac, int32_t scheduleId);
/* Deletes schedule `scheduleId`. Kind `status`. */
ZANTH_API int32_t DeleteSchedule(const char* mac, int32_t scheduleId);
ZANTH_API int32_t RspDeleteSchedule(uint32_t rspid, const char* mac, int32_t scheduleId);

/* ---- Contact ID records ------------------------------------------------------------------- */

/* (declarations of this family follow) */

/* Three kinds of records for Contact ID reporting: records, group records and communication
 * records. The conventions of the schedule section above hold (kinds `status` and `result`,
 * text buffers of ZANTH_PARAMETER_TEXT_SIZE bytes, -1 from Rsp calls, the conversion failure).
 * The library gives the texts and values no meaning. */

/* Writes a record: "text1;value1;...;value7;text2;text3;". Returns 0 once the message went
 * out, whatever the controller answers or if it doesn't answer within the wait time; -10004,
 * -10003, -10006, -10002 (a null text) when nothing went out; -1 when the controller's
 * one-field answer is not a number. RspUpdateContactIDRecord returns 0 once queued. */
ZANTH_API int32_t UpdateContactIDRecord(const char* mac, const char* contactText1,
                                        int32_t contactValue1, int32_t contactValue2,
                                        int32_t contactValue3, int32_t contactValue4,
                                        int32_t contactValue5, int32_t contactValue6,
                                        int32_t contactValue7, const char* contactText2,
                                        const char* contactText3);
ZANTH_API int32_t RspUpdateContactIDRecord(uint32_t rspid, const char* mac,
                                           const char* contactText1, int32_t contactValue1,
                                           int32_t contactValue2, int32_t contactValue3,
                                           int32_t contactValue4, int32_t contactValue5,
                                           int32_t contactValue6, int32_t contactValue7,
                                           const char* contactText2, const char* contactText3);
/* Reads the record whose key is *contactValue3 (sent as "key;"). The reply has 10 fields in
 * the order of the arguments, the first a text; there is no result field, so whatever comes
 * first lands in contactText1, and *contactValue3 is overwritten with the reply's fourth field.
 * Kind `result`. On a conversion failure contactText1 and the values before the failing one
 * may have been written. RspGetContactIDRecord takes the key by value and returns -1 once
 * queued. */
ZANTH_API int32_t GetContactIDRecord(const char* mac, char* contactText1, int32_t* contactValue1,
                                     int32_t* contactValue2, int32_t* contactValue3,
                                     int32_t* contactValue4, int32_t* contactValue5,
                                     int32_t* contactValue6, int32_t* contactValue7,
                                     char* contactText2, char* contactText3);
ZANTH_API int32_t RspGetContactIDRecord(uint32_t rspid, const char* mac, int32_t contactValue3);
/* Deletes record `contactId`. Returns 0 once the message went out, on any reply or none (the
 * answer is not read); RspDeleteContactIDRecord returns 0 once queued. */
ZANTH_API int32_t DeleteContactIDRecord(const char* mac, int32_t contactId);
ZANTH_API int32_t RspDeleteContactIDRecord(uint32_t rspid, const char* mac, int32_t contactId);
/* Writes a group record; on the wire "groupText;groupId;groupValue;". Kind `status`. */
ZANTH_API int32_t UpdateContactIDGroupRecord(const char* mac, int32_t groupId,
                                             const char* groupText, int32_t groupValue);
ZANTH_API int32_t RspUpdateContactIDGroupRecord(uint32_t rspid, const char* mac, int32_t groupId,
                                                const char* groupText, int32_t groupValue);
/* Reads group record `groupId`: the reply is "groupText;groupValue;groupId;" (the third field
 * is not passed on). Kind `result`. On a conversion failure groupText (and groupValue, when the
 * third field failed) may have been written. RspGetContactIDGroupRecord returns -1 once
 * queued. */
ZANTH_API int32_t GetContactIDGroupRecord(const char* mac, int32_t groupId, char* groupText,
                                          int32_t* groupValue);
ZANTH_API int32_t RspGetContactIDGroupRecord(uint32_t rspid, const char* mac, int32_t groupId);
/* Deletes group record `groupId`. Kind `status`. */
ZANTH_API int32_t DeleteContactIDGroupRecord(const char* mac, int32_t groupId);
ZANTH_API int32_t RspDeleteContactIDGroupRecord(uint32_t rspid, const char* mac, int32_t groupId);
/* Writes a communication record: "commId;commText;commValue;". Kind `status`. */
ZANTH_API int32_t UpdateContactIDCommRecord(const char* mac, int32_t commId, const char* commText,
                                            uint16_t commValue);
ZANTH_API int32_t RspUpdateContactIDCommRecord(uint32_t rspid, const char* mac, int32_t commId,
                                               const char* commText, uint16_t commValue);
/* Reads communication record `commId`. Its reply is cut at '#' rather than ';': commText takes
 * the whole reply payload, semicolons included (for example "0;text;5;", or the controller's
 * refusal such as "-101;"), and a reply holding a '#' fails with -1. Kind `result`; no integer
 * is converted. RspGetContactIDCommRecord returns -1 once queued. */
ZANTH_API int32_t GetContactIDCommRecord(const char* mac, int32_t commId, char* commText);
ZANTH_API int32_t RspGetContactIDCommRecord(uint32_t rspid, const char* mac, int32_t commId);
/* Deletes a communication record. The text comes first here, the number first on the wire:
 * "commId;commText;". Kind `status`. */
ZANTH_API int32_t DeleteContactIDCommRecord(const char* mac, const char* commText, int32_t commId);
ZANTH_API int32_t RspDeleteContactIDCommRecord(uint32_t rspid, const char* mac,
                                               const char* commText, int32_t commId);

/* ---- Smart card modes --------------------------------------------------------------------- */

/* Sends `data` to the smart card reader `value`, raw or as a reader command: the payload is
 * "value;data", with a ';' added unless data ends in one. Only the Rsp form exists: the result is
 * 0 once queued (or -10004, -10003, -10006, -10002 for a null data), and the reader's answer comes
 * raw under rspid. What a card sends by itself arrives through GetNextSmartCardData and the
 * key pad and command key queues. */
ZANTH_API int32_t RspSmartCardRawMode(uint32_t rspid, const char* mac, int32_t value,
                                      const char* data);
ZANTH_API int32_t RspSmartCardCommandMode(uint32_t rspid, const char* mac, int32_t value,
                                          const char* data);

/* ---- Output commands ---------------------------------------------------------------------- */

/* `target` is an interface board (0 to 31) or, with 32, the controller itself; `interface` is a
 * board alone (0 to 31). `bitOrFunctionCode` (0 to 199) and `state` (0 to 2) mean what the
 * controller makes of them. An argument out of bounds gives -10002 and sends nothing; the checks
 * run in the order code, state, target.
 *
 * Three generations, all kept because older controllers know only the older codes. The Rsp
 * names are out of step: RspCmdOutputFunction is the non-blocking form of CmdOutputFunction2,
 * RspCmdOutputFunction2 that of CmdOutputFunction3; CmdOutputFunction is blocking only.
 * CmdOutputFunction: 0 on success; the old board reply's 1 is success, 0 failure (-10001).
 * CmdOutputFunction2/3: the controller's result (0, a positive value, or -100 and below; -1 to
 * -99 give -10001). */
ZANTH_API int32_t CmdOutputFunction(const char* mac, int32_t target, int32_t bitOrFunctionCode,
                                    int32_t state);
ZANTH_API int32_t CmdOutputFunction2(const char* mac, int32_t target, int32_t bitOrFunctionCode,
                                     int32_t state);
ZANTH_API int32_t RspCmdOutputFunction(uint32_t rspid, const char* mac, int32_t target,
                                       int32_t bitOrFunctionCode, int32_t state);
ZANTH_API int32_t CmdOutputFunction3(const char* mac, int32_t target, int32_t bitOrFunctionCode,
                                     int32_t state);
ZANTH_API int32_t RspCmdOutputFunction2(uint32_t rspid, const char* mac, int32_t target,
                                        int32_t bitOrFunctionCode, int32_t state);
/* The outputs board `interface` has saved, as one text (everything behind the result, not split
 * further). `buffer` is cleared for `size` bytes once the reply is in; -10006 (buffer left clear)
 * when `size` is not greater than the text's length. Returns the controller's result, which may
 * be positive on success. */
ZANTH_API int32_t GetSavedOutputs(const char* mac, int32_t interface, char* buffer, int32_t size);
ZANTH_API int32_t RspGetSavedOutputs(uint32_t rspid, const char* mac, int32_t interface);
/* Drives board `interface`'s outputs to their saved states again. */
ZANTH_API int32_t DriveSavedOutputs(const char* mac, int32_t interface);
ZANTH_API int32_t RspDriveSavedOutputs(uint32_t rspid, const char* mac, int32_t interface);

/* ---- Inputs and local settings ------------------------------------------------------------ */

/* The state of the controller's local output `output` (sent as it stands, unchecked) into
 * *value; -10011 when the reply carries no state, *value then unchanged. */
ZANTH_API int32_t LocalFcnCode(const char* mac, uint32_t output, int32_t* value);
ZANTH_API int32_t RspLocalFcnCode(uint32_t rspid, const char* mac, uint32_t output);

/* Input status of `target` (0 to 31 a board, 32 the controller): a status number and a text.
 * `buffer` is cleared for `size` bytes once the reply is in; -10006 when `size` is not greater
 * than the text's length, -10011 when a field is missing.
 * GetInputStatus (blocking only) reads on for any controller result from 0 up and drops the
 * status. GetInputStatus2 and GetInputStatus3 fill *status and the text only when the
 * controller answers 0; a positive result is returned with nothing read. Out-of-step Rsp
 * names: RspGetInputStatus is the non-blocking form of GetInputStatus2, RspGetInputStatus2 that
 * of GetInputStatus3. */
ZANTH_API int32_t GetInputStatus(const char* mac, int32_t target, char* buffer, int32_t size);
ZANTH_API int32_t GetInputStatus2(const char* mac, int32_t target, int32_t* status, char* buffer,
                                  int32_t size);
ZANTH_API int32_t RspGetInputStatus(uint32_t rspid, const char* mac, int32_t target);
ZANTH_API int32_t GetInputStatus3(const char* mac, int32_t target, int32_t* status, char* buffer,
                                  int32_t size);
ZANTH_API int32_t RspGetInputStatus2(uint32_t rspid, const char* mac, int32_t target);

/* Analogue channel `adNumber` (0 to 23) of `target` (0 to 32), as the controller's text. The
 * buffer is not cleared first: on any failure it keeps what it held; -10006 when `size` is not
 * greater than the value's length. ReadA2D_2 uses the newer command for all targets. */
ZANTH_API int32_t ReadA2D(const char* mac, int32_t target, int32_t adNumber, char* buffer,
                          int32_t size);
ZANTH_API int32_t RspReadA2D(uint32_t rspid, const char* mac, int32_t target, int32_t adNumber);
ZANTH_API int32_t ReadA2D_2(const char* mac, int32_t target, int32_t adNumber, char* buffer,
                            int32_t size);
ZANTH_API int32_t RspReadA2D_2(uint32_t rspid, const char* mac, int32_t target, int32_t adNumber);

/* Local settings. Each has one form with `mode` (0 reads, 1 sets; another mode gives -10002)
 * and forms with the mode fixed: GetX reads into the caller's output, SetX takes the value.
 * The Rsp forms take rspid first and have no outputs: the reply frame comes back under rspid.
 * RspX(rspid, mac, mode, number, value) passes `value` by value, used only to set; RspGetX
 * takes what GetX takes less its outputs, RspSetX what SetX takes.
 *
 * A/D limits of local channel `adNumber` (0 to 7): upper high, lower high, upper low and lower
 * low, each a text of hexadecimal digits (an empty one passes and goes out as an empty field;
 * anything else gives -10002 and sends nothing). A read clears the four buffers for their
 * sizes and fills them in order; a limit not shorter than its buffer gives -10006 and stops the
 * reading, the limits before it staying filled. */
ZANTH_API int32_t LocalA2DLimits(const char* mac, int32_t mode, int32_t adNumber, char* upperHigh,
                                 int32_t upperHighSize, char* lowerHigh, int32_t lowerHighSize,
                                 char* upperLow, int32_t upperLowSize, char* lowerLow,
                                 int32_t lowerLowSize);
ZANTH_API int32_t GetLocalA2DLimits(const char* mac, int32_t adNumber, char* upperHigh,
                                    int32_t upperHighSize, char* lowerHigh, int32_t lowerHighSize,
                                    char* upperLow, int32_t upperLowSize, char* lowerLow,
                                    int32_t lowerLowSize);
ZANTH_API int32_t SetLocalA2DLimits(const char* mac, int32_t adNumber, const char* upperHigh,
                                    const char* lowerHigh, const char* upperLow,
                                    const char* lowerLow);
ZANTH_API int32_t RspLocalA2DLimits(uint32_t rspid, const char* mac, int32_t mode, int32_t adNumber,
                                    const char* upperHigh, const char* lowerHigh,
                                    const char* upperLow, const char* lowerLow);
ZANTH_API int32_t RspGetLocalA2DLimits(uint32_t rspid, const char* mac, int32_t adNumber);
ZANTH_API int32_t RspSetLocalA2DLimits(uint32_t rspid, const char* mac, int32_t adNumber,
                                       const char* upperHigh, const char* lowerHigh,
                                       const char* upperLow, const char* lowerLow);
/* Debounce of local input `number`; neither number nor value is checked. */
ZANTH_API int32_t LocalDebounce(const char* mac, int32_t mode, int32_t number, int32_t* value);
ZANTH_API int32_t GetLocalDebounce(const char* mac, int32_t number, int32_t* value);
ZANTH_API int32_t SetLocalDebounce(const char* mac, int32_t number, int32_t value);
ZANTH_API int32_t RspLocalDebounce(uint32_t rspid, const char* mac, int32_t mode, int32_t number,
                                   int32_t value);
ZANTH_API int32_t RspGetLocalDebounce(uint32_t rspid, const char* mac, int32_t number);
ZANTH_API int32_t RspSetLocalDebounce(uint32_t rspid, const char* mac, int32_t number,
                                      int32_t value);
/* How long relay `relay` (0 or 1) stays on once driven, in ms (0 to 1320000). */
ZANTH_API int32_t LocalRelayTimer(const char* mac, int32_t mode, int32_t relay, int32_t* value);
ZANTH_API int32_t GetLocalRelayTimer(const char* mac, int32_t relay, int32_t* value);
ZANTH_API int32_t SetLocalRelayTimer(const char* mac, int32_t relay, int32_t value);
ZANTH_API int32_t RspLocalRelayTimer(uint32_t rspid, const char* mac, int32_t mode, int32_t relay,
                                     int32_t value);
ZANTH_API int32_t RspGetLocalRelayTimer(uint32_t rspid, const char* mac, int32_t relay);
ZANTH_API int32_t RspSetLocalRelayTimer(uint32_t rspid, const char* mac, int32_t relay,
                                        int32_t value);
/* Logical input `number` (1 to 2147483647), value 0 or 1. */
ZANTH_API int32_t LogicalInput(const char* mac, int32_t mode, int32_t number, int32_t* value);
ZANTH_API int32_t GetLogicalInput(const char* mac, int32_t number, int32_t* value);
ZANTH_API int32_t SetLogicalInput(const char* mac, int32_t number, int32_t value);
ZANTH_API int32_t RspLogicalInput(uint32_t rspid, const char* mac, int32_t mode, int32_t number,
                                  int32_t value);
ZANTH_API int32_t RspGetLogicalInput(uint32_t rspid, const char* mac, int32_t number);
ZANTH_API int32_t RspSetLogicalInput(uint32_t rspid, const char* mac, int32_t number,
                                     int32_t value);
/* The controller's input poll delay, unchecked. */
ZANTH_API int32_t LocalPollDelay(const char* mac, int32_t mode, int32_t* value);
ZANTH_API int32_t RspLocalPollDelay(uint32_t rspid, const char* mac, int32_t mode, int32_t value);

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
ZANTH_API int32_t RspUploadMsgsByMsgID(uint32_t rspid, const char* mac, int32_t start, int32_t end);
ZANTH_API int32_t UploadCurrentMsgsByPriority(const char* mac, int32_t priority);
ZANTH_API int32_t RspUploadCurrentMsgsByPriority(uint32_t rspid, const char* mac, int32_t priority);
ZANTH_API int32_t UploadAllMsgsByPriority(const char* mac, int32_t priority);
ZANTH_API int32_t RspUploadAllMsgsByPriority(uint32_t rspid, const char* mac, int32_t priority);

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
 * returns -10005 and ends the stream with the link. A 9980 whose result isn't a number gives
 * -10017. A partly received file stays on disk. SendFile reports 0 once the last chunk is
 * written to the link.
 * RspGetFile/RspSendFile return at once; the end arrives under `rspid` as the frame
 * "0000;0012;0;" (success), "0000;0017;-10007;" (local file), "0000;0029;Connection failure;"
 * (link reset; "9990;0010;" when closed in order), "0000;0017;-10005;" when the controller sends
 * nothing for the wait time (the local file is closed), or the controller's own 9980 frame
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
ZANTH_API int32_t GetFileStatus(const char* mac, const char* path, char* permission, int32_t size);
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

#ifdef ZANTH_RESTORE_INTERFACE
#pragma pop_macro("interface")
#undef ZANTH_RESTORE_INTERFACE
#endif

#endif /* ZANTH_H */
