#pragma once
// The library's own results, as every export and every monitor operation gives them. Zero is
// success; a controller's own values and system error numbers pass through beside these, so the
// range -10001 to -10030 belongs to the library alone. The numbers not listed are not used.

#include <cstdint>

namespace zanth {

enum ResultCode : int32_t {
    kOk = 0,
    // The library is terminating; also a controller result from -99 to -1, and a reset wait
    // that timed out.
    kTerminating = -10001,
    // An argument out of bounds (each case logs its own text); also an address that can't be
    // resolved.
    kBadArgument = -10002,
    // The MAC is valid, but no Worker has identified itself under it.
    kNotConnected = -10003,
    // The MAC is not in the valid list.
    kNotValid = -10004,
    // No complete reply: the wait ended, or what came is no whole message.
    kNoReply = -10005,
    // A message or an output is larger than the buffer that must hold it.
    kTooLarge = -10006,
    // A message file could not be read or updated; file buffer errors in transfers.
    kFileError = -10007,
    // No unread message in the message file.
    kNoMessage = -10008,
    // An empty queue, or no hash table entry under the key.
    kNoEntry = -10009,
    // The reply's code is not the one expected, or is 9910.
    kUnexpectedReply = -10010,
    // A reply field that had to be there is missing.
    kMissingField = -10011,
    // The controller's error log is empty.
    kErrorLogEmpty = -10014,
    // The Worker thread of an outbound contact could not be created.
    kNoContactThread = -10015,
    // A transfer reply without its result field.
    kNoTransferResult = -10017,
    // A thread message could not be posted.
    kPostFailed = -10018,
    // A message for a MAC that has no Worker.
    kNoWorker = -10021,
    // The cipher plugin failed to encrypt or decrypt.
    kCipherFailed = -10022,
    // A frame shorter than its header.
    kShortFrame = -10023,
    // A header without two fields, or a code field with a non-digit.
    kBadHeader = -10024,
    // A named file or folder does not exist.
    kNoSuchPath = -10025,
    // A header's length field below the header's own size.
    kBadLength = -10026,
    // A file transfer is already in progress.
    kTransferBusy = -10027,
    // The controller's -1512 to a change of its operation mode.
    kModeRefused1512 = -10028,
    // The controller's -1513 to a change of its operation mode.
    kModeRefused1513 = -10029,
    // The controller can't carry out the command (it answered 9920).
    kCannotProcess = -10030,
};

// The controller's result as a method returns it: -1 to -99 read as the library's -10001; zero,
// positive values and -100 and below pass as they are.
constexpr int32_t MapControllerResult(int32_t rslt) {
    return (rslt >= -99 && rslt <= -1) ? kTerminating : rslt;
}

}  // namespace zanth
