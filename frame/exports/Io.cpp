// Outputs, inputs and local settings. The older generations' plain forms have methods of their
// own; the Rsp names of the later ones are out of step with the plain names they pair with.

#include "frame/exports/Boundary.h"
#include "zanth.h"

using namespace zanth;

extern "C" {

// Outputs.
ZANTH_API int32_t CmdOutputFunction(const char* mac, int32_t target, int32_t bitOrFunctionCode,
                                    int32_t state) {
    return Call<&Master::CmdOutputFunction>(mac, target, bitOrFunctionCode, state);
}
ZANTH_API int32_t CmdOutputFunction2(const char* mac, int32_t target, int32_t bitOrFunctionCode,
                                     int32_t state) {
    return Blocking<&Master::CmdOutputFunction2>(mac, target, bitOrFunctionCode, state);
}
ZANTH_API int32_t RspCmdOutputFunction(uint32_t rspid, const char* mac, int32_t target,
                                       int32_t bitOrFunctionCode, int32_t state) {
    return Deferred<&Master::CmdOutputFunction2>(rspid, mac, target, bitOrFunctionCode, state);
}
ZANTH_API int32_t CmdOutputFunction3(const char* mac, int32_t target, int32_t bitOrFunctionCode,
                                     int32_t state) {
    return Blocking<&Master::CmdOutputFunction3>(mac, target, bitOrFunctionCode, state);
}
ZANTH_API int32_t RspCmdOutputFunction2(uint32_t rspid, const char* mac, int32_t target,
                                        int32_t bitOrFunctionCode, int32_t state) {
    return Deferred<&Master::CmdOutputFunction3>(rspid, mac, target, bitOrFunctionCode, state);
}
ZANTH_API int32_t GetSavedOutputs(const char* mac, int32_t interface, char* buffer, int32_t size) {
    return Blocking<&Master::GetSavedOutputs>(mac, interface, buffer, size);
}
ZANTH_API int32_t RspGetSavedOutputs(uint32_t rspid, const char* mac, int32_t interface) {
    return Deferred<&Master::GetSavedOutputs>(rspid, mac, interface, nullptr, 0);
}
ZANTH_API int32_t DriveSavedOutputs(const char* mac, int32_t interface) {
    return Blocking<&Master::DriveSavedOutputs>(mac, interface);
}
ZANTH_API int32_t RspDriveSavedOutputs(uint32_t rspid, const char* mac, int32_t interface) {
    return Deferred<&Master::DriveSavedOutputs>(rspid, mac, interface);
}
ZANTH_API int32_t LocalFcnCode(const char* mac, uint32_t output, int32_t* value) {
    return Blocking<&Master::LocalFcnCode>(mac, output, value);
}
ZANTH_API int32_t RspLocalFcnCode(uint32_t rspid, const char* mac, uint32_t output) {
    return Deferred<&Master::LocalFcnCode>(rspid, mac, output, nullptr);
}

// Input reads.
ZANTH_API int32_t GetInputStatus(const char* mac, int32_t target, char* buffer, int32_t size) {
    return Call<&Master::GetInputStatus>(mac, target, buffer, size);
}
ZANTH_API int32_t GetInputStatus2(const char* mac, int32_t target, int32_t* status, char* buffer,
                                  int32_t size) {
    return Blocking<&Master::GetInputStatus2>(mac, target, status, buffer, size);
}
ZANTH_API int32_t RspGetInputStatus(uint32_t rspid, const char* mac, int32_t target) {
    return Deferred<&Master::GetInputStatus2>(rspid, mac, target, nullptr, nullptr, 0);
}
ZANTH_API int32_t GetInputStatus3(const char* mac, int32_t target, int32_t* status, char* buffer,
                                  int32_t size) {
    return Blocking<&Master::GetInputStatus3>(mac, target, status, buffer, size);
}
ZANTH_API int32_t RspGetInputStatus2(uint32_t rspid, const char* mac, int32_t target) {
    return Deferred<&Master::GetInputStatus3>(rspid, mac, target, nullptr, nullptr, 0);
}
ZANTH_API int32_t ReadA2D(const char* mac, int32_t target, int32_t adNumber, char* buffer,
                          int32_t size) {
    return Blocking<&Master::ReadA2D>(mac, target, adNumber, buffer, size);
}
ZANTH_API int32_t RspReadA2D(uint32_t rspid, const char* mac, int32_t target, int32_t adNumber) {
    return Deferred<&Master::ReadA2D>(rspid, mac, target, adNumber, nullptr, 0);
}
ZANTH_API int32_t ReadA2D_2(const char* mac, int32_t target, int32_t adNumber, char* buffer,
                            int32_t size) {
    return Blocking<&Master::ReadA2D_2>(mac, target, adNumber, buffer, size);
}
ZANTH_API int32_t RspReadA2D_2(uint32_t rspid, const char* mac, int32_t target,
                               int32_t adNumber) {
    return Deferred<&Master::ReadA2D_2>(rspid, mac, target, adNumber, nullptr, 0);
}

// A/D limits. The texts to set are only read: the method takes one buffer type for both modes.
ZANTH_API int32_t LocalA2DLimits(const char* mac, int32_t mode, int32_t adNumber, char* upperHigh,
                                 int32_t upperHighSize, char* lowerHigh, int32_t lowerHighSize,
                                 char* upperLow, int32_t upperLowSize, char* lowerLow,
                                 int32_t lowerLowSize) {
    return Blocking<&Master::LocalA2DLimits>(mac, mode, adNumber, upperHigh, upperHighSize,
                                             lowerHigh, lowerHighSize, upperLow, upperLowSize,
                                             lowerLow, lowerLowSize);
}
ZANTH_API int32_t GetLocalA2DLimits(const char* mac, int32_t adNumber, char* upperHigh,
                                    int32_t upperHighSize, char* lowerHigh, int32_t lowerHighSize,
                                    char* upperLow, int32_t upperLowSize, char* lowerLow,
                                    int32_t lowerLowSize) {
    return Blocking<&Master::LocalA2DLimits>(mac, 0, adNumber, upperHigh, upperHighSize,
                                             lowerHigh, lowerHighSize, upperLow, upperLowSize,
                                             lowerLow, lowerLowSize);
}
ZANTH_API int32_t SetLocalA2DLimits(const char* mac, int32_t adNumber, const char* upperHigh,
                                    const char* lowerHigh, const char* upperLow,
                                    const char* lowerLow) {
    return Blocking<&Master::LocalA2DLimits>(mac, 1, adNumber, const_cast<char*>(upperHigh), 0,
                                             const_cast<char*>(lowerHigh), 0,
                                             const_cast<char*>(upperLow), 0,
                                             const_cast<char*>(lowerLow), 0);
}
ZANTH_API int32_t RspLocalA2DLimits(uint32_t rspid, const char* mac, int32_t mode,
                                    int32_t adNumber, const char* upperHigh,
                                    const char* lowerHigh, const char* upperLow,
                                    const char* lowerLow) {
    return Deferred<&Master::LocalA2DLimits>(rspid, mac, mode, adNumber,
                                             const_cast<char*>(upperHigh), 0,
                                             const_cast<char*>(lowerHigh), 0,
                                             const_cast<char*>(upperLow), 0,
                                             const_cast<char*>(lowerLow), 0);
}
ZANTH_API int32_t RspGetLocalA2DLimits(uint32_t rspid, const char* mac, int32_t adNumber) {
    return Deferred<&Master::LocalA2DLimits>(rspid, mac, 0, adNumber, nullptr, 0, nullptr, 0,
                                             nullptr, 0, nullptr, 0);
}
ZANTH_API int32_t RspSetLocalA2DLimits(uint32_t rspid, const char* mac, int32_t adNumber,
                                       const char* upperHigh, const char* lowerHigh,
                                       const char* upperLow, const char* lowerLow) {
    return Deferred<&Master::LocalA2DLimits>(rspid, mac, 1, adNumber,
                                             const_cast<char*>(upperHigh), 0,
                                             const_cast<char*>(lowerHigh), 0,
                                             const_cast<char*>(upperLow), 0,
                                             const_cast<char*>(lowerLow), 0);
}

// Debounce. A value given by value travels as the address of the export's own copy.
ZANTH_API int32_t LocalDebounce(const char* mac, int32_t mode, int32_t number, int32_t* value) {
    return Blocking<&Master::LocalDebounce>(mac, mode, number, value);
}
ZANTH_API int32_t GetLocalDebounce(const char* mac, int32_t number, int32_t* value) {
    return Blocking<&Master::LocalDebounce>(mac, 0, number, value);
}
ZANTH_API int32_t SetLocalDebounce(const char* mac, int32_t number, int32_t value) {
    return Blocking<&Master::LocalDebounce>(mac, 1, number, &value);
}
ZANTH_API int32_t RspLocalDebounce(uint32_t rspid, const char* mac, int32_t mode, int32_t number,
                                   int32_t value) {
    return Deferred<&Master::LocalDebounce>(rspid, mac, mode, number, &value);
}
ZANTH_API int32_t RspGetLocalDebounce(uint32_t rspid, const char* mac, int32_t number) {
    return Deferred<&Master::LocalDebounce>(rspid, mac, 0, number, nullptr);
}
ZANTH_API int32_t RspSetLocalDebounce(uint32_t rspid, const char* mac, int32_t number,
                                      int32_t value) {
    return Deferred<&Master::LocalDebounce>(rspid, mac, 1, number, &value);
}

// Relay timers.
ZANTH_API int32_t LocalRelayTimer(const char* mac, int32_t mode, int32_t relay, int32_t* value) {
    return Blocking<&Master::LocalRelayTimer>(mac, mode, relay, value);
}
ZANTH_API int32_t GetLocalRelayTimer(const char* mac, int32_t relay, int32_t* value) {
    return Blocking<&Master::LocalRelayTimer>(mac, 0, relay, value);
}
ZANTH_API int32_t SetLocalRelayTimer(const char* mac, int32_t relay, int32_t value) {
    return Blocking<&Master::LocalRelayTimer>(mac, 1, relay, &value);
}
ZANTH_API int32_t RspLocalRelayTimer(uint32_t rspid, const char* mac, int32_t mode, int32_t relay,
                                     int32_t value) {
    return Deferred<&Master::LocalRelayTimer>(rspid, mac, mode, relay, &value);
}
ZANTH_API int32_t RspGetLocalRelayTimer(uint32_t rspid, const char* mac, int32_t relay) {
    return Deferred<&Master::LocalRelayTimer>(rspid, mac, 0, relay, nullptr);
}
ZANTH_API int32_t RspSetLocalRelayTimer(uint32_t rspid, const char* mac, int32_t relay,
                                        int32_t value) {
    return Deferred<&Master::LocalRelayTimer>(rspid, mac, 1, relay, &value);
}

// Logical inputs.
ZANTH_API int32_t LogicalInput(const char* mac, int32_t mode, int32_t number, int32_t* value) {
    return Blocking<&Master::LogicalInput>(mac, mode, number, value);
}
ZANTH_API int32_t GetLogicalInput(const char* mac, int32_t number, int32_t* value) {
    return Blocking<&Master::LogicalInput>(mac, 0, number, value);
}
ZANTH_API int32_t SetLogicalInput(const char* mac, int32_t number, int32_t value) {
    return Blocking<&Master::LogicalInput>(mac, 1, number, &value);
}
ZANTH_API int32_t RspLogicalInput(uint32_t rspid, const char* mac, int32_t mode, int32_t number,
                                  int32_t value) {
    return Deferred<&Master::LogicalInput>(rspid, mac, mode, number, &value);
}
ZANTH_API int32_t RspGetLogicalInput(uint32_t rspid, const char* mac, int32_t number) {
    return Deferred<&Master::LogicalInput>(rspid, mac, 0, number, nullptr);
}
ZANTH_API int32_t RspSetLogicalInput(uint32_t rspid, const char* mac, int32_t number,
                                     int32_t value) {
    return Deferred<&Master::LogicalInput>(rspid, mac, 1, number, &value);
}

// Poll delay.
ZANTH_API int32_t LocalPollDelay(const char* mac, int32_t mode, int32_t* value) {
    return Blocking<&Master::LocalPollDelay>(mac, mode, value);
}
ZANTH_API int32_t RspLocalPollDelay(uint32_t rspid, const char* mac, int32_t mode, int32_t value) {
    return Deferred<&Master::LocalPollDelay>(rspid, mac, mode, &value);
}

}  // extern "C"
