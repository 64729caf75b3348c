#pragma once

#include "Utils.h"

// As the agent's LOG_INFO and its like, under the kit's own tag.
#define KIT_LOG(level, pieces)                                                                    \
    do {                                                                                          \
        constexpr const char* kitLogFile = ::VORTAN_MW::UTILS::FileBaseName(__FILE__);            \
        const char* const kitLogFunction = __func__;                                              \
        ::VORTAN_MW::UTILS::LogMessage kitLogMessage;                                             \
        kitLogMessage << pieces; /* NOLINT(bugprone-macro-parentheses): a chain, not one value */ \
        __dlog_print(::VORTAN_MW::UTILS::LogMainBuffer, ::VORTAN_MW::UTILS::LogPriority##level,   \
                     "VORTANKIT", ::VORTAN_MW::UTILS::LogFormat##level, kitLogFile,               \
                     kitLogFunction, __LINE__, kitLogMessage.Text());                             \
    } while (false)
