#pragma once

/// How a program that measures hands its results on: one JSON object a line on standard output, which tools/bench_table reads.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

/// One row of the table. Texts hold neither quotes nor backslashes.
struct Row {
    std::string group;         // a table of its own
    std::string name;          // what is measured
    std::string condition;     // under what, or done by whom
    std::string unit;          // of the values, as "ms" or "Mpixel/s"
    std::vector<double> runs;  // one value a run
    std::string ratioTo = {};  // the condition of the row that this one is compared with; empty for none
    double ratio = 0;          // how many times better than that one
};

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// Prints the median of the runs with the quarters on both sides of it, the extremes and the count.
inline void Print(Row row) {
    std::sort(row.runs.begin(), row.runs.end());
    const std::size_t last = row.runs.size() - 1;
    std::printf(
        "{\"group\": \"%s\", \"name\": \"%s\", \"condition\": \"%s\", \"unit\": \"%s\", \"value\": %.6g, \"quarter1\": %.6g, \"quarter3\": %.6g, "
        "\"least\": %.6g, \"most\": %.6g, \"runs\": %zu",
        row.group.c_str(), row.name.c_str(), row.condition.c_str(), row.unit.c_str(), Median(row.runs), row.runs[last / 4], row.runs[last - last / 4],
        row.runs.front(), row.runs.back(), row.runs.size());
    if (!row.ratioTo.empty()) std::printf(", \"ratio\": %.6g, \"ratio_to\": \"%s\"", row.ratio, row.ratioTo.c_str());
    std::printf("}\n");
    std::fflush(stdout);
}

/// What a reader of a group's table must know. The text holds neither quotes nor backslashes.
inline void PrintNote(const std::string& group, const std::string& note) {
    std::printf("{\"group\": \"%s\", \"note\": \"%s\"}\n", group.c_str(), note.c_str());
    std::fflush(stdout);
}

}  // namespace bench
