#pragma once
#include <string>
#include <vector>

// Reads each controller's clock, sets it from the host's, and reads it again, printing how far
// it was off before and after. The number of controllers whose clock ends within a second.
int DemoClockCheck(const std::vector<std::string>& macs);
