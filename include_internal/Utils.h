#pragma once

#include <dlog.h>
#include <pthread.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>

// Logging. The argument is a chain of pieces joined with <<, as for a stream:
//
//     LOG_INFO("Registering header callback with handle: " << handle);
//
// A line goes to the main buffer of the platform log with the tag "VORTAN". It names the source
// file without its folder, the function and the line. Nothing is filtered here. Any thread may log
// at any time. Inside a lambda the function's name is "operator()".
#define LOG_DEBUG(pieces) VORTAN_LOG(Debug, pieces)
#define LOG_INFO(pieces) VORTAN_LOG(Info, pieces)
#define LOG_WARN(pieces) VORTAN_LOG(Warn, pieces)
#define LOG_ERROR(pieces) VORTAN_LOG(Error, pieces)

// The same under the name of another function, for a helper that does part of that function's work:
// whoever searches the log by function names finds all lines of its work.
#define LOG_DEBUG_AS(function, pieces) VORTAN_LOG_AS(Debug, __FILE__, function, __LINE__, pieces)
#define LOG_INFO_AS(function, pieces) VORTAN_LOG_AS(Info, __FILE__, function, __LINE__, pieces)
#define LOG_WARN_AS(function, pieces) VORTAN_LOG_AS(Warn, __FILE__, function, __LINE__, pieces)
#define LOG_ERROR_AS(function, pieces) VORTAN_LOG_AS(Error, __FILE__, function, __LINE__, pieces)

// __func__ stands beside __FILE__ and __LINE__, by which clang-tidy knows that it is meant for the
// log: elsewhere it takes __func__ in a lambda for a mistake.
#define VORTAN_LOG(level, pieces)                                            \
    do {                                                                     \
        const char* const vortanLogFunction = __func__;                      \
        VORTAN_LOG_AS(level, __FILE__, vortanLogFunction, __LINE__, pieces); \
    } while (false)

// A chain of pieces cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define VORTAN_LOG_AS(level, file, function, line, pieces)                                      \
    do {                                                                                        \
        constexpr const char* vortanLogFile = ::VORTAN_MW::UTILS::FileBaseName(file);           \
        ::VORTAN_MW::UTILS::LogMessage vortanLogMessage;                                        \
        vortanLogMessage << pieces;                                                             \
        __dlog_print(::VORTAN_MW::UTILS::LogMainBuffer, ::VORTAN_MW::UTILS::LogPriority##level, \
                     ::VORTAN_MW::UTILS::LogTag, ::VORTAN_MW::UTILS::LogFormat##level,          \
                     vortanLogFile, function, line, vortanLogMessage.Text());                   \
    } while (false)
// NOLINTEND(bugprone-macro-parentheses)

namespace VORTAN_MW {
namespace UTILS {

// The platform log's numbers for its main buffer and its priorities, and the form of a line at each
// of the four levels: plain, green, yellow, red.
inline constexpr int LogMainBuffer = 0;
inline constexpr int LogPriorityDebug = 3;
inline constexpr int LogPriorityInfo = 4;
inline constexpr int LogPriorityWarn = 5;
inline constexpr int LogPriorityError = 6;
inline constexpr char LogTag[] = "VORTAN";
inline constexpr char LogFormatDebug[] = "%s: %s(%d) > %s";
inline constexpr char LogFormatInfo[] = "%s: %s(%d) > \033[32m%s\033[0m";
inline constexpr char LogFormatWarn[] = "%s: %s(%d) > \033[33m%s\033[0m";
inline constexpr char LogFormatError[] = "%s: %s(%d) > \033[31m%s\033[0m";

constexpr const char* FileBaseName(const char* path)
{
    const char* base = path;
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '/') {
            base = at + 1;
        }
    }
    return base;
}

// Integers that a stream writes as numbers; it writes the 8-bit ones as characters.
template <typename T>
inline constexpr bool IsNumber =
    std::is_integral_v<T> && !std::is_same_v<T, signed char> && !std::is_same_v<T, unsigned char>;

class StreamedPieces;

// The text of one log line. Pieces read as a default-formatted stream in the C locale writes them:
// numbers in decimal, true and false as 1 and 0. A null text is empty. The common types are written
// without a stream, and a text of usual length without allocation: those are most of what a log
// line would cost.
class LogMessage
{
public:
    LogMessage() { m_Short[0] = '\0'; }

