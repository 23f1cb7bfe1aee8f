// The monitor's operations: each set of kernels against the formulae evaluated straight, against Little CMS and against a plain copy.
//
//     MonitorOperations [runs]

#include <lcms2.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "bench/NaturalImage.h"
#include "bench/Race.h"
#include "engine/DirectMonitor.h"
#include "engine/MonitorTables.h"
#include "engine/ThreeDTables.h"
#include "engine/kernels/MonitorKernels.h"
#include "tests/fixtures/MatchingRecords.h"

namespace {

using bench::Contender;

constexpr std::size_t kSide = 256, kLargeSide = 4096;
constexpr const char* kUnit = "Mpixel/s";

struct Operation {
    const char* name;
    std::function<void(const MatchingData*, std::size_t first, std::size_t count)> plain;
    std::function<void(const MonitorKernels&, const MonitorTables&, std::size_t first, std::size_t count)> kernels;
    cmsHTRANSFORM engine;
    bool bytesIn, bytesOut;
};

class Profile {
public:
    explicit Profile(const std::string& path) : profile_(cmsOpenProfileFromFile(path.c_str(), "r")) {
        if (!profile_) throw std::runtime_error("cannot open " + path);
    }
    Profile(const Profile&) = delete;
    Profile& operator=(const Profile&) = delete;
    ~Profile() { cmsCloseProfile(profile_); }
    operator cmsHPROFILE() const { return profile_; }

private:
    cmsHPROFILE profile_;
};

cmsHTRANSFORM Transform(cmsHPROFILE from, cmsUInt32Number fromType, cmsHPROFILE to, cmsUInt32Number toType) {
    cmsHTRANSFORM transform = cmsCreateTransform(from, fromType, to, toType, INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE);
    if (!transform) throw std::runtime_error("no transform");
    return transform;
}

struct Bench {
    OwnedRecord record;
    MonitorTables* tables;
    std::vector<uint16_t> wordsIn, deviceIn, wordsOut;
    std::vector<uint8_t> bytesIn, bytesOut;
    cmsHTRANSFORM match8, match16, predict8, predict16;

    Bench() : record(Load({.monitor = kSRGBMonitor, .printer = kCMYKPrinter}).data) {
        if (!record) throw std::runtime_error("no record");
        tables = MakeMonitorTables(record->monitorShaper);
        const Profile reference(CM_BINARY_DIR "/lib/colourmatch-2/MatrixCalRGB.icc"), monitor(kSRGBMonitor);
        match8 = Transform(reference, TYPE_RGBA_16, monitor, TYPE_ARGB_8);
        match16 = Transform(reference, TYPE_RGBA_16, monitor, TYPE_RGBA_16);
        predict8 = Transform(monitor, TYPE_ARGB_8, reference, TYPE_RGBA_16);
        predict16 = Transform(monitor, TYPE_RGBA_16, reference, TYPE_RGBA_16);
    }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;
    ~Bench() {
        for (cmsHTRANSFORM transform : {match8, match16, predict8, predict16}) cmsDeleteTransform(transform);
        DisposeMonitorTables(tables);
    }

    void Take(std::size_t side) {
        wordsIn = bench::NaturalImage(side, 3, 4);
        deviceIn = bench::NaturalImage(side, 4, 4);
        bytesIn.resize(deviceIn.size());
        for (std::size_t i = 0; i < bytesIn.size(); ++i) bytesIn[i] = static_cast<uint8_t>(deviceIn[i] >> 8);
        wordsOut.assign(wordsIn.size(), 0);
        bytesOut.assign(wordsIn.size(), 0);
    }
    std::size_t Pixels() const { return wordsIn.size() / 4; }

