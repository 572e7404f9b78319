// Makes a benchmark data set quickly: `make_data DIR large COUNT MIB` writes COUNT files of MIB
// MiB; `make_data DIR small COUNT` writes COUNT files of 1 to 64 KiB in folders of 500;
// `make_data DIR tree COUNT FOLDERS` writes COUNT files of 1 to 64 KiB spread evenly over
// FOLDERS folders two levels deep (40 at the top, the rest below them); `make_data DIR spread
// COUNT FOLDERS` lays them out the same way with sizes spread evenly on a log scale from 1 to
// 64 KiB (most files small, about 15 KiB on average); `make_data DIR tiny COUNT FOLDERS` the same
// with files of 1 to 64 bytes. In all, every fifth file repeats the
// content of the file before it (20% duplicate content).

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

bool WriteAll(const std::string& path, const std::vector<char>& data, size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data.data(), 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

void Fill(std::mt19937_64& rng, std::vector<char>& data, size_t size) {
    data.resize(size);
    for (size_t i = 0; i + 8 <= size; i += 8) {
        const uint64_t v = rng();
        for (int b = 0; b < 8; ++b)
            data[i + b] = static_cast<char>(v >> (8 * b));
    }
}

// Folder `f` of a tree: the first `top` stand at the top, the others below them in turn.
std::string TreeFolder(const std::string& dir, long f, long top) {
    if (f < top) return dir + "/t" + std::to_string(f);
    return dir + "/t" + std::to_string((f - top) % top) + "/s" + std::to_string((f - top) / top);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr,
                     "usage: make_data DIR large COUNT MIB | small COUNT | tree|spread|tiny COUNT "
                     "FOLDERS\n");
        return 2;
    }
    const std::string dir = argv[1], kind = argv[2];
    const long count = std::atol(argv[3]);
    const size_t mib = argc > 4 ? std::strtoul(argv[4], nullptr, 10) : 64;
    const bool tree = kind == "tree" || kind == "spread" || kind == "tiny";
    const long folders = tree && argc > 4 ? std::atol(argv[4]) : 1;
    constexpr long kTop = 40;
    ::mkdir(dir.c_str(), 0755);
    if (tree)
        for (long f = 0; f < folders; ++f)
            ::mkdir(TreeFolder(dir, f, kTop).c_str(), 0755);
    std::mt19937_64 rng(42);
    std::vector<char> data;
    size_t size = 0;
    for (long i = 0; i < count; ++i) {
        std::string folder = dir;
        if (kind == "small") {
            folder += "/d" + std::to_string(i / 500);
            ::mkdir(folder.c_str(), 0755);
        } else if (tree) {
            folder = TreeFolder(dir, i % folders, kTop);
        }
        if (i % 5 != 4) { // every fifth file repeats the one before it
            if (kind == "large")
                size = mib * 1024 * 1024;
            else if (kind == "tiny")
                size = rng() % 64 + 1;
            else if (kind == "spread")
                size = static_cast<size_t>(1024.0 * std::exp2(6.0 * (rng() >> 11) * 0x1p-53));
            else
                size = (rng() % 64 + 1) * 1024;
            Fill(rng, data, size);
        }
        if (!WriteAll(folder + "/f" + std::to_string(i) + ".dat", data, size)) {
            std::perror("write");
            return 1;
        }
    }
    return 0;
}
