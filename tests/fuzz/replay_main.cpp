// Runs a fuzz entry over its seeds and a fixed number of mutations of them: the same every time.
//   usage: <parser>_fuzz SEED_FOLDER [MUTATIONS]
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int *argc, char ***argv); // not every entry has one

using Bytes = std::vector<uint8_t>;

static Bytes file_read(const std::filesystem::path &path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// One to four small changes: flip, insert, erase, or splice in a run of another seed.
static Bytes mutate(const std::vector<Bytes> &seeds, std::mt19937 &random)
{
    Bytes bytes = seeds[random() % seeds.size()];
    for (unsigned change = random() % 4 + 1; change > 0; change--) {
        const size_t at = bytes.empty() ? 0 : random() % bytes.size();
        const auto here = bytes.begin() + static_cast<ptrdiff_t>(at);
        const Bytes &other = seeds[random() % seeds.size()];
        switch (random() % 4) {
        case 0:
            if (!bytes.empty())
                bytes[at] ^= static_cast<uint8_t>(1U << random() % 8);
            break;
        case 1:
            bytes.insert(here, static_cast<uint8_t>(random()));
            break;
        case 2:
            if (!bytes.empty())
                bytes.erase(here, here + static_cast<ptrdiff_t>(std::min<size_t>(bytes.size() - at, random() % 8 + 1)));
            break;
        default:
            if (!other.empty()) {
                const size_t from = random() % other.size();
                const size_t count = std::min<size_t>(other.size() - from, random() % 64 + 1);
                bytes.insert(here, other.begin() + static_cast<ptrdiff_t>(from),
                             other.begin() + static_cast<ptrdiff_t>(from + count));
            }
        }
    }
    return bytes;
}

int main(int argc, char *argv[])
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s SEED_FOLDER [MUTATIONS]\n", argv[0]);
        return 2;
    }
    const int mutations = argc > 2 ? atoi(argv[2]) : 20000;
    std::vector<std::filesystem::path> paths;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1]))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end()); // the same mutations on every machine
    std::vector<Bytes> seeds;
    for (const auto &path : paths)
        seeds.push_back(file_read(path));
    if (seeds.empty()) {
        fprintf(stderr, "%s: no seeds in %s\n", argv[0], argv[1]);
        return 2;
    }
    if (LLVMFuzzerInitialize != nullptr)
        LLVMFuzzerInitialize(&argc, &argv);
    for (const Bytes &seed : seeds)
        LLVMFuzzerTestOneInput(seed.data(), seed.size());
    std::mt19937 random(20101);
    for (int i = 0; i < mutations; i++) {
        const Bytes bytes = mutate(seeds, random);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    fprintf(stderr, "%zu seeds, %d mutations\n", seeds.size(), mutations);
    return 0;
}
