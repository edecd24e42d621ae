#ifndef QUOREL_TESTS_UTILS_ETC_TEST_STREAMS_H
#define QUOREL_TESTS_UTILS_ETC_TEST_STREAMS_H

// Streams that are as awkward as the rules allow, and random stacks of adapters over them.

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "utils/etc/utmemstream.h"
#include "utils/etc/utstreambuffer.h"
#include "utils/etc/utstreamcounter.h"

using Random = std::mt19937;

inline size_t up_to(Random& random, size_t limit) {
    return std::uniform_int_distribution<size_t>(0, limit)(random);
}

inline std::string random_bytes(Random& random, size_t length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

// Reads `data`; `piece` says for each read how many bytes may come at once, 0 for "all asked for".
class TestIStream : public UTIStream {
  public:
    explicit TestIStream(
        std::string data, std::function<size_t()> piece = [] { return 0; })
        : _data(std::move(data)), _piece(std::move(piece)) {}

    size_t do_get(a_byte* buf, size_t n) override {
        if (_eof) return 0;
        const size_t piece = _piece();
        size_t count = std::min(n, _data.size() - _position);
        if (piece != 0) count = std::min(count, piece);
        if (count == 0 && n != 0) set_eof();
        if (count != 0) std::memcpy(buf, _data.data() + _position, count);
        _position += count;
        requests.push_back(n);
        return count;
    }

    std::vector<size_t> requests;

  private:
    std::string _data;
    size_t _position = 0;
    std::function<size_t()> _piece;
};

class TestPartialIStream : public UTPartialBufferedIStream {
  public:
    TestPartialIStream(std::string data, std::function<size_t()> piece)
        : UTPartialBufferedIStream(nullptr), _rest(std::move(data)), _piece(std::move(piece)) {}

    void refill() override {
        if (_rest.empty()) return set_eof();
        _ptr = _data;
        _lim = _data + _rest.copy(reinterpret_cast<char*>(_data), _piece());
        _rest.erase(0, static_cast<size_t>(_lim - _ptr));
    }

  private:
    std::string _rest;
    std::function<size_t()> _piece;
};

// Keeps what is written; `accept` says how much of each write is taken and may end the stream.
class TestOStream : public UTOStream {
  public:
    using Accept = std::function<size_t(TestOStream&, size_t)>;
    explicit TestOStream(Accept accept = [](TestOStream&, size_t n) { return n; })
        : _accept(std::move(accept)) {}

    size_t do_put(const a_byte* data, size_t n) override {
        if (_eof) return 0;
        const size_t taken = _accept(*this, n);
        if (taken <= n) written.append(reinterpret_cast<const char*>(data), taken);
        return taken;
    }

    std::string written;

  private:
    Accept _accept;
};

template <class Stream>
struct Stack {
    using Count = std::function<uint64()>;
    ~Stack() {
        while (!streams.empty()) streams.pop_back();
    }
    Stream& top() { return *streams.back(); }
    template <class T, class... Args>
    void push(Args&&... args) {
        auto stream = std::make_unique<T>(std::forward<Args>(args)...);
        count = nullptr;
        if constexpr (requires { stream->count(); }) count = [&at = *stream] { return at.count(); };
        streams.push_back(std::move(stream));
    }
    Count count;  // of the top stream; empty unless that is a counter
    std::vector<std::unique_ptr<Stream>> streams;
};

// Over `data`, which must stay. Reads are short only at the end if `whole_reads` is true.
struct InputStack : Stack<UTIStream> {
    InputStack(Random& random, const std::string& data) {
        const size_t source = up_to(random, 3), piece = 1 + up_to(random, 50);
        const auto some = [&random, piece] { return 1 + up_to(random, piece); };
        if (source == 0) push<UTBufIStream>(data.data(), data.size());
        if (source == 1) push<TestIStream>(data);
        if (source == 2) push<TestIStream>(data, some);
        if (source == 3) push<TestPartialIStream>(data, some);
        for (size_t depth = up_to(random, 3); depth != 0; --depth) {
            UTIStream& below = top();
            const size_t adapter = up_to(random, 2);
            if (adapter == 0) push<UTIStreamBuffer>(below, 1 + up_to(random, 40));
            if (adapter == 1) push<UTIStreamCounter>(below);
            if (adapter == 2 && below.is_buffered())
                push<UTBufferedIStreamCounter>(static_cast<UTBufferedIStream&>(below));
        }
        whole_reads = source <= 1 || top().is_buffered();
    }
    bool whole_reads;
};

struct OutputStack : Stack<UTOStream> {
    OutputStack(Random& random, char* block, size_t capacity) {
        if (up_to(random, 1) != 0) push<UTBufOStream>(block, capacity);
        if (streams.empty()) push<UTStrOStream>(block, capacity + 1);
        for (size_t depth = up_to(random, 3); depth != 0; --depth) {
            UTOStream& below = top();
            const size_t adapter = up_to(random, 2);
            if (adapter == 0) push<UTOStreamBuffer>(below, up_to(random, 40));
            if (adapter == 1) push<UTOStreamCounter>(below);
            if (adapter == 2 && below.is_buffered())
                push<UTBufferedOStreamCounter>(static_cast<UTBufferedOStream&>(below));
            refusals_show = refusals_show && adapter != 0;
        }
    }
    bool refusals_show = true;  // no buffer hides what the bottom refuses
};

#endif
