#pragma once
// The demo's door: unlocked from the host, watched through its lock monitor input, relocked by
// the controller's relay timer. True when all of that was seen.

bool DemoIo(const char* mac);
