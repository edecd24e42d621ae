/// Option strings, read beside a model that goes through them character by character, written and
/// read back; and what an encryption setting makes of them. Each input is tried as it stands, and
/// as a text of the words that settings are made of.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <strings.h>

#include "kovcert/qxci/encryptlevel.h"
#include "kovcert/qxci/qxcierror.h"
#include "kovcert/qxci/qxcioptions.h"
#include "utils/dbutils/dboptions.h"

namespace {

using a_list = std::vector<std::pair<std::string, std::string>>;

void Require(bool holds, const char* rule, const std::string& text) {
    if (holds) return;
    std::fprintf(stderr, "%s: \"%s\"\n", rule, text.c_str());
    std::abort();
}

constexpr std::string_view blanks = " \t\r\n";

void Trim(std::string& text) {
    text.erase(0, text.find_first_not_of(blanks));
    text.erase(text.find_last_not_of(blanks) + 1);
}

/// What a text says: its options, or where it goes wrong.
struct Model {
    explicit Model(const char* text) {
        while (good && NextKey(text)) good = Value(text);
    }

    a_list options;
    bool good = true;
    std::string key;  // the last one

    const char* Find(const char* name, const char* otherwise) const {
        for (const auto& [known, value] : options) {
            if (strcasecmp(known.c_str(), name) == 0) return value.c_str();
        }
        return otherwise;
    }

  private:
    bool NextKey(const char*& at) {
        while (*at == ';' || (*at != '\0' && blanks.find(*at) != std::string_view::npos)) ++at;
        if (*at == '\0') return false;
        for (key.clear(); *at != '\0' && *at != ';' && *at != '='; ++at) key += *at;
        Trim(key);
        good = *at++ == '=' && !key.empty();
        return good;
    }

    bool Value(const char*& at) {
        std::string value, behind;
        while (*at != '\0' && blanks.find(*at) != std::string_view::npos) ++at;
        const char quote = *at == '"' || *at == '\'' ? *at++ : '\0';
        if (quote != '\0') {
            for (; *at != quote || at[1] == quote; ++at) {
                if (*at == '\0') return false;
                if (*at == quote) ++at;
                value += *at;
            }
            ++at;
        }
        std::string& rest = quote != '\0' ? behind : value;
        while (*at != '\0' && *at != ';') rest += *at++;
        Trim(rest);
        options.emplace_back(key, value);
        return behind.empty();
    }
};

template <class Option>
a_list ListOf(const Option* option, const char* Option::*key, const char* Option::*value) {
    a_list list;
    for (; option != nullptr; option = option->next)
        list.emplace_back(option->*key, option->*value);
    return list;
}

a_list ListOf(const a_db_option* list) {
    return ListOf(list, &a_db_option::key, &a_db_option::value);
}

void CheckRoundTrip(const a_db_option* list, const std::string& text) {
    std::string written(db_format_options(list, nullptr, 0), '\0');
    Require(db_format_options(list, written.data(), written.size() + 1) == written.size(), "length",
            text);
    a_db_option* again = nullptr;
    Require(db_parse_options(written.c_str(), &again, nullptr, 0), "reads what it wrote", text);
    Require(ListOf(again) == ListOf(list), "reads the same", text);
    db_free_options(again);
    std::string cut(written.size() / 2 + 1, 'x');
    db_format_options(list, cut.data(), cut.size());
    Require(cut.back() == '\0' && written.starts_with(cut.c_str()), "cuts", text);
}

void CheckOptions(const std::string& text, const Model& model) {
    a_db_option* list = nullptr;
    std::array<char, 8> bad_key;
    const bool good = db_parse_options(text.c_str(), &list, bad_key.data(), bad_key.size());
    Require(good == model.good, "reads", text);
    Require(!good || ListOf(list) == model.options, "finds", text);
    Require(good || model.key.substr(0, bad_key.size() - 1) == bad_key.data(), "names", text);
    if (good) CheckRoundTrip(list, text);
    db_free_options(list);

    DBQXCIError error;
    a_qxci_user_option* options = nullptr;
    Require(ParseQXCIOptionString(text.c_str(), &options, &error) == good, "passes on", text);
    Require(!good || ListOf(options, &a_qxci_user_option::opt_name,
                            &a_qxci_user_option::opt_value) == model.options,
            "passes on the same", text);
    FreeQXCIOptions(options);
}

int ModelFips(const char* value) {
    for (const char* yes : {"yes", "Y", "true", "on", "1"}) {
        if (strcasecmp(value, yes) == 0) return 1;
    }
    for (const char* no : {"no", "N", "false", "off", "0"}) {
        if (strcasecmp(value, no) == 0) return 0;
    }
    return -1;
}

void CheckTlsSetting(const std::string& text, const Model& model) {
    c_encrypt_level setting;
    const bool taken = setting.set_level("tls", text.c_str());
    const std::string type = model.Find("tls_type", "rsa");
    const int fips = ModelFips(model.Find("FIPS", "no"));
    const bool rsa = strcasecmp(type.c_str(), "rsa") == 0;
    const bool ecc = strcasecmp(type.c_str(), "ecc") == 0;
    Require(taken == (model.good && fips >= 0 && (rsa || ecc)), "takes", text);
    if (taken) {
        const a_encrypt_level level = fips == 1 ? ENCRYPT_RSA_TLS_FIPS : ENCRYPT_RSA_TLS;
        Require(setting.get_level() == (ecc ? ENCRYPT_ECC_TLS : level), "level", text);
        return;
    }
    const std::string wrong = !model.good ? model.key.substr(0, 255) : fips < 0 ? "FIPS" : type;
    Require(setting.get_error() == wrong, "error", text);
}

void Check(const std::string& text) {
    const Model model(text.c_str());
    CheckOptions(text.c_str(), model);
    CheckTlsSetting(text.c_str(), model);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr std::array words = {"=",    "=",     ";",   ";",   "'",   "\"",   " ",
                                  "\t",   "rsa",   "ECC", "yes", "oFf", "1",    "tls_type",
                                  "fips", "FIPS=", "''",  "a",   "b;",  "\"\"", "\r\n"};
    Check(std::string(reinterpret_cast<const char*>(data), size));
    std::string dense;
    for (size_t i = 0; i < size; ++i) dense += words[data[i] % words.size()];
    Check(dense);
    return 0;
}
