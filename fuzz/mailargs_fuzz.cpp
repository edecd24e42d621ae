// Lists of addresses: make_argv() gives the fields between the semicolons, empty ones left out,
// each as it stands.
//
// An input is a list.

#include "extdll/mailargs.h"

#include <cstring>
#include <vector>

#include "fuzz/fuzzed.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = Input(data, size).text();
    std::vector<std::string> fields(1);
    for (const char c : text) {
        if (c != ';') {
            fields.back() += c;
        } else if (!fields.back().empty()) {
            fields.emplace_back();
        }
    }
    if (fields.back().empty()) fields.pop_back();

    int count = -1;
    char** const list = make_argv(text.c_str(), &count);
    check(list != nullptr && count == static_cast<int>(fields.size()));
    for (size_t i = 0; i < fields.size(); ++i) check(fields[i] == list[i]);
    check(list[fields.size()] == nullptr);
    do_free(list);
    return 0;
}
