#ifndef QUOREL_HOST_POSTGRES_MEMORYRESERVE_H
#define QUOREL_HOST_POSTGRES_MEMORYRESERVE_H

namespace host {

/// Memory for the time when there is none. A backend that ends because of that has all others start
/// anew, so the records of a call, which operator new gets, must not run out half-way. A value's
/// bytes come from elsewhere, and may.
///
/// Puts by what the records of one call take at most, or finds it still there. False when it cannot
/// be had: then no call can be made. For one thread at a time.
bool put_by_memory();

}  // namespace host

#endif
