// mailcall LIBRARY: calls the mail procedures of a library as a server would, one call for each
// line of standard input, and prints the status of each call on a line of its own ("-" when none is
// set):
//
//     PROCEDURE TAB NUMBER=VALUE TAB NUMBER=VALUE ...
//
// A value is s<text> for a string, with %XX for bytes, or i<number>. Arguments that are not given
// are NULL.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include <dlfcn.h>

#include "extdll/extfn.h"

namespace {

struct Argument {
    std::string bytes;
    a_sql_data_type type;
};

struct Call {
    std::map<uint32_t, Argument> arguments;
    std::string status = "-";
};

std::string unescaped(const std::string& text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            bytes += text[i];
            continue;
        }
        bytes += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
        i += 2;
    }
    return bytes;
}

int16_t get_value(void* handle, uint32_t number, an_extfn_value* value) {
    *value = {};
    Call& call = *static_cast<Call*>(handle);
    const auto found = call.arguments.find(number);
    if (found == call.arguments.end()) return 1;
    const auto length = static_cast<uint32_t>(found->second.bytes.size());
    *value = {found->second.bytes.data(), length, {length}, found->second.type};
    return 1;
}

int16_t get_piece(void*, uint32_t, an_extfn_value*, uint32_t) {
    return 0;
}

int16_t set_value(void* handle, uint32_t, an_extfn_value* value, int16_t) {
    int32_t status = 0;
    std::memcpy(&status, value->data, sizeof status);
    static_cast<Call*>(handle)->status = std::to_string(status);
    return 1;
}

void set_cancel(void*, void*) {}

Call parse(std::istringstream& fields) {
    Call call;
    for (std::string field; std::getline(fields, field, '\t');) {
        const size_t equals = field.find('=');
        const auto number = static_cast<uint32_t>(std::atoi(field.c_str()));
        const std::string value = field.substr(equals + 2);
        if (field[equals + 1] == 's') {
            call.arguments[number] = {unescaped(value), EXTFN_TYPE_CHAR};
            continue;
        }
        const int32_t integer = std::atoi(value.c_str());
        call.arguments[number] = {{reinterpret_cast<const char*>(&integer), sizeof integer},
                                  EXTFN_TYPE_INT32};
    }
    return call;
}

}  // namespace

int main(int, char** arguments) {
    void* const library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream fields(line);
        std::string name;
        std::getline(fields, name, '\t');
        auto* const procedure = reinterpret_cast<an_extfn_proc*>(dlsym(library, name.c_str()));
        if (procedure == nullptr) return 2;
        Call call = parse(fields);
        an_extfn_api api = {get_value, get_piece, set_value, set_cancel};
        procedure(&api, &call);
        std::printf("%s\n", call.status.c_str());
        std::fflush(stdout);
    }
    dlclose(library);
    return 0;
}
