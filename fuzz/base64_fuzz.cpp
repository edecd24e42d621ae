// Base64: every kernel encodes as the plain rules say, in memory and through streams whose buffers
// end anywhere, and decodes what any of them encoded; of arbitrary text, all of them make the same.
//
// An input is a byte for the length of lines, one for the streams' buffers, and the data.

#include "utils/etc/base64.h"

#include <utility>
#include <vector>

#include "fuzz/fuzzed.h"
#include "fuzz/plainbase64.h"
#include "utils/etc/base64_kernel.h"
#include "utils/etc/utmemstream.h"
#include "utils/etc/utstreambuffer.h"

namespace {

constexpr size_t failure = static_cast<size_t>(-1);

class Collected final : public UTOStream {
  public:
    size_t do_put(const a_byte* data, size_t n) override {
        text.append(reinterpret_cast<const char*>(data), n);
        return n;
    }
    std::string text;
};

std::string encoded(std::string data, size_t line_length) {
    // Exactly as much room as is needed, so that a byte too many is noticed.
    std::vector<char> text(plain_base64(data, line_length).size());
    check(base64_encode(text.data(), data.data(), data.size(), line_length) == text.size());
    return {text.begin(), text.end()};
}

/// The result, and what was written.
std::pair<size_t, std::string> decoded(const std::string& text) {
    std::vector<char> source(text.begin(), text.end());
    std::vector<char> bytes(text.size());
    const size_t count = base64_decode(bytes.data(), source.data(), source.size());
    check(count == failure || count <= text.size() / 4 * 3);
    return {count, {bytes.data(), count == failure ? 0 : count}};
}

template <class Work>
std::string through_streams(const std::string& from, size_t buffer, Work work) {
    Collected collected;
    {
        UTBufIStream source(from.data(), from.size());
        UTIStreamBuffer in(source, buffer);
        UTOStreamBuffer out(collected, buffer);
        work(out, in);
    }
    return collected.text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const auto line_length = static_cast<uint16>(input.byte() % 20 * 4);
    const size_t buffer = 1 + input.byte();
    const std::string bytes = input.rest();
    const std::string text = plain_base64(bytes, line_length);
    const uint16 stream_line = line_length == 0 ? 76 : line_length;
    std::vector<std::pair<size_t, std::string>> decodings;
    for (auto kernel = base64_usable_kernels(); *kernel != nullptr; ++kernel) {
        base64_set_kernel(*kernel);
        check(encoded(bytes, line_length) == text);
        check(decoded(text) == std::pair(bytes.size(), bytes));
        decodings.push_back(decoded(bytes));
        check(decodings.back() == decodings.front());

        const std::string lines = through_streams(bytes, buffer, [&](auto& out, auto& in) {
            check(base64_encode(out, in, stream_line, true));
        });
        check(lines == plain_base64(bytes, stream_line));
        const std::string back = through_streams(lines, buffer, [&](auto& out, auto& in) {
            unsigned count = 0;
            check(base64_decode(out, in, &count) && count == bytes.size());
        });
        check(back == bytes);
    }
    base64_set_kernel(nullptr);
    return 0;
}
