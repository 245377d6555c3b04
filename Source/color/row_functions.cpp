// SPDX-License-Identifier: Apache-2.0
// Compiled once for each kind of processor (HWY_TARGET). Baseline x86-64 has no byte shuffles, and the emulation of
// vectors one lane: there the plain form stays in charge.
#include "row_functions.h"

#include <cstdlib>
#include <cstring>

// Wider vectors than those of AVX2 gain little here, and vectors of unknown size cannot be members and array elements.
#undef HWY_DISABLED_TARGETS
#define HWY_DISABLED_TARGETS ~(HWY_AVX2 | HWY_SSE4 | HWY_SSSE3 | HWY_NEON | HWY_SCALAR | HWY_EMU128)

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "row_functions.cpp"
#include <hwy/foreach_target.h>

#include <hwy/cache_control.h>
#include <hwy/highway.h>

#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128

namespace tovix::color::HWY_NAMESPACE {
namespace {

const RowFunctionSet* functions() {
    return nullptr;
}

}  // namespace
}  // namespace tovix::color::HWY_NAMESPACE

#else

// Each builds on those before.
// clang-format off
#include "vectors/samples-inl.h"
#include "vectors/rules-inl.h"
#include "vectors/matrix-inl.h"
#include "vectors/image-inl.h"
#include "vectors/fetch-inl.h"
// clang-format on

HWY_BEFORE_NAMESPACE();
namespace tovix::color::HWY_NAMESPACE {
namespace {

template <class T, class Rule>
constexpr void add(RowFunctions<T>& functions, RowRule rule) {
    auto& by_layout = functions.make[static_cast<int>(rule)];
    by_layout[0][0] = make<T, Rule, 3, false>;
    by_layout[0][1] = make<T, Rule, 3, true>;
    if constexpr (sizeof(T) == 1) {
        by_layout[1][0] = make<T, Rule, 4, false>;
        by_layout[1][1] = make<T, Rule, 4, true>;
    }
}

template <class T>
constexpr RowFunctions<T> functions_of() {
    RowFunctions<T> f{};
    add<T, Grey>(f, RowRule::kGrey);
    add<T, Nearest>(f, RowRule::kNearest);
    add<T, Quelt>(f, RowRule::kQuelt);
    add<T, EdgeDirected<false>>(f, RowRule::kEdgeDirected);
    add<T, EdgeDirected<true>>(f, RowRule::kEdgeDirectedRim);
    add<T, Zurno>(f, RowRule::kZurno);
    f.zurno_green = fill_greens<T, Zurno>;
    f.edge_green = fill_greens<T, EdgeDirected<false>>;
    f.edge_green_rim = fill_greens<T, EdgeDirected<true>>;
    return f;
}

const RowFunctionSet* functions() {
    static constexpr RowFunctionSet kFunctions{
        functions_of<std::uint8_t>(), functions_of<std::uint16_t>(), {fetch_by_table, fetch_top_bytes, fetch_words}};
    return &kFunctions;
}

}  // namespace
}  // namespace tovix::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif

#if HWY_ONCE
namespace tovix::color {

HWY_EXPORT(functions);

const RowFunctionSet* row_functions() {
    // Where one kind of vectors is compiled, as on Arm, a dispatch does not look at what was chosen.
    constexpr std::size_t kNoVectors = HWY_MAX_DYNAMIC_TARGETS + 1;
    if (hwy::GetChosenTarget().GetIndex() == kNoVectors) return nullptr;
    return HWY_DYNAMIC_DISPATCH(functions)();
}

}  // namespace tovix::color
#endif
