// Option strings: what is read is written so that it reads the same, as far as there is room, and
// an encryption setting takes no text that is none.
//
// An input is tried as it stands, and as a text of the words that settings are made of.

#include <array>
#include <utility>
#include <vector>

#include "fuzz/fuzzed.h"
#include "kovcert/qxci/encryptlevel.h"
#include "kovcert/qxci/qxcierror.h"
#include "kovcert/qxci/qxcioptions.h"
#include "utils/dbutils/dboptions.h"

namespace {

using a_list = std::vector<std::pair<std::string, std::string>>;

template <class Option>
a_list list_of(const Option* option, const char* Option::*key, const char* Option::*value) {
    a_list list;
    for (; option != nullptr; option = option->next)
        list.emplace_back(option->*key, option->*value);
    return list;
}

a_list list_of(const a_db_option* list) {
    return list_of(list, &a_db_option::key, &a_db_option::value);
}

void check_round_trip(const a_db_option* list) {
    std::string written(db_format_options(list, nullptr, 0), '\0');
    check(db_format_options(list, written.data(), written.size() + 1) == written.size());
    a_db_option* again = nullptr;
    check(db_parse_options(written.c_str(), &again, nullptr, 0));
    check(list_of(again) == list_of(list));
    db_free_options(again);
    std::string cut(written.size() / 2 + 1, 'x');
    db_format_options(list, cut.data(), cut.size());
    check(cut.back() == '\0' && written.starts_with(cut.c_str()));
}

void check_text(const std::string& text) {
    a_db_option* list = nullptr;
    std::array<char, 8> bad_key;
    const bool good = db_parse_options(text.c_str(), &list, bad_key.data(), bad_key.size());
    check(good || std::string_view(bad_key.data()).size() < bad_key.size());
    check_round_trip(list);

    DBQXCIError error;
    a_qxci_user_option* options = nullptr;
    check(ParseQXCIOptionString(text.c_str(), &options, &error) == good);
    check(list_of(options, &a_qxci_user_option::opt_name, &a_qxci_user_option::opt_value) ==
          list_of(list));
    FreeQXCIOptions(options);
    db_free_options(list);

    c_encrypt_level setting;
    const bool taken = setting.set_level("tls", text.c_str());
    check(taken ? good && setting.get_error() == nullptr : setting.get_error() != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr std::array words = {"=",    "=",     ";",   ";",   "'",   "\"",   " ",
                                  "\t",   "rsa",   "ECC", "yes", "oFf", "1",    "tls_type",
                                  "fips", "FIPS=", "''",  "a",   "b;",  "\"\"", "\r\n"};
    check_text(std::string(reinterpret_cast<const char*>(data), size).c_str());
    std::string dense;
    for (size_t i = 0; i < size; ++i) dense += words[data[i] % words.size()];
    check_text(dense);
    return 0;
}
