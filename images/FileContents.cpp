#include "images/FileContents.h"

// What jpeglib.h needs and does not include.
#include <cstdio>
//
#include <jpeglib.h>
//
#include <jerror.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <csetjmp>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string_view>

#include "images/BigEndian.h"
#include "images/Complaint.h"

namespace {

/// The error manager of a decoder; libjpeg knows the first member.
struct Watch {
    jpeg_error_mgr manager;
    std::jmp_buf end;
    bool isDamaged;
};

Watch* WatchOf(j_common_ptr decoder) {
    return reinterpret_cast<Watch*>(decoder->err);
}

void NoteWarning(j_common_ptr decoder, int level) {
    constexpr int kFewBytes = 1024;
    if (level >= 0) return;
    switch (decoder->err->msg_code) {
        case JWRN_ADOBE_XFORM:
        case JWRN_BOGUS_ICC:
        case JWRN_JFIF_MAJOR:
            return;
        case JWRN_EXTRANEOUS_DATA:
            if (decoder->err->msg_parm.i[0] <= kFewBytes) return;
            break;
        default:
            break;
    }
    WatchOf(decoder)->isDamaged = true;
}

[[noreturn]] void Stop(j_common_ptr decoder) {
    std::longjmp(WatchOf(decoder)->end, 1);
}

/// Decodes at an eighth of the size, for which all data are read and little is calculated. Nothing here has a destructor, as libjpeg leaves by
/// longjmp.
void DecodeSmall(jpeg_decompress_struct& decoder, Watch& watch, std::FILE* file) {
    decoder.err = jpeg_std_error(&watch.manager);
    watch.manager.emit_message = NoteWarning;
    watch.manager.error_exit = Stop;
    if (setjmp(watch.end) != 0) return;
    jpeg_create_decompress(&decoder);
    jpeg_stdio_src(&decoder, file);
    jpeg_read_header(&decoder, TRUE);
    decoder.scale_num = 1;
    decoder.scale_denom = 8;
    decoder.do_fancy_upsampling = FALSE;
    jpeg_start_decompress(&decoder);
    const JSAMPARRAY row = decoder.mem->alloc_sarray(reinterpret_cast<j_common_ptr>(&decoder), JPOOL_IMAGE,
                                                     decoder.output_width * static_cast<JDIMENSION>(decoder.output_components), 1);
    while (!watch.isDamaged && decoder.output_scanline < decoder.output_height) {
        const JDIMENSION before = decoder.output_scanline;
        jpeg_read_scanlines(&decoder, row, 1);
        // The row during which damage is met is not whole.
        if (watch.isDamaged) decoder.output_scanline = before;
    }
}

template <std::size_t Count>
bool Read(std::istream& file, std::array<unsigned char, Count>& bytes) {
    return static_cast<bool>(file.read(reinterpret_cast<char*>(bytes.data()), Count));
}

template <std::size_t Count>
std::string_view TextIn(const std::array<unsigned char, Count>& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), Count};
}

/// Chunks up to the pixels, from behind the signature.
bool PngCarriesProfile(std::istream& file) {
    std::array<unsigned char, 8> head;
    while (Read(file, head)) {
        const std::string_view kind = TextIn(head).substr(4);
        if (kind == "iCCP") return true;
        if (kind == "IDAT") return false;
        file.seekg(std::streamoff{BigEndian(head, 0)} + 4, std::ios::cur);
    }
    return false;
}

/// Segments up to the pixels, from behind the first marker.
bool JpegCarriesProfile(std::istream& file) {
    constexpr std::string_view kName("ICC_PROFILE\0", 12);
    std::array<unsigned char, 2> marker, length;
    while (Read(file, marker) && marker[0] == 0xff) {
        if (marker[1] == 0xff) {
            file.seekg(-1, std::ios::cur);  // one of several before a marker
            continue;
        }
        if (marker[1] == 0xda || marker[1] == 0xd9 || !Read(file, length)) return false;
        const std::streamoff next = static_cast<std::streamoff>(file.tellg()) + BigEndian(length, 0, 2) - 2;
        std::array<unsigned char, kName.size()> name;
        if (marker[1] == 0xe2 && Read(file, name) && TextIn(name) == kName) return true;
        file.clear();
        file.seekg(next);
    }
    return false;
}

/// The next number of a portable map's header, whose blanks may hold comments; nothing when there is none.
std::optional<uint64_t> NextNumber(std::istream& file) {
    constexpr uint64_t kMost = 1'000'000'000;
    while (file.peek() == '#' || std::isspace(file.peek())) {
        if (file.get() == '#') file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    uint64_t number = 0;
    bool isThere = false;
    for (; std::isdigit(file.peek()) && number < kMost; isThere = true) number = number * 10 + static_cast<uint64_t>(file.get() - '0');
    return isThere ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<std::string> DamageOfJpeg(const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "rbe");
    if (!file) return std::nullopt;
    jpeg_decompress_struct decoder{};
    Watch watch{};
    DecodeSmall(decoder, watch, file);
    std::optional<std::string> damage;
    if (watch.isDamaged) {
        damage = "its pixels are damaged or cut short";
        // A file of several scans has something of every line in each.
        if (!jpeg_has_multiple_scans(&decoder)) {
            const JDIMENSION whole = std::min(decoder.output_scanline * 8, decoder.image_height);
            *damage += ", of " + std::to_string(decoder.image_height) + " lines " + std::to_string(whole) + " are whole";
        }
    }
    jpeg_destroy_decompress(&decoder);
    std::fclose(file);
    return damage;
}

bool CarriesProfile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<unsigned char, 2> start;
    if (!Read(file, start)) return false;
    if (start[0] == 0xff && start[1] == 0xd8) return JpegCarriesProfile(file);
    file.seekg(8);
    return start[0] == 0x89 && start[1] == 'P' && PngCarriesProfile(file);
}

void CheckPortableMap(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<unsigned char, 2> start;
    // Grey and RGB, as text and as bytes; bitmaps have no such number.
    if (!Read(file, start) || start[0] != 'P' || std::string_view("2356").find(static_cast<char>(start[1])) == std::string_view::npos) return;
    const auto width = NextNumber(file), height = NextNumber(file), full = NextNumber(file);
    if (!width || !height || !full) return;
    if (*full != 255 && *full != 65535) {
        throw Complaint{path, "its samples end at " + std::to_string(*full), "save it with samples that end at 255 or 65535"};
    }
    const bool isText = start[1] == '2' || start[1] == '3';
    std::error_code error;
    const uint64_t size = std::filesystem::file_size(path, error), header = static_cast<uint64_t>(file.tellg()) + 1;
    const uint64_t samples = start[1] == '6' ? 3 : 1, bytes = *full == 255 ? 1 : 2;
    if (isText || error || size - header == *width * *height * samples * bytes) return;
    throw Complaint{path,
                    "its header says " + std::to_string(*width) + " x " + std::to_string(*height) + " pixels, and there are " +
                        (size - header < *width * *height * samples * bytes ? "fewer" : "more"),
                    "a file of one whole image is needed"};
}
