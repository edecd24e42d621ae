#include "kovcert/builtin/builtinerror.h"

#include "kovcert/builtin/builtinenv.h"
#include "kovcert/qxci/qxciparms.h"

namespace {

/// A list for `count` parameters that has none yet; null when there is no memory.
char** new_list(const BuiltinEnv& env, size_t count) {
    char** const list = static_cast<char**>(env.alloc((count + 1) * sizeof(char*)));
    if (list == nullptr) return nullptr;
    for (size_t i = 0; i <= count; ++i) list[i] = nullptr;
    return list;
}

/// Copies `count` strings. Those behind the first that there is no memory for are left out.
char** copy_list(const BuiltinEnv& env, const char* const* parms, size_t count) {
    char** const list = new_list(env, count);
    if (list == nullptr) return nullptr;
    for (size_t i = 0; i < count; ++i) {
        list[i] = env.strdup(parms[i]);
        if (list[i] == nullptr) break;
    }
    return list;
}

}  // namespace

void _QXCIError_Clear(a_qxci_error* rec) {
    if (rec != nullptr) *rec = a_qxci_error{};
}

void QXCIError_Destroy(QXCIEnvironmentH env, a_qxci_error* rec) {
    if (rec == nullptr || rec->parm_list == nullptr) return;
    const BuiltinEnv& memory = *BuiltinEnv::of(env);
    qxci_free_parms(rec->parm_list, [&memory](void* parm) { memory.free(parm); });
}

void _QXCIError_SetError(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                         uint32_t system_code, const char* parm) {
    if (rec == nullptr) return;
    QXCIError_Destroy(env, rec);
    *rec = {static_cast<uint32_t>(code), system_code, nullptr};
    if (parm != nullptr) rec->parm_list = copy_list(*BuiltinEnv::of(env), &parm, 1);
}

void _QXCIError_SetError(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                         const char* parm) {
    _QXCIError_SetError(rec, env, code, 0, parm);
}

void _QXCIError_SetErrorIfOK(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                             uint32_t system_code, const char* parm) {
    if (rec == nullptr || rec->code != QxciErrOK) return;
    _QXCIError_SetError(rec, env, code, system_code, parm);
}

void _QXCIError_SetErrorIfOK(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                             const char* parm) {
    _QXCIError_SetErrorIfOK(rec, env, code, 0, parm);
}

void _QXCIError_Clone(QXCIEnvironmentH env, a_qxci_error* dst, const a_qxci_error* src) {
    if (dst == nullptr || src == nullptr || dst == src) return;
    QXCIError_Destroy(env, dst);
    *dst = {src->code, src->system_code, nullptr};
    if (src->parm_list == nullptr) return;
    dst->parm_list =
        copy_list(*BuiltinEnv::of(env), src->parm_list, qxci_count_parms(src->parm_list));
}
