#include "providers/stub/stubobject.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

/// The error of a step that fails, whose text is "code,system,parm,...".
a_qxci_error error_of(const a_stub_step& step, const qxci::Memory& memory) {
    char* rest;
    a_qxci_error error = {static_cast<uint32_t>(std::strtoul(step.text, &rest, 10)), 0, nullptr};
    if (*rest != ',') return error;
    error.system_code = static_cast<uint32_t>(std::strtoul(rest + 1, &rest, 10));
    if (*rest != ',') return error;
    const auto count = static_cast<size_t>(std::count(rest, rest + std::strlen(rest), ','));
    error.parm_list = qxci::make_parms(memory, count, [rest]() mutable {
        const char* const parm = rest + 1;
        const size_t len = std::strcspn(parm, ",");
        rest += 1 + len;
        return std::string_view(parm, len);
    });
    return error;
}

/// A copy of the option's value, which may be null; false with the reason in `error`.
bool copy_script(const char* script, char*& copy, qxci::ErrorRecord& error) {
    if (script == nullptr) return true;
    if (!stub_script_is_good(script)) return error.fail(QxciErrOptionError, "stub_script");
    copy = error.memory().copy(script);
    return copy != nullptr || error.fail(QxciErrNoMemory);
}

}  // namespace

bool StubEnv::init(a_qxci_user_option* options, const char*, qxci::ErrorRecord& error) {
    if (!copy_script(qxci::find_option(options, "stub_script"), _script, error)) return false;
    const a_stub_step step = StubPlay(_script).next(StubOperation::env);
    if (step.outcome == StubOutcome::fail) return error.take(error_of(step, memory()));
    memory().log(0, "QXCI-STUB: nothing that goes through this provider is protected");
    return true;
}

a_qxci_result StubObject::fail(const a_stub_step& step) {
    error().take(error_of(step, memory()));
    return QXCI_ERROR;
}

a_qxci_result StubObject::play(StubOperation operation) {
    const a_stub_step step = next_step(operation);
    return step.outcome == StubOutcome::fail ? fail(step) : QXCI_OK;
}

a_qxci_result StubObject::prepare(StubOperation creation, a_qxci_user_option* options,
                                  qxci::an_option_list known) {
    return take_options(options, known) == QXCI_OK ? play(creation) : QXCI_ERROR;
}

a_qxci_result StubObject::take_options(a_qxci_user_option* options, qxci::an_option_list known) {
    const char* const unknown = qxci::find_unknown_option(options, known);
    if (unknown != nullptr) return fail(QxciErrBadOption, unknown);
    char* copy = nullptr;
    if (!copy_script(qxci::find_option(options, "stub_script"), copy, error())) return QXCI_ERROR;
    if (copy == nullptr) return QXCI_OK;
    memory().free(_own_script);
    _own_script = copy;
    _play = StubPlay(copy);
    return QXCI_OK;
}
