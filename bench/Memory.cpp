// What a matching record takes, and how much more a rebuild takes at its peak than stands before and after it.
//
//     Memory [runs]

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "bench/Rows.h"
#include "platform/FourCharCode.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/TemporaryFolder.h"

// ---- the whole program's heap, that of the libraries as well ----

namespace {

std::atomic<std::size_t> gAllocated = 0, gPeak = 0;

void* Taken(void* block) {
    if (!block) return block;
    const std::size_t size = malloc_usable_size(block);
    const std::size_t now = gAllocated += size;
    std::size_t peak = gPeak;
    while (peak < now && !gPeak.compare_exchange_weak(peak, now)) {
    }
    return block;
}

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
    return Taken(__libc_malloc(size));
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
    return Taken(__libc_calloc(count, size));
}
__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) {
    const std::size_t before = malloc_usable_size(block);
    void* const moved = __libc_realloc(block, size);
    if (moved || size == 0) gAllocated -= before;
    return Taken(moved);
}
__attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return Taken(__libc_memalign(alignment, size));
}
__attribute__((visibility("default"))) void* memalign(std::size_t alignment, std::size_t size) {
    return Taken(__libc_memalign(alignment, size));
}
__attribute__((visibility("default"))) int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = Taken(__libc_memalign(alignment, size));
    return *block ? 0 : ENOMEM;
}
__attribute__((visibility("default"))) void free(void* block) {
    gAllocated -= malloc_usable_size(block);
    __libc_free(block);
}

}  // extern "C"

namespace {

// ---- what the kernel counts ----

/// A field of the process's status in bytes.
double StatusField(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kilobytes = 0;
        if (word == name && status >> kilobytes) return 1024 * kilobytes;
    }
    throw std::runtime_error("no " + name + " in the process's status");
}

/// Lets the kernel's peak begin anew; false where it does not take that.
bool ForgetPeak() {
    std::ofstream file("/proc/self/clear_refs");
    file << '5' << std::flush;
    return file.good();
}

// ---- what is measured ----

constexpr const char* kMonitor = "/usr/share/color/icc/colord/sRGB.icc";

struct Printer {
    const char* name;
    const char* path;
};
constexpr Printer kPrinters[] = {{"CMYK, 1 MB", CM_TEST_DATA "/profiles/ISOcoated_v2_300_bas.icc"},
                                 {"RGB, 67 KB", CM_TEST_DATA "/profiles/rgb-printer.icc"}};

struct Quality {
    const char* name;
    OSType code;
};
constexpr Quality kQualities[] = {{"Qua0", FourChar("Qua0")}, {"Qua1", FourChar("Qua1")}, {"Qua2", FourChar("Qua2")}};

/// Bytes before a load, at its peak and after it.
struct Levels {
    double before, peak, after;
};

struct Load {
    Levels heap, resident;
    bool kernelCounts;
};

/// One process: its first load, a later one, and the growth by a record that does not take another's place.
struct Loads {
    Load first, later;
    double record;
};

Load MeasureLoad(const ICCProfileLocation& location) {
    Load load = {};
    load.kernelCounts = ForgetPeak();
    load.resident.before = StatusField("VmRSS:");
    load.heap.before = static_cast<double>(gAllocated);
    gPeak = gAllocated.load();
    const OSErr status = ICC_Load(&location);
    load.heap.peak = static_cast<double>(gPeak);
    load.heap.after = static_cast<double>(gAllocated);
    load.resident.peak = StatusField("VmHWM:");
    load.resident.after = StatusField("VmRSS:");
    if (status != 0) throw std::runtime_error("cannot load: " + std::to_string(status));
    return load;
}

Loads MeasureProcess(const ICCProfileLocation& location) {
    Loads loads = {};
    loads.first = MeasureLoad(location);
    loads.later = MeasureLoad(location);
    MatchingData* const replaced = GetMatchingData();
    const Levels heap = MeasureLoad(location).heap;
    ReleaseMatchingData(replaced);
    loads.record = heap.after - heap.before;
    return loads;
}

