#include "Quil/Value.h"

namespace Quil {

void StrepCursor::expect(std::string_view text) {
    if (!rest_.starts_with(text)) throw RangeException(cat("expected \"", text, "\" at \"", rest_.substr(0, 40), "\""));
    rest_.remove_prefix(text.size());
}

std::string_view StrepCursor::word() {
    const auto end = std::min(rest_.find_first_of(",})"), rest_.size());
    const auto found = rest_.substr(0, end);
    rest_.remove_prefix(end);
    return found;
}

String StrepCursor::quoted() {
    expect("'");
    String out;
    while (!rest_.empty() && rest_.front() != '\'') {
        if (rest_.front() == '\\') rest_.remove_prefix(1);
        if (rest_.empty()) break;
        out += rest_.front();
        rest_.remove_prefix(1);
    }
    expect("'");
    return out;
}

void StrepCursor::expectEnd() const {
    if (!rest_.empty()) throw RangeException(cat("unexpected text \"", rest_.substr(0, 40), "\" after the value"));
}

}  // namespace Quil
