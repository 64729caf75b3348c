#include "TemporaryFolder.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace {

std::filesystem::path MakeFolder()
{
    std::string path = std::filesystem::temp_directory_path() / "vortan-test-XXXXXX";
    if (!mkdtemp(path.data())) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return path;
}

}  // namespace

TemporaryFolder::TemporaryFolder() : m_Path(MakeFolder()) {}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
}

std::string TemporaryFolder::FileWith(const std::vector<std::uint8_t>& contents,
                                      const std::string& name) const
{
    Write(name, contents);
    return Path(name);
}

void TemporaryFolder::Write(const std::string& name,
                            const std::vector<std::uint8_t>& contents) const
{
    std::ofstream file(m_Path / name, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    std::copy(contents.begin(), contents.end(), std::ostreambuf_iterator<char>(file));
}

std::vector<std::uint8_t> TemporaryFolder::Read(const std::string& name) const
{
    std::ifstream file(m_Path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
