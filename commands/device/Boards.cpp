// Interface boards: discovery on the two chains, program and EEPROM downloads from what the
// controller holds, memory reads, EEPROM writes and the board's ID.

#include <cctype>
#include <cstring>

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {
namespace {

constexpr int32_t kFirstInterface = 0;
constexpr int32_t kLastInterface = 31;
constexpr int32_t kMaxMemoryBytes = 8;

// Addresses, IDs and data go out as hexadecimal digits and nothing else; an empty text would
// shift the fields after it, so it is no hexadecimal value either.
bool IsHexText(const char* text) {
    if (text == nullptr || *text == '\0') return false;
    for (const char* p = text; *p != '\0'; ++p) {
        if (std::isxdigit(static_cast<unsigned char>(*p)) == 0) return false;
    }
    return true;
}

bool CheckInterface(Transaction& t, int32_t interface) {
    return t.CheckBetween("interface number", interface, kFirstInterface, kLastInterface);
}

bool CheckHex(Transaction& t, const char* text, const char* what) {
    if (!t.Ok() || IsHexText(text)) return t.Ok();
    char line[kLogTextSize];
    FormatText(line, sizeof line, "[%s] %s must be a hexidecimal value", t.Method(), what);
    return t.Refuse(line);
}

// One chain's query and the reading of its answer: the chain's result, and its text copied
// behind what the buffer already holds. False when the transaction failed.
bool DiscoverChain(Transaction& t, int32_t code, int32_t reply, int32_t chain, char* buffer,
                   int32_t size, int32_t* rslt) {
    if (!t.Send(code, Payload().Int(chain))) return false;
    // Only the first chain's wait clears the buffer: the second appends to it.
    if (chain == 0 ? !t.Await({{buffer, size}}) : !t.Await()) return false;
    if (!t.Expect(reply)) return false;
    ReplyFields fields = t.Fields();
    fields.Int(rslt);
    if (!t.Ok()) return false;
    t.LogLine(kLogTrace, "[%s] %d rslt=%d", t.Method(), chain, *rslt);
    if (*rslt < 0) return true;
    size_t held = strnlen(buffer, static_cast<size_t>(size));
    fields.Optional().Text(buffer + held, size - static_cast<int32_t>(held));
    return t.Ok();
}

// Both chains, one blocking transaction each; the second runs only if the first succeeded.
int32_t Discover(Master& master, const char* method, int32_t code, int32_t reply, const char* mac,
                 char* buffer, int32_t size) {
    Transaction t(master, method, 0, 0, mac);
    if (!t.Admit() || !t.Present(buffer)) return t.Result();
    // A buffer without room for a terminator can take nothing at all.
    if (size <= 0) {
        t.SetResult(kBadArgument);
        return t.Result();
    }
    int32_t rslt0 = 0;
    int32_t rslt1 = 0;
    if (!DiscoverChain(t, code, reply, 0, buffer, size, &rslt0)) return t.Result();
    if (!DiscoverChain(t, code, reply, 1, buffer, size, &rslt1)) return t.Result();
    // A failure on one chain alone is no failure: the text tells which boards answered.
    if (rslt0 != 0 && rslt1 != 0 && t.Ok()) t.SetResult(rslt0);
    return t.Result();
}

}  // namespace

int32_t Master::DiscoverInterfaces(const char* mac, char* buffer, int32_t size) {
    return Discover(*this, "Master::DiscoverInterfaces", ZANTH_DISCOVER_INTERFACES,
                    ZANTH_DISCOVER_INTERFACES_RSP, mac, buffer, size);
}

int32_t Master::DiscoverInterfaces2(const char* mac, char* buffer, int32_t size) {
    return Discover(*this, "Master::DiscoverInterfaces2", ZANTH_DISCOVER_INTERFACES_2,
                    ZANTH_DISCOVER_INTERFACES_2_RSP, mac, buffer, size);
}

int32_t Master::RspDiscoverInterfaces(int32_t rspid, const char* mac, int32_t chain) {
    Transaction t(*this, "Master::RspDiscoverInterfaces", 1, rspid, mac);
    if (!t.Admit() || !t.Check("chain", chain, 0, 1)) return t.Result();
    t.Send(ZANTH_DISCOVER_INTERFACES_2, Payload().Int(chain));
    return t.Result();
}

int32_t Master::DownloadInterfaceCode(int32_t rspfunc, int32_t rspid, const char* mac,
                                      int32_t interface, int32_t mode) {
    Transaction t(*this, "Master::DownloadInterfaceCode", rspfunc, rspid, mac);
    if (!t.Admit() || !CheckInterface(t, interface) || !t.Check("mode", mode, 1, 2))
        return t.Result();
    // Mode 1 loads the board's program, mode 2 its EEPROM image; each has its own reply.
    int32_t code = mode == 1 ? ZANTH_DOWNLOAD_INTERFACE_PROGRAM : ZANTH_DOWNLOAD_INTERFACE_EEPROM;
    if (!t.Send(code, Payload().Int(interface))) return t.Result();
    if (!t.Await() || !t.Expect(code + 1000)) return t.Result();
    return t.BareResult();
}

int32_t Master::ReadInterfaceMemory(int32_t rspfunc, int32_t rspid, const char* mac,
                                    int32_t interface, int32_t memoryType, const char* address,
                                    int32_t numberOfBytes, char* data, int32_t size,
                                    char outputType) {
    Transaction t(*this, "Master::ReadInterfaceMemory", rspfunc, rspid, mac);
    if (!t.Admit()) return t.Result();
    char type = static_cast<char>(std::tolower(static_cast<unsigned char>(outputType)));
    if (type != 'a' && type != 'd') {
        t.Refuse("[Master::ReadInterfaceMemory] output Type must be 'a' or 'd'");
    }
    if (!CheckInterface(t, interface) || !t.CheckBetween("memory type value", memoryType, 1, 3) ||
        !CheckHex(t, address, "address") ||
        !t.CheckBetween("number of bytes value", numberOfBytes, 1, kMaxMemoryBytes))
        return t.Result();
    if (t.Blocking() && !t.Present(data)) return t.Result();
    const char typeText[2] = {type, '\0'};
    if (!t.Send(ZANTH_READ_INTERFACE_MEMORY, Payload()
                                                 .Int(interface)
                                                 .Int(memoryType)
                                                 .Text(address)
                                                 .Int(numberOfBytes)
                                                 .Text(typeText)))
        return t.Result();
    if (!t.Await({{data, size}}) || !t.Expect(ZANTH_READ_INTERFACE_MEMORY_RSP)) return t.Result();
    t.Fields().ControllerResult().Text(data, size);
    return t.Result();
}

namespace {

// The two forms of the EEPROM write: the exported one with its last-write flag, and the older
// one that always commits. `method` names the form in the check texts.
int32_t WriteBoardEeprom(Master& master, const char* method, int32_t rspfunc, int32_t rspid,
                         const char* mac, int32_t interface, const char* address,
                         int32_t numberOfBytes, const char* data, bool isLastWrite) {
    Transaction t(master, method, rspfunc, rspid, mac);
    if (!t.Admit() || !CheckInterface(t, interface) || !CheckHex(t, address, "address") ||
        !t.CheckBetween("number of bytes value", numberOfBytes, 1, kMaxMemoryBytes) ||
        !CheckHex(t, data, "data to be written"))
        return t.Result();
    if (std::strlen(data) < static_cast<size_t>(numberOfBytes)) {
        char line[kLogTextSize];
        FormatText(line, sizeof line,
                   "[%s] data to be written must contain at least %d bytes of data", method,
                   numberOfBytes);
        t.Refuse(line);
        return t.Result();
    }
    if (!t.Send(ZANTH_WRITE_EEPROM, Payload()
                                        .Int(interface)
                                        .Text(address)
                                        .Int(numberOfBytes)
                                        .Text(data)
                                        .Int(isLastWrite ? 1 : 0)))
        return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_WRITE_EEPROM_RSP)) return t.Result();
    return t.BareResult();
}

}  // namespace

