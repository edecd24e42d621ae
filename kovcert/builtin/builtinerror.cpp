#include "kovcert/builtin/builtinerror.h"

#include "kovcert/qxci/kit/environment.h"

namespace {

const qxci::Memory& memory_of(QXCIEnvironmentH env) {
    return qxci::object_of<qxci::Environment>(env).memory();
}

}  // namespace

void _QXCIError_Clear(a_qxci_error* rec) {
    if (rec != nullptr) *rec = a_qxci_error{};
}

void QXCIError_Destroy(QXCIEnvironmentH env, a_qxci_error* rec) {
    if (rec == nullptr || rec->parm_list == nullptr) return;
    qxci::free_error(memory_of(env), rec);
}

void _QXCIError_SetError(a_qxci_error* rec, QXCIEnvironmentH env, a_dbqxci_error code,
                         uint32_t system_code, const char* parm) {
    if (rec == nullptr) return;
    QXCIError_Destroy(env, rec);
    *rec = {static_cast<uint32_t>(code), system_code, nullptr};
    if (parm != nullptr) rec->parm_list = qxci::make_parms(memory_of(env), parm);
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
    const size_t count = qxci::count_parms(src->parm_list);
    dst->parm_list = qxci::make_parms(memory_of(env), count,
                                      [parm = src->parm_list]() mutable { return *parm++; });
}
