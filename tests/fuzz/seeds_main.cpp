// Gives the files named, and those in the folders named, to a fuzz target: so its seeds run without a fuzzer.
#include "input.h"
#include "support/temp_folder.h"

int main(int count, char **paths)
{
    size_t seeds = 0;
    const auto run = [&seeds](const std::filesystem::path &path) {
        const std::string bytes = TestSupport::contents(path);
        std::fprintf(stderr, "%s: %zu bytes\n", path.c_str(), bytes.size());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
        ++seeds;
    };
    for (int i = 1; i < count; ++i)
        if (!std::filesystem::is_directory(paths[i]))
            run(paths[i]);
        else
            for (const auto &entry : std::filesystem::directory_iterator(paths[i])) run(entry.path());
    return seeds > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
