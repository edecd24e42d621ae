// Started beside installed message texts: fails unless it finds those of every language.

#include <cstring>

#include "utils/lang/utlangstring.h"

int main() {
    const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));
    const char* const labels[] = {"en", "de", "fr", "es", "zh", "ja"};
    int failures = 0;
    for (const char* label : labels) {
        UTLangString strings(locale);
        char text[96] = "";
        strings.Init(label, nullptr, false);
        strings.GetString(RES_DESCRIPTION_STRING, text, sizeof text);
        const char* const language = std::strrchr(text, '=');
        if (language == nullptr || std::strcmp(language + 1, label) != 0) ++failures;
    }
    return failures;
}
