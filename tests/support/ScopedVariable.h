#pragma once

#include <cstdlib>
#include <string>
#include <utility>

// Sets an environment variable for the length of a scope; null unsets it. No other thread may run
// then that reads the environment.
class ScopedVariable
{
public:
    ScopedVariable(std::string name, const char* value) : m_Name(std::move(name))
    {
        if (value) {
            setenv(m_Name.c_str(), value, 1);  // NOLINT(concurrency-mt-unsafe): see above
        } else {
            unsetenv(m_Name.c_str());  // NOLINT(concurrency-mt-unsafe)
        }
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;
    ~ScopedVariable() { unsetenv(m_Name.c_str()); }  // NOLINT(concurrency-mt-unsafe)

private:
    std::string m_Name;
};