/// In a process that has loaded nothing before.
Loads MeasureFreshProcess(const ICCProfileLocation& location) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    Loads loads = {};
    const pid_t child = fork();
    if (child == 0) {
        int result = 1;
        try {
            loads = MeasureProcess(location);
            if (write(ends[1], &loads, sizeof loads) == sizeof loads) result = 0;
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "Memory: %s\n", failure.what());
        }
        _exit(result);
    }
    close(ends[1]);
    const bool whole = read(ends[0], &loads, sizeof loads) == sizeof loads;
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    if (!whole || status != 0) throw std::runtime_error("a process that loads failed");
    return loads;
}

// ---- the tables ----

constexpr const char* kRecord = "Memory of a matching record";
constexpr const char* kHeap = "Memory while rebuilding, of the heap";
constexpr const char* kResident = "Memory while rebuilding, resident";

struct Case {
    std::string name;
    std::vector<Loads> processes;
};

template <typename Value>
void PrintRow(const char* group, const Case& one, const char* condition, Value value) {
    std::vector<double> runs;
    for (const Loads& loads : one.processes) runs.push_back(value(loads) / 1024.0);
    const bool large = bench::Median(runs) >= 1024.0;
    if (large) {
        for (double& size : runs) size /= 1024.0;
    }
    bench::Print({group, one.name, condition, large ? "MiB" : "KiB", runs});
}

void PrintPeaks(const char* group, const Case& one, Levels Load::*levels) {
    PrintRow(group, one, "first load, above before", [=](const Loads& l) { return (l.first.*levels).peak - (l.first.*levels).before; });
    PrintRow(group, one, "first load, above after", [=](const Loads& l) { return (l.first.*levels).peak - (l.first.*levels).after; });
    PrintRow(group, one, "later load, above before", [=](const Loads& l) { return (l.later.*levels).peak - (l.later.*levels).before; });
    PrintRow(group, one, "later load, above after", [=](const Loads& l) { return (l.later.*levels).peak - (l.later.*levels).after; });
}

void PrintTables(const std::vector<Case>& cases) {
    bench::PrintNote(kRecord,
                     "Record: the growth of allocated bytes by one more record, its profiles and transforms being made. Kept beside it: what else a "
                     "process's first load leaves, above all those profiles and transforms, which all records share.");
    for (const Case& one : cases) {
        PrintRow(kRecord, one, "record", [](const Loads& l) { return l.record; });
        PrintRow(kRecord, one, "kept beside it", [](const Loads& l) { return l.first.heap.after - l.first.heap.before - l.record; });
    }
    const std::string peaks =
        "How far the peak of `ICC_Load` lies above what stood before it and above what stands after it. A later load replaces a record of the same "
        "choice, which lives until the new one is whole.";
    bench::PrintNote(kHeap, "Allocated bytes of the whole process. " + peaks);
    for (const Case& one : cases) PrintPeaks(kHeap, one, &Load::heap);
    for (const Case& one : cases) {
        for (const Loads& loads : one.processes) {
            if (!loads.first.kernelCounts || !loads.later.kernelCounts) return;
        }
    }
    bench::PrintNote(kResident,
                     "As the kernel counts pages, with those of code and files that are touched first, and to some tenths of a MiB. " + peaks);
    for (const Case& one : cases) PrintPeaks(kResident, one, &Load::resident);
}

}  // namespace

int main(int count, char** arguments) try {
    const int runs = count > 1 ? std::max(1, std::atoi(arguments[1])) : 5;
    // The user's own settings are neither read nor changed.
    const TemporaryFolder settings;
    setenv("XDG_CONFIG_HOME", (settings / "config").c_str(), 1);
    std::vector<Case> cases;
    for (const Quality& quality : kQualities) {
        for (const Printer& printer : kPrinters) cases.push_back({std::string(quality.name) + ", " + printer.name, {}});
    }
    const Alias monitor(kMonitor);
    for (int run = 0; run < runs; ++run) {
        auto one = cases.begin();
        for (const Quality& quality : kQualities) {
            ICC_SetMatchingQuality(quality.code);
            for (const Printer& printer : kPrinters) {
                const Alias printerAlias(printer.path);
                (one++)->processes.push_back(MeasureFreshProcess({monitor.Get(), printerAlias.Get(), nullptr}));
            }
        }
    }
    PrintTables(cases);
} catch (const std::exception& failure) {
    std::fprintf(stderr, "Memory: %s\n", failure.what());
    return 1;
}
