// Loads and unloads the library 500 times, as a program does with a plugin that links it, each
// time logging through the file writer (its file, the inotify watch) and, every other time,
// through its buffer (its thread). Afterwards the process holds as many descriptors as before,
// none of the library's threads and, after the first cycles, no more memory (unless a
// sanitizer's allocator keeps what is freed); the library is no longer mapped, and every record
// is in the folder. A program of its own, since it must not link the library.
// Usage: qel_unload_test LIBRARY

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kGrowthKiB = 1L << 30;  // their allocators keep what is freed
#else
constexpr long kGrowthKiB = 256;
#endif

static std::string content(const fs::path& file) {
    std::ostringstream all;
    all << std::ifstream(file).rdbuf();
    return all.str();
}

static long descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }
static long flushThreads() {
    long count = 0;
    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
        count += content(task.path() / "comm") == "qel-flush\n";
    }
    return count;
}
static long residentKiB() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * 4;
}

int main(int argc, char** argv) {
    const fs::path folder = fs::temp_directory_path() / ("qel-unload-" + std::to_string(getpid()));
    const long descriptorsBefore = descriptors();
    long warmResident = 0, records = 0;
    for (int cycle = 0; argc == 2 && cycle < 500; ++cycle) {
        void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) return fprintf(stderr, "%s\n", dlerror()), 1;
        const auto call = [library](const char* name, auto... arguments) {
            return reinterpret_cast<int (*)(decltype(arguments)...)>(dlsym(library, name))(
                arguments...);
        };
        call("qelLogConfigConsoleWriter", false);
        call("qelLogSetFileFolder", folder.c_str());
        call("qelLogConfigFileBuffer", cycle % 2 == 0 ? 0u : 100u);
        call("qelLogSimplify", "unload", 1, "cycle");
        if (dlclose(library) != 0) return fprintf(stderr, "%s\n", dlerror()), 1;
        warmResident = cycle == 49 ? residentKiB() : warmResident;
    }
    const long growth = residentKiB() - warmResident;
    for (const auto& file : fs::directory_iterator(folder)) {
        const std::string text = content(file);
        for (size_t at = text.find("]cycle\n\n"); at != std::string::npos; ++records) {
            at = text.find("]cycle\n\n", at + 1);
        }
    }
    fs::remove_all(folder);
    const bool mapped = content("/proc/self/maps").find(argv[1]) != std::string::npos;
    printf("descriptors %ld -> %ld, flush threads %ld, growth %ld KiB, records %ld, mapped %d\n",
           descriptorsBefore, descriptors(), flushThreads(), growth, records, mapped);
    const bool clean = descriptors() == descriptorsBefore && flushThreads() == 0;
    return clean && growth < kGrowthKiB && !mapped && records == 500 ? 0 : 1;
}
