#include "host/xpcall/report.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/displaytext.h"

namespace host {

namespace {

int report_nothing(const Procedure& procedure, const char* nothing) {
    fprintf(stderr, "xpcall: %s gave %s: %s\n", procedure.name.data(), nothing,
            procedure.otherwise.data());
    return EXIT_FAILED;
}

int report_bytes(const CallFrame& frame, const Procedure& procedure, const Output& output) {
    // A prompt begins on a line of its own; what goes into a file stays as it is.
    if (output.written() > 0 && output.last() != '\n' && isatty(STDOUT_FILENO) != 0)
        fputc('\n', stderr);
    if (output.failure() != 0) {
        complain(std::string("cannot write to standard output: ") + strerror(output.failure()));
        return EXIT_FAILED;
    }
    if (frame.result() && frame.result()->is_null()) return report_nothing(procedure, "NULL");
    fprintf(stderr, "%llu bytes\n", static_cast<unsigned long long>(output.written()));
    return EXIT_SUCCEEDED;
}

int report_status(const CallFrame& frame, const Procedure& procedure) {
    const Value result = frame.result().value_or(Value::null(EXTFN_TYPE_INT32));
    if (result.is_null()) return report_nothing(procedure, "no status");
    const std::int32_t status = result.as_int().value_or(EXIT_FAILED);
    if (status != 0 && frame.cancelled()) fputs("cancelled\n", stderr);
    printf("status %d: %s\n", status, procedure.explain(status).data());
    return status == 0 ? EXIT_SUCCEEDED : EXIT_FAILED;
}

// A person sees one line that stands for the bytes, anybody else the bytes.
void print_value(const std::string& name, const std::string& bytes) {
    const std::string shown = isatty(STDOUT_FILENO) != 0 ? display_text(bytes) : bytes;
    printf("%s = ", name.c_str());
    fwrite(shown.data(), 1, shown.size(), stdout);
    putchar('\n');
}

// Such a procedure has succeeded when it filled at least one value.
int report_outs(const CallFrame& frame, const Procedure& procedure,
                const std::vector<bool>& asked) {
    bool filled = false;
    for (std::uint32_t number = 1; number <= procedure.parameter_count(); ++number) {
        const bool is_out = procedure.is_out(number);
        const bool has_value = is_out && frame.out(number) && !frame.out(number)->is_null();
        const std::string name = procedure.parameter_name(number);
        filled = filled || has_value;
        if (has_value)
            print_value(name, *frame.out(number)->bytes);
        else if (asked[number])
            printf("%s is NULL\n", name.c_str());
    }
    return filled ? EXIT_SUCCEEDED : report_nothing(procedure, "no value");
}

}  // namespace

int complain(const std::string& what) {
    fprintf(stderr, "xpcall: %s\n", display_text(what).c_str());
    return EXIT_NOT_CALLED;
}

// What poll(2) has found ready takes PIPE_BUF bytes and does not block, if it is a pipe; a file
// never does.
Output::Output(const Engine& engine) : _engine(engine) {
    struct stat status {};
    const bool is_file = fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode);
    if (engine.ends_calls() && !is_file) _at_once = PIPE_BUF;
}

bool Output::write_piece(const void* data, std::uint32_t length) {
    const auto* at = static_cast<const char*>(data);
    for (std::size_t left = length; left > 0;) {
        if (_at_once < SIZE_MAX && !_engine.wait_for(STDOUT_FILENO, POLLOUT)) return false;
        const ssize_t count = write(STDOUT_FILENO, at, std::min(left, _at_once));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            _failure = errno;
            return false;
        }
        at += count;
        left -= static_cast<std::size_t>(count);
    }
    _written += length;
    if (length > 0) _last = at[-1];
    return true;
}

int report(const CallFrame& frame, const Procedure& procedure, const std::vector<bool>& asked,
           const Output& output) {
    switch (procedure.result) {
    case Result::Bytes:
        return report_bytes(frame, procedure, output);
    case Result::Status:
        return report_status(frame, procedure);
    case Result::None:
        break;
    }
    return report_outs(frame, procedure, asked);
}

}  // namespace host
