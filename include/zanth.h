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
 * otherwise, with the outputs before it written and those after it not). A start or end stamp
 * comes back split into its date and time; the stamp "0" writes "0" to both, which needs both
 * sizes of at least 2. field7Value is a field the add commands have no counterpart for. The
 * outputs are not cleared: a reply that stops short is a success and leaves the outputs of the
 * missing fields as they were, and a negative result (an unknown or deleted record) leaves them
 * all. Every output pointer must be given (-10002), except `role`: GetCardRecord4 with a null role
 * reads as GetCardRecord2. GetCardRecord2 adds pinExempt, GetCardRecord4 pinExempt and the card
 * role. The Rsp forms take the selection by value and have no outputs: the reply frame comes back
 * raw under rspid. */
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
 * 1 delete, 2 undelete. Result: the controller's. */
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

/* ---- Contact ID records ------------------------------------------------------------------- */

/* (declarations of this family follow) */

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

/* (declarations of this family follow) */

#ifdef __cplusplus
}
#endif

#endif /* ZANTH_H */
