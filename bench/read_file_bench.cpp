// What xp_read_file costs beside a plain loop of 32 KiB reads of the same cached 256 MiB file, for
// a host that discards the pieces.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "bench/paired.h"
#include "extdll/procedures.h"

namespace {

constexpr std::size_t file_size = std::size_t{256} << 20;
constexpr std::size_t block = 32768;

std::string path;
std::uint64_t moved;

std::string make_file() {
    std::string name = "/tmp/quorel-bench-XXXXXX";
    const int fd = mkstemp(name.data());
    const std::vector<char> bytes(block, 'q');
    for (std::size_t written = 0; written < file_size; written += block) {
        if (write(fd, bytes.data(), block) != static_cast<ssize_t>(block)) std::abort();
    }
    close(fd);
    return name;
}

void plain_loop() {
    static char buffer[block];
    const int fd = open(path.c_str(), O_RDONLY);
    for (ssize_t count; (count = read(fd, buffer, block)) > 0;) {
        moved += static_cast<std::uint64_t>(count);
    }
    close(fd);
}

int16_t get_value(void*, uint32_t, an_extfn_value* value) {
    *value = {path.data(),
              static_cast<uint32_t>(path.size()),
              {static_cast<uint32_t>(path.size())},
              EXTFN_TYPE_STRING};
    return 1;
}
int16_t get_piece(void*, uint32_t, an_extfn_value*, uint32_t) {
    return 0;
}
int16_t discard(void*, uint32_t, an_extfn_value* value, int16_t) {
    moved += value->piece_len;
    return 1;
}
void set_cancel(void*, void* record) {
    std::free(record);
}

void through_procedure() {
    an_extfn_api api = {get_value, get_piece, discard, set_cancel};
    xp_read_file(&api, nullptr);
}

}  // namespace

int main() {
    constexpr int rounds = 15;
    path = make_file();
    PairedBenchmark(rounds).run("xp_read_file / plain 32 KiB reads, 256 MiB", through_procedure,
                                plain_loop);
    unlink(path.c_str());
    return moved == 2 * (rounds + 1) * std::uint64_t{file_size} ? 0 : 1;
}