    std::vector<Operation> Operations() {
        using Data = const MatchingData*;
        using Kernels = const MonitorKernels&;
        using Tables = const MonitorTables&;
        using N = std::size_t;
        return {
            {"DirectMonitorMatch16", [this](Data d, N i, N n) { DirectMonitorMatch16(d, &wordsIn[4 * i], &wordsOut[4 * i], n); },
             [this](Kernels k, Tables t, N i, N n) { k.match16(t, &wordsIn[4 * i], &wordsOut[4 * i], n); }, match16, false, false},
            {"DirectMonitorMatch", [this](Data d, N i, N n) { DirectMonitorMatch(d, &wordsIn[4 * i], &bytesOut[4 * i], n); },
             [this](Kernels k, Tables t, N i, N n) { k.match8(t, &wordsIn[4 * i], &bytesOut[4 * i], n); }, match8, false, true},
            {"DirectMonitorPredict16", [this](Data d, N i, N n) { DirectMonitorPredict16(d, &deviceIn[4 * i], &wordsOut[4 * i], n); },
             [this](Kernels k, Tables t, N i, N n) { k.predict16(t, &deviceIn[4 * i], &wordsOut[4 * i], n); }, predict16, false, false},
            {"DirectMonitorPredict", [this](Data d, N i, N n) { DirectMonitorPredict(d, &bytesIn[4 * i], &wordsOut[4 * i], n); },
             [this](Kernels k, Tables t, N i, N n) { k.predict8(t, &bytesIn[4 * i], &wordsOut[4 * i], n); }, predict8, true, false},
            {"DirectMonitorGamut", [this](Data d, N i, N n) { DirectMonitorGamut(d, &wordsIn[4 * i], &bytesOut[i], n); },
             [this](Kernels k, Tables t, N i, N n) { k.gamut(t, &wordsIn[4 * i], &bytesOut[i], n); }, nullptr, false, true},
        };
    }

    /// The operation over everything, `run` pixels a call: by the formulae, by every set of kernels, by Little CMS; and a copy.
    std::vector<Contender> Contenders(const Operation& operation, std::size_t run, bool peers) {
        const auto inRuns = [this, run](const auto& each) {
            for (std::size_t i = 0; i + run <= Pixels(); i += run) each(i);
        };
        std::vector<Contender> contenders = {{"plain", [=, data = record.get()] { inRuns([&](std::size_t i) { operation.plain(data, i, run); }); }}};
        for (const MonitorKernels* kernels : AllMonitorKernels()) {
            if (!platform::ProcessorRuns(kernels->set)) continue;
            contenders.push_back({NameOf(kernels->set), [=, this] { inRuns([&](std::size_t i) { operation.kernels(*kernels, *tables, i, run); }); }});
        }
        if (!peers) return contenders;
        if (operation.engine) {
            contenders.push_back({"Little CMS", [=, this] {
                                      const void* const in = operation.bytesIn               ? static_cast<const void*>(bytesIn.data())
                                                             : operation.engine == predict16 ? deviceIn.data()
                                                                                             : wordsIn.data();
                                      void* const out = operation.bytesOut ? static_cast<void*>(bytesOut.data()) : wordsOut.data();
                                      cmsDoTransform(operation.engine, in, out, static_cast<cmsUInt32Number>(Pixels()));
                                  }});
        }
        contenders.push_back({"copy", [this] {
                                  std::memcpy(wordsOut.data(), wordsIn.data(), sizeof wordsIn[0] * wordsIn.size());
                                  bench::KeepWritten(wordsOut.data());
                              }});
        return contenders;
    }
};

/// The formula of ICC_ThreeDLookup written straight: three comparisons, divisions, four products an output.
__attribute__((noinline)) void PlainThreeDLookup(const uint16_t in[3], const uint16_t* table, uint32_t gridPoints, uint16_t* out, uint32_t stride,
                                                 uint32_t outputs) {
    const uint32_t px = in[0] * (gridPoints - 1), py = in[1] * (gridPoints - 1), pz = in[2] * (gridPoints - 1);
    const uint32_t fx = px % 65535, fy = py % 65535, fz = pz % 65535;
    const std::size_t sx = std::size_t{gridPoints} * gridPoints * stride, sy = std::size_t{gridPoints} * stride, sz = stride;
    const uint16_t* const base = table + px / 65535 * sx + py / 65535 * sy + pz / 65535 * sz;
    const auto mix = [&](uint32_t most, std::size_t first, uint32_t middle, std::size_t second, uint32_t least) {
        for (uint32_t o = 0; o < outputs; ++o) {
            const uint32_t sum = (65535 - most) * base[o] + (most - middle) * base[first + o] + (middle - least) * base[first + second + o] +
                                 least * base[sx + sy + sz + o];
            out[o] = static_cast<uint16_t>(sum / 65535);
        }
    };
    if (fy > fz) {
        if (fx > fy) return mix(fx, sx, fy, sy, fz);
        if (fx > fz) return mix(fy, sy, fx, sx, fz);
        return mix(fy, sy, fz, sz, fx);
    }
    if (fx > fz) return mix(fx, sx, fz, sz, fy);
    if (fx > fy) return mix(fz, sz, fx, sx, fy);
    mix(fz, sz, fy, sy, fx);
}

/// One colour a call, three outputs; the table has a node to spare on each axis, so that the straight formula may read past the top.
void RaceThreeDLookup(const std::string& group, const std::vector<uint16_t>& image, int runs) {
    for (const uint32_t gridPoints : {17u, 33u, 65u}) {
        const std::size_t axis = gridPoints + 1;
        std::vector<uint16_t> table(3 * axis * axis * axis);
        for (std::size_t i = 0; i < table.size(); ++i) table[i] = static_cast<uint16_t>(i * 40503);
        std::vector<uint16_t> out(image.size());
        const auto contender = [&](const char* name, auto lookup) {
            return Contender{name, [&image, &out, &table, gridPoints, lookup] {
                                 for (std::size_t i = 0; i < image.size(); i += 4) lookup(&image[i], table.data(), gridPoints, &out[i], 3, 3);
                             }};
        };
        bench::Race(group, "ICC_ThreeDLookup, " + std::to_string(gridPoints) + " nodes an axis", kUnit, 1e-6 * static_cast<double>(image.size() / 4),
                    runs, {contender("plain", PlainThreeDLookup), contender("library", ICC_ThreeDLookup)}, "plain");
    }
}

}  // namespace

