// torture LIBRARY [PROCEDURE TRANSPORT [KIND NUMBER]]: every allocation and every system call of
// each procedure fails in turn, each time in a process of its own. After each fault the procedures
// work, nothing is left behind, and no success was told of what did not happen. With more arguments
// only the faults that a failure was printed with.

#include <climits>
#include <csignal>
#include <cstdio>
#include <optional>
#include <set>

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sanitizer/common_interface_defs.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include "tests/e2e/faults.h"
#include "tests/extdll/fakehost.h"
#include "tests/extdll/tlsserver.h"
#include "tests/scratch.h"

extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "exitcode=99:detect_leaks=0";  // leaks are looked for here
}

namespace {

constexpr int at_once = 4;         // processes
constexpr unsigned patience = 10;  // seconds for a call, which would wait an hour for a reply

const char* library_path;
void* library;
const ScratchFolder* scratch;
const std::string contents = pattern(70000);  // of files

bool load() {
    library = dlopen(library_path, RTLD_NOW | RTLD_LOCAL);
    return library != nullptr;
}

/// A host, a mail server, and the library, one of whose procedures is tortured the first time.
class World {
  public:
    World(const char* victim, bool in_TLS) : secure(in_TLS), _victim(victim) {
        sigset_t alarms;  // which the server's thread leaves to this one
        sigemptyset(&alarms);
        sigaddset(&alarms, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &alarms, nullptr);
        peer.emplace();
        if (secure) peer->secure = stub_servers();
        pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
    }

    /// Does something in which `name` may meet its fault.
    template <class Action>
    void torture(const std::string& name, Action action) {
        const bool now = name == _victim;
        if (now) _victim = "";
        alarm(patience);
        faults::counting(now);
        action();
        faults::counting(false);
        alarm(0);
    }

    std::vector<SetCall>& call(const char* name) {
        torture(name, [&] { host.call(procedure(name)); });
        return host.calls;
    }

    std::string status(const char* name) {
        int32 status = -1;
        torture(name, [&] { status = host.status_of(procedure(name)); });
        return status != -1 ? std::to_string(status) : "no status";
    }

    // Mail in clear text has the default session.
    void give_session(uint32 number) {
        host.give_int(number, secure ? std::optional(7) : std::nullopt);
    }

    FakeHost host;
    std::optional<SMTPPeer> peer;
    const bool secure;
    size_t mails = 0;  // that were sent with success

  private:
    static an_extfn_proc* procedure(const char* name) {
        return reinterpret_cast<an_extfn_proc*>(dlsym(library, name));
    }

