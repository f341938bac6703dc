// expected.txt: what every operation gives with every failure. The sweep compares
// with it, or writes it anew when KELCORE_SWEEP_UPDATE is set.
#pragma once

#include <string>

bool Updating();
// The lines of an operation, empty when there are none.
std::string Expected(const std::string &operation);
void Expect(const std::string &operation, const std::string &lines);
void WriteExpected();
// An operation that has lines and is no more, or nothing.
std::string StaleOperation();
// The lines that are in one text only, at most `most` of them.
std::string Difference(const std::string &expected, const std::string &seen, size_t most);
