#pragma once

// The one entry point of the device's log library that is used here, as its ABI has it. A program
// may define the function itself and thereby receive every line.
//
// Sends one line, composed from fmt as printf does, to the log buffer log_id (0 is the main one)
// with priority prio (3 debug, 4 info, 5 warning, 6 error). Any thread may call it. Returns how
// many bytes were written, or a negative number.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the device's.
extern "C" int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));
