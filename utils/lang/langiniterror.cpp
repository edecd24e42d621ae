#include "utils/lang/langiniterror.h"

#include <array>
#include <cstdarg>
#include <cstring>

#include "utils/etc/utascii.h"
#include "utils/lang/wlangfmt.h"
#include "utils/locale/csconvert.h"

namespace {

constexpr size_t max_text = 512;

/// The texts of one language in UTF-8.
struct InitTexts {
    const char* label;
    const char* load_error;
    const char* bad_version;
    const char* cannot_find;
    const char* parsing_error;
};

constexpr InitTexts english_texts{
    "en",
    "An error occurred loading the language resource file (%1).",
    "Language resource file (%1) version mismatch.",
    "Cannot find the language resource file (%1).",
    "An error occurred parsing the SQLLOCALE environment variable.",
};

constexpr InitTexts translated[] = {
    {
        "de",
        "Beim Laden der Sprachdatei (%1) ist ein Fehler aufgetreten.",
        "Die Version der Sprachdatei (%1) passt nicht.",
        "Die Sprachdatei (%1) wurde nicht gefunden.",
        "Die Umgebungsvariable SQLLOCALE konnte nicht ausgewertet werden.",
    },
    {
        "fr",
        "Une erreur s'est produite lors du chargement du fichier de langue (%1).",
        "La version du fichier de langue (%1) ne convient pas.",
        "Le fichier de langue (%1) est introuvable.",
        "La variable d'environnement SQLLOCALE n'a pas pu être interprétée.",
    },
    {
        "es",
        "Se produjo un error al cargar el archivo de idioma (%1).",
        "La versión del archivo de idioma (%1) no coincide.",
        "No se encuentra el archivo de idioma (%1).",
        "No se pudo interpretar la variable de entorno SQLLOCALE.",
    },
    {
        "ja",
        "言語リソースファイル (%1) の読み込み中にエラーが発生しました。",
        "言語リソースファイル (%1) のバージョンが一致しません。",
        "言語リソースファイル (%1) が見つかりません。",
        "環境変数 SQLLOCALE の解析中にエラーが発生しました。",
    },
    {
        "zh",
        "加载语言资源文件 (%1) 时出错。",
        "语言资源文件 (%1) 的版本不匹配。",
        "找不到语言资源文件 (%1)。",
        "解析环境变量 SQLLOCALE 时出错。",
    },
};

const char* text_for(const InitTexts& texts, ls_init_return code) {
    switch (code) {
    case LS_INIT_ERROR:
    case LS_INIT_IQ_ERROR:
        return texts.load_error;
    case LS_INIT_BAD_VERSION:
        return texts.bad_version;
    case LS_INIT_CANT_FIND_FILE:
    case LS_INIT_CANT_FIND_IQ_FILE:
        return texts.cannot_find;
    case LS_INIT_PARSING_ERROR:
        return texts.parsing_error;
    case LS_INIT_OKAY:
        break;
    }
    return nullptr;
}

const InitTexts* find_translated(const char* label) {
    for (const InitTexts& texts : translated) {
        if (ut_equal_nocase(texts.label, label)) return &texts;
    }
    return nullptr;
}

size_t format(char* buf, size_t len, const char* text, ...) {
    va_list args;
    va_start(args, text);
    const size_t length = wlangfmt(buf, len, text, args);
    va_end(args);
    return length;
}

/// Formats a text and converts it; 0 when the character set lacks a character of it. *cut says that
/// `buf` does not hold all of it.
size_t put_translated(const char* text, const char* file_name, const CharsetInfo* charset,
                      char* buf, size_t len, bool* cut) {
    std::array<char, max_text> utf8;
    std::array<char, 2 * max_text> whole;  // UTF-16 takes the most: two bytes for one
    const size_t length = format(utf8.data(), utf8.size(), text, file_name);
    CharsetConverter converter;
    converter.Open(ls_find_charset_by_id(CHARSET_UTF8), charset);
    size_t lost = 0;
    const size_t needed = converter.Convert(utf8.data(), length, whole.data(), whole.size(), &lost);
    // Half a text in question marks helps nobody, and English follows anyway.
    if (lost > 0) return 0;
    *cut = needed > len;
    return converter.Convert(utf8.data(), length, buf, len);
}

}  // namespace

size_t ls_init_error_text(ls_init_return code, const LanguageInfo* language,
                          const CharsetInfo* charset, const char* file_name, char* buf,
                          size_t len) {
    if (len == 0) return 0;
    buf[0] = '\0';
    const char* english = text_for(english_texts, code);
    if (english == nullptr) return 0;
    size_t length = 0;
    bool cut = false;
    const InitTexts* texts = find_translated(language->iso_label);
    if (texts != nullptr) {
        length = put_translated(text_for(*texts, code), file_name, charset, buf, len - 1, &cut);
    }
    buf[length] = '\0';
    if (cut) return length;
    if (length > 0 && length < len - 1) buf[length++] = ' ';
    return length + format(buf + length, len - length, english, file_name);
}
