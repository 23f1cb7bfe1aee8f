#include "orlo/Ramps.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <vector>

#include "images/Complaint.h"
#include "orlo/CalibrationDocument.h"
#include "orlo/OutputFile.h"
#include "platform/Owned.h"

namespace {

constexpr std::size_t kMostEntries = 4096;
/// Several times what so many lines need.
constexpr std::size_t kMostText = std::size_t{1} << 20;
constexpr const char* kRampHead = "# Orlo gamma ramp: red green blue, 0 to 65535 a line, from black to white\n";
constexpr const char* kRight = "name a ramp: what orlo gamma save writes, a .cal file, a profile or a calibration document";

uint16_t Entry(double value) {
    return value > 0.0 ? static_cast<uint16_t>(std::lround(std::min(value, 1.0) * 65535.0)) : uint16_t{0};
}

/// A number that is the whole text, whatever the locale; also one that is not finite.
std::optional<double> NumberOf(const std::string& text) {
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

/// More than are allowed need not have been counted to the end.
void RequireEntries(const std::string& path, std::size_t count) {
    if (count > kMostEntries) throw Complaint{path, "it has more than 4096 lines of numbers", "a ramp has 2 to 4096"};
    if (count < 2) throw Complaint{path, "it has " + std::to_string(count) + " lines of numbers", "a ramp has 2 to 4096"};
}

/// Values of red, green and blue, 0 to 1, at places 0 to 1 that grow: as many entries, evenly spread.
RampEntries Spread(const std::vector<double>& places, const std::array<std::vector<double>, 3>& values) {
    RampEntries ramp;
    const std::size_t count = places.size();
    for (std::size_t j = 0; j < count; ++j) {
        const double place = places.front() + (places.back() - places.front()) * static_cast<double>(j) / static_cast<double>(count - 1);
        const auto above = std::upper_bound(places.begin() + 1, places.end() - 1, place);
        const auto i = static_cast<std::size_t>(above - places.begin());
        const double part = (place - places[i - 1]) / (places[i] - places[i - 1]);
        for (std::size_t c = 0; c < 3; ++c) ramp[c].push_back(Entry(values[c][i - 1] * (1.0 - part) + values[c][i] * part));
    }
    return ramp;
}

/// The table of an Argyll calibration: fields that are named, sets of them one after the other.
RampEntries ReadArgyll(const std::string& path, const std::string& text) {
    constexpr const char* kFields[4] = {"RGB_I", "RGB_R", "RGB_G", "RGB_B"};
    constexpr const char* kWhole = "a whole calibration is needed";
    constexpr double kRounding = 1e-3;  // of the decimals that it is written with
    std::istringstream words(text);
    std::vector<std::string> fields, data;
    std::vector<std::string>* into = nullptr;
    std::string device, sets;
    bool hasEnd = false;
    for (std::string word; !hasEnd && words >> word;) {
        if (into == &data && data.size() > kMostEntries * fields.size()) break;
        if (word == "END_DATA") {
            hasEnd = true;
        } else if (word == "BEGIN_DATA_FORMAT") {
            into = &fields;
        } else if (word == "BEGIN_DATA") {
            into = &data;
        } else if (word == "END_DATA_FORMAT") {
            into = nullptr;
        } else if (into) {
            into->push_back(word);
        } else if (word == "DEVICE_CLASS") {
            words >> device;
        } else if (word == "NUMBER_OF_SETS") {
            words >> sets;
        }
    }
    if (!device.empty() && device != "\"DISPLAY\"" && device != "DISPLAY") {
        throw Complaint{path, "it is a calibration of the device class " + device, "one of the class \"DISPLAY\" is needed"};
    }
    std::array<std::vector<double>, 4> columns;
    for (std::size_t c = 0; c < 4; ++c) {
        const auto field = std::ranges::find(fields, kFields[c]);
        if (field == fields.end()) throw Complaint{path, std::string("it has no field ") + kFields[c], "a calibration of an RGB display is needed"};
        for (auto at = static_cast<std::size_t>(field - fields.begin()); at < data.size(); at += fields.size()) {
            const std::optional<double> value = NumberOf(data[at]);
            if (!value) throw Complaint{path, "'" + data[at] + "' is no number", kWhole};
            if (!(*value >= -kRounding && *value <= 1.0 + kRounding)) {
                throw Complaint{path, "its value '" + data[at] + "' is out of range", "inputs and values run from 0 to 1"};
            }
            columns[c].push_back(*value);
        }
    }
    RequireEntries(path, (data.size() + fields.size() - 1) / fields.size());
    if (data.size() % fields.size() != 0) throw Complaint{path, "its last set is not whole", kWhole};
    if (!hasEnd) throw Complaint{path, "its data have no end (END_DATA)", kWhole};
    if (NumberOf(sets) != static_cast<double>(columns[0].size())) {
        throw Complaint{path, "it has " + std::to_string(columns[0].size()) + " sets, and not as many as its NUMBER_OF_SETS says", kWhole};
    }
    if (std::ranges::adjacent_find(columns[0], std::greater_equal<>()) != columns[0].end()) {
        throw Complaint{path, "its inputs do not grow", "a calibration of an RGB display is needed"};
    }
    if (columns[0].front() > kRounding || columns[0].back() < 1.0 - kRounding) {
        throw Complaint{path, "its inputs do not reach from 0 to 1", kWhole};
    }
    return Spread(columns[0], {columns[1], columns[2], columns[3]});
}

RampEntries ReadLines(const std::string& path, const std::string& text) {
    std::istringstream lines(text);
    std::array<std::vector<double>, 3> values;
    bool hasPoint = false, hasTitles = false;
    int number = 0;
    for (std::string line; values[0].size() <= kMostEntries && std::getline(lines, line);) {
        ++number;
        hasPoint = hasPoint || (line.find('.') != std::string::npos && !line.starts_with('#'));
        std::ranges::replace_if(
            line, [](char letter) { return letter == ',' || letter == ';' || letter == '\r'; }, ' ');
        std::istringstream stream(line);
        const std::vector<std::string> words(std::istream_iterator<std::string>(stream), {});
        if (words.empty() || words[0].starts_with('#')) continue;
        std::vector<std::optional<double>> numbers(words.size());
        std::ranges::transform(words, numbers.begin(), NumberOf);
        const bool isText = std::ranges::none_of(numbers, [](const auto& value) { return value.has_value(); });
        if (isText && !hasTitles && values[0].empty()) {
            hasTitles = true;
            hasPoint = false;
            continue;
        }
        const double most = hasPoint ? 1.0 : 65535.0;
        const bool isRight =
            numbers.size() == 3 && std::ranges::all_of(numbers, [&](const auto& value) { return value && *value >= 0 && *value <= most; });
        if (!isRight) {
            throw Complaint{path, "line " + std::to_string(number) + " is not a ramp's",
                            "each holds red, green and blue, as whole numbers from 0 to 65535 or, with a decimal point, from 0 to 1"};
        }
        for (std::size_t c = 0; c < 3; ++c) values[c].push_back(*numbers[c]);
    }
    RequireEntries(path, values[0].size());
    // What gamma save wrote has that scale, however dark the display was; other programs also count to 1 or to 255, which here is black.
    const auto largest = std::max({std::ranges::max(values[0]), std::ranges::max(values[1]), std::ranges::max(values[2])});
    if (!hasPoint && largest <= 255.0 && !text.starts_with(kRampHead)) {
        throw Complaint{path, "its largest number is only " + std::to_string(static_cast<int>(largest)) + ", which shows nothing but black",
                        "whole numbers run from 0 to 65535; from 0 to 1 they need a decimal point"};
    }
    RampEntries ramp;
    for (std::size_t c = 0; c < 3; ++c) {
        if (hasPoint && std::ranges::max(values[c]) > 1.0) {
            throw Complaint{path, "some of its numbers have a decimal point and others are above 1", "keep to one scale, 0 to 65535 or 0 to 1"};
        }
        for (const double value : values[c]) ramp[c].push_back(hasPoint ? Entry(value) : static_cast<uint16_t>(value));
    }
    return ramp;
}

bool IsProfile(const std::string& bytes) {
    return bytes.size() >= 128 && bytes.compare(36, 4, "acsp") == 0;
}

/// A fork begins with the place of its data, which always is 16 to 256 bytes in.
bool IsDocument(const std::string& bytes) {
    return bytes.size() > 16 && bytes[0] == 0 && bytes[1] == 0;
}

RampEntries ReadDocumentRamp(const std::string& path, const KnownDisplay& display) {
    const auto document = ReadDocument(PlaceOfFile(path));
    for (int16_t i = 0; i < document->NumGammaTables(); ++i) {
        if (document->DisplayRef(i) != display.number) continue;
        if (std::optional<RampEntries> ramp = RampOfTable(document->GammaTable(i))) return *std::move(ramp);
        throw Complaint{path, "its ramp for " + display.Name() + " is none that a display takes", "save the document again"};
    }
    throw Complaint{path, "it holds no ramp for " + display.Name(), "orlo calibration verify tells which displays it holds", Exit::NotThere};
}

}  // namespace

std::string BytesOf(const std::string& path, const char* right) {
    constexpr std::uintmax_t kMostBytes = std::uintmax_t{64} << 20;
    // A pipe would be waited for, and a device may never end.
    std::error_code error;
    if (!std::filesystem::exists(path, error)) throw Complaint{path, "there is no such file", right, Exit::NotThere};
    if (!std::filesystem::is_regular_file(path, error)) throw Complaint{path, "this is not a file of its own", right};
    if (std::filesystem::file_size(path, error) > kMostBytes) throw Complaint{path, "it has more than 64 MiB", right};
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Complaint{path, std::string("it cannot be read (") + std::strerror(errno) + ")", "a file that may be read is needed"};
    std::string bytes(std::istreambuf_iterator<char>(file), {});
    if (bytes.empty()) throw Complaint{path, "it is empty", right};
    return bytes;
}

RampEntries ReadRamp(const KnownDisplay& display) {
    uint32_t count = CGDisplayGammaTableCapacity(display.number);
    std::array<std::vector<float>, 3> samples;
    for (auto& channel : samples) channel.resize(count);
    const CGError error = count < 2
                              ? kCGErrorFailure
                              : CGGetDisplayTransferByTable(display.number, count, samples[0].data(), samples[1].data(), samples[2].data(), &count);
    if (error != kCGErrorSuccess || count < 2) {
        RequireDisplayServer();
        throw Complaint{display.Name(), "its ramp cannot be read", "a display whose server keeps ramps is needed", Exit::Failed};
    }
    RampEntries ramp;
    for (std::size_t c = 0; c < 3; ++c) {
        for (std::size_t i = 0; i < count; ++i) ramp[c].push_back(Entry(static_cast<double>(samples[c][i])));
    }
    return ramp;
}

void LoadRamp(const KnownDisplay& display, const RampEntries& ramp) {
    std::array<std::vector<float>, 3> samples;
    for (std::size_t c = 0; c < 3; ++c) {
        for (const uint16_t entry : ramp[c]) samples[c].push_back(static_cast<float>(entry) / 65535.0F);
    }
    const CGError error =
        CGSetDisplayTransferByTable(display.number, static_cast<uint32_t>(ramp[0].size()), samples[0].data(), samples[1].data(), samples[2].data());
    if (error == kCGErrorSuccess) return;
    RequireDisplayServer();
    throw Complaint{display.Name(), "it refuses the ramp (" + StatusText(static_cast<OSErr>(error)) + ")",
                    "a display whose server keeps ramps is needed", Exit::Failed};
}

RampEntries StraightRamp(std::size_t entries) {
    return Resampled({{{0, 65535}, {0, 65535}, {0, 65535}}}, entries);
}

RampEntries Resampled(const RampEntries& ramp, std::size_t entries) {
    if (ramp[0].size() == entries) return ramp;
    RampEntries resampled;
    for (std::size_t c = 0; c < 3; ++c) {
        for (std::size_t i = 0; i < entries; ++i) {
            resampled[c].push_back(Entry(RampValueAt(ramp[c], static_cast<double>(i) / static_cast<double>(entries - 1))));
        }
    }
    return resampled;
}

std::optional<RampEntries> RampOfTable(const MC_OpaqueGammaTable* table) {
    int16_t channels = 0, entries = 0, width = 0;
    if (table) MC_GetGammaTableParams(table, &channels, &entries, &width);
    if (channels != 3 || entries < 2 || entries > 256) return std::nullopt;
    RampEntries ramp;
    for (int16_t c = 0; c < 3; ++c) {
        for (int16_t i = 0; i < entries; ++i) ramp[static_cast<std::size_t>(c)].push_back(Entry(MC_GetGammaVal(table, c, i)));
    }
    return ramp;
}

std::optional<RampEntries> RampOfProfile(CFDataRef profile, std::size_t entries) {
    const std::unique_ptr<MC_OpaqueGammaTable, decltype(&MC_DisposeGammaTable)> table(
        MC_CreateGammaTableFromProfile(profile, static_cast<int16_t>(entries)), MC_DisposeGammaTable);
    if (!table) return std::nullopt;
    RampEntries ramp;
    for (int16_t c = 0; c < 3; ++c) {
        for (int16_t i = 0; i < static_cast<int16_t>(entries); ++i)
            ramp[static_cast<std::size_t>(c)].push_back(Entry(MC_GetGammaVal(table.get(), c, i)));
    }
    return ramp;
}

RampDifference Compare(const RampEntries& ramp, const RampEntries& expected) {
    const RampEntries fitted = Resampled(expected, ramp[0].size());
    RampDifference difference;
    for (std::size_t c = 0; c < 3; ++c) {
        for (std::size_t i = 0; i < ramp[c].size(); ++i) {
            const int here = std::abs(ramp[c][i] - fitted[c][i]);
            if (here > difference.largest) difference = {here, static_cast<int>(c), i};
        }
    }
    return difference;
}

std::string RampText(const RampEntries& ramp) {
    std::string text = kRampHead;
    for (std::size_t i = 0; i < ramp[0].size(); ++i) {
        text += std::to_string(ramp[0][i]) + " " + std::to_string(ramp[1][i]) + " " + std::to_string(ramp[2][i]) + "\n";
    }
    return text;
}

void WriteRampFile(const RampEntries& ramp, const std::string& path) {
    std::string text = RampText(ramp);
    if (path.ends_with(".csv")) {
        text.replace(0, std::string_view(kRampHead).size(), "red green blue\n");
        std::ranges::replace(text, ' ', ',');
    }
    OutputFile(path).WriteWhole(text);
}

RampEntries ReadRampFile(const std::string& path, const KnownDisplay& display) {
    std::string bytes = BytesOf(path, kRight);
    if (IsProfile(bytes)) {
        const Owned<CFDataRef> data(
            CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
        if (std::optional<RampEntries> ramp = RampOfProfile(data.Get(), ReadRamp(display)[0].size())) return *std::move(ramp);
        const Owned<ColorSyncProfileRef> profile(ColorSyncProfileCreate(data.Get(), nullptr));
        const bool isThere = profile && ColorSyncProfileContainsTag(profile.Get(), CFSTR("vcgt"));
        throw Complaint{path, isThere ? "the profile's calibration curves (vcgt) are damaged" : "the profile carries no calibration curves (vcgt)",
                        "a profile of a calibrated display is needed"};
    }
    if (IsDocument(bytes)) return ReadDocumentRamp(path, display);
    if (bytes.size() > kMostText) throw Complaint{path, "it is a text of more than 1 MiB", kRight};
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.erase(0, 3);
    if (bytes.starts_with("CAL ") || bytes.starts_with("CAL\n") || bytes.starts_with("CAL\r")) return ReadArgyll(path, bytes);
    return ReadLines(path, bytes);
}
