#include "host/postgres/callers.h"

#include "access/parallel.h"
#include "miscadmin.h"
#include "nodes/primnodes.h"
#include "postmaster/autovacuum.h"
#include "utils/guc.h"

static bool is_autovacuum(void) {
#if PG_VERSION_NUM >= 170000
    return AmAutoVacuumWorkerProcess();
#else
    return IsAutoVacuumWorkerProcess();
#endif
}

/* An expression that the catalogs keep, such as a view's or a check's, comes back from them without
 * its place in a statement. It calls with the rights of whoever uses the view, and whoever wrote it
 * need not have them. */
static bool is_stored(const FmgrInfo* function) {
    const Node* expression = function != NULL ? function->fn_expr : NULL;

    if (expression == NULL) return false;
    /* A procedure can be an operator's function, but none of those that give a boolean. */
    if (IsA(expression, OpExpr)) return ((const OpExpr*)expression)->location < 0;
    return IsA(expression, FuncExpr) && ((const FuncExpr*)expression)->location < 0;
}

void quorel_refuse_strange_callers(FunctionCallInfo fcinfo, const char* procedure) {
    const char* why = NULL;

    if (is_stored(fcinfo->flinfo))
        why = "in an expression of the schema";
    else if (IsParallelWorker())
        why = "in a parallel worker";
    else if (InSecurityRestrictedOperation())
        why = "within a security-restricted operation";
    else if (is_autovacuum())
        why = "by autovacuum";
    else if (application_name != NULL && strcmp(application_name, "pg_dump") == 0)
        why = "by pg_dump";
    if (why != NULL)
        ereport(ERROR,
                (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                 errmsg("cannot call %s %s", procedure, why),
                 errhint("Call it in a statement, or in the text of a function, not in what the "
                         "schema computes.")));
}
