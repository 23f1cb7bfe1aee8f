#include "orlo/ProfileFacts.h"

#include <algorithm>
#include <initializer_list>
#include <nlohmann/json.hpp>

namespace {

bool HasAny(ColorSyncProfileRef profile, std::initializer_list<const char*> tags) {
    return std::ranges::any_of(tags, [profile](const char* tag) { return ColorSyncProfileContainsTag(profile, __CFStringMakeConstantString(tag)); });
}

}  // namespace

std::string CodeWord(uint32_t code) {
    std::string text;
    if (code == 0) return text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto character = static_cast<char>((code >> shift) & 0xff);
        text += character >= 0x20 && character < 0x7f ? character : '?';
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string ModelOf(ColorSyncProfileRef profile) {
    if (HasAny(profile, {"ncl2"})) return "named colours";
    const bool isMatrix = IsMatrixModel(profile);
    if (HasAny(profile, {"A2B0", "A2B1", "A2B2", "B2A0", "B2A1", "B2A2"})) return isMatrix ? "matrix and table" : "table";
    if (isMatrix) return "matrix";
    return HasAny(profile, {"kTRC"}) ? "curve" : "none";
}

std::string SentenceOf(const Complaint& complaint) {
    return complaint.wrong + "; " + complaint.right;
}

Fitness FitnessOf(const FitnessJudge& judge, const std::string& path) {
    Fitness fitness;
    for (const Device device : kDevices) fitness.against[static_cast<std::size_t>(device)] = judge.Against(path, device);
    return fitness;
}

void Fitness::AddTo(Json& object) const {
    Json fit = Json::array(), unfit = Json::object();
    for (const Device device : kDevices) {
        if (const auto& complaint = against[static_cast<std::size_t>(device)]) {
            unfit[NameOf(device)] = SentenceOf(*complaint);
        } else {
            fit.push_back(NameOf(device));
        }
    }
    object["fit"] = fit;
    object["unfit"] = unfit;
}

std::string Fitness::Lines() const {
    std::string fit, unfit;
    for (const Device device : kDevices) {
        if (const auto& complaint = against[static_cast<std::size_t>(device)]) {
            unfit += std::string("   no ") + NameOf(device) + "  " + OneLine(SentenceOf(*complaint)) + "\n";
        } else {
            fit += (fit.empty() ? "" : ", ") + std::string(NameOf(device));
        }
    }
    return "   fit for     " + (fit.empty() ? "nothing" : fit) + "\n" + unfit;
}
