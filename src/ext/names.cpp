// The names of methods, patterns, row orders and formats (catalogue/methods.h) through
// the C interface: every front end spells and reads them the same way.
#include <array>
#include <cctype>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "catalogue/methods.h"
#include "ext/names.h"
#include "qzrcfa_ext.h"

namespace qzrcfa::ext {
namespace {

using catalogue::Name;

constexpr qzrcfa_name to_c(const Name& n) {
    // Every field is a view of a whole string literal, so its data ends with a NUL.
    return {n.value, n.name.data(), n.aliases.data(), n.identifier.data(), n.label.data(), n.summary.data()};
}

template <std::size_t N>
constexpr std::array<qzrcfa_name, N> to_c(const Name (&names)[N]) {
    std::array<qzrcfa_name, N> out{};
    for (std::size_t i = 0; i < N; ++i) out[i] = to_c(names[i]);
    return out;
}

constexpr auto method_names() {
    std::array<qzrcfa_name, std::size(catalogue::kMethods)> out{};
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = to_c(catalogue::kMethods[i].name);
    return out;
}

constexpr auto kMethodNames = method_names();
constexpr auto kPatternNames = to_c(catalogue::kPatterns);
constexpr auto kOrderNames = to_c(catalogue::kOrders);
constexpr auto kFormatNames = to_c(catalogue::kFormats);
constexpr auto kRuleNames = to_c(catalogue::kRules);
constexpr auto kPackingNames = to_c(catalogue::kPackings);
constexpr auto kCurveNames = to_c(catalogue::kCurves);

// Lower case, without separators.
std::string folded(std::string_view text) {
    std::string out;
    for (char c : text)
        if (c != '-' && c != '_' && c != ' ') out += char(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool names(const qzrcfa_name& n, const std::string& text) {
    if (folded(n.name) == text || folded(n.identifier) == text) return true;
    std::string_view aliases = n.aliases;
    while (!aliases.empty()) {
        const std::size_t comma = aliases.find(',');
        if (folded(aliases.substr(0, comma)) == text) return true;
        aliases = comma == std::string_view::npos ? std::string_view() : aliases.substr(comma + 1);
    }
    return false;
}

}  // namespace

std::span<const qzrcfa_name> names_of(int kind) {
    switch (kind) {
    case QZRCFA_NAMES_METHOD: return kMethodNames;
    case QZRCFA_NAMES_PATTERN: return kPatternNames;
    case QZRCFA_NAMES_ORDER: return kOrderNames;
    case QZRCFA_NAMES_FORMAT: return kFormatNames;
    case QZRCFA_NAMES_RULE: return kRuleNames;
    case QZRCFA_NAMES_PACKING: return kPackingNames;
    case QZRCFA_NAMES_CURVE: return kCurveNames;
    default: return {};
    }
}

std::string name_of(int kind, int value) {
    for (const qzrcfa_name& n : names_of(kind))
        if (n.value == value) return n.name;
    return "(value " + std::to_string(value) + ")";
}

std::string name_list(int kind) {
    std::string out;
    const std::span<const qzrcfa_name> all = names_of(kind);
    for (std::size_t i = 0; i < all.size(); ++i)
        out += std::string(i == 0 ? "" : i + 1 == all.size() ? " or " : ", ") + all[i].name;
    return out;
}

}  // namespace qzrcfa::ext

extern "C" {

QZRCFA_EXT_API const qzrcfa_name* qzrcfa_names(int kind, int index) {
    const std::span<const qzrcfa_name> all = qzrcfa::ext::names_of(kind);
    return index >= 0 && std::size_t(index) < all.size() ? &all[std::size_t(index)] : nullptr;
}

QZRCFA_EXT_API int qzrcfa_lookup(int kind, const char* text) {
    if (text == nullptr) return -1;
    try {
        const std::string wanted = qzrcfa::ext::folded(text);
        for (const qzrcfa_name& n : qzrcfa::ext::names_of(kind))
            if (qzrcfa::ext::names(n, wanted)) return n.value;
    } catch (...) {  // no memory for the folded text
    }
    return -1;
}

}  // extern "C"
