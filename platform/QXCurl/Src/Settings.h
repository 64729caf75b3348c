#pragma once

#include <list>
#include <map>
#include <string>
#include <utility>
#include <variant>

#include "QXCurl.h"

namespace QXCurl {

using Callback = unsigned int (*)(char*, unsigned int, unsigned int, void*);

// Copies of all values that were set, whatever their number.
class OptionValues
{
public:
    using Value = std::variant<long long, std::string, std::list<std::string>, Callback, void*>;

    void Set(QXCURL_OPTION_TYPE option, Value value)
    {
        m_Values.insert_or_assign(option, std::move(value));
    }

    // The value that was set last, or fallback if there is none of that type.
    template <typename T>
    T Get(QXCURL_OPTION_TYPE option, T fallback) const
    {
        const auto found = m_Values.find(option);
        const T* const value = found == m_Values.end() ? nullptr : std::get_if<T>(&found->second);
        return value ? *value : fallback;
    }

    bool IsOn(QXCURL_OPTION_TYPE option) const { return Get<long long>(option, 0) != 0; }

private:
    std::map<QXCURL_OPTION_TYPE, Value> m_Values;
};

// Everything that was set for a request.
struct Settings
{
    OptionValues options;
    std::string client;
    bool sendClient = false;
    std::string caFile;  // empty for the system's
    int transferTimeout = 0;
    int connectionTimeout = 0;
};

}  // namespace QXCurl
