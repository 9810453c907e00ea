// The library's table of names (qzrcfa_names) as the tools read and show them: every
// name and alias the library takes, in any case; messages list the names it writes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "qzrcfa.hpp"

namespace qzrcfa::tools {

// The table's entries of E's kind, in its order.
template <class E>
std::vector<const qzrcfa_name*> entries() {
    std::vector<const qzrcfa_name*> out;
    for (int i = 0; const qzrcfa_name* n = qzrcfa_names(qzrcfa::detail::kNames<E>, i); ++i) out.push_back(n);
    return out;
}

// The values of E's kind, in the table's order.
template <class E>
std::vector<E> all() {
    std::vector<E> out;
    for (const qzrcfa_name* n : entries<E>()) out.push_back(E(n->value));
    return out;
}

// "nearest, bilinear, ... or gbri".
template <class E>
std::string name_list() {
    const std::vector<const qzrcfa_name*> all = entries<E>();
    std::string out;
    for (std::size_t i = 0; i < all.size(); ++i) out += std::string(i == 0 ? "" : i + 1 == all.size() ? " or " : ", ") + all[i]->name;
    return out;
}

// For people: "nearest neighbour", "edge sensing 1".
template <class E>
std::string_view label(E value) {
    for (const qzrcfa_name* n : entries<E>())
        if (n->value == int(value)) return n->label;
    return "?";
}

// "unknown -m value 'fast' (nearest, bilinear, ... or gbri)".
template <class E>
std::string unknown_name(const std::string& option, const std::string& text) {
    return "unknown " + option + " value '" + text + "' (" + name_list<E>() + ")";
}

}  // namespace qzrcfa::tools
