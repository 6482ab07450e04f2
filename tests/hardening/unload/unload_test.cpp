// Loads and unloads the library 500 times, as a program does with a plugin that links it, each
// time logging through the file writer (its file, the inotify watch) and, every other time,
// through its buffer (its thread). Afterwards the process holds no more descriptors and threads
// than before and, after the first cycles, no more memory; the library is no longer mapped, and
// every record is in the folder. A program of its own, since it must not link the library.
//
// Usage: qel_unload_test LIBRARY

#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // their allocators keep freed memory: no measure of growth
#else
constexpr bool kSanitized = false;
#endif
constexpr int kCycles = 500, kWarmUpCycles = 50;

// Entries of a folder, with what each one's link leads to or, for files, their content.
std::string listing(const std::string& folder, bool contents) {
    std::string all;
    if (DIR* entries = opendir(folder.c_str())) {
        while (const dirent* entry = readdir(entries)) {
            const std::string path = folder + "/" + entry->d_name;
            if (entry->d_name[0] == '.') continue;
            char link[256] = {0};
            std::ostringstream content;
            if (contents) content << std::ifstream(path).rdbuf();
            all += contents ? content.str() : (readlink(path.c_str(), link, 255), std::string(link) + "\n");
        }
        closedir(entries);
    }
    return all;
}

long count(const std::string& text, const std::string& needle) {
    long n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
    return n;
}

long residentKiB() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

template <class Function>
Function find(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    char folder[] = "/tmp/qel-unload-XXXXXX";
    if (mkdtemp(folder) == nullptr) return 2;
    const long descriptors = count(listing("/proc/self/fd", false), "\n");
    const long threads = count(listing("/proc/self/task", false), "\n");
    long residentAfterWarmUp = 0;
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) return fprintf(stderr, "%s\n", dlerror()), 1;
        find<int (*)(bool)>(library, "qelLogConfigConsoleWriter")(false);
        find<int (*)(const char*)>(library, "qelLogSetFileFolder")(folder);
        find<int (*)(unsigned)>(library, "qelLogConfigFileBuffer")(cycle % 2 == 0 ? 0 : 100);
        find<int (*)(const char*, int, const char*)>(library, "qelLogSimplify")("unload", 1, "cycle");
        if (dlclose(library) != 0) return fprintf(stderr, "%s\n", dlerror()), 1;
        if (cycle + 1 == kWarmUpCycles) residentAfterWarmUp = residentKiB();
    }
    const long growthKiB = residentKiB() - residentAfterWarmUp;
    const std::string records = listing(folder, true);
    printf("descriptors %ld -> %ld, threads %ld -> %ld, resident growth %ld KiB, records %ld\n",
           descriptors, count(listing("/proc/self/fd", false), "\n"), threads,
           count(listing("/proc/self/task", false), "\n"), growthKiB, count(records, "]cycle\n\n"));
    const bool flat = count(listing("/proc/self/fd", false), "\n") == descriptors &&
                      count(listing("/proc/self/task", false), "\n") == threads &&
                      (kSanitized || growthKiB < 256);
    std::ifstream maps("/proc/self/maps");
    const bool mapped = std::string(std::istreambuf_iterator<char>(maps), {}).find(argv[1]) !=
                        std::string::npos;
    system(("rm -rf " + std::string(folder)).c_str());
    return flat && !mapped && count(records, "]cycle\n\n") == kCycles ? 0 : 1;
}
