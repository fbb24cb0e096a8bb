// The demo's look at one controller's interface boards and its error log.

#include "DemoBoards.h"

#include <cstdio>
#include <fstream>
#include <string>

#include "zanth.h"

bool DemoBoards(const char* mac) {
    char text[4118];
    std::printf("\ninterface boards of %s\n", mac);
    int32_t found = DiscoverInterfaces2(mac, text, sizeof text);
    std::printf("  DiscoverInterfaces2 = %d  \"%s\"  ([chain:address=ID,...])\n", found,
                found == 0 ? text : "");
    int32_t revs = GetMoxModuleRevs(mac, text, sizeof text);
    std::printf("  GetMoxModuleRevs = %d  \"%s\"\n", revs, revs == 0 ? text : "");
    // Board 16 on chain 1 gets the program the controller holds; its first bytes read back.
    int32_t loaded = DownloadInterfaceProgram(mac, 16);
    int32_t read = ReadInterfaceMemory_2(mac, 16, 1, "0", 8, text, sizeof text, 'a');
    std::printf(
        "  DownloadInterfaceProgram(16) = %d, ReadInterfaceMemory_2(16, program, 0, 8) = "
        "%d  \"%s\"\n",
        loaded, read, read == 0 ? text : "");

    const char* path = "errorlog.txt";
    int32_t entries = GetErrorLog(mac, path);
    std::printf("  GetErrorLog = %d  (entries, fetched into %s)\n", entries, path);
    std::ifstream log(path);
    int shown = 0;
    for (std::string line; std::getline(log, line) && shown < 3; ++shown) {
        std::printf("    %s\n", line.c_str());
    }
    bool ok = found == 0 && revs == 0 && loaded == 0 && read == 0 && entries > 0 && shown > 0;
    std::printf("  boards and error log: %s\n\n", ok ? "OK" : "FAILED");
    std::fflush(stdout);
    return ok;
}
