// smtp_sink: the server of bench/smtpsink.h as a program. Prints its port; ends with its standard
// input, and prints then how many messages it took.

#include <cstdio>
#include <thread>

#include <unistd.h>

#include "bench/smtpsink.h"

int main() {
    SMTPSink sink;
    std::printf("%d\n", sink.port());
    std::fflush(stdout);
    std::thread server([&sink] { sink.run(); });
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    sink.stop();
    server.join();
    std::printf("%ld\n", sink.messages());
}
