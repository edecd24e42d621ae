#include "host/postgres/memoryreserve.h"

#include <cstdlib>
#include <new>

namespace host {

namespace {

constexpr std::size_t size = std::size_t{1} << 20;
void* reserve = nullptr;

// Asked by operator new when there is no memory, as often as it changes something.
void give_up_reserve() {
    if (reserve == nullptr) std::set_new_handler(nullptr);
    free(reserve);
    reserve = nullptr;
}

}  // namespace

bool put_by_memory() {
    std::set_new_handler(give_up_reserve);
    if (reserve == nullptr) reserve = malloc(size);
    return reserve != nullptr;
}

}  // namespace host
