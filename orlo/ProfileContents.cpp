#include "orlo/ProfileContents.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <vector>

#include "images/BigEndian.h"
#include "images/Complaint.h"
#include "images/FineCurves.h"
#include "images/FourCharCodes.h"
#include "images/ToneCurve.h"
#include "orlo/CommandTable.h"
#include "orlo/ProfileFacts.h"

namespace {

using Bytes = std::span<const UInt8>;

/// To the digits that s15.16 has, so that 1.8 is not 1.8000030517578125.
double Rounded(double value) {
    return std::round(value * 1e5) / 1e5;
}
double Real(int32_t fixed) {
    return Rounded(fixed / 65536.0);
}

Json JsonOf(const FixedXYZ& colour) {
    const double sum = static_cast<double>(colour.X) + colour.Y + colour.Z;
    Json value = {{"XYZ", {Real(colour.X), Real(colour.Y), Real(colour.Z)}}, {"xy", nullptr}};
    if (sum > 0) value["xy"] = {std::round(colour.X / sum * 1e4) / 1e4, std::round(colour.Y / sum * 1e4) / 1e4};
    return value;
}

Json HeaderOf(ColorSyncProfileRef profile) {
    const ICCProfileHeader header = GetProfileHeader(profile);
    std::array<char, 48> date;
    const uint16_t* const t = header.dateTime;
    std::snprintf(date.data(), date.size(), "%04u-%02u-%02uT%02u:%02u:%02uZ", t[0], t[1], t[2], t[3], t[4], t[5]);
    const std::string version =
        std::to_string(header.version >> 24) + "." + std::to_string(header.version >> 20 & 15) + "." + std::to_string(header.version >> 16 & 15);
    return {{"size", header.size},
            {"version", version},
            {"class", CodeWord(header.profileClass)},
            {"space", CodeWord(header.dataColourSpace)},
            {"connectionSpace", CodeWord(header.connectionSpace)},
            {"date", date.data()},
            {"intent", header.renderingIntent},
            {"engine", CodeWord(header.cmmType)},
            {"platform", CodeWord(header.platform)},
            {"manufacturer", CodeWord(header.deviceManufacturer)},
            {"model", CodeWord(header.deviceModel)},
            {"creator", CodeWord(header.creator)},
            {"illuminant", JsonOf({header.illuminantX, header.illuminantY, header.illuminantZ})}};
}

/// In the order of the table, which the library has found to be whole.
Json TagsOf(ColorSyncProfileRef profile) {
    constexpr std::size_t kTable = 128, kEntry = 12;
    Json tags = Json::array();
    const Owned<CFDataRef> data(ColorSyncProfileCopyData(profile, nullptr));
    if (!data) return tags;
    const Bytes bytes(CFDataGetBytePtr(data.Get()), static_cast<std::size_t>(CFDataGetLength(data.Get())));
    for (std::size_t i = 0, at = kTable + 4; i < BigEndian(bytes, kTable); ++i, at += kEntry) {
        const std::size_t offset = BigEndian(bytes, at + 4), size = BigEndian(bytes, at + 8);
        const Json type = size >= 4 ? Json(CodeWord(BigEndian(bytes, offset))) : Json(nullptr);
        tags.push_back({{"tag", CodeWord(BigEndian(bytes, at))}, {"type", type}, {"size", size}});
    }
    return tags;
}

/// A tone curve's tag; nothing when there is none.
std::optional<Json> CurveOf(ColorSyncProfileRef profile, const char* tag) {
    if (!ColorSyncProfileContainsTag(profile, __CFStringMakeConstantString(tag))) return std::nullopt;
    Json told = {{"tag", tag}, {"kind", "damaged"}};
    const std::optional<ToneCurve> curve = ToneCurve::Of(profile, tag);
    if (!curve) return told;
    if (const auto formula = curve->Formula()) {
        told["kind"] = "formula";
        told["function"] = *formula;
        for (const double parameter : curve->Parameters()) told["parameters"].push_back(Rounded(parameter));
        return told;
    }
    const std::vector<uint16_t>& entries = curve->Entries();
    told["kind"] = entries.empty() ? "straight" : entries.size() == 1 ? "gamma" : "table";
    if (entries.size() == 1) told["gamma"] = std::round(entries[0] / 256.0 * 1e4) / 1e4;
    if (entries.size() > 1) told["entries"] = entries.size();
    return told;
}

std::string CurveInWords(const Json& curve) {
    std::string kind = curve["kind"];
    if (kind == "gamma") return "gamma " + curve["gamma"].dump();
    if (kind == "table") return "table of " + curve["entries"].dump() + " entries";
    if (kind != "formula") return kind;
    std::string words = "formula of type " + curve["function"].dump() + ":";
    for (const Json& parameter : curve["parameters"]) words += " " + parameter.dump();
    return words;
}

std::string ColourInWords(const Json& colour) {
    std::string words = "XYZ";
    for (const Json& value : colour["XYZ"]) words += " " + NumberText(value, 4);
    return colour["xy"].is_null() ? words : words + ", xy " + NumberText(colour["xy"][0], 4) + " " + NumberText(colour["xy"][1], 4);
}

std::string Row(std::string name, const std::string& value) {
    name.resize(std::max<std::size_t>(name.size() + 1, 18), ' ');
    return name + OneLine(value) + "\n";
}

}  // namespace

