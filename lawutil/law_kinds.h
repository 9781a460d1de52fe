#pragma once
// The fixed table of law classes (law_kinds.def) expanded into type-id constants and a
// constexpr row table that the class-identity macros, the registry and the tests share.

#include <cstddef>
#include <iterator>

/// How a class is built from text; decides which make_one the parser calls.
enum class law_kind { NONE, UNARY, BINARY, MULTIPLE, UNARY_DATA, MULTIPLE_DATA, CONSTANT };

/// Type ids: `sin_law_id` == 102 and so on.  Fixed numbers, part of the interface.
enum law_type_id : int {
#define LAW_KIND(id, cls, keyword, second, kind, precedence) cls##_id = id,
#include <lawutil/law_kinds.def>
#undef LAW_KIND
};

struct law_kind_row {
    int id;
    const char* class_name;
    const char* keyword;  ///< parse symbol, null when the class cannot be written as text
    const char* second;   ///< symbol for any non-zero law_symbol_type
    law_kind kind;
    int precedence;
};

inline constexpr law_kind_row law_kind_rows[] = {
#define LAW_KIND(id, cls, keyword, second, kind, precedence) \
    {id, #cls, keyword, second, law_kind::kind, precedence},
#include <lawutil/law_kinds.def>
#undef LAW_KIND
};

inline constexpr int law_kind_count = static_cast<int>(std::size(law_kind_rows));
/// The largest built-in id; new_law_id() hands out numbers above it.
inline constexpr int law_last_builtin_id = 124;

/// The position of a built-in type id in law_kind_rows, or -1.
constexpr int law_kind_index(int id) {
    for (int i = 0; i < law_kind_count; ++i)
        if (law_kind_rows[i].id == id) return i;
    return -1;
}

/// The row of a built-in type id, or null.
inline const law_kind_row* law_kind_find(int id) {
    const int i = law_kind_index(id);
    return i < 0 ? nullptr : &law_kind_rows[i];
}

constexpr bool law_kind_rows_sorted_and_unique() {
    for (int i = 1; i < law_kind_count; ++i)
        if (law_kind_rows[i - 1].id >= law_kind_rows[i].id) return false;
    return true;
}

static_assert(law_kind_count == 123, "125 ids with 19 and 44 unused");
static_assert(law_kind_rows_sorted_and_unique(), "type ids must be ascending and unique");
static_assert(law_kind_rows[law_kind_count - 1].id == law_last_builtin_id);
static_assert(law_kind_index(19) < 0 && law_kind_index(44) < 0);
