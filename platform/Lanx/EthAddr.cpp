#include "Lanx/EthAddr.h"

namespace Lanx {
namespace {
int hexDigit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}
}  // namespace

EthAddr::EthAddr(const Quil::String& text) {
    bool good = text.size() == 17;
    for (std::size_t i = 0; good && i < 6; ++i) {
        const int high = hexDigit(text[3 * i]), low = hexDigit(text[3 * i + 1]);
        good = high >= 0 && low >= 0 && (i == 5 || text[3 * i + 2] == ':');
        bytes_[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    if (!good) throw Quil::RangeException(Quil::cat("'", text, "' is not a MAC address (xx:xx:xx:xx:xx:xx)"));
}

Quil::String EthAddr::str() const {
    static constexpr char digits[] = "0123456789abcdef";
    Quil::String out;
    for (const std::uint8_t byte : bytes_) {
        if (!out.empty()) out += ':';
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
    return out;
}

}  // namespace Lanx
