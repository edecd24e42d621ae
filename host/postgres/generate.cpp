// Writes what is made from the table of procedures: `generate sql` the extension's script,
// `generate entries` the module's entry points.

#include <cstdio>
#include <string_view>

#include "host/postgres/declaration.h"

int main(int count, char** words) {
    const std::string_view what = count == 3 ? words[1] : "";
    if (what != "sql" && what != "entries") {
        fputs("use: generate sql|entries FILE\n", stderr);
        return 2;
    }
    const std::string text = what == "sql" ? host::sql_script() : host::entry_points();
    FILE* file = fopen(words[2], "we");
    const bool written = file != nullptr && fputs(text.c_str(), file) >= 0;
    const bool closed = file != nullptr && fclose(file) == 0;
    if (written && closed) return 0;
    perror(words[2]);
    return 1;
}
