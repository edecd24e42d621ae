#include "utils/etc/base64.h"

#include <algorithm>

#include "utils/etc/base64_kernel.h"

namespace {

constexpr size_t failure = static_cast<size_t>(-1);
constexpr size_t unlimited = static_cast<size_t>(-1);
constexpr char padding = '=';

a_byte* as_bytes(char* text) {
    return reinterpret_cast<a_byte*>(text);
}
const a_byte* as_bytes(const char* text) {
    return reinterpret_cast<const a_byte*>(text);
}
char* as_text(a_byte* bytes) {
    return reinterpret_cast<char*>(bytes);
}

// Where on its line the encoder is.
class a_line {
  public:
    // `length` is the number of characters on a line; 0 breaks no lines.
    explicit a_line(size_t length) : _groups(length / 4), _left(_groups) {}

    size_t groups() const { return _groups; }
    bool is_full() const { return _left == 0 && _groups != 0; }
    bool is_empty() const { return _left == _groups && _groups != 0; }
    void begin() { _left = _groups; }

    // How many of `groups` go on this line, which then has them.
    size_t add(size_t groups) {
        if (_groups == 0) return groups;
        const size_t added = std::min(groups, _left);
        _left -= added;
        return added;
    }

  private:
    size_t _groups;  // on a full line
    size_t _left;    // that this line still takes
};

// Encodes whole groups, and breaks full lines, as far as both spans go.
void encode_spans(a_base64_spans& spans, a_line& line) {
    const a_base64_kernel& kernel = base64_kernel();
    const size_t line_bytes = 3 * line.groups();
    const size_t line_chars = 4 * line.groups() + 2;
    for (;;) {
        if (line.is_full()) {
            if (spans.room < 2) return;
            base64_break_line(as_text(spans.out));
            spans.advance(0, 2);
            line.begin();
        }
        if (line.is_empty()) {
            // Whole lines in one call: the kernel sets its constants up once for all of them.
            const size_t lines = std::min(spans.unread / line_bytes, spans.room / line_chars);
            kernel.encode_lines(as_text(spans.out), spans.in, lines, line.groups());
            spans.advance(lines * line_bytes, lines * line_chars);
        }
        const size_t groups = line.add(std::min(spans.unread / 3, spans.room / 4));
        if (groups == 0) return;
        kernel.encode(as_text(spans.out), spans.in, groups);
        spans.advance(3 * groups, 4 * groups);
    }
}

// Encodes 1 to 3 bytes to a group of 4 characters.
void encode_group(char* group, const a_byte* bytes, size_t count) {
    a_byte whole[3] = {};
    std::copy_n(bytes, count, whole);
    base64_plain_kernel.encode(group, whole, 1);
    if (count < 3) group[3] = padding;
    if (count < 2) group[2] = padding;
}

// The 6-bit value of `c`, or base64_no_value.
a_byte value_of(a_byte c) {
    return c < 128 ? base64_values.of[c] : base64_no_value;
}

// Decodes a group, padded or not, to 3, 2 or 1 bytes; returns how many, 0 for a malformed group.
size_t decode_group(a_byte* bytes, const a_byte* group) {
    a_byte values[4];
    for (size_t i = 0; i < 4; ++i) values[i] = value_of(group[i]);
    size_t count = 3;
    if (group[3] == padding) {
        count = group[2] == padding ? 1 : 2;
        // The bits of the last character that belong to no byte may be any (RFC 4648, section 3.5).
        for (size_t i = count + 1; i < 4; ++i) values[i] = 0;
    }
    for (const a_byte value : values)
        if (value == base64_no_value) return 0;

    const uint32 bits = uint32{values[0]} << 18 | uint32{values[1]} << 12 | uint32{values[2]} << 6 |
                        uint32{values[3]};
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<a_byte>(bits >> (16 - 8 * i));
    return count;
}

// Gathers 4 characters, passing over line breaks; `next` puts the next character where it is told
// and returns false at the end. Returns how many characters there were.
template <class Next>
size_t gather_group(a_byte* group, Next next) {
    size_t count = 0;
    while (count < 4 && next(&group[count]))
        if (!base64_is_line_break(group[count])) ++count;
    return count;
}

// Both sides of a stream operation; see the header on the constness of streams.
struct a_stream_pair {
    a_stream_pair(const UTOStream& dest, const UTIStream& src)
        : out(const_cast<UTOStream&>(dest)), in(const_cast<UTIStream&>(src)),
          both_buffered(out.is_buffered() && in.is_buffered()) {}