    LogMessage& operator<<(const std::string& piece) { return m_Append(piece); }

    LogMessage& operator<<(const char* piece) { return piece ? m_Append(piece) : *this; }
    LogMessage& operator<<(char* piece) { return *this << static_cast<const char*>(piece); }

    LogMessage& operator<<(char piece) { return m_Append({&piece, 1}); }

    LogMessage& operator<<(bool piece) { return m_Append(piece ? "1" : "0"); }

    // libstdc++'s thread::id wraps a pthread_t and prints that.
    LogMessage& operator<<(std::thread::id piece)
    {
        if (piece == std::thread::id()) {
            return m_Append("thread::id of a non-executing thread");
        }
        pthread_t number = 0;
        static_assert(sizeof number == sizeof piece && std::is_integral_v<pthread_t>);
        std::memcpy(&number, &piece, sizeof number);
        return *this << number;
    }

    template <typename T, std::enable_if_t<IsNumber<T>, int> = 0>
    LogMessage& operator<<(T piece)
    {
        char digits[std::numeric_limits<T>::digits10 + 2];  // one more digit, and a sign
        const char* const end = std::to_chars(digits, std::end(digits), piece).ptr;
        return m_Append({digits, static_cast<std::size_t>(end - digits)});
    }

    // Everything else, manipulators included, and all pieces after it.
    template <typename T, std::enable_if_t<!IsNumber<T>, int> = 0>
    StreamedPieces operator<<(const T& piece);
    StreamedPieces operator<<(std::ostream& (*manipulator)(std::ostream&));

    const char* Text() const { return m_Long.empty() ? m_Short : m_Long.c_str(); }

private:
    LogMessage& m_Append(std::string_view piece)
    {
        if (m_Long.empty() && piece.size() < sizeof m_Short - m_Length) {
            std::memcpy(m_Short + m_Length, piece.data(), piece.size());
            m_Length += piece.size();
            m_Short[m_Length] = '\0';
        } else {
            if (m_Long.empty()) {
                m_Long.assign(m_Short, m_Length);
            }
            m_Long += piece;
        }
        return *this;
    }

    char m_Short[128];
    std::size_t m_Length = 0;
    std::string m_Long;  // the whole text once it does not fit into m_Short

    friend class StreamedPieces;
};

// The pieces of a chain from the first one on that LogMessage cannot write by itself. One stream
// writes them all, so that a manipulator affects the pieces that follow it. They are appended to
// the message when the statement ends.
class StreamedPieces
{
public:
    template <typename T>
    StreamedPieces(LogMessage& message, const T& first) : m_Message(message)
    {
        m_Stream.imbue(std::locale::classic());
        m_Stream << first;
    }
    StreamedPieces(const StreamedPieces&) = delete;
    StreamedPieces& operator=(const StreamedPieces&) = delete;

    ~StreamedPieces() noexcept(false) { m_Message.m_Append(m_Stream.str()); }

    template <typename T>
    StreamedPieces& operator<<(const T& piece)
    {
        m_Stream << piece;
        return *this;
    }
    StreamedPieces& operator<<(const char* piece)
    {
        m_Stream << (piece ? piece : "");
        return *this;
    }
    StreamedPieces& operator<<(char* piece) { return *this << static_cast<const char*>(piece); }
    StreamedPieces& operator<<(std::ostream& (*manipulator)(std::ostream&))
    {
        m_Stream << manipulator;
        return *this;
    }

private:
    LogMessage& m_Message;
    std::ostringstream m_Stream;
};

template <typename T, std::enable_if_t<!IsNumber<T>, int>>
StreamedPieces LogMessage::operator<<(const T& piece)
{
    return StreamedPieces(*this, piece);
}

inline StreamedPieces LogMessage::operator<<(std::ostream& (*manipulator)(std::ostream&))
{
    return StreamedPieces(*this, manipulator);
}

// Runs an action when it goes out of scope, if it is armed. A copy is armed as its original is, and
// leaves the original armed: then the action runs once for each of them.
class ScopedAction
{
public:
    // Armed. The action must not be empty when it is due: that ends the process.
    explicit ScopedAction(std::function<void()> action) : m_Action(std::move(action)) {}

