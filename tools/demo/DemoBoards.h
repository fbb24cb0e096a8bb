#pragma once
// The demo's look at one controller's interface boards and its error log.

// Discovers the boards of `mac` and prints them, loads one board's program and reads it back,
// and fetches the controller's error log into a file; true when all of that worked.
bool DemoBoards(const char* mac);
