#pragma once

/// The library for C++20 hosts: matching records as values, pixels as types, errors as exceptions. Header-only; link with the library as for C.
///
///     const colourmatch::Matcher matcher({.monitor = "display.icc", .printer = "press.icc"});
///     matcher.Proof(std::span<const colourmatch::ReferencePixel16>(image), std::span<colourmatch::PackedRGB8>(shown));
///
/// Every operation takes as many pixels as it gives, and may be called on any thread, also on one Matcher at once.

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ColourMatch/ColourMatch.h"

namespace colourmatch {

/// What could not be done: a status (platform/Codes.h) and the library's sentence of it.
class Error : public std::runtime_error {
public:
    Error(int status, const std::string& sentence) : std::runtime_error(sentence), status_(status) {}

    int Code() const noexcept { return status_; }

private:
    int status_;
};

// ---- pixels: 0..65535 or 0..255 = full scale ----

/// Reference RGB: linear, in the space of the library's own profile MatrixCalRGB.icc. Padding is not read, and is left as it was, but for a record
/// with grid tables: Match and Proof to DevicePixel16, and Predict from 8 bits, write 0 there.
struct ReferencePixel16 {
    std::uint16_t red, green, blue, padding;
};
/// The same without padding.
struct PackedReference16 {
    std::uint16_t red, green, blue;
};
/// Values of a monitor or an RGB printer.
struct DevicePixel16 {
    std::uint16_t red, green, blue, padding;
};
struct DevicePixel8 {
    std::uint8_t padding, red, green, blue;
};
struct PackedRGB16 {
    std::uint16_t red, green, blue;
};
struct PackedRGB8 {
    std::uint8_t red, green, blue;
};
/// Values of a CMYK printer: 0 = no ink.
struct InkPixel16 {
    std::uint16_t cyan, magenta, yellow, black;
};
struct InkPixel8 {
    std::uint8_t cyan, magenta, yellow, black;
};
/// 255 = out of gamut. With grid tables a monitor's answers may lie between, near the boundary.
using GamutFlag = std::uint8_t;

template <typename Pixel>
concept ReferencePixel = std::same_as<Pixel, ReferencePixel16> || std::same_as<Pixel, PackedReference16>;
template <typename Pixel>
concept RGBPixel =
    std::same_as<Pixel, DevicePixel16> || std::same_as<Pixel, DevicePixel8> || std::same_as<Pixel, PackedRGB16> || std::same_as<Pixel, PackedRGB8>;
template <typename Pixel>
concept InkPixel = std::same_as<Pixel, InkPixel16> || std::same_as<Pixel, InkPixel8>;
template <typename Pixel>
concept PrinterPixel = RGBPixel<Pixel> || InkPixel<Pixel>;

// ---- what a record is made of ----

/// Relative and saturation have the conditions adjust the monitor; absolute takes it as it is, on its luminance.
enum class Intent : std::uint32_t { Relative = kRenderingIntent1, Saturation = kRenderingIntent2, Absolute = kRenderingIntent3 };

/// Grid tables (proofs are several times faster, a monitor's colours coarser and slower), or every colour evaluated.
enum class Quality : std::uint32_t { GridTables = kMatchingQuality0, Evaluated = kMatchingQuality2 };

/// A profile: a file, or bytes, which are kept.
class Profile {
public:
    template <typename Path>
    requires std::convertible_to<Path, std::filesystem::path> Profile(const Path& path)
        : isFile_(true), path_(std::filesystem::path(path).string()) {}

    static Profile OfBytes(std::span<const std::byte> bytes) {
        Profile profile;
        profile.bytes_.assign(bytes.begin(), bytes.end());
        return profile;
    }

    /// Borrowed: for as long as this object stands.
    ProfileSource Source() const {
        if (isFile_) return {path_.c_str(), nullptr, 0};
        // Bytes that are none are no profile, which is for the library to say.
        static constexpr std::byte kNothing{};
        return {nullptr, bytes_.empty() ? &kNothing : bytes_.data(), bytes_.size()};
    }

private:
    Profile() = default;

