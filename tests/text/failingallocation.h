#pragma once

/// Of the calling thread's allocations to come, that one fails.
void FailAllocation(int number);

/// None fails any more. Whether one did.
bool StopFailing();
