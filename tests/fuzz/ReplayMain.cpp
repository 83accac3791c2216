// Replays a harness's seed corpus, then a fixed-seed stream of mutations of it,
// so the test run exercises the parser on damaged input without libFuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::string> LoadCorpus(const std::filesystem::path& dir) {
    std::vector<std::string> inputs;
    if (std::filesystem::is_directory(dir)) {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(dir))
            if (entry.is_regular_file())
                files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        for (const auto& file : files) {
            std::ifstream in(file, std::ios::binary);
            inputs.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
    }
    if (inputs.empty())
        inputs.emplace_back();
    return inputs;
}

std::string Mutate(std::string input, std::mt19937& random) {
    std::uniform_int_distribution<int> kind(0, 5);
    std::uniform_int_distribution<int> byte(0, 255);
    const int steps = 1 + static_cast<int>(random() % 4);
    for (int i = 0; i < steps; ++i) {
        const size_t at = input.empty() ? 0 : random() % (input.size() + 1);
        switch (kind(random)) {
        case 0: if (at < input.size()) input[at] = static_cast<char>(byte(random)); break;
        case 1: input.insert(input.begin() + static_cast<std::ptrdiff_t>(at), static_cast<char>(byte(random))); break;
        case 2: if (at < input.size()) input.erase(at, 1 + random() % 8); break;
        case 3: input.resize(at); break;
        case 4: if (at < input.size()) input[at] = static_cast<char>(input[at] ^ (1 << (random() % 8))); break;
        case 5: if (at + 4 <= input.size()) input.replace(at, 4, std::string("\xff\xff\xff\x7f", 4)); break;
        }
    }
    return input;
}

void Run(const std::string& input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR [MUTATIONS]\n", argv[0]);
        return 2;
    }
    const auto corpus = LoadCorpus(argv[1]);
    const long mutations = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 10000;
    for (const auto& input : corpus)
        Run(input);
    std::mt19937 random(12345);
    for (long i = 0; i < mutations; ++i)
        Run(Mutate(corpus[random() % corpus.size()], random));
    std::printf("replayed %zu corpus inputs and %ld mutations\n", corpus.size(), mutations);
    return 0;
}
