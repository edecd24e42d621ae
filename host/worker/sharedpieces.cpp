#include "host/worker/sharedpieces.h"

#include <string>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

constexpr std::size_t whole = std::size_t{SharedPieces::slots} * SharedPieces::slot_size;

}  // namespace

void SharedPieces::_close() {
    if (_memory != nullptr) munmap(_memory, whole);
    _memory = nullptr;
    _descriptor.close();
}

bool SharedPieces::_map() {
    void* const memory =
        mmap(nullptr, whole, PROT_READ | PROT_WRITE, MAP_SHARED, _descriptor.number(), 0);
    if (memory != MAP_FAILED) _memory = static_cast<char*>(memory);
    return is_there();
}

bool SharedPieces::create() {
    constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
    _close();
    _descriptor =
        above_standard(Descriptor(memfd_create("quorel", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
    if (ftruncate(_descriptor.number(), whole) == 0 &&
        fcntl(_descriptor.number(), F_ADD_SEALS, seals) == 0 && _map())
        return true;
    // The worker is not to find what the host cannot read.
    _close();
    return false;
}

bool SharedPieces::open(pid_t host, int number) {
    const std::string path = "/proc/" + std::to_string(host) + "/fd/" + std::to_string(number);
    struct stat status {};
    _descriptor = open_file(path.c_str(), O_RDWR);
    // A file that could become shorter would end whoever touches what it has lost.
    const int seals = fcntl(_descriptor.number(), F_GET_SEALS);
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 &&
           fstat(_descriptor.number(), &status) == 0 &&
           static_cast<std::uint64_t>(status.st_size) >= whole && _map();
}

}  // namespace host
