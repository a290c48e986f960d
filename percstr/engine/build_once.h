// Tables that are built once, at first use, from a function that keeps them
// in a local static: the one way the engines get theirs, so that running out
// of memory while building is a result the caller reports, never an exception.
#pragma once

#include <type_traits>

namespace vrn {

// The address of what build() gives, or null when building threw (memory);
// the static stays unbuilt then, and the next call tries again.
template <class Build>
[[nodiscard]] auto BuiltOrNull(Build build) noexcept -> std::add_pointer_t<std::remove_reference_t<decltype(build())>> {
    try {
        return &build();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace vrn
