// Where the operations work: everything bears the process's number.
#pragma once

#include <string>

// Of a queue, a semaphore and a segment.
const char *SystemName();
const char *SemaName();
// Of a file in the sweep's own directory, which is made at the first use.
std::string PathOf(const char *name);
void WriteFile(const char *name, const char *text);

// Back to a system without any of it.
void CleanSystem();
void RemoveDirectory();