    bool isFile_ = false;
    std::string path_;
    std::vector<std::byte> bytes_;
};

/// The devices and how they are seen.
struct Choice {
    Profile monitor;
    std::optional<Profile> printer = {};  // without one, the monitor's operations alone
    std::optional<Profile> proofer = {};  // a device that the printer is to imitate
    std::optional<FixedXYZ> monitorWhite = {}, printerWhite = {};
    std::optional<ViewingConditions> conditions = {};  // none is not the same as conditions that change nothing
    Intent intent = Intent::Relative;                  // with conditions
    Quality quality = Quality::Evaluated;
};

namespace detail {

/// The library's words for the latest refusal.
inline std::string Refusal(int status) {
    struct Release {
        void operator()(const void* object) const { CFRelease(object); }
    };
    const std::unique_ptr<const void, Release> text(ICC_CopyLastRefusal());
    const auto string = static_cast<CFStringRef>(text.get());
    if (!string) return "status " + std::to_string(status);
    std::string utf8(static_cast<std::size_t>(CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8)) + 1, '\0');
    if (!CFStringGetCString(string, utf8.data(), static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8)) return "status " + std::to_string(status);
    utf8.resize(std::strlen(utf8.c_str()));
    return utf8;
}

/// How a pixel that has no padding of its own stands in the library's four words or bytes.
template <typename Pixel>
struct Padded {
    using Type = Pixel;
};
template <>
struct Padded<PackedReference16> {
    using Type = ReferencePixel16;
};
template <>
struct Padded<PackedRGB16> {
    using Type = DevicePixel16;
};
template <>
struct Padded<PackedRGB8> {
    using Type = DevicePixel8;
};

template <typename Pixel>
using PaddedPixel = typename Padded<Pixel>::Type;
template <typename Pixel>
inline constexpr bool kIsPacked = !std::same_as<PaddedPixel<Pixel>, Pixel>;

/// The words or bytes that the library takes for a pixel.
template <typename Pixel>
struct WordOf {
    using Type = std::uint16_t;
};
template <typename Pixel>
requires(sizeof(PaddedPixel<Pixel>) == 4) struct WordOf<Pixel> {
    using Type = std::uint8_t;
};
template <>
struct WordOf<GamutFlag> {
    using Type = std::uint8_t;
};

template <typename Pixel>
auto* Words(Pixel* pixels) {
    using Word = typename WordOf<std::remove_const_t<Pixel>>::Type;
    return reinterpret_cast<std::conditional_t<std::is_const_v<Pixel>, const Word, Word>*>(pixels);
}

template <typename Source, typename Destination>
using Operation = std::int16_t(const MatchingData*, const typename WordOf<Source>::Type*, typename WordOf<Destination>::Type*, std::size_t);

inline void Require(std::int16_t status) {
    if (status == kStatusNoMatchingData) throw Error(status, "the record has no printer; the profile of one is needed");
    if (status != kStatusDone) throw Error(status, "status " + std::to_string(status));
}

/// Runs an operation over pixels; packed ones a tile at a time, as the library takes pixels of four.
template <typename Source, typename Destination>
void Run(const MatchingData* record, Operation<Source, Destination> operate, std::span<const Source> in, std::span<Destination> out) {
    if (in.size() != out.size()) {
        throw Error(kStatusParameter, "the source has " + std::to_string(in.size()) + " pixels and the destination " + std::to_string(out.size()) +
                                          "; as many are needed");
    }
    if constexpr (!kIsPacked<Source> && !kIsPacked<Destination>) {
        Require(operate(record, Words(in.data()), Words(out.data()), in.size()));
    } else {
        constexpr std::size_t kTile = 1024;
        std::array<PaddedPixel<Source>, kIsPacked<Source> ? kTile : 1> from = {};
        std::array<PaddedPixel<Destination>, kIsPacked<Destination> ? kTile : 1> to = {};
        std::size_t done = 0;
        do {
            const std::size_t count = std::min(kTile, in.size() - done);
            const auto* source = Words(from.data());
            auto* destination = Words(to.data());
            if constexpr (kIsPacked<Source>) {
                for (std::size_t i = 0; i < count; ++i) {
                    from[i].red = in[done + i].red;
                    from[i].green = in[done + i].green;
                    from[i].blue = in[done + i].blue;
                }
            } else {
                source = Words(in.data() + done);
            }
            if constexpr (!kIsPacked<Destination>) destination = Words(out.data() + done);
            Require(operate(record, source, destination, count));
            if constexpr (kIsPacked<Destination>) {
                for (std::size_t i = 0; i < count; ++i) out[done + i] = {to[i].red, to[i].green, to[i].blue};
            }
            done += count;
        } while (done < in.size());
    }
}

}  // namespace detail

/// A matching record. Never changes once made; moved, not copied.
class Matcher {
public:
    /// Throws Error: what is wrong with which profile.
    explicit Matcher(const Choice& choice) : record_(Make(choice), DisposeMatchingData) {}

