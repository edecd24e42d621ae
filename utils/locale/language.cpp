#include "utils/locale/language.h"

#include <cstring>

#include "utils/etc/utascii.h"

namespace {

// A language without message texts is still worth knowing: who asks for it gets English, not the
// language of the machine. The first row that matches counts, so zh_TW stands before zh.
constexpr LanguageInfo languages[] = {
    {"en", "english"}, {"de", "german"},   {"fr", "french"},
    {"es", "spanish"}, {"ja", "japanese"}, {"zh-Hant", "zh_TW zh_HK zh_MO"},
    {"zh", "chinese"}, {"it", "italian"},  {"pt", "portuguese"},
    {"nl", "dutch"},   {"pl", "polish"},   {"ru", "russian"},
    {"sv", "swedish"}, {"ko", "korean"},
};

bool starts_with_name(const char* label, const char* name, size_t length) {
    if (!ut_equal_nocase(label, name, length)) return false;
    return label[length] == '\0' || std::strchr("_-.@", label[length]) != nullptr;
}

bool means(const char* label, const LanguageInfo& language) {
    const auto starts_label = [label](const char* name, size_t length) {
        return starts_with_name(label, name, length);
    };
    return starts_label(language.iso_label, std::strlen(language.iso_label)) ||
           ut_any_word(language.aliases, starts_label);
}

}  // namespace

const LanguageInfo* ls_find_language(const char* label) {
    if (label == nullptr) return nullptr;
    for (const LanguageInfo& language : languages) {
        if (means(label, language)) return &language;
    }
    return nullptr;
}

const LanguageInfo* ls_english() {
    return &languages[0];
}
