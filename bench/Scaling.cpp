// The exported operations called by several threads at once, and what it costs them to hold the current record for the length of a call.
//
//     Scaling [runs]

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <latch>
#include <stdexcept>
#include <thread>

#include "bench/NaturalImage.h"
#include "bench/Rows.h"
#include "engine/DirectMonitor.h"
#include "platform/FourCharCode.h"
#include "session/ColourOperations.h"
#include "session/MatchingDataHandle.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/OpenProfiles.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr const char* kMonitor = "/usr/share/color/icc/colord/sRGB.icc";
constexpr const char* kPrinter = CM_TEST_DATA "/profiles/fogra39l.icc";
constexpr OSType kTables = FourChar("Qua0"), kBest = FourChar("Qua2");
constexpr std::size_t kSide = 4096, kPixels = kSide * kSide;
constexpr std::size_t kThreadCounts[] = {1, 2, 4, 8};

using Clock = std::chrono::steady_clock;
using Operation = int16_t (*)(const uint16_t* source, uint16_t* destination, std::size_t count);

int16_t Copy(const uint16_t* source, uint16_t* destination, std::size_t count) {
    std::memcpy(destination, source, 8 * count);
    return 0;
}

struct Case {
    std::string name;
    OSType quality;
    Operation operation;
};
const Case kMatchTables = {"MonitorMatch16, Qua0", kTables, MonitorMatch16};
const Case kMatchBest = {"MonitorMatch16, Qua2", kBest, MonitorMatch16};
const Case kProofBest = {"SoftProofMatch16, Qua2", kBest, SoftProofMatch16};
const Case kCopy = {"copy", kBest, Copy};

struct Buffers {
    std::vector<uint16_t> source = bench::NaturalImage(kSide, 3, 4);
    std::vector<uint16_t> destination = std::vector<uint16_t>(source.size());
};

void Load(OSType quality) {
    const Alias monitor(kMonitor), printer(kPrinter);
    const ICCProfileLocation location = {monitor.Get(), printer.Get(), nullptr};
    ICC_SetMatchingQuality(quality);
    const OSErr status = ICC_Load(&location);
    if (status != 0) throw std::runtime_error("cannot load: " + std::to_string(status));
}

/// The pixels from `first` on in calls of `length` pixels, the last one shorter where they do not divide.
void Convert(Operation operation, Buffers& buffers, std::size_t first, std::size_t pixels, std::size_t length) {
    for (std::size_t done = 0; done < pixels; done += length) {
        const std::size_t at = 4 * (first + done);
        operation(&buffers.source[at], &buffers.destination[at], std::min(length, pixels - done));
    }
}

/// Wall-clock seconds from the first thread's start to the last one's end, all waiting for one another before.
double Seconds(std::size_t threads, const std::function<void(std::size_t thread)>& work) {
    std::vector<Clock::time_point> starts(threads), ends(threads);
    std::latch ready(static_cast<std::ptrdiff_t>(threads));
    const auto run = [&](std::size_t thread) {
        ready.arrive_and_wait();
        starts[thread] = Clock::now();
        work(thread);
        ends[thread] = Clock::now();
    };
    std::vector<std::thread> others;
    for (std::size_t thread = 1; thread < threads; ++thread) others.emplace_back(run, thread);
    run(0);
    for (std::thread& other : others) other.join();
    const std::chrono::duration<double> taken = *std::max_element(ends.begin(), ends.end()) - *std::min_element(starts.begin(), starts.end());
    return taken.count();
}

