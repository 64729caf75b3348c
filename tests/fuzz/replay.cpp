// Gives a fuzz target the inputs in the named files and folders, where no fuzzer is at hand. The
// fuzzer's own options are skipped.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Replay(const std::filesystem::path& path)
{
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);  // a broken promise ends the process at once
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

int ReplayAll(const std::filesystem::path& path)
{
    if (!std::filesystem::is_directory(path)) {
        Replay(path);
        return 1;
    }
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        Replay(entry.path());
        ++count;
    }
    return count;
}

}  // namespace

int main(int argc, char* argv[])
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] != '-') {
            count += ReplayAll(argv[i]);
        }
    }
    std::printf("%d inputs\n", count);
    return count > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
