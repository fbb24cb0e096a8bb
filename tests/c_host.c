/* A C host: the header compiles as C and the library answers through its exports. */
#include <stdio.h>
#include <string.h>

#include "zanth.h"

static int failures = 0;

static void expect(int condition, const char* what) {
    if (!condition) {
        fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
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

int main(void) {
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
    if (failures == 0) printf("C host: all checks passed\n");
    return failures == 0 ? 0 : 1;
}
