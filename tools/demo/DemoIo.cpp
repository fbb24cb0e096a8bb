// A door unlocked from the host. Door 1 is relay 0 of the controller (target 32); the
// controller's input 8 monitors that lock. The relay timer set first relocks the door without
// another word from the host.

#include "tools/demo/DemoIo.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "zanth.h"

namespace {

constexpr int32_t kController = 32;
constexpr int32_t kDoorRelay = 0;
constexpr int32_t kLockMonitor = 8;
constexpr int32_t kRelockMs = 1500;

// The lock monitor's state, or -1 when the status can't be read.
int LockMonitor(const char* mac) {
    int32_t status = 0;
    char inputs[64];
    if (GetInputStatus3(mac, kController, &status, inputs, sizeof inputs) != 0) return -1;
    return (status >> kLockMonitor) & 1;
}

}  // namespace

bool DemoIo(const char* mac) {
    using Clock = std::chrono::steady_clock;
    std::printf("\ndoor 1 of %s (relay %d, lock monitor input %d)\n", mac, kDoorRelay,
                kLockMonitor);
    int32_t timer = 0;
    int32_t rc = SetLocalRelayTimer(mac, kDoorRelay, kRelockMs);
    int32_t rcRead = GetLocalRelayTimer(mac, kDoorRelay, &timer);
    std::printf("  SetLocalRelayTimer(%d ms) = %d, GetLocalRelayTimer = %d: %d ms\n", kRelockMs, rc,
                rcRead, timer);
    bool ok = rc == 0 && rcRead == 0 && timer == kRelockMs;

    auto unlocked = Clock::now();
    rc = CmdOutputFunction3(mac, kController, kDoorRelay, 1);
    int32_t relay = -1;
    int32_t rcRelay = LocalFcnCode(mac, kDoorRelay, &relay);
    int monitor = LockMonitor(mac);
    std::printf("  CmdOutputFunction3 (unlock) = %d; relay %d reads %d; input %d reads %s\n", rc,
                kDoorRelay, rcRelay == 0 ? relay : rcRelay, kLockMonitor,
                monitor == 1 ? "1: door unlocked" : "not unlocked");
    ok = ok && rc == 0 && relay == 1 && monitor == 1;

    // The host only watches: the controller's timer does the relocking.
    int last = monitor;
    auto deadline = unlocked + std::chrono::milliseconds(kRelockMs + 5000);
    while (last == 1 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        last = LockMonitor(mac);
    }
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - unlocked);
    std::printf("  input %d reads %d after %lld ms: %s\n", kLockMonitor, last,
                static_cast<long long>(ms.count()),
                last == 0 ? "relocked by the relay timer" : "still unlocked");
    std::fflush(stdout);
    return ok && last == 0;
}