    std::string _victim;
};

// What is done with the procedures, and what came of it. Texts are too long to be held without an
// allocation.

std::string long_name(const std::string& file) {
    return std::string(300, '/') + scratch->file(file);
}

std::string read_file(World& world) {
    std::string read;
    for (const SetCall& set : world.host.give(1, long_name("contents")),
         world.call("xp_read_file")) {
        if (!set.append) read.clear();
        read += set.bytes.value_or("NULL");
    }
    return read == contents ? "whole" : read == "NULL" ? read : "not whole";
}

std::string write_file(World& world) {
    const std::string file = long_name("written" + std::to_string(getpid()));
    std::ofstream(file) << contents << contents;
    world.host.give(1, file).give(2, contents);
    const std::string status = world.status("xp_write_file");
    return status != "0" || bytes_of(file) == contents ? status : "0, but not written";
}

std::string format(World& world) {
    world.host.give(2, "%.3s" + std::string(300, ' '))
        .give(3, std::string(300, 'b'))
        .give(4, std::nullopt);
    return world.call("xp_sprintf").at(0).bytes.value_or("NULL").substr(0, 4);
}

std::string scan(World& world) {
    world.host.give(1, "12 abc" + std::string(300, ' ')).give(2, "%s %s" + std::string(300, ' '));
    world.host.highest_out = 4;
    std::string values;
    for (const SetCall& set : world.call("xp_scanf")) values += set.bytes.value_or("NULL") + " ";
    return values;
}

std::string run_command(World& world) {
    // A file of its own: the command of a call that failed to wait for it may run still.
    static int runs = 0;
    const std::string file =
        long_name("run" + std::to_string(getpid()) + "." + std::to_string(++runs));
    const pid_t parent = getpid();
    std::ofstream(file) << "";
    world.host.give(1, "echo ran >" + file + "; exit 3");
    // A child that could not become the shell comes back here.
    world.host.on_set = [&] {
        if (getpid() != parent) _exit(world.host.incoming == status_call(1) ? 77 : 78);
    };
    const std::string status = world.status("xp_cmdshell");
    world.host.on_set = nullptr;
    return status != "3" || bytes_of(file) == "ran\n" ? status : "3, but not run";
}

std::string old_mail(World& world) {
    return std::to_string(world.call("xp_startmail").size() + world.call("xp_stopmail").size());
}

std::string mail(World& world) {
    FakeHost& host = world.host;
    host.give(1, "ann@a.test").give(2, "127.0.0.1").give(5, std::string(300, 'A'));
    host.give(6, "user").give(7, "secret");
    host.give_int(3, world.peer->port());
    host.give_int(4, 3600);
    for (uint32 number = 8; number <= 11; ++number)
        host.give(number, world.secure ? std::optional("text") : std::nullopt);
    world.give_session(12);
    const std::string started = world.status("xp_startsmtp");

    for (uint32 number = 1; number <= 19; ++number) host.give(number, std::nullopt);
    host.give(1, "bob@b.test;eve@e.test", EXTFN_TYPE_CHAR).give(2, "H\xc3\xa9", EXTFN_TYPE_CHAR);
    host.give(3, "cc@c.test", EXTFN_TYPE_CHAR).give(4, "bcc@c.test", EXTFN_TYPE_CHAR);
    host.give(6, "text\r\n.dot\r\n" + std::string(300, '.'), EXTFN_TYPE_LONGCHAR);
    host.give(10, long_name("contents"), EXTFN_TYPE_CHAR);
    world.give_session(20);
    const std::string sent = world.status("xp_sendmail");
    world.mails += sent == "0";

    world.give_session(1);
    return started + " " + sent + " " + world.status("xp_stopsmtp");
}

std::string load_and_mail(World& world) {
    dlclose(library);
    world.torture("load", [] { library = dlmopen(LM_ID_BASE, library_path, RTLD_NOW); });
    const std::string loaded = library != nullptr || !load() ? "" : "not loaded, ";
    return loaded + mail(world);
}

const struct Case {
    const char* procedure;
    const char* transport;
    std::string (*use)(World&);
    const char* good;
    const char* failures;  // what may come of a fault instead, each after a "|"
    bool in_child = false;
} cases[] = {
    {"xp_read_file", "-", read_file, "whole", "|NULL"},
    {"xp_write_file", "-", write_file, "0", "|1"},
    {"xp_sprintf", "-", format, "bbb ", "|NULL"},
    {"xp_scanf", "-", scan, "12 abc ", "||NULL NULL "},
    {"xp_cmdshell", "-", run_command, "3", "|1|2"},
    {"xp_cmdshell", "child", run_command, "3", "|1|2|77", true},
    {"xp_startmail", "-", old_mail, "0", ""},
    {"xp_stopmail", "-", old_mail, "0", ""},
    {"load", "clear", load_and_mail, "0 0 0", "|not loaded, 0 0 0|15 25 0"},
    {"xp_startsmtp", "clear", mail, "0 0 0", "|15 25 0|100 25 0|102 25 0|104 25 0"},
    {"xp_sendmail", "clear", mail, "0 0 0", "|0 12 0|0 15 0|0 104 0"},
    {"xp_stopsmtp", "clear", mail, "0 0 0", ""},
    {"xp_startsmtp", "stub", mail, "0 0 0", "|15 5 3|15 25 0|100 25 0|104 25 0|105 25 0"},
    {"xp_sendmail", "stub", mail, "0 0 0", "|0 12 0|0 15 0|0 104 0"},
    {"xp_stopsmtp", "stub", mail, "0 0 0", ""},
};

/// What a procedure does not look at or repeat, by design, and what comes of it.
const std::set<std::string> by_design = {
    "xp_write_file write: 0, but not written",   "xp_write_file ftruncate64: 0, but not written",
    "xp_write_file lseek64: 0, but not written", "xp_cmdshell waitpid: 2",
    "xp_cmdshell waitpid: a child is left",      "xp_sendmail read: a mail is not whole",
};

/// Where in the library that is, call by call.
std::string described(const faults::Trace& place) {
    Dl_info found = {};
    dladdr(dlsym(library, "xp_sendmail"), &found);
    std::string text;
    for (const ptrdiff_t offset : place) {
        if (offset == 0) break;
        char line[300];
        void* const call = static_cast<char*>(found.dli_fbase) + offset - 1;
        __sanitizer_symbolize_pc(call, "%f %S", line, sizeof line);
        text += std::string("\n        ") + line;
    }
    return text;
}

/// One process: a fault, and what must hold after it. The one without a fault shows what is usual.
class Run {
  public:
    Run(const Case& c, faults::Report* report) : _case(c), _report(*report) {}

