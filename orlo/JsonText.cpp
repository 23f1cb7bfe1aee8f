#include "orlo/JsonText.h"

#include <glib.h>

#include <array>
#include <cstdio>
#include <memory>

std::string JsonString(std::string_view text) {
    const std::unique_ptr<char, decltype(&g_free)> valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
    std::string json = "\"";
    for (const char* at = valid.get(); *at; ++at) {
        if (*at == '"' || *at == '\\') {
            json += '\\';
            json += *at;
        } else if (static_cast<unsigned char>(*at) < 0x20) {
            std::array<char, 8> escape;
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(*at));
            json += escape.data();
        } else {
            json += *at;
        }
    }
    return json + '"';
}
