// Gives a fuzz target each file of its kept corpus once: the main() of builds without libFuzzer.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/fuzz/fuzz.h"

namespace {

namespace fs = std::filesystem;

void run_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    fuzz::check(file.good(), "the input can be read");
    // Said beforehand: a target that fails does not come back.
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

/// @return how many inputs there were
int run_all(const fs::path& path) {
    if (!fs::is_directory(path)) {
        run_file(path);
        return 1;
    }
    int count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        run_file(entry.path());
        ++count;
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) count += run_all(argv[i]);
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
