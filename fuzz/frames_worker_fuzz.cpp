// A worker in conversation with a hostile host: whatever comes, it serves or ends, and a procedure
// gets no piece that is longer than its value.
//
// An input is what the host sends, from Hello on.

#include <fcntl.h>

#include "fuzz/framepair.h"
#include "host/worker/callserver.h"

namespace {

// Hands every argument back, as long as there are pieces of it.
class Echo : public host::Engine {
  public:
    host::CallEnd call(std::string_view procedure, an_extfn_api& api, void* handle,
                       const Interrupted& /*interrupted*/, std::string& error) const override {
        if (procedure.starts_with('!')) {
            error = "no such procedure";
            return host::CallEnd::NotCalled;
        }
        an_extfn_value value{};
        for (std::uint32_t number = 1; api.get_value(handle, number, &value) != 0; ++number) {
            std::uint32_t offset = 0;
            std::int16_t more = value.data != nullptr ? 1 : 0;
            while (more != 0) {
                check(value.piece_len <= value.total_len - offset);
                offset += value.piece_len;
                if (api.set_value(handle, number, &value, offset > value.piece_len ? 1 : 0) == 0)
                    break;
                more = api.get_piece(handle, number, &value, offset);
            }
        }
        return host::CallEnd::Returned;
    }
    void cancel(void* /*record*/) const override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int home = open(".", O_RDONLY | O_DIRECTORY);
    const FramePair pair(Input(data, size).rest());
    const auto load = [](const std::string& path, std::string& error) {
        error = "nothing is there";
        return path == "-" ? nullptr : std::make_unique<const Echo>();
    };
    host::CallServer server(pair.near_end(), getpid(), load, [](std::string_view) {});
    server.run();
    check(fchdir(home) == 0);
    return 0;
}
