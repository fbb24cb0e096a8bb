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
ZANTH_API int32_t RspReadA2D_2(uint32_t rspid, const char* mac, int32_t target, int32_t adNumber) {
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
    return Blocking<&Master::LocalA2DLimits>(mac, 0, adNumber, upperHigh, upperHighSize, lowerHigh,
                                             lowerHighSize, upperLow, upperLowSize, lowerLow,
                                             lowerLowSize);
}
ZANTH_API int32_t SetLocalA2DLimits(const char* mac, int32_t adNumber, const char* upperHigh,
                                    const char* lowerHigh, const char* upperLow,
                                    const char* lowerLow) {
    return Blocking<&Master::LocalA2DLimits>(
        mac, 1, adNumber, const_cast<char*>(upperHigh), 0, const_cast<char*>(lowerHigh), 0,
        const_cast<char*>(upperLow), 0, const_cast<char*>(lowerLow), 0);
}
ZANTH_API int32_t RspLocalA2DLimits(uint32_t rspid, const char* mac, int32_t mode, int32_t adNumber,
                                    const char* upperHigh, const char* lowerHigh,
                                    const char* upperLow, const char* lowerLow) {
    return Deferred<&Master::LocalA2DLimits>(
        rspid, mac, mode, adNumber, const_cast<char*>(upperHigh), 0, const_cast<char*>(lowerHigh),
        0, const_cast<char*>(upperLow), 0, const_cast<char*>(lowerLow), 0);
}
ZANTH_API int32_t RspGetLocalA2DLimits(uint32_t rspid, const char* mac, int32_t adNumber) {
    return Deferred<&Master::LocalA2DLimits>(rspid, mac, 0, adNumber, nullptr, 0, nullptr, 0,
                                             nullptr, 0, nullptr, 0);
}
ZANTH_API int32_t RspSetLocalA2DLimits(uint32_t rspid, const char* mac, int32_t adNumber,
                                       const char* upperHigh, const char* lowerHigh,
                                       const char* upperLow, const char* lowerLow) {
    return Deferred<&Master::LocalA2DLimits>(
        rspid, mac, 1, adNumber, const_cast<char*>(upperHigh), 0, const_cast<char*>(lowerHigh), 0,
        const_cast<char*>(upperLow), 0, const_cast<char*>(lowerLow), 0);
}

// Debounces, relay timers and logical inputs: numbered local settings of the controller, six
// exports each, all on the setting's one method. A value given by value travels as the address
// of the export's own copy.
#define ZANTH_NUMBERED_SETTING(Name)                                                           \
    ZANTH_API int32_t Name(const char* mac, int32_t mode, int32_t number, int32_t* value) {    \
        return Blocking<&Master::Name>(mac, mode, number, value);                              \
    }                                                                                          \
    ZANTH_API int32_t Get##Name(const char* mac, int32_t number, int32_t* value) {             \
        return Blocking<&Master::Name>(mac, 0, number, value);                                 \
    }                                                                                          \
    ZANTH_API int32_t Set##Name(const char* mac, int32_t number, int32_t value) {              \
        return Blocking<&Master::Name>(mac, 1, number, &value);                                \
    }                                                                                          \
    ZANTH_API int32_t Rsp##Name(uint32_t rspid, const char* mac, int32_t mode, int32_t number, \
                                int32_t value) {                                               \
        return Deferred<&Master::Name>(rspid, mac, mode, number, &value);                      \
    }                                                                                          \
    ZANTH_API int32_t RspGet##Name(uint32_t rspid, const char* mac, int32_t number) {          \
        return Deferred<&Master::Name>(rspid, mac, 0, number, nullptr);                        \
    }                                                                                          \
    ZANTH_API int32_t RspSet##Name(uint32_t rspid, const char* mac, int32_t number,            \
                                   int32_t value) {                                            \
        return Deferred<&Master::Name>(rspid, mac, 1, number, &value);                         \
    }

// LocalDebounce, GetLocalDebounce, SetLocalDebounce and their Rsp forms.
ZANTH_NUMBERED_SETTING(LocalDebounce)
// LocalRelayTimer, GetLocalRelayTimer, SetLocalRelayTimer and their Rsp forms.
ZANTH_NUMBERED_SETTING(LocalRelayTimer)
// LogicalInput, GetLogicalInput, SetLogicalInput and their Rsp forms.
ZANTH_NUMBERED_SETTING(LogicalInput)

#undef ZANTH_NUMBERED_SETTING

// Poll delay.
ZANTH_API int32_t LocalPollDelay(const char* mac, int32_t mode, int32_t* value) {
    return Blocking<&Master::LocalPollDelay>(mac, mode, value);
}
ZANTH_API int32_t RspLocalPollDelay(uint32_t rspid, const char* mac, int32_t mode, int32_t value) {
    return Deferred<&Master::LocalPollDelay>(rspid, mac, mode, &value);
}

}  // extern "C"