    void run() {
        faults::plan(&_report, library_path);
        const long threads = entries("/proc/self/task");
        const long descriptors = entries("/proc/self/fd");
        use();
        if (entries("/proc/self/task") != threads) found("a thread is left");
        if (entries("/proc/self/fd") != descriptors) found("a descriptor is left");
        if (waitpid(-1, nullptr, WNOHANG) != -1) found("a child is left");
        look_through_memory();
        std::string all;
        for (const std::string& finding : _findings) all += "\n    " + finding;
        _report.findings[all.copy(_report.findings, sizeof _report.findings - 1)] = '\0';
    }

  private:
    void found(const std::string& finding) {
        const std::string call = _report.call != nullptr ? _report.call : "-";
        if (!by_design.contains(std::string(_case.procedure) + " " + call + ": " + finding))
            _findings.insert(finding);
    }

    bool may_be(const std::string& failure) const {
        const std::string all = std::string(_case.failures) + "|";
        return all.find("|" + failure + "|") != std::string::npos;
    }

    void use() {
        World world(_case.procedure, _case.transport == std::string("stub"));
        const std::string outcome = _case.use(world);
        const bool failed = _report.call != nullptr && _report.kind == faults::error;
        if (outcome != _case.good && !(failed && may_be(outcome))) found(outcome);
        const std::string again = _case.use(world);
        if (again != _case.good) found("again " + again);
        const std::string mailed = mail(world);
        if (mailed != "0 0 0") found("mail afterwards " + mailed);
        look_through_mail(world.peer->finish(), world.mails);
        dlclose(library);
        load();
    }

    // Every message that the server took, from its envelope to its dot; but for its time.
    void look_through_mail(const std::vector<std::string>& received, size_t sent) {
        const std::string mark = "==_EMAIL_MIME_";
        size_t whole = 0;
        for (const std::string& all : received) {
            for (size_t end = 0; (end = all.find("\r\n.\r\n", end)) != all.npos; ++end) {
                const size_t start = all.rfind("MAIL FROM", end);
                std::string message = all.substr(start == all.npos ? 0 : start, end - start);
                for (size_t at = 0; (at = message.find(mark, at)) != all.npos; ++at)
                    message.replace(at + mark.size(), 16, "time");
                if (_report.number == 0) std::ofstream(scratch->file("message")) << message;
                whole += message == bytes_of(scratch->file("message"));
                if (message != bytes_of(scratch->file("message"))) found("a mail is not whole");
            }
        }
        if (whole < sent) found("a mail is not whole");
    }

