// A host in conversation with a hostile worker: whatever comes, the call ends, no piece is longer
// than one may be, and none follows one of its value that was refused.
//
// An input is what the worker sends during one call.

#include "fuzz/framepair.h"
#include "host/worker/calldriver.h"

namespace {

constexpr std::uint32_t total = 1000;
char value_bytes[total];

std::int16_t get_value(void*, std::uint32_t number, an_extfn_value* value) {
    *value = {value_bytes, 10, {total}, EXTFN_TYPE_STRING};
    return number <= 2 ? 1 : 0;
}
std::int16_t get_piece(void*, std::uint32_t number, an_extfn_value* value, std::uint32_t offset) {
    if (number > 2 || offset >= total) return 0;
    *value = {value_bytes + offset, std::min(total - offset, 10U), {total}, EXTFN_TYPE_STRING};
    return 1;
}
struct Values {
    std::size_t sum = 0;
    bool refused[3] = {};
};

// Refuses some.
std::int16_t set_value(void* handle, std::uint32_t number, an_extfn_value* value,
                       std::int16_t append) {
    check(value->piece_len <= host::SharedPieces::slot_size);
    check(value->data != nullptr || value->piece_len == 0);
    auto& [sum, refused] = *static_cast<Values*>(handle);
    check(number < std::size(refused) && (append == 0 || !refused[number]));
    for (std::uint32_t i = 0; i < value->piece_len; ++i)
        sum += static_cast<const unsigned char*>(value->data)[i];
    refused[number] = sum % 3 == 2;
    return refused[number] ? 0 : 1;
}
void set_cancel(void*, void*) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FramePair pair(Input(data, size).rest());
    // Waits for nothing: all that comes is there.
    static const auto never = [](short) { return false; };
    host::FrameSocket socket(pair.near_end(), host::Sender::Worker, never);
    static host::SharedPieces shared;
    static const bool created = shared.create();
    check(created);
    an_extfn_api api = {get_value, get_piece, set_value, set_cancel};
    Values values;
    host::CallDriver driver(socket, shared, api, &values, [] { return true; });
    std::string error;
    const host::Talk talk = driver.run(1, "xp_x", "/", error);
    check(talk == host::Talk::Failed || error.empty());
    check(error.size() <= host::longest_payload);
    return 0;
}
