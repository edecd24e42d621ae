#include "providers/stub/stubobject.h"

#include <cstdlib>
#include <cstring>

#include "providers/stub/stubtext.h"

char* StubMemory::copy_text(const char* text, size_t len) const {
    char* const copy = static_cast<char*>(alloc(len + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text, len);
    copy[len] = '\0';
    return copy;
}

void StubMemory::log(const char* text) const {
    if (_callbacks->log_cb != nullptr) _callbacks->log_cb(_context, 0, text, nullptr, 0);
}

namespace {

/// A list of the parts between the commas of `text`.
char** split_parms(const StubMemory& memory, const char* text) {
    size_t count = 1;
    for (const char* c = text; *c != '\0'; ++c) count += *c == ',' ? 1u : 0u;
    char** const list = static_cast<char**>(memory.alloc((count + 1) * sizeof(char*)));
    if (list == nullptr) return nullptr;
    std::memset(list, 0, (count + 1) * sizeof(char*));
    for (size_t i = 0; i < count; ++i) {
        const size_t len = std::strcspn(text, ",");
        list[i] = memory.copy_text(text, len);
        if (list[i] == nullptr) break;
        text += len + 1;
    }
    return list;
}

/// One parameter, commas and all.
char** single_parm(const StubMemory& memory, const char* text) {
    char** const list = static_cast<char**>(memory.alloc(2 * sizeof(char*)));
    if (list == nullptr) return nullptr;
    list[0] = memory.copy_text(text, std::strlen(text));
    list[1] = nullptr;
    return list;
}

}  // namespace

void stub_set_error(const StubMemory& memory, a_qxci_error* error, a_dbqxci_error code,
                    uint32_t system_code, const char* parm) {
    if (error == nullptr) return;
    *error = {static_cast<uint32_t>(code), system_code, nullptr};
    if (parm != nullptr) error->parm_list = single_parm(memory, parm);
}

void stub_set_error(const StubMemory& memory, a_qxci_error* error, const a_stub_step& step) {
    if (error == nullptr) return;
    char* rest;
    *error = {static_cast<uint32_t>(std::strtoul(step.text, &rest, 10)), 0, nullptr};
    if (*rest != ',') return;
    error->system_code = static_cast<uint32_t>(std::strtoul(rest + 1, &rest, 10));
    if (*rest == ',') error->parm_list = split_parms(memory, rest + 1);
}

void stub_free_parms(const StubMemory& memory, const a_qxci_error* error) {
    if (error == nullptr || error->parm_list == nullptr) return;
    for (char** parm = error->parm_list; *parm != nullptr; ++parm) memory.free(*parm);
    memory.free(error->parm_list);
}

StubObject::~StubObject() {
    stub_free_parms(_env, &_error);
    _env.free(_own_script);
}

void StubObject::begin_operation() {
    stub_free_parms(_env, &_error);
    _error = {};
}

a_qxci_result StubObject::fail(a_dbqxci_error code, const char* parm, uint32_t system_code) {
    begin_operation();
    stub_set_error(_env, &_error, code, system_code, parm);
    return QXCI_ERROR;
}

a_qxci_result StubObject::fail(const a_stub_step& step) {
    begin_operation();
    stub_set_error(_env, &_error, step);
    return QXCI_ERROR;
}

a_qxci_result StubObject::play(StubOperation operation) {
    const a_stub_step step = next_step(operation);
    return step.outcome == StubOutcome::fail ? fail(step) : QXCI_OK;
}

a_qxci_result StubObject::take_options(a_qxci_user_option* options, const char* const* known) {
    const char* const unknown = stub_find_unknown_option(options, known);
    if (unknown != nullptr) return fail(QxciErrBadOption, unknown);
    const char* const script = stub_find_option(options, "stub_script");
    if (script == nullptr) return QXCI_OK;
    if (!stub_script_is_good(script)) return fail(QxciErrOptionError, "stub_script");
    char* const copy = _env.copy_text(script, std::strlen(script));
    if (copy == nullptr) return fail(QxciErrNoMemory);
    _env.free(_own_script);
    _own_script = copy;
    _play = StubPlay(copy);
    return QXCI_OK;
}

a_qxci_result StubObject::check_room(const void* out, size_t* out_len, size_t needed) {
    if (out_len == nullptr) return fail(QxciErrOptionError, "out_len");
    const bool fits = out != nullptr && *out_len >= needed;
    *out_len = needed;
    return fits ? QXCI_OK : fail(QxciErrOptionError, "out_len");
}

void StubObject::give_error(a_qxci_error* to) {
    if (to == nullptr) return;
    *to = _error;
    _error = {};
}
