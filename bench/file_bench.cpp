// What xp_read_file and xp_write_file cost beside dd with blocks of 32 KiB, and reading beside a
// plain loop too, on the same cached file of 256 MiB, for a host that discards the pieces it is
// given and has those it gives in memory.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "bench/paired.h"
#include "extdll/procedures.h"
#include "tests/scratch.h"

namespace {

constexpr std::size_t file_size = std::size_t{256} << 20;
constexpr std::size_t block = 32768;
constexpr uint32_t name_argument = 1;

char bytes[block];

/// The server's side of a call: a file's name, and its contents.
struct Call {
    std::string path;
    std::uint64_t read = 0;  // bytes that xp_read_file gave
    int32_t status = -1;     // that xp_write_file gave
};

int16_t get_value(void* handle, uint32_t number, an_extfn_value* value) {
    std::string& path = static_cast<Call*>(handle)->path;
    const auto length = static_cast<uint32_t>(path.size());
    if (number == name_argument) {
        *value = {path.data(), length, {length}, EXTFN_TYPE_STRING};
    } else {
        *value = {bytes, block, {static_cast<uint32_t>(file_size)}, EXTFN_TYPE_BINARY};
    }
    return 1;
}
int16_t get_piece(void*, uint32_t, an_extfn_value* value, uint32_t) {
    value->data = bytes;
    value->piece_len = block;
    return 1;
}
int16_t set_value(void* handle, uint32_t, an_extfn_value* value, int16_t) {
    Call& call = *static_cast<Call*>(handle);
    if (value->type == EXTFN_TYPE_BINARY) {
        call.read += value->piece_len;
    } else {
        std::memcpy(&call.status, value->data, sizeof call.status);
    }
    return 1;
}
void set_cancel(void*, void* record) {
    std::free(record);
}

an_extfn_api api = {get_value, get_piece, set_value, set_cancel};

void require(bool condition) {
    if (!condition) std::abort();
}

void read_plainly(const char* path) {
    static char buffer[block];
    std::size_t total = 0;
    const int fd = open(path, O_RDONLY);
    for (ssize_t count; (count = read(fd, buffer, block)) > 0;)
        total += static_cast<std::size_t>(count);
    close(fd);
    require(total == file_size);
}

void run(const std::string& command) {
    require(std::system((command + " bs=32k status=none").c_str()) == 0);
}

}  // namespace

int main() {
    const ScratchFolder folder;
    const std::string file = folder.file_with("file", std::string(file_size, 'q'));
    const auto read_procedure = [&] {
        Call call{file};
        xp_read_file(&api, &call);
        require(call.read == file_size);
    };
    const auto write_procedure = [&] {
        Call call{file};
        xp_write_file(&api, &call);
        require(call.status == 0);
    };
    const PairedBenchmark paired(15);
    paired.run("xp_read_file / plain reads of 32 KiB", 0.87, read_procedure,
               [&] { read_plainly(file.c_str()); });
    paired.run("xp_read_file / dd", 1, read_procedure,
               [&] { run("dd of=/dev/null if=" + shell_word(file)); });
    paired.run("xp_write_file / dd", 1, write_procedure,
               [&] { run("dd conv=notrunc count=8192 if=/dev/zero of=" + shell_word(file)); });
}
