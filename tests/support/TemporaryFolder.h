#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// A folder of its own that goes, with all that is in it, at the end.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string Path(const std::string& name = "") const { return m_Path / name; }

    // Makes a file and returns its path.
    std::string FileWith(const std::vector<std::uint8_t>& contents,
                         const std::string& name = "file") const;
    void Write(const std::string& name, const std::vector<std::uint8_t>& contents) const;
    std::vector<std::uint8_t> Read(const std::string& name) const;

private:
    std::filesystem::path m_Path;
};
