// What the agent does with a Python error that nobody has caught. GIL.
#pragma once

#include <string>

// How Python itself would end the process on the pending error, which is cleared: the code of a
// SystemExit, else 1 behind a traceback.
int statusOfPythonError();

// The pending error, which is cleared, in words for people: its text, or its type if it has none.
std::string textOfPythonError();

// What stands in Python's buffers goes out. A pending error stays.
void flushOutput();
