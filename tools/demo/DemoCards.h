#pragma once
// The card database at work on one controller: a cardholder written by each generation of the
// add, one read back, deleted and undeleted, a cardholder status and the counts.

// Prints a few lines; false when a step didn't give what a controller would.
bool DemoCards(const char* mac);