Json ContentsOf(ColorSyncProfileRef profile) {
    Json contents = {{"header", HeaderOf(profile)}, {"tags", TagsOf(profile)}, {"white", JsonOf(GetMediaWhitePoint(profile))},
                     {"luminance", nullptr},        {"curves", Json::array()}, {"curveError", nullptr},
                     {"coarse", nullptr},           {"primaries", nullptr}};
    if (ColorSyncProfileContainsTag(profile, CFSTR("lumi"))) contents["luminance"] = Real(GetMonitorLuminance(profile));
    for (const char* tag : {"rTRC", "gTRC", "bTRC", "kTRC"}) {
        if (const std::optional<Json> curve = CurveOf(profile, tag)) contents["curves"].push_back(*curve);
    }
    if (!IsMatrixModel(profile)) return contents;
    const double error = ErrorOfPlainCurves(profile);
    contents["curveError"] = std::lround(error);
    contents["coarse"] = error >= kCoarseCurves;
    contents["primaries"] = {{"red", JsonOf(GetMediaColourant(profile, Code("rXYZ")))},
                             {"green", JsonOf(GetMediaColourant(profile, Code("gXYZ")))},
                             {"blue", JsonOf(GetMediaColourant(profile, Code("bXYZ")))}};
    return contents;
}

std::string LinesOfContents(const Json& contents) {
    const Json& header = contents["header"];
    std::string lines;
    for (const char* name : {"version", "class", "space", "connectionSpace", "date", "manufacturer", "model", "engine", "platform", "creator"}) {
        const std::string text = header[name];
        if (!text.empty()) lines += Row(name == std::string("connectionSpace") ? "connection space" : name, text);
    }
    lines += Row("size", header["size"].dump() + " bytes");
    lines += Row("intent", header["intent"].dump());
    lines += Row("illuminant", ColourInWords(header["illuminant"]));
    lines += Row("media white", ColourInWords(contents["white"]));
    lines += Row("luminance", contents["luminance"].is_null() ? "not told" : NumberText(contents["luminance"], 2) + " cd/m2");
    for (const Json& curve : contents["curves"]) lines += Row("curve " + std::string(curve["tag"]), CurveInWords(curve));
    if (!contents["primaries"].is_null()) {
        const std::string error = contents["curveError"].dump() + " of 65535 on average";
        lines +=
            Row("curves in hosts", contents["coarse"] ? "coarse, off by " + error + "; orlo settings set --refine helps" : "fine, off by " + error);
        for (const auto& [name, colour] : contents["primaries"].items()) lines += Row(name, ColourInWords(colour));
    }
    for (const Json& tag : contents["tags"]) {
        const std::string type = tag["type"].is_null() ? "no type" : std::string(tag["type"]);
        lines += Row("tag " + std::string(tag["tag"]), type + ", " + tag["size"].dump() + " bytes");
    }
    return lines;
}
