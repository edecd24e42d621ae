#include "extdll/mailargs.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

char** make_argv(const char* name, int* count) {
    *count = 0;
    auto* list = static_cast<char**>(calloc(1, sizeof(char*)));
    char* const fields = name == nullptr ? nullptr : strdup(name);
    char* rest = nullptr;
    char* field = fields == nullptr ? nullptr : strtok_r(fields, ";", &rest);
    while (list != nullptr && field != nullptr) {
        const auto used = static_cast<size_t>(*count);
        auto* const grown = static_cast<char**>(realloc(list, (used + 2) * sizeof(char*)));
        if (grown == nullptr) {
            do_free(list);
            list = nullptr;
            break;
        }
        list = grown;
        list[used] = strdup(field);
        list[used + 1] = nullptr;
        ++*count;
        field = strtok_r(nullptr, ";", &rest);
    }
    free(fields);
    return list;
}

void do_free(char** list) {
    if (list == nullptr) return;
    for (char** entry = list; *entry != nullptr; ++entry) free(*entry);
    free(list);
}

bool IntegerArgument::read(const ExternalCall& call, uint32 number) {
    an_extfn_value value;
    if (!call.get_value(number, &value)) return false;
    if (value.data == nullptr) return true;
    int32 bytes = 0;
    std::memcpy(&bytes, value.data, std::min<std::size_t>(value.piece_len, sizeof bytes));
    _value = bytes;
    return true;
}