    // A block that stays is a leak, unless one stays that was taken in the same place without a
    // fault.
    void look_through_memory() {
        std::multiset<std::string> usual;
        std::ifstream in(scratch->file("memory"));
        for (std::string line; std::getline(in, line);) usual.insert(line);
        std::ofstream out;
        if (_report.number == 0) out.open(scratch->file("memory"));
        for (const auto& [block, taken] : faults::taken()) {
            std::string line;
            for (const ptrdiff_t call : taken.place) line += std::to_string(call) + " ";
            out << line << "\n";
            if (_report.number == 0) continue;
            const auto known = usual.find(line);
            if (known == usual.end()) {
                found("memory is left" + described(taken.place));
            } else {
                usual.erase(known);
            }
        }
    }

    const Case& _case;
    faults::Report& _report;
    std::set<std::string> _findings;
};

void hang(int) {
    std::fprintf(stderr, "hangs\n");
    __sanitizer_print_stack_trace();
    _exit(98);
}

/// The process of a fault, and what it said.
struct Process {
    pid_t id;
    std::string output;
};

Process start(const Case& c, faults::Report* report, int slot) {
    Process process = {fork(), scratch->file("output" + std::to_string(slot))};
    if (process.id != 0) return process;
    const int output = open(process.output.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close(output);
    signal(SIGALRM, hang);
    Run(c, report).run();
    _exit(0);
}

struct Count {
    int faults = 0;
    int failures = 0;
};

/// Faults `number` to `last`, as far as there are such calls. Prints those that fail, with the
/// arguments that repeat them.
Count torture(const Case& c, faults::Report* reports, faults::Kind kind, int number, int last) {
    Count count;
    for (bool reached = true; reached && number <= last; number += at_once) {
        std::vector<Process> processes;
        for (int i = 0; i < at_once && number + i <= last; ++i) {
            reports[i] = {kind, number + i, c.in_child, 0, nullptr, {}, ""};
            processes.push_back(start(c, &reports[i], i));
        }
        for (size_t i = 0; i < processes.size(); ++i) {
            const faults::Report& report = reports[i];
            int status = 0;
            waitpid(processes[i].id, &status, 0);
            std::string findings = report.findings;
            if (status != 0) findings = "\n    died:\n" + bytes_of(processes[i].output);
            reached = report.call != nullptr;
            count.faults += reached;
            if (findings.empty()) continue;
            ++count.failures;
            std::printf("%s %s %s %d, %s:%s\n    called from%s\n", c.procedure, c.transport,
                        faults::kind_names[kind], report.number, reached ? report.call : "none",
                        findings.c_str(), described(report.place).c_str());
        }
    }
    return count;
}

}  // namespace

int main(int count, char** arguments) {
    const std::vector<std::string> wanted(arguments + 2, arguments + count);
    const auto wants = [&](size_t i, const std::string& what) {
        return wanted.size() <= i || wanted[i] == what;
    };
    const int only = wanted.size() > 3 ? std::atoi(wanted[3].c_str()) : 0;
    static const ScratchFolder folder;
    scratch = &folder;
    std::ofstream(folder.file("contents")) << contents;
    setenv("QX_USE_QXCI_STUB", "1", 1);
    library_path = arguments[1];
    if (!load()) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    void* first[1];
    backtrace(first, 1);  // which loads what it needs
    auto* const reports = static_cast<faults::Report*>(
        mmap(nullptr, sizeof(faults::Report) * at_once, PROT_READ | PROT_WRITE,
             MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int failures = 0;
    for (const Case& c : cases) {
        if (!wants(0, c.procedure) || !wants(1, c.transport)) continue;
        failures += torture(c, reports, faults::error, 0, 0).failures;
        std::string line;
        for (const faults::Kind kind : faults::kinds) {
            if (!wants(2, faults::kind_names[kind])) continue;
            const Count done =
                torture(c, reports, kind, std::max(only, 1), only != 0 ? only : INT_MAX);
            failures += done.failures;
            line += " " + std::to_string(done.faults) + " " + faults::kind_names[kind];
        }
        std::printf("%s %s:%s\n", c.procedure, c.transport, line.c_str());
    }
    std::printf("%d failed\n", failures);
    return failures == 0 ? 0 : 1;
}
