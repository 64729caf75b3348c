#pragma once

#include "Trial.h"

// Takes the place of the maker's curl wrapper library in a test program. One operation can be made
// to fail: what it should have done has not happened then.
//
// The body of each response tells, line by line, what was set for its request and what was
// uploaded; that of the request to "next" has BodyLength bytes. A request to "http://refused"
// fails.

// Operations that return false: those that tell whether they worked.
extern const Fault refusingQXCurl;
// Operations that throw: all of them.
extern const Fault throwingQXCurl;