int32_t Master::WriteEEPROM_IsLastWrite(int32_t rspfunc, int32_t rspid, const char* mac,
                                        int32_t interface, const char* address,
                                        int32_t numberOfBytes, const char* data,
                                        int32_t bIsLastWrite) {
    Log(masterName_, kLogTrace, "[Master::WriteEEPROM] Invoked");
    Log(masterName_, kLogTrace, bIsLastWrite != 0 ? "bIsLastWrite : 1" : "bIsLastWrite : 0");
    return WriteBoardEeprom(*this, "Master::WriteEEPROM_IsLastWrite", rspfunc, rspid, mac,
                            interface, address, numberOfBytes, data, bIsLastWrite != 0);
}

int32_t Master::WriteEEPROM(int32_t rspfunc, int32_t rspid, const char* mac, int32_t interface,
                            const char* address, int32_t numberOfBytes, const char* data) {
    return WriteBoardEeprom(*this, "Master::WriteEEPROM", rspfunc, rspid, mac, interface, address,
                            numberOfBytes, data, true);
}

int32_t Master::SetInterfaceInternalID(int32_t rspfunc, int32_t rspid, const char* mac,
                                       int32_t interface, const char* id) {
    Transaction t(*this, "Master::SetInterfaceInternalID", rspfunc, rspid, mac);
    // The ID is looked at before the board's number.
    if (!t.Admit() || !CheckHex(t, id, "ID") || !CheckInterface(t, interface)) return t.Result();
    if (!t.Send(ZANTH_SET_HARDWARE_ID, Payload().Int(interface).Text(id))) return t.Result();
    if (!t.Await() || !t.Expect(ZANTH_SET_HARDWARE_ID_RSP)) return t.Result();
    return t.BareResult();
}

}  // namespace zanth
