// Reads the files of the folders given, in the order of their names, through the entry of the program it is linked to.

#include "fuzz.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i)
        for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
            if (entry.is_regular_file())
                files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const auto& path : files) {
        std::cout << path.filename().string() << std::endl;
        std::ifstream file(path, std::ios::binary);
        // An allocation of exactly this size lets a sanitizer see a read beyond the input.
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::cout << files.size() << " inputs" << std::endl;
    // An empty corpus shows a wrong folder, not a good program.
    return files.empty() ? 1 : 0;
}
