#pragma once

/// Makes the `number`-th allocation of the calling thread from now on fail, through operator new and, where the C
/// library's can be replaced, malloc. One thread at a time.
void FailAllocation(int number);

/// Ends that. Whether one has failed.
bool StopFailing();
