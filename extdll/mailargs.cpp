#include "extdll/mailargs.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

// Adds a copy of `field` to the `*count` strings of *list. False without memory.
bool append_field(char*** list, int* count, const char* field) {
    const auto used = static_cast<size_t>(*count);
    auto** const grown = static_cast<char**>(realloc(*list, (used + 2) * sizeof(char*)));
    if (grown == nullptr) return false;
    *list = grown;
    grown[used] = strdup(field);
    grown[used + 1] = nullptr;
    if (grown[used] == nullptr) return false;
    ++*count;
    return true;
}

}  // namespace

char** make_argv(const char* name, int* count) {
    *count = 0;
    auto** list = static_cast<char**>(calloc(1, sizeof(char*)));
    if (list == nullptr || name == nullptr) return list;
    char* const fields = strdup(name);
    bool whole = fields != nullptr;
    char* rest = nullptr;
    char* field = whole ? strtok_r(fields, ";", &rest) : nullptr;
    for (; whole && field != nullptr; field = strtok_r(nullptr, ";", &rest))
        whole = append_field(&list, count, field);
    free(fields);
    if (whole) return list;
    do_free(list);
    return nullptr;
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
