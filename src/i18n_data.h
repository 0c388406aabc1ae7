// The texts of all languages, as tables that are compiled in. The definitions are generated from
// po/ by tools/po_tables at build time, which also sees to it that none is missing; what they say
// and how they are chosen is I18n's matter. Constant: any thread.

#pragma once

#include <cstddef>

namespace i18n_data {

// How many texts and languages there are. The generated tables do not compile with other numbers.
inline constexpr size_t kTextCount = 299;
inline constexpr size_t kLanguageCount = 44;

struct LangEntry {
    const char* code;           // as in settings.json
    const char* native_name;    // the language's own name
    bool rtl;                   // written right to left
    const char* const* values;  // kTextCount texts, in the order of KEYS; none null or empty
};

// In strcmp order: texts are found by bisection.
extern const char* const KEYS[kTextCount];
// In strcmp order of the codes.
extern const LangEntry LANGS[kLanguageCount];

}  // namespace i18n_data
