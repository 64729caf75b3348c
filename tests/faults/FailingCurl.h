#pragma once

#include "Trial.h"

// Stands between the program, with the wrapper's stand-in, and the real libcurl, so that one call
// can be made to fail: the functions whose result says that they may.
//
// What is refused does not happen. The exception are options that libcurl never refuses (functions,
// pointers, and that there is something to upload), where it relies on having both of a pair: of
// those only the result says that they were refused.
extern const Fault failingCurl;
