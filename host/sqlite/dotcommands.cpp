#include "host/sqlite/dotcommands.h"

#include <cstdio>
#include <optional>

#include "host/mailguards.h"
#include "host/nearestname.h"
#include "host/sqlite/display.h"
#include "host/sqlite/procedurehelp.h"
#include "host/text.h"

namespace host {

namespace {

constexpr const char* help_text =
    R"(A statement ends with a semicolon and may take several lines. Beside SQL:

  CALL procedure(value, …);               calls a procedure of the library
  CALL procedure(name => expression, …);  the same with named parameters

A value is any SQL expression. OUT parameters are not given; they are shown.
In SQL the procedures are functions too: SELECT xp_cmdshell('true');

  .procedures      the procedures and their parameters
  .help PROCEDURE  one of them
  .print TEXT      prints the text, as a heading in a script
  .quit            ends the shell, as Ctrl-D does
  .raw on|off      leaves the line ends of messages alone, or makes them CRLF (off)

Ctrl-C cancels what runs, or voids the input. Tab completes names. An entry that
begins with a space is not kept in the history, nor one that gives a password.
)";

DotResult help(std::string_view name, std::string& error) {
    if (name.empty()) {
        fputs(help_text, stdout);
        return DotResult::Done;
    }
    if (const Procedure* procedure = find_procedure(name)) {
        fputs(describe_procedure(*procedure).c_str(), stdout);
        return DotResult::Done;
    }
    error = unknown_procedure(name) + " (.procedures lists all)";
    return DotResult::Wrong;
}

DotResult list_procedures(std::string_view /*rest*/, std::string& /*error*/) {
    bool first = true;
    for (const Procedure& procedure : procedures()) {
        if (!first) putchar('\n');
        first = false;
        fputs(describe_procedure(procedure).c_str(), stdout);
    }
    return DotResult::Done;
}

DotResult print(std::string_view text, std::string& /*error*/) {
    puts(display_text(text).c_str());
    return DotResult::Done;
}

DotResult set_raw(std::string_view setting, std::string& error) {
    const std::optional<bool> raw = parse_switch(setting);
    if (!raw) {
        error = ".raw takes on or off";
        return DotResult::Wrong;
    }
    send_raw_by_default(*raw);
    return DotResult::Done;
}

DotResult quit(std::string_view /*rest*/, std::string& /*error*/) {
    return DotResult::Quit;
}

struct Command {
    std::string_view name;
    DotResult (*run)(std::string_view rest, std::string& error);
};

constexpr Command commands[] = {
    {".help", help}, {".print", print}, {".procedures", list_procedures},
    {".quit", quit}, {".raw", set_raw},
};

std::string_view trim(std::string_view text) {
    constexpr std::string_view blank = " \t\r\n;";
    const std::size_t begin = text.find_first_not_of(blank);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(blank) - begin + 1);
}

}  // namespace

DotResult run_dot_command(std::string_view text, std::string& error) {
    const std::string_view name = text.substr(0, text.find_first_of(" \t\r\n;"));
    for (const Command& command : commands)
        if (same_name(name, command.name))
            return command.run(trim(text.substr(name.size())), error);
    error = "there is no command " + display_text(name) + "; .help lists them";
    return DotResult::Wrong;
}

std::vector<std::string> dot_command_names() {
    std::vector<std::string> names;
    for (const Command& command : commands) names.emplace_back(command.name);
    return names;
}

}  // namespace host
