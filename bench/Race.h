#pragma once

/// Contenders for the same work, one thread, measured by its own CPU time; they take turns, run by run.

#include <algorithm>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "bench/Rows.h"

namespace bench {

inline double CpuSeconds() {
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

struct Contender {
    std::string name;
    std::function<void()> once;
};

/// What has been written must stand in memory, whatever the compiler knows of who reads it.
inline void KeepWritten(const void* result) {
    asm volatile("" : : "r"(result) : "memory");
}

/// Prints a row for each contender: work done a second (`amount` of it each time, in millions), with the ratio to the contender of the name
/// `ratioTo`.
inline void Race(const std::string& group, const std::string& name, const std::string& unit, double amount, int runs,
                 const std::vector<Contender>& contenders, const std::string& ratioTo) {
    constexpr double kShortestRound = 0.05;  // seconds
    struct Entry {
        const Contender* contender;
        std::size_t repeats;
        std::vector<double> rates;
    };
    const auto round = [amount](const Contender& contender, std::size_t repeats) {
        const double start = CpuSeconds();
        for (std::size_t i = 0; i < repeats; ++i) contender.once();
        return amount * static_cast<double>(repeats) / (CpuSeconds() - start);
    };
    std::vector<Entry> entries;
    const Entry* peer = nullptr;
    entries.reserve(contenders.size());
    for (const Contender& contender : contenders) {
        round(contender, 1);
        const double rate = round(contender, 1);
        entries.push_back({&contender, std::max<std::size_t>(1, static_cast<std::size_t>(kShortestRound * rate / amount)), {}});
        if (contender.name == ratioTo) peer = &entries.back();
    }
    for (int run = 0; run < runs; ++run) {
        for (Entry& entry : entries) entry.rates.push_back(round(*entry.contender, entry.repeats));
    }
    for (const Entry& entry : entries) {
        Row row = {group, name, entry.contender->name, unit, entry.rates};
        if (peer && peer != &entry) {
            row.ratioTo = ratioTo;
            row.ratio = Median(entry.rates) / Median(peer->rates);
        }
        Print(row);
    }
}

}  // namespace bench
