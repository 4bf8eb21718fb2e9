#pragma once
// One table of an enum's values and their names serves both ways: the name of a value for output, the
// value of a name when parsing.

#include <cstddef>
#include <string>

namespace Tal {
namespace Base {

template <typename Enum>
struct EnumName {
    Enum value;
    const char* name;
};

/// The name `names` gives `value`; `unknown` when the table does not hold it.
template <typename Enum, std::size_t N>
const char* NameOf(Enum value, const EnumName<Enum> (&names)[N], const char* unknown) {
    for (const EnumName<Enum>& entry : names) {
        if (entry.value == value) {
            return entry.name;
        }
    }
    return unknown;
}

/// The value named `name` in `names`; false, `value` unchanged, when none has that name.
template <typename Enum, std::size_t N>
bool ValueOf(const std::string& name, const EnumName<Enum> (&names)[N], Enum& value) {
    for (const EnumName<Enum>& entry : names) {
        if (name == entry.name) {
            value = entry.value;
            return true;
        }
    }
    return false;
}

}  // namespace Base
}  // namespace Tal