std::string Count(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string Cores() {
    const unsigned cores = std::thread::hardware_concurrency();
    return "this machine has " + Count(cores, "core") + ", so that no more than " + std::to_string(cores) + " times one thread can be gained";
}

// ---- threads ----

/// rates[i]: Mpixel/s with kThreadCounts[i] threads, run by run.
struct Scaled {
    const Case& what;
    std::vector<double> rates[std::size(kThreadCounts)] = {};
};

std::vector<Scaled> MeasureThreads(Buffers& buffers, int runs) {
    std::vector<Scaled> scaled = {{kMatchTables}, {kMatchBest}, {kProofBest}, {kCopy}};
    for (int run = 0; run < runs; ++run) {
        for (Scaled& one : scaled) {
            Load(one.what.quality);
            for (std::size_t i = 0; i < std::size(kThreadCounts); ++i) {
                const std::size_t part = kPixels / kThreadCounts[i];
                const auto work = [&](std::size_t thread) { Convert(one.what.operation, buffers, part * thread, part, kSide); };
                one.rates[i].push_back(kPixels / Seconds(kThreadCounts[i], work) * 1e-6);
            }
        }
    }
    return scaled;
}

void PrintThreads(const std::vector<Scaled>& scaled) {
    const std::string group = "Operations called by several threads at once";
    bench::PrintNote(group,
                     "16.8 Mpixel of a natural image, one buffer for all threads, each its own part in calls of a row of 4096 pixels, on one record; "
                     "wall clock. More threads than cores take turns: " +
                         Cores() + ".");
    for (const Scaled& one : scaled) {
        for (std::size_t i = 0; i < std::size(kThreadCounts); ++i) {
            bench::Row row = {group, one.what.name, Count(kThreadCounts[i], "thread"), "Mpixel/s", one.rates[i]};
            if (i > 0) {
                row.ratioTo = Count(kThreadCounts[0], "thread");
                row.ratio = bench::Median(one.rates[i]) / bench::Median(one.rates[0]);
            }
            bench::Print(row);
        }
    }
}

void PrintBesideCopy(const std::vector<Scaled>& scaled) {
    const std::string group = "Large buffers beside a plain copy";
    bench::PrintNote(group,
                     "The same runs. copy is memcpy of as many pixels, 8 bytes each, row by row like the others; a ratio is the operation's "
                     "throughput as a share of the copy's.");
    const Scaled& copy = scaled.back();
    for (const std::size_t i : {0u, 1u}) {
        for (const Scaled& one : scaled) {
            bench::Row row = {group, "16.8 Mpixel, " + Count(kThreadCounts[i], "thread"), one.what.name, "Mpixel/s", one.rates[i]};
            if (&one != &copy) {
                row.ratioTo = copy.what.name;
                row.ratio = bench::Median(one.rates[i]) / bench::Median(copy.rates[i]);
            }
            bench::Print(row);
        }
    }
}

// ---- lengths of a call ----

void MeasureCallLengths(const Case& what, std::size_t threads, Buffers& buffers, int runs) {
    constexpr std::size_t kPart = kPixels / 4;  // of each thread
    constexpr std::size_t kLengths[] = {kPart, 1, 7, 64, 256, 4096, 65536};
    const std::string group = "Length of a call";
    std::vector<double> rates[std::size(kLengths)];
    Load(what.quality);
    for (int run = 0; run < runs; ++run) {
        for (std::size_t i = 0; i < std::size(kLengths); ++i) {
            const double seconds =
                Seconds(threads, [&](std::size_t thread) { Convert(what.operation, buffers, kPart * thread, kPart, kLengths[i]); });
            rates[i].push_back(static_cast<double>(kPart * threads) / seconds * 1e-6);
        }
    }
    const std::string name = what.name + ", " + Count(threads, "thread");
    bench::Print({group, name, "one long run", "Mpixel/s", rates[0]});
    for (std::size_t i = 1; i < std::size(kLengths); ++i) {
        const double ratio = bench::Median(rates[i]) / bench::Median(rates[0]);
        bench::Print({group, name, Count(kLengths[i], "pixel") + " a call", "Mpixel/s", rates[i], "one long run", ratio});
    }
}

void MeasureCallLengths(Buffers& buffers, int runs) {
    bench::PrintNote(
        "Length of a call",
        "The same 4.2 Mpixel for each thread, in calls of several lengths and in one long run; wall clock. Each call takes a reference to "
        "the one record and gives it back, so that short calls of two threads wait for each other: " +
            Cores() + ".");
    for (const Case& what : {kMatchTables, kMatchBest}) {
        for (const std::size_t threads : {1u, 2u}) MeasureCallLengths(what, threads, buffers, runs);
    }
}

// ---- the reference count ----

/// Mpixel/s over one tile that stays in the cache, from enough repetitions to be measured.
template <typename Call>
double TileRate(Buffers& buffers, std::size_t length, std::size_t repetitions, Call call) {
    constexpr std::size_t kTile = 65536;
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < repetitions; ++i) {
        for (std::size_t at = 0; at < kTile; at += length) call(&buffers.source[4 * at], &buffers.destination[4 * at], length);
    }
    const std::chrono::duration<double> taken = Clock::now() - start;
    return static_cast<double>(kTile * repetitions) / taken.count() * 1e-6;
}

void MeasureReferenceCount(const std::string& group, OSType quality, const std::string& name, Buffers& buffers, int runs) {
    Load(quality);
    MatchingData* const data = GetMatchingData();
    const auto onRecord = [data](const uint16_t* source, uint16_t* destination, std::size_t count) {
        if (data->tablesBuilt) {
            MapPixel16ToDevice16(&data->matchTable, source, destination, count);
        } else {
            DirectMonitorMatch16(data, source, destination, count);
        }
    };
    for (const std::size_t length : {1u, 64u, 4096u}) {
        const std::size_t repetitions = length == 1 ? 8 : 64;
        std::vector<double> direct, exported;
        // Two runs for each: the difference that matters is small.
        for (int run = 0; run < 2 * runs; ++run) {
            direct.push_back(TileRate(buffers, length, repetitions, onRecord));
            exported.push_back(TileRate(buffers, length, repetitions, MonitorMatch16));
        }
        const std::string what = name + ", " + Count(length, "pixel") + " a call";
        bench::Print({group, what, "on the record", "Mpixel/s", direct});
        const double ratio = bench::Median(exported) / bench::Median(direct);
        bench::Print({group, what, "exported", "Mpixel/s", exported, "on the record", ratio});
    }
    ReleaseMatchingData(data);
}

void MeasureReferenceCount(Buffers& buffers, int runs) {
    const std::string group = "Cost of the reference count";
    bench::PrintNote(group,
                     "One thread, wall clock, 65536 pixels that stay in the cache. On the record: the operation called directly with a record from "
                     "`GetMatchingData`, DirectMonitorMatch16 at Qua2 and the table's MapPixel16ToDevice16 at Qua0. Exported: MonitorMatch16, which "
                     "takes the reference in each call. The goal: a ratio of 0.95 or more at 4096 pixels a call.");
    MeasureReferenceCount(group, kTables, "monitor match 16, Qua0", buffers, runs);
    MeasureReferenceCount(group, kBest, "monitor match 16, Qua2", buffers, runs);
}

}  // namespace

int main(int count, char** arguments) try {
    const int runs = count > 1 ? std::max(1, std::atoi(arguments[1])) : 9;
    // The user's own settings are neither read nor changed.
    const TemporaryFolder settings;
    setenv("XDG_CONFIG_HOME", (settings / "config").c_str(), 1);
    Buffers buffers;
    const std::vector<Scaled> scaled = MeasureThreads(buffers, runs);
    PrintThreads(scaled);
    PrintBesideCopy(scaled);
    MeasureCallLengths(buffers, runs);
    MeasureReferenceCount(buffers, runs);
} catch (const std::exception& failure) {
    std::fprintf(stderr, "Scaling: %s\n", failure.what());
    return 1;
}
