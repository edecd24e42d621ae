#include "host/sqlite/shell/dotcommands.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>

#include "host/displaytext.h"
#include "host/mailguards.h"
#include "host/nearestname.h"
#include "host/seconds.h"
#include "host/sqlite/shell/procedurehelp.h"
#include "host/sqlite/shell/schema.h"
#include "host/sqlite/shell/script.h"
#include "host/text.h"

namespace host {

namespace {

constexpr const char* statements_help =
    R"(A statement ends with a semicolon and may take several lines. Beside SQL:

  CALL procedure(value, …);               calls a procedure of the library
  CALL procedure(name => expression, …);  the same with named parameters

A value is any SQL expression. OUT parameters are not given; they are shown.
In SQL the procedures are functions too: SELECT xp_cmdshell('true');

)";

constexpr const char* values_help = R"(
In a table a backslash begins an escape, so \n is a line end and \\ a backslash; NULL
is SQL's own, the text is \x4eULL. Csv has nothing for NULL, and "" for no text. A
BLOB is x'00ff' in every mode. At a terminal long values are cut.
)";

constexpr const char* keys_help = R"(
Ctrl-C cancels what runs, or voids the input. Tab completes names. An entry that
begins with a space is not kept in the history, nor one that gives a password.
)";

DotResult done_if(bool done) {
    return done ? DotResult::Done : DotResult::Wrong;
}

bool read_switch(std::string_view text, bool& value, std::string& error) {
    const std::optional<bool> parsed = parse_switch(text);
    if (parsed) value = *parsed;
    if (!parsed) error = "say on or off";
    return parsed.has_value();
}

DotResult bail(Session& session, std::string_view rest, std::string& error) {
    return done_if(read_switch(rest, session.bail, error));
}

DotResult deadline(Session& session, std::string_view rest, std::string& error) {
    const auto wanted = parse_deadline(same_name(rest, "off") ? "0" : rest);
    if (!wanted)
        error = "say how many seconds, or off";
    else if (!session.engine->ends_calls())
        error = "calls in this process cannot be ended; start quorelsql without --in-process";
    else
        session.engine->set_deadline(*wanted);
    return done_if(error.empty());
}

DotResult headers(Session& session, std::string_view rest, std::string& error) {
    return done_if(read_switch(rest, session.style.headings, error));
}

DotResult mode(Session& session, std::string_view rest, std::string& error) {
    if (const std::optional<Mode> found = find_mode(rest)) {
        session.style.mode = *found;
        return DotResult::Done;
    }
    for (const std::string_view name : mode_names())
        error.append(error.empty() ? "the modes are " : ", ").append(name);
    return DotResult::Wrong;
}

DotResult list_procedures(Session& /*session*/, std::string_view /*rest*/, std::string& /*error*/) {
    bool first = true;
    for (const Procedure& procedure : procedures()) {
        if (!first) putchar('\n');
        first = false;
        fputs(describe_procedure(procedure).c_str(), stdout);
    }
    return DotResult::Done;
}

DotResult print(Session& /*session*/, std::string_view text, std::string& /*error*/) {
    puts(display_text(text).c_str());
    return DotResult::Done;
}

DotResult quit(Session& /*session*/, std::string_view /*rest*/, std::string& /*error*/) {
    return DotResult::Quit;
}

DotResult set_raw(Session& /*session*/, std::string_view rest, std::string& error) {
    bool raw = false;
    if (!read_switch(rest, raw, error)) return DotResult::Wrong;
    send_raw_by_default(raw);
    return DotResult::Done;
}

DotResult read(Session& session, std::string_view rest, std::string& error) {
    if (rest.empty()) {
        error = "say which file";
        return DotResult::Wrong;
    }
    switch (run_script_file(session, std::string(rest), error)) {
    case Ran::Done:
        return DotResult::Done;
    case Ran::Quit:
        return DotResult::Quit;
    default:
        return DotResult::Wrong;
    }
}

DotResult schema(Session& session, std::string_view rest, std::string& error) {
    return done_if(print_schema(session, rest, error));
}

DotResult tables(Session& session, std::string_view rest, std::string& error) {
    return done_if(print_tables(session, rest, error));
}

DotResult help(Session& session, std::string_view name, std::string& error);

struct Command {
    std::string_view name;
    std::string_view arguments;
    std::string_view purpose;
    DotResult (*run)(Session& session, std::string_view rest, std::string& error);
};

constexpr Command commands[] = {
    {".bail", "on|off", "whether a script ends with its first error (off at a terminal)", bail},
    {".deadline", "SECONDS", "ends a call that takes longer; 0 or off: none", deadline},
    {".headers", "on|off", "the heading of a table, with its count, and of csv", headers},
    {".help", "[PROCEDURE]", "this text, or one of the procedures", help},
    {".mode", "MODE", "results as table, line (one value a line), csv or json", mode},
    {".print", "TEXT", "prints the text, as a heading in a script", print},
    {".procedures", "", "the procedures and their parameters", list_procedures},
    {".quit", "", "ends the shell, as Ctrl-D does", quit},
    {".raw", "on|off", "whether the line ends of messages are left alone, or become CRLF", set_raw},
    {".read", "FILE", "runs the statements in a file", read},
    {".schema", "[PATTERN]", "the statements that made the tables (LIKE the pattern)", schema},
    {".tables", "[PATTERN]", "the tables and views", tables},
};

// What people of other shells type.
struct Alias {
    std::string_view line;
    std::string_view command;
};

constexpr Alias aliases[] = {
    {"quit", ".quit"}, {"exit", ".quit"}, {".exit", ".quit"}, {"\\q", ".quit"}, {"help", ".help"},
};

std::string_view trim(std::string_view text) {
    constexpr std::string_view blank = " \t\r\n;";
    const std::size_t begin = text.find_first_not_of(blank);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(blank) - begin + 1);
}

const Alias* find_alias(std::string_view text) {
    const auto* found =
        std::find_if(std::begin(aliases), std::end(aliases),
                     [&](const Alias& alias) { return same_name(alias.line, trim(text)); });
    return found == std::end(aliases) ? nullptr : found;
}

DotResult help(Session& session, std::string_view name, std::string& error) {
    if (name.empty()) {
        fputs(statements_help, stdout);
        for (const Command& command : commands) {
            const std::string use =
                std::string(command.name) + " " + std::string(command.arguments);
            printf("  %-20s %s\n", use.c_str(), command.purpose.data());
        }
        fputs(values_help, stdout);
        if (session.interactive) fputs(keys_help, stdout);
        return DotResult::Done;
    }
    if (const Procedure* procedure = find_procedure(name)) {
        fputs(describe_procedure(*procedure).c_str(), stdout);
        return DotResult::Done;
    }
    error = unknown_procedure(name) + " (.procedures lists all)";
    return DotResult::Wrong;
}

}  // namespace

bool is_dot_command(std::string_view text) {
    return text.starts_with('.') || text.starts_with('\\') || find_alias(text) != nullptr;
}

DotResult run_dot_command(Session& session, std::string_view text, std::string& error) {
    if (const Alias* alias = find_alias(text)) text = alias->command;
    const std::string_view name = text.substr(0, text.find_first_of(" \t\r\n;"));
    for (const Command& command : commands)
        if (same_name(name, command.name))
            return command.run(session, trim(text.substr(name.size())), error);
    error = "there is no command " + std::string(name) + "; .help lists them";
    return DotResult::Wrong;
}

std::vector<std::string> dot_command_names() {
    std::vector<std::string> names;
    for (const Command& command : commands) names.emplace_back(command.name);
    return names;
}

}  // namespace host
