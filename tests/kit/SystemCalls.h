#pragma once

#include <functional>
#include <string>
#include <vector>

// Stands between the kit and the file system, by means of the linker: notes this thread's calls and
// lets one of them fail. One at a time on each thread.
class SystemCalls
{
public:
    SystemCalls();
    ~SystemCalls();
    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;

    // In order, with the kind of file: "fsync part", "pwrite record", "fsync folder", "open other".
    std::vector<std::string> Names() const;
    // The first call of this name fails with this errno.
    static void Fail(const std::string& name, int error);
    // The call of this number, counted from 1, fails.
    static void FailNumber(std::size_t number, int error);
    // Something happens just before the first call of this name.
    static void Before(const std::string& name, std::function<void()> act);
    // Whether a call has failed.
    static bool HasFailed();
};
