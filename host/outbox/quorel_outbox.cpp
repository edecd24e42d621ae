// quorel-outbox: sends the mail that waits in a database.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <malloc.h>

#include "host/outbox/daemon.h"
#include "host/outbox/oneline.h"
#include "host/outbox/statustext.h"
#include "host/startup.h"

namespace {

using namespace host::outbox;

int complain(const std::string& sentence) {
    fprintf(stderr, "quorel-outbox: %s\n", on_one_line(sentence).c_str());
    return EXIT_FAILED;
}

int install(const Options& options) {
    std::string error;
    const std::unique_ptr<Store> store = make_store(options.where, "", error);
    if (store == nullptr || !store->install(error)) return complain(error);
    puts("the outbox is installed");
    return EXIT_DONE;
}

int show_status(const Options& options) {
    constexpr int most_troubles = 20;
    std::string error;
    Figures figures;
    std::vector<Account> accounts;
    std::vector<Trouble> troubles;
    const std::unique_ptr<Store> store = make_store(options.where, "", error);
    if (store == nullptr || !store->open(error) || !store->figures(figures, error) ||
        !store->accounts(accounts, error) || !store->troubles(most_troubles, troubles, error))
        return complain(error);
    fputs(status_text(figures, accounts, troubles).c_str(), stdout);
    return EXIT_DONE;
}

int run(const Options& options) {
    switch (options.job) {
    case Job::Install:
        return install(options);
    case Job::Status:
        return show_status(options);
    case Job::Send:
        break;
    }
    return Daemon(options).run();
}

}  // namespace

int main(int argc, char** argv) {
    host::start_program();
    // What a large message took goes back to the system when it is sent: the C library would keep
    // more with each one.
    constexpr int large = 1 << 17;
    mallopt(M_MMAP_THRESHOLD, large);
    Options options;
    int status = EXIT_DONE;
    if (read_command_line(argc, argv, options, status)) status = run(options);
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        return complain("cannot write to standard output");
    return status;
}
