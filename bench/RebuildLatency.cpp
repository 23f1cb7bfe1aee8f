// How long a change of the viewing conditions takes: from ICC_Load with another flare to installed data, profiles unchanged.
//
// Cold is the first load of a fresh process, warm the ones after it there.
//
//     RebuildLatency [runs]

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>

#include "bench/Rows.h"
#include "platform/FourCharCode.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr const char* kGroup = "A change of the viewing conditions, profiles unchanged";
constexpr const char* kMonitor = "/usr/share/color/icc/colord/sRGB.icc";

struct Printer {
    const char* name;
    const char* path;
};
constexpr Printer kPrinters[] = {{"CMYK, 187 KB", "/usr/share/color/icc/ghostscript/default_cmyk.icc"},
                                 {"CMYK, 1 MB", CM_TEST_DATA "/profiles/ISOcoated_v2_300_bas.icc"},
                                 {"RGB, 67 KB", CM_TEST_DATA "/profiles/rgb-printer.icc"}};

struct Quality {
    const char* name;
    OSType code;
};
constexpr Quality kQualities[] = {{"Qua0", FourChar("Qua0")}, {"Qua1", FourChar("Qua1")}, {"Qua2", FourChar("Qua2")}};

const void* CurrentData() {
    MatchingData* const data = GetMatchingData();
    if (data) ReleaseMatchingData(data);
    return data;
}

/// Milliseconds from the load to installed data.
double TimeOfLoad(const ICCProfileLocation& location, double flare) {
    const ViewingConditions conditions = {flare, 1.0, 0.0, 0.0, false};
    ICC_SetViewingConditions(FourChar("Rdr0"), &conditions);
    const void* const before = CurrentData();
    const auto start = std::chrono::steady_clock::now();
    const OSErr status = ICC_Load(&location);
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    if (status != 0 || CurrentData() == before) throw std::runtime_error("the load installed nothing: " + std::to_string(status));
    return taken.count();
}

/// One load in a process that has loaded nothing before, and two later ones there.
struct Times {
    double cold;
    double warm[2];
};

Times TimesOfFreshProcess(const ICCProfileLocation& location) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    Times times = {};
    const pid_t child = fork();
    if (child == 0) {
        int result = 1;
        try {
            times.cold = TimeOfLoad(location, -0.03);
            times.warm[0] = TimeOfLoad(location, -0.02);
            times.warm[1] = TimeOfLoad(location, 0.01);
            if (write(ends[1], &times, sizeof times) == sizeof times) result = 0;
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "RebuildLatency: %s\n", failure.what());
        }
        _exit(result);
    }
    close(ends[1]);
    const bool whole = read(ends[0], &times, sizeof times) == sizeof times;
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    if (!whole || status != 0) throw std::runtime_error("a process that loads failed");
    return times;
}

void Measure(const Printer& printer, const Quality& quality, int runs) {
    const Alias monitorAlias(kMonitor);
    const Alias printerAlias(printer.path);
    const ICCProfileLocation location = {monitorAlias.Get(), printerAlias.Get(), nullptr};
    ICC_SetMatchingQuality(quality.code);
    std::vector<double> cold, warm;
    for (int run = 0; run < runs; ++run) {
        const Times times = TimesOfFreshProcess(location);
        cold.push_back(times.cold);
        warm.insert(warm.end(), std::begin(times.warm), std::end(times.warm));
    }
    const std::string name = std::string(quality.name) + ", " + printer.name;
    bench::Print({.group = kGroup, .name = name, .condition = "cold", .unit = "ms", .runs = cold});
    const double ratio = bench::Median(cold) / bench::Median(warm);
    bench::Print({.group = kGroup, .name = name, .condition = "warm", .unit = "ms", .runs = warm, .ratioTo = "cold", .ratio = ratio});
}

}  // namespace

int main(int count, char** arguments) try {
    const int runs = count > 1 ? std::atoi(arguments[1]) : 15;
    // The user's own settings are neither read nor changed.
    const TemporaryFolder settings;
    setenv("XDG_CONFIG_HOME", (settings / "config").c_str(), 1);
    bench::PrintNote(
        kGroup,
        "From `ICC_Load` with another flare to installed data. Cold: the first load of a process, its files in the page cache of the system. "
        "Warm: a later load there, which finds its profiles and transforms made. `Qua0` fills the four grid tables of 65 nodes an axis, on all "
        "cores.");
    for (const Quality& quality : kQualities) {
        for (const Printer& printer : kPrinters) Measure(printer, quality, runs);
    }
} catch (const std::exception& failure) {
    std::fprintf(stderr, "RebuildLatency: %s\n", failure.what());
    return 1;
}
