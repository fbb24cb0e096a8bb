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
    if (failures == 0) printf("C host: all checks passed\n");
    return failures == 0 ? 0 : 1;
}
