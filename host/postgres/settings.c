#include "host/postgres/settings.h"

#include <limits.h>

#include "miscadmin.h"
#include "utils/builtins.h"
#include "utils/guc.h"
#include "utils/varlena.h"

static char* library = NULL;
static bool worker = true;
static int deadline = 0;
static char* read_paths = NULL;
static char* write_paths = NULL;
static bool allow_plaintext_auth = false;

static bool defining = false; /* the settings, whose values may have been there before */

/* Splits a list of folders, in which a name with a comma or blanks stands in double quotes. `text`
 * is changed, and the names point into it. False for what is no such list. */
static bool split_folders(char* text, List** folders) {
    ListCell* cell;

    if (!SplitDirectoriesString(text, ',', folders)) return false;
    foreach (cell, *folders) /* One that is longer has been cut, and is another folder now. */
        if (!is_absolute_path((const char*)lfirst(cell)) || strlen(lfirst(cell)) >= MAXPGPATH - 1)
            return false;
    return true;
}

/* A value that was there before the module would be replaced by the default, and that means any
 * folder. So it stays, whatever it is, for calls to be refused. */
static bool check_folders(char** value, void** extra, GucSource source) {
    char* text = pstrdup(*value);
    List* folders = NIL;
    const bool accepted = split_folders(text, &folders) || defining;

    list_free_deep(folders);
    pfree(text);
    if (!accepted)
        GUC_check_errdetail("It takes folders with absolute paths, separated by commas.");
    return accepted;
}

static QuorelFolders current_folders(const char* setting, const char* value) {
    QuorelFolders allowed = {setting, NULL, 0};
    List* folders = NIL;
    ListCell* cell;
    const char** names;

    if (!split_folders(pstrdup(value), &folders))
        ereport(ERROR, (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                        errmsg("%s is no list of folders: \"%s\"", setting, value),
                        errhint("It takes folders with absolute paths, separated by commas.")));
    names = palloc(sizeof(char*) * (Size)(list_length(folders) + 1));
    foreach (cell, folders) names[allowed.count++] = lfirst(cell);
    allowed.folders = names;
    return allowed;
}

QuorelSettings* quorel_current_settings(void) {
    QuorelSettings* settings = palloc(sizeof(QuorelSettings));

    settings->library = library;
    settings->in_worker = worker;
    settings->deadline = deadline;
    settings->allow_plaintext_auth = allow_plaintext_auth;
    settings->read_paths = current_folders("quorel.read_paths", read_paths);
    settings->write_paths = current_folders("quorel.write_paths", write_paths);
    settings->scratch = psprintf("%s/base/pgsql_tmp", DataDir);
    settings->connection = MyProcPid;
    return settings;
}

void quorel_define_settings(void) {
    defining = true;
    DefineCustomStringVariable("quorel.library", "File of the procedure library.",
                               "Empty: libquorel_static.so beside the extension's module.",
                               &library, "", PGC_SUSET, 0, NULL, NULL, NULL);
    DefineCustomBoolVariable("quorel.worker", "Runs the procedures in a process of their own.",
                             "Off: in the backend's process, where only commands can be ended.",
                             &worker, true, PGC_SUSET, 0, NULL, NULL, NULL);
    DefineCustomIntVariable("quorel.deadline", "Longest time that a call may take.",
                            "0: as long as it likes.", &deadline, 0, 0, INT_MAX, PGC_SUSET,
                            GUC_UNIT_MS, NULL, NULL, NULL);
    DefineCustomStringVariable("quorel.read_paths", "Folders whose files calls may read.",
                               "Empty: any file that the server may read.", &read_paths, "",
                               PGC_SUSET, GUC_LIST_INPUT, check_folders, NULL, NULL);
    DefineCustomStringVariable("quorel.write_paths", "Folders in which calls may write files.",
                               "Empty: any file that the server may write.", &write_paths, "",
                               PGC_SUSET, GUC_LIST_INPUT, check_folders, NULL, NULL);
    DefineCustomBoolVariable("quorel.allow_plaintext_auth",
                             "Lets callers send passwords over the network in the clear.",
                             "On: where the argument of this name asks for it.",
                             &allow_plaintext_auth, false, PGC_SUSET, 0, NULL, NULL, NULL);
    defining = false;
#if PG_VERSION_NUM >= 150000
    MarkGUCPrefixReserved("quorel");
#else
    EmitWarningsOnPlaceholders("quorel");
#endif
}
