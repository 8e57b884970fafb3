// Replays stored inputs through a fuzz target, for compilers without libFuzzer and for the tests.
// Arguments are files and folders of files. Status 1 if there is nothing to replay.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static std::vector<std::filesystem::path> inputs_of(const char* name)
{
    std::vector<std::filesystem::path> found;
    if (!std::filesystem::is_directory(name)) {
        found.emplace_back(name);
        return found;
    }
    for (const auto& entry : std::filesystem::directory_iterator(name)) {
        found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end());
    return found;
}

int main(int argc, char** argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const std::filesystem::path& path : inputs_of(argv[i])) {
            std::ifstream file(path, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
            fprintf(stderr, "%s\n", path.filename().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++replayed;
        }
    }
    fprintf(stderr, "%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