int main(int count, char** arguments) {
    const int runs = count > 1 ? std::max(1, std::atoi(arguments[1])) : 9;
    Bench monitor;

    const std::string group = "Monitor operations, 256 by 256 pixels of a natural image";
    bench::PrintNote(group,
                     "sRGB monitor. One thread, its own CPU time. plain evaluates the formulae straight; Little CMS converts between the same two "
                     "profiles, un-optimised, as its own rule for linear input has it; copy moves as many pixels of four 16-bit words.");
    monitor.Take(kSide);
    for (const Operation& operation : monitor.Operations()) {
        bench::Race(group, operation.name, kUnit, 1e-6 * kSide * kSide, runs, monitor.Contenders(operation, kSide * kSide, true), "plain");
    }
    RaceThreeDLookup(group, monitor.wordsIn, runs);

    const std::string shortRuns = "Monitor operations, short runs of a natural image";
    bench::PrintNote(shortRuns, "As many pixels a call as each row says.");
    for (const Operation& operation : monitor.Operations()) {
        for (const std::size_t run : {1, 7, 64, 512}) {
            bench::Race(shortRuns, operation.name + std::string(", ") + std::to_string(run), kUnit, 1e-6 * kSide * kSide, runs,
                        monitor.Contenders(operation, run, false), "plain");
        }
    }

    const std::string large = "Monitor operations, 4096 by 4096 pixels of a natural image";
    bench::PrintNote(large, "128 MiB in and out: the ratio says what share of a plain copy's speed is reached.");
    monitor.Take(kLargeSide);
    for (const Operation& operation : monitor.Operations()) {
        bench::Race(large, operation.name, kUnit, 1e-6 * kLargeSide * kLargeSide, std::max(1, runs / 3),
                    monitor.Contenders(operation, kLargeSide * kLargeSide, true), "copy");
    }
    return 0;
}
