// The library's entry point. A process detach with a reserved pointer is the process ending
// (ExitProcess, or a return from main) rather than a FreeLibrary: by then the system has ended
// every other thread, so the library's own must not be waited for as it unloads.
// The library's header goes before the system's: its socket constants share their names.
#include "platform/Thread.h"
// windows.h in a block of its own, after it.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_DETACH && reserved != nullptr) platform::NoteProcessExit();
    return TRUE;
}
