#include "tests/reference/OneDReference.h"

#include <algorithm>

namespace reference {

namespace {

Wide Modulo(Wide value, Wide modulus) {
    return ((value % modulus) + modulus) % modulus;
}

}  // namespace

std::uint16_t OneDLookup(std::uint16_t x, const std::vector<std::uint16_t>& table) {
    // In steps of 65535 * (n - 1) parts, entry i stands at i * 65535 and the input at x * (n - 1).
    const Wide position = Wide{x} * (Wide(table.size()) - 1);
    std::size_t i = 0;
    while (i + 2 < table.size() && Wide(i + 1) * 65535 <= position) ++i;
    const Wide past = position - Wide(i) * 65535;
    return static_cast<std::uint16_t>((Wide{table[i + 1]} * past + Wide{table[i]} * (65535 - past)) / 65535);
}

std::uint16_t OneDLookup32768(std::uint16_t x, const std::vector<std::uint16_t>& table) {
    std::vector<std::uint16_t> guarded = table;
    guarded.push_back(table.back());
    const Wide position = Wide{x} * (Wide(table.size()) - 1);
    Wide i = 0;
    while ((i + 1) * 65535 <= position) ++i;
    const Wide low = guarded[static_cast<std::size_t>(i)];
    const Wide high = guarded[static_cast<std::size_t>(i) + 1];
    const Wide weight = position - 32768 * i;
    const Wide sum = Modulo(low * (32768 - weight) + high * weight, Wide{1} << 32);
    return static_cast<std::uint16_t>(Modulo(sum / 32768, 65536));
}

Found InverseOneDLookup(std::uint16_t y, const std::vector<std::uint16_t>& table) {
    const Wide last = Wide(table.size()) - 1;
    if (y >= table.back()) return {65535, static_cast<std::uint8_t>(y > table.back() ? 255 : 0)};
    if (y <= table.front()) return {0, static_cast<std::uint8_t>(y < table.front() ? 255 : 0)};
    std::size_t i = 0;
    while (table[i + 1] <= y) ++i;
    const Wide base = Wide(i) * 65535 / last;
    const Wide top = Wide(i + 1) * 65535 / last;
    return {static_cast<std::uint16_t>((top - base) * (y - table[i]) / (table[i + 1] - table[i]) + base), 0};
}

Found ReverseOneDLookup(std::uint16_t y, const std::vector<std::uint16_t>& curve) {
    const std::uint16_t smallest = *std::min_element(curve.begin(), curve.end());
    const std::uint16_t largest = *std::max_element(curve.begin(), curve.end());
    const std::uint8_t flag = y < smallest || y > largest ? 255 : 0;
    const Wide target = y < smallest ? smallest : y > largest ? largest : y;
    const Wide last = Wide(curve.size()) - 1;
    for (Wide i = last - 1; i >= 0; --i) {
        const auto at = static_cast<std::size_t>(i);
        const Wide high = std::max(curve[at], curve[at + 1]);
        const Wide low = std::min(curve[at], curve[at + 1]);
        if (high == target) return {static_cast<std::uint16_t>(i * 65535 / last), flag};
        // As if the segment fell from its high end at i to its low end at i + 1.
        if (low <= target && target < high)
            return {static_cast<std::uint16_t>(((i + 1) * 65535 - (target - low) * 65535 / (high - low)) / last), flag};
    }
    return {0, flag};
}

}  // namespace reference
