// Logs through the platform log as its arguments say. The result is 0 if all is as it should be.
//
//   say PRIORITY TAG TEXT         one line
//   shout THREADS LINES LENGTH    lines of many threads: "THREAD:LINE:" and LENGTH times "x"
//   count-formatting              1 if the text of a line at the debug level is made
//   expect-failure                1 if a line can be written after all
//   expect-errno                  1 if logging changes errno

#include <dlog.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int debugLevel = 3;
constexpr int infoLevel = 4;

int Log(int priority, const char* tag, const std::string& text)
{
    return __dlog_print(0, priority, tag, "%s", text.c_str());
}

void LogMany(std::size_t thread, int lines, const std::string& filling)
{
    for (int line = 0; line < lines; ++line) {
        __dlog_print(0, infoLevel, "PROBE", "%zu:%d:%s", thread, line, filling.c_str());
    }
}

int Shout(std::size_t threadCount, int lines, std::size_t length)
{
    std::vector<std::thread> threads(threadCount);
    for (std::size_t i = 0; i < threadCount; ++i) {
        threads[i] = std::thread(LogMany, i, lines, std::string(length, 'x'));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

int CountFormatting()
{
    int length = 0;
    __dlog_print(0, debugLevel, "PROBE", "x%n", &length);
    return length;
}

int ExpectErrno()
{
    errno = EDOM;
    Log(infoLevel, "PROBE", "text");
    return errno == EDOM ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string& command = arguments.at(0);
    if (command == "say") {
        const int priority = std::stoi(arguments.at(1));
        return Log(priority, arguments.at(2).c_str(), arguments.at(3)) < 0 ? 1 : 0;
    }
    if (command == "shout") {
        return Shout(std::stoul(arguments.at(1)), std::stoi(arguments.at(2)),
                     std::stoul(arguments.at(3)));
    }
    if (command == "count-formatting") {
        return CountFormatting();
    }
    if (command == "expect-failure") {
        return Log(infoLevel, "PROBE", "text") < 0 ? 0 : 1;
    }
    if (command == "expect-errno") {
        return ExpectErrno();
    }
    return 2;
}