    /// Reference RGB to the monitor's values, and back.
    template <ReferencePixel Source, RGBPixel Destination>
    void Match(std::span<const Source> in, std::span<Destination> out) const {
        if constexpr (kIs8Bit<Destination>) {
            detail::Run<Source, Destination>(record_.get(), RecordMonitorMatch, in, out);
        } else {
            detail::Run<Source, Destination>(record_.get(), RecordMonitorMatch16, in, out);
        }
    }
    template <RGBPixel Source, ReferencePixel Destination>
    void Predict(std::span<const Source> in, std::span<Destination> out) const {
        if constexpr (kIs8Bit<Source>) {
            detail::Run<Source, Destination>(record_.get(), RecordMonitorPredict, in, out);
        } else {
            detail::Run<Source, Destination>(record_.get(), RecordMonitorPredict16, in, out);
        }
    }
    /// Reference RGB to the monitor's values that show what the printer would render. Throws Error without a printer.
    template <ReferencePixel Source, RGBPixel Destination>
    void Proof(std::span<const Source> in, std::span<Destination> out) const {
        if constexpr (kIs8Bit<Destination>) {
            detail::Run<Source, Destination>(record_.get(), RecordSoftProofMatch, in, out);
        } else {
            detail::Run<Source, Destination>(record_.get(), RecordSoftProofMatch16, in, out);
        }
    }
    /// Reference RGB to the printer's values, and back. Throws Error when the pixels are not of the printer's colour space.
    template <ReferencePixel Source, PrinterPixel Destination>
    void PrinterMatch(std::span<const Source> in, std::span<Destination> out) const {
        RequirePrinterOf<Destination>();
        if constexpr (kIs8Bit<Destination>) {
            detail::Run<Source, Destination>(record_.get(), RecordPrinterMatch, in, out);
        } else {
            detail::Run<Source, Destination>(record_.get(), RecordPrinterMatch16, in, out);
        }
    }
    template <PrinterPixel Source, ReferencePixel Destination>
    void PrinterPredict(std::span<const Source> in, std::span<Destination> out) const {
        RequirePrinterOf<Source>();
        if constexpr (kIs8Bit<Source>) {
            detail::Run<Source, Destination>(record_.get(), RecordPrinterPredict, in, out);
        } else {
            detail::Run<Source, Destination>(record_.get(), RecordPrinterPredict16, in, out);
        }
    }
    /// Which colours the monitor cannot show, and which the printer.
    template <ReferencePixel Source>
    void Gamut(std::span<const Source> in, std::span<GamutFlag> out) const {
        detail::Run<Source, GamutFlag>(record_.get(), RecordMonitorGamut, in, out);
    }
    template <ReferencePixel Source>
    void PrinterGamut(std::span<const Source> in, std::span<GamutFlag> out) const {
        detail::Run<Source, GamutFlag>(record_.get(), RecordPrinterGamut, in, out);
    }

    bool HasPrinter() const { return RecordPrinterColourSpace(record_.get()) != kColourSpaceNone; }
    bool IsPrinterCMYK() const { return RecordPrinterColourSpace(record_.get()) == kColourSpaceCMYK; }

    /// Borrowed, for the functions of C.
    const MatchingData* Record() const { return record_.get(); }

private:
    friend class Session;

    template <typename Pixel>
    static constexpr bool kIs8Bit = sizeof(detail::PaddedPixel<Pixel>) == 4;

    using Owner = std::unique_ptr<MatchingData, void (*)(MatchingData*)>;
    explicit Matcher(Owner record) : record_(std::move(record)) {}

    static MatchingData* Make(const Choice& choice) {
        const auto source = [](const std::optional<Profile>& profile) { return profile ? profile->Source() : ProfileSource{}; };
        const auto address = [](const auto& value) { return value ? &*value : nullptr; };
        const MatchingChoice chosen = {
            .monitor = choice.monitor.Source(),
            .printer = source(choice.printer),
            .proofer = source(choice.proofer),
            .monitorWhite = address(choice.monitorWhite),
            .printerWhite = address(choice.printerWhite),
            .conditions = address(choice.conditions),
            .renderingIntent = static_cast<std::uint32_t>(choice.intent),
            .quality = static_cast<std::uint32_t>(choice.quality),
        };
        OSErr status = kStatusDone;
        MatchingData* const record = CreateMatchingData(&chosen, &status);
        if (!record) throw Error(status, detail::Refusal(status));
        return record;
    }

    template <PrinterPixel Pixel>
    void RequirePrinterOf() const {
        detail::Require(HasPrinter() ? kStatusDone : kStatusNoMatchingData);
        if (InkPixel<Pixel> == IsPrinterCMYK()) return;
        throw Error(kStatusParameter, InkPixel<Pixel> ? "the printer is driven by RGB; pixels of RGB are needed"
                                                      : "the printer has four inks; pixels of inks are needed");
    }

    Owner record_;
};

/// The user's settings as every open host shows them: an open session while it lives, beside the sessions of others in the process. Main thread.
class Session {
public:
    /// changed   called on the main thread after each change of the settings, when colours computed before are stale
    ///
    /// Throws Error where there is neither a bus nor a folder to hear of changes by.
    explicit Session(std::function<void()> changed) : changed_(std::make_unique<std::function<void()>>(std::move(changed))) {
        const OSErr status = AddMatchingListener(
            [](OSType, void* told) -> long {
                const auto& function = *static_cast<const std::function<void()>*>(told);
                if (function) function();
                return 0;
            },
            changed_.get(), &listener_);
        if (status != kStatusDone)
            throw Error(status, status == kStatusFailed ? "changes of the settings cannot be followed" : "the session cannot be opened");
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { RemoveMatchingListener(listener_); }

    /// The settings' record as it is now, which stays what it is when they change; none while no printer is chosen.
    std::optional<Matcher> Current() const {
        MatchingData* const record = GetMatchingData();
        if (!record) return std::nullopt;
        return Matcher(Matcher::Owner(record, ReleaseMatchingData));
    }

private:
    std::unique_ptr<std::function<void()>> changed_;
    MatchingListenerRef listener_ = nullptr;
};

}  // namespace colourmatch