    ScopedAction(const ScopedAction&) = default;
    ScopedAction& operator=(const ScopedAction&) = default;

    ~ScopedAction()
    {
        if (m_Armed) {
            LOG_DEBUG("Executing action...");
            m_Action();
        } else {
            LOG_DEBUG("Not executing action...");
        }
    }

    void Disarm() { m_Armed = false; }

private:
    bool m_Armed = true;
    std::function<void()> m_Action;
};

// Owns a thread. An exception that leaves the thread's function is logged before it ends the
// process. Destruction joins: whoever destroys it must not hold a lock that the thread needs.
class ScopedExceptionSafeThread
{
public:
    // Owns no thread, so that a table entry can be made before the thread is started.
    ScopedExceptionSafeThread() = default;

    // Starts a thread that calls function(arguments...), both copied or moved into it. Throws
    // std::system_error if no thread can be started.
    template <typename Function, typename... Arguments,
              typename = std::enable_if_t<
                  !std::is_same_v<std::decay_t<Function>, ScopedExceptionSafeThread>>>
    explicit ScopedExceptionSafeThread(Function&& function, Arguments&&... arguments)
        : m_Thread(&ScopedExceptionSafeThread::Invoker<std::decay_t<Function>,
                                                       std::decay_t<Arguments>...>,
                   std::forward<Function>(function), std::forward<Arguments>(arguments)...)
    {}

    ScopedExceptionSafeThread(ScopedExceptionSafeThread&&) = default;

    ScopedExceptionSafeThread& operator=(ScopedExceptionSafeThread&& other) noexcept
    {
        if (this != &other) {
            m_JoinIfJoinable();
            m_Thread = std::move(other.m_Thread);
        }
        return *this;
    }

    ~ScopedExceptionSafeThread() { m_JoinIfJoinable(); }

    // The owned thread, to identify, join or detach it.
    std::thread& Thread() { return m_Thread; }

    // What the thread runs.
    template <typename Function, typename... Arguments>
    static void Invoker(Function function, Arguments... arguments)
    {
        try {
            std::invoke(std::move(function), std::move(arguments)...);
        } catch (const std::exception& exception) {
            LOG_ERROR("Unhandled exception");
            LOG_ERROR(exception.what());
            std::terminate();
        } catch (...) {
            LOG_ERROR("Unhandled thrown object");
            std::terminate();
        }
    }

private:
    void m_JoinIfJoinable()
    {
        if (m_Thread.joinable()) {
            m_Thread.join();
        }
    }

    std::thread m_Thread;
};

// Draws evenly distributed numbers between two bounds, both included, from a generator seeded by
// the system. Bounds in the wrong order are allowed: the range is then taken modulo 2^32.
class RandomNumberGenerator
{
public:
    // Throws what std::random_device throws where the system gives no entropy.
    RandomNumberGenerator(std::uint32_t min, std::uint32_t max) : m_Min(min), m_Range(max - min)
    {
        const std::uint32_t seed = std::random_device("default")();
        m_Engine.seed(seed);
        LOG_DEBUG("min: " << min << " max: " << max << " seed: " << seed);
    }

    std::uint32_t operator()() { return Draw(m_Engine, m_Min, m_Range); }

    // One draw. Written out because the libraries' distributions differ from one another for the
    // same engine, and theirs are undefined for bounds in the wrong order. range is max - min
    // modulo 2^32; engine yields 32-bit numbers.
    template <typename Engine>
    static std::uint32_t Draw(Engine& engine, std::uint32_t min, std::uint32_t range)
    {
        constexpr std::uint32_t engineRange = 4294967295;
        if (range == engineRange) {
            return static_cast<std::uint32_t>(engine());
        }
        const std::uint32_t buckets = range + 1;
        const std::uint32_t scaling = engineRange / buckets;
        const std::uint32_t past = buckets * scaling;
        std::uint32_t output = 0;
        do {
            output = static_cast<std::uint32_t>(engine());
        } while (output >= past);
        return output / scaling + min;
    }

private:
    std::uint32_t m_Min;
    std::uint32_t m_Range;
    std::mt19937 m_Engine;
};

}  // namespace UTILS
}  // namespace VORTAN_MW
