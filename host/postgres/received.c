#include "host/postgres/received.h"

#include <sys/mman.h>

#include "utils/memutils.h"

/* What a value has at least that was longer than its first piece. */
#define LEAST_GROWN ((Size)65536)

/* New memory costs a page fault for every 4 kB, as much as reading a file into it; in large pages
 * it hardly does. Whether there are any is the kernel's decision. */
static void ask_for_large_pages(char* memory, Size size) {
    const Size page = (Size)2 << 20;
    char* begin = (char*)TYPEALIGN(page, memory);

    if (size >= 2 * page) madvise(begin, memory + size - begin, MADV_HUGEPAGE);
}

/* Not repalloc(), which raises an error where there is no memory. */
static bool grow(Received* received, Size capacity) {
    char* value = MemoryContextAllocExtended(received->owner, capacity, MCXT_ALLOC_NO_OOM);

    if (value == NULL) {
        received->end = RECEIVED_NO_MEMORY;
        return false;
    }
    ask_for_large_pages(value, capacity);
    if (received->value != NULL) {
        memcpy(value, received->value, received->length);
        pfree(received->value);
    }
    received->value = value;
    received->capacity = capacity;
    return true;
}

/* Doubled when it is full, but for a value whose length was known. */
static bool make_room(Received* received, Size length) {
    Size capacity = received->capacity;

    if (length > MaxAllocSize - received->length) {
        received->end = RECEIVED_TOO_LONG;
        return false;
    }
    if (received->length + length <= capacity) return true;
    capacity = capacity == 0 ? received->expected + VARHDRSZ : Max(2 * capacity, LEAST_GROWN);
    return grow(received, Min(Max(capacity, received->length + length), MaxAllocSize));
}

bool quorel_receive(Received* received, const void* bytes, size_t length, bool append) {
    if (!append) received->length = VARHDRSZ;
    if (received->expected > MaxAllocSize - VARHDRSZ) received->end = RECEIVED_TOO_LONG;
    if (received->end != RECEIVED_ALL || !make_room(received, length)) return false;
    memcpy(received->value + received->length, bytes, length);
    received->length += length;
    return true;
}

bytea* quorel_received(Received* received) {
    if (received->value == NULL) {
        received->value = MemoryContextAlloc(received->owner, VARHDRSZ);
        received->length = VARHDRSZ;
    }
    SET_VARSIZE(received->value, received->length);
    return (bytea*)received->value;
}
