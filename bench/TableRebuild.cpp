// The grid tables of a record, filled on one core: by the formulae evaluated straight, by the library, and the proof table by Little CMS.
//
//     TableRebuild [runs]

#include <sched.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "bench/Race.h"
#include "engine/DirectMonitor.h"
#include "engine/MatchingTables.h"
#include "engine/MonitorTables.h"
#include "platform/FourCharCode.h"
#include "platform/linux/ColourChains/LittleCmsEvaluator.h"
#include "tests/fixtures/MatchingRecords.h"

namespace {

using platform::ProfileChain;

/// Tables are filled on all cores that the process may use.
void StayOnOneCore() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(sched_getcpu(), &cores);
    if (sched_setaffinity(0, sizeof cores, &cores) != 0) throw std::runtime_error("cannot stay on one core");
}

std::shared_ptr<const std::vector<std::uint8_t>> ReadProfile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return std::make_shared<const std::vector<std::uint8_t>>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// The inputs of the proof table's nodes, 16-bit pixels.
std::vector<uint16_t> NodeInputs(const PixelTable& table) {
    std::vector<uint16_t> inputs;
    const auto at = [&](int axis, uint32_t n) {
        return static_cast<uint16_t>(table.scale.min[axis] + table.scale.range[axis] * n / (table.gridSize - 1));
    };
    for (uint32_t i = 0; i < table.gridSize; ++i)
        for (uint32_t j = 0; j < table.gridSize; ++j)
            for (uint32_t k = 0; k < table.gridSize; ++k) inputs.insert(inputs.end(), {at(0, i), at(1, j), at(2, k), uint16_t{0}});
    return inputs;
}

}  // namespace

int main(int count, char** arguments) {
    const int runs = count > 1 ? std::max(1, std::atoi(arguments[1])) : 9;
    StayOnOneCore();
    const std::string group = "Filling the grid tables of 65 nodes an axis on one core";
    bench::PrintNote(
        group,
        "sRGB monitor. plain evaluates the formulae straight for every node; the library's time holds the tables that it derives from the "
        "curves. Little CMS converts the nodes of the proof table in one run, un-optimised, and the library matches them.");
    const std::string printer = CM_TEST_DATA "/profiles/fogra39l.icc";
    const OwnedRecord record = Load({.monitor = kSRGBMonitor, .printer = printer}).data;
    if (!record || SetDirectMatchingQuality(record.get(), FourChar("Qua0")) != 0) throw std::runtime_error("no record");
    MonitorTables* const kept = record->monitorTables;
    bench::Race(group, "match, predict and gamut tables", "rebuilds/s", 1, runs,
                {{"plain",
                  [&] {
                      record->monitorTables = nullptr;
                      BuildMonitorGrids(record.get());
                  }},
                 {"library",
                  [&] {
                      record->monitorTables = MakeMonitorTables(record->monitorShaper);
                      BuildMonitorGrids(record.get());
                      DisposeMonitorTables(record->monitorTables);
                  }},
                 {"the curves' tables alone", [&] { DisposeMonitorTables(MakeMonitorTables(record->monitorShaper)); }}},
                "plain");

    record->monitorTables = kept;
    const std::string reference = CM_BINARY_DIR "/lib/colourmatch-2/MatrixCalRGB.icc";
    std::vector<platform::ChainStep> steps;
    for (const std::string& path : {reference, printer, reference}) steps.push_back({ReadProfile(path), 3, false});  // absolute
    const std::unique_ptr<ProfileChain> chain = ProfileChain::Create(steps);
    if (!chain) throw std::runtime_error("no chain");
    const platform::PixelFormat words = {platform::PixelFormat::k16Bit, platform::PixelFormat::kLast};
    const auto engine = platform::MakeLittleCmsEvaluator(*chain, words, words);
    const std::vector<uint16_t> inputs = NodeInputs(record->proofTable);
    std::vector<uint16_t> proofed(inputs.size()), nodes(inputs.size());
    bench::Race(group, "proof table", "rebuilds/s", 1, runs,
                {{"library", [&] { BuildProofGrid(record.get()); }},
                 {"Little CMS",
                  [&] {
                      engine->ConvertRow(inputs.data(), proofed.data(), inputs.size() / 4);
                      DirectMonitorMatch16(record.get(), proofed.data(), nodes.data(), inputs.size() / 4);
                  }}},
                "Little CMS");
    return 0;
}
