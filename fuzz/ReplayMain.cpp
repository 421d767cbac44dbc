// Runs LLVMFuzzerTestOneInput over files, as libFuzzer would run one input, without libFuzzer:
// CI replays the corpus and the regressions with it in every build. Arguments are files or
// folders; a folder stands for the regular files in it, in name order. A folder that does not
// exist is skipped, so that an empty regressions folder, which git cannot hold, is no error.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> InputsOf(const fs::path& arg) {
    std::vector<fs::path> inputs;
    std::error_code error;
    if (fs::is_directory(arg, error)) {
        for (const auto& entry : fs::directory_iterator(arg)) {
            if (entry.is_regular_file()) inputs.push_back(entry.path());
        }
        std::sort(inputs.begin(), inputs.end());
    } else if (fs::exists(arg, error)) {
        inputs.push_back(arg);
    }
    return inputs;
}

bool Replay(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        (void)std::fprintf(stderr, "cannot read %s\n", path.string().c_str());
        return false;
    }
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // A copy of exactly the input's size, so that AddressSanitizer sees any read beyond it.
    const std::vector<std::uint8_t> data(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(data.data(), data.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        (void)std::fprintf(stderr, "usage: %s file-or-folder...\n", argv[0]);
        return 2;
    }
    std::size_t replayed = 0;
    bool ok = true;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& input : InputsOf(argv[i])) {
            ok = Replay(input) && ok;
            ++replayed;
        }
    }
    std::printf("replayed %zu inputs\n", replayed);
    return ok && replayed > 0 ? 0 : 1;
}
