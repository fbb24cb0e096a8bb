/* A C host: the header compiles as C and the library answers through its exports. Given a port,
 * it also listens there and waits for simulated controllers (tests/support/with_sim.sh starts
 * them), then asks one of them for its ControllerInfo. */
#if !defined(_WIN32)
#define _POSIX_C_SOURCE 200809L
#endif
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

/* <windows.h> first, as most Windows hosts have it: it defines `interface` as a macro, which
 * the header must put up with. */
#if defined(_WIN32)
#include <windows.h>
#include <objbase.h> /* defines `interface`, whatever WIN32_LEAN_AND_MEAN says */
#endif

#include "zanth.h"

#if defined(_WIN32) && !defined(interface)
#error "zanth.h must put the system's interface macro back"
#endif

#if defined(_WIN32)
#define PAUSE_MS(ms) Sleep(ms)
#else
static void PAUSE_MS(long ms) {
    struct timespec t;
    t.tv_sec = ms / 1000;
    t.tv_nsec = (ms % 1000) * 1000000L;
    nanosleep(&t, NULL);
}
#endif

static int failures = 0;

static void expect(int condition, const char* what) {
    if (!condition) {
        fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

/* The controllers the simulator plays, counted up from 00:00:01. */
/* With shutdown 0 the host returns from main with the library running and its callback
 * registered, as a host that forgets Shutdown does: the process must still end at once. */
static int run_with_controllers(int port, int shutdown) {
    char list[256] = "";
    char info[256] = "";
    time_t deadline = time(NULL) + 30;
    int32_t rc;

    expect(SetValidControllers("ALL") == 0, "SetValidControllers ALL");
    rc = Initialization(port, NULL, NULL);
    expect(rc == 0, "Initialization on the given port");
    if (rc != 0) return 1;
    /* Waits (with a deadline) until the three simulated controllers are connected. */
    while (time(NULL) < deadline) {
        if (GetConnectedControllers(list, sizeof list) == 0 &&
            strcmp(list, "00:00:01,00:00:02,00:00:03") == 0)
            break;
        PAUSE_MS(50);
    }
    expect(strcmp(list, "00:00:01,00:00:02,00:00:03") == 0, "three simulated controllers connected");
    rc = ControllerInfo("00:00:02", info, sizeof info);
    expect(rc == 0, "ControllerInfo of a simulated controller");
    expect(strstr(info, "00:00:02") != NULL, "ControllerInfo names the controller's MAC");
    printf("ControllerInfo(00:00:02): %s\n", info);
    expect(ControllerInfo("00:00:02", info, 4) == -10006, "ControllerInfo into 4 bytes is -10006");
    if (shutdown) expect(Shutdown() == 0, "Shutdown");
    return 0;
}

static int32_t on_event(char* text) {
    (void)text;
    return 0;
}

/* One export of every family, against a controller that is listed but not connected: each one
 * links, and each command refuses before anything would be sent. */
static void every_family(void) {
    const char* mac = "AA:BB:CC";
    char text[256];
    char cardNumber[32] = "1001";
    char pin[16] = "";
    char date[16];
    char time[16];
    int32_t first = 0;
    int32_t second = 0;
    int32_t value = 0;
    uint64_t count = 1;

    expect(GetLogFilePath(text) == 0, "monitors: GetLogFilePath");
    expect(ResetDLLTime(0, &value) == 0 && value > 0, "reset: ResetDLLTime reads its wait");
    expect(SetEventCallback(on_event) == 0, "notification: SetEventCallback");
    expect(GetNumberResponse(&value) == 0 && value == 0, "notification: no responses queued");
    expect(NumberUnreadEvents(&count) == 0, "message files: NumberUnreadEvents");
    expect(DeleteCardRecord(mac, 1, 0, cardNumber, pin) == -10003, "card records");
    expect(ResetAllCardholderStatus(mac) == -10003, "cardholder status");
    expect(GetNumberOfCards(mac, &first, &second) == -10003, "database maintenance");
    expect(RequestPin(mac, 1, 2, 3) == -10003, "host access decisions");
    /* A status-kind command gives its own status, -1, whenever the exchange fails. */
    expect(DeleteSchedule(mac, 1) == -1, "schedules");
    expect(DeleteContactIDRecord(mac, 1) == -10003, "Contact ID records");
    expect(RspSmartCardRawMode(7, mac, 1, "00") == -10003, "smart card modes");
    expect(CmdOutputFunction3(mac, 32, 0, 1) == -10003, "outputs");
    expect(GetInputStatus3(mac, 32, &value, text, sizeof text) == -10003, "inputs");
    expect(DiscoverInterfaces(mac, text, sizeof text) == -10003, "interface boards");
    expect(RestartTask(mac, 1) == -10003, "administration");
    expect(GetTimeDate(mac, date, sizeof date, time, sizeof time) == -10003, "time");
    expect(UploadAllMsgs(mac) == -10003, "message upload");
    expect(ZanthDeleteFile(mac, "/tmp/x") == -10003, "file transfer");
}

int main(int argc, char** argv) {
    char version[16];
    int32_t level = 0;
    int32_t wait = 0;
    char list[64];

    expect(GetDLLVersion(version, sizeof version) == 0, "GetDLLVersion succeeds");
    expect(strcmp(version, "2.6.0.10") == 0, "version text");
    expect(GetDLLVersion(version, 8) == -10006, "GetDLLVersion with size 8 is -10006");
    expect(DebugLevel(0, &level) == 0 && level == 50, "default debug level 50");
    expect(RecvWaitTime(0, &wait) == 0 && wait == 300000, "default wait time");
    expect(SetValidControllers("aa:bb:cc, 11:22:33") == 0, "SetValidControllers");
    expect(GetValidControllers(list, sizeof list) == 0, "GetValidControllers");
    expect(strcmp(list, "11:22:33,AA:BB:CC") == 0, "valid list sorted and raised");
    expect(ControllerInfo("AA:BB:CC", list, sizeof list) == -10003, "listed but unconnected");
    expect(ControllerInfo("DD:EE:FF", list, sizeof list) == -10004, "not listed");
    expect(Initialization(1024, NULL, NULL) == -10002, "port 1024 refused");
    every_family();
    if (argc > 2 && strcmp(argv[1], "--no-shutdown") == 0) {
        run_with_controllers(atoi(argv[2]), 0);
    } else if (argc > 1) {
        run_with_controllers(atoi(argv[1]), 1);
    }
    if (failures == 0) printf("C host: all checks passed\n");
    return failures == 0 ? 0 : 1;
}