    // Lets `work` move bytes between the streams' spans. One byte of the free span stays out of it,
    // so that it moves exactly what put() would move without a call of do_put().
    template <class Work>
    size_t between_spans(Work work) {
        if (!both_buffered) return 0;
        auto& from = static_cast<UTBufferedIStream&>(in);
        auto& to = static_cast<UTBufferedOStream&>(out);
        if (to.room() == 0) return 0;
        a_base64_spans spans = {from.ptr(), from.unread(), to.ptr(), to.room() - 1};
        work(spans);
        const auto written = static_cast<size_t>(spans.out - to.ptr());
        from.consume(static_cast<size_t>(spans.in - from.ptr()));
        to.commit(written);
        return written;
    }

    UTOStream& out;
    UTIStream& in;
    const bool both_buffered;
};

}  // namespace

size_t base64_encode(char* dst, const char* src, size_t src_len, size_t line_length) {
    if (line_length % 4 != 0) return failure;
    if (src_len == 0) return 0;

    a_line line(line_length);
    a_base64_spans spans = {as_bytes(src), src_len, as_bytes(dst), unlimited};
    encode_spans(spans, line);
    if (spans.unread != 0) {
        encode_group(as_text(spans.out), spans.in, spans.unread);
        spans.advance(spans.unread, 4);
        // The padded group may have filled its line, which then ends with a break like any other.
        line.add(1);
        encode_spans(spans, line);
    }
    return unlimited - spans.room;
}

size_t base64_decode(char* dst, const char* src, size_t src_len) {
    a_base64_spans spans = {as_bytes(src), src_len, as_bytes(dst), unlimited};
    const auto next = [&spans](a_byte* c) {
        if (spans.unread == 0) return false;
        *c = *spans.in;
        spans.advance(1, 0);
        return true;
    };
    for (;;) {
        base64_kernel().decode(spans);
        a_byte group[4];
        const size_t gathered = gather_group(group, next);
        if (gathered == 0) return unlimited - spans.room;
        const size_t count = gathered == 4 ? decode_group(spans.out, group) : 0;
        if (count == 0) return failure;
        spans.advance(0, count);
    }
}

a_bool base64_encode(const UTOStream& dest, const UTIStream& src, uint16 line_length,
                     a_bool insert_line_breaks) {
    constexpr uint16 longest_line = 76;  // RFC 2045, section 6.8
    if (line_length % 4 != 0) return false;
    if (line_length == 0 || line_length > longest_line) line_length = longest_line;

    a_line line(insert_line_breaks ? size_t{line_length} : 0);
    a_stream_pair streams(dest, src);
    for (;;) {
        streams.between_spans([&line](a_base64_spans& spans) { encode_spans(spans, line); });
        if (line.is_full()) {
            streams.out.put("\r\n", 2);
            line.begin();
        }
        a_byte bytes[3];
        const size_t count = streams.in.get(bytes, 3);
        if (count == 0) return true;
        char group[4];
        encode_group(group, bytes, count);
        streams.out.put(group, 4);
        line.add(1);
        // A read that is short is the end: padding may stand nowhere else.
        if (count < 3) break;
    }
    if (line.is_full()) streams.out.put("\r\n", 2);
    return true;
}

a_bool base64_decode(const UTOStream& dest, const UTIStream& src, unsigned int* total_written) {
    unsigned int ignored = 0;
    unsigned int& total = total_written != nullptr ? *total_written : ignored;
    total = 0;
    a_stream_pair streams(dest, src);
    for (;;) {
        total += static_cast<unsigned int>(streams.between_spans(base64_kernel().decode));
        a_byte group[4];
        const size_t gathered =
            gather_group(group, [&streams](a_byte* c) { return streams.in.get(*c) == 1; });
        if (gathered == 0) return true;
        a_byte bytes[3];
        const size_t count = gathered == 4 ? decode_group(bytes, group) : 0;
        if (count == 0) return false;
        streams.out.put(bytes, count);
        total += static_cast<unsigned int>(count);
        // What stands behind the padding is the next reader's.
        if (count < 3) return true;
    }
}
