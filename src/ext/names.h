// The names of what a request names, for the extended library's own messages.
#pragma once

#include <span>
#include <string>

#include "qzrcfa_ext.h"

namespace qzrcfa::ext {

// Every name of a kind (QZRCFA_NAMES_*); empty for an unknown kind.
std::span<const qzrcfa_name> names_of(int kind);

// The name of a value, or "(value N)" when it has none.
std::string name_of(int kind, int value);

// "a, b, c or d": every name of a kind, for a message that says what is accepted.
std::string name_list(int kind);

}  // namespace qzrcfa::ext
