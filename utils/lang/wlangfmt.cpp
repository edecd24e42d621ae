#include "utils/lang/wlangfmt.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "utils/etc/utsnprintf.h"
#include "utils/etc/uttypes.h"

namespace {

constexpr size_t max_parms = 9;
constexpr const char* null_string = "???";

enum class ParmType { string, character, int_, uint_, long_, ulong, int64_, uint64_, hex4, hex8 };

struct Suffix {
    const char* text;
    ParmType type;
};

constexpr Suffix suffixes[] = {
    {"!s!", ParmType::string},   {"!d!", ParmType::int_},      {"!c!", ParmType::character},
    {"!u!", ParmType::uint_},    {"!ld!", ParmType::long_},    {"!lu!", ParmType::ulong},
    {"!lld!", ParmType::int64_}, {"!llu!", ParmType::uint64_}, {"!4x!", ParmType::hex4},
    {"!8x!", ParmType::hex8},    {"!at!", ParmType::string},
};

/// One numbered parameter: where it stands in the format, and its argument as text.
struct Parm {
    const char* place = nullptr;
    size_t place_length = 0;  // of the whole "%N!type!"
    ParmType type = ParmType::string;
    const char* string = nullptr;   // string parameters
    std::array<char, 24> number{};  // all others
};

constexpr bool is_parm_number(char c) {
    return c >= '1' && c <= '9';
}

struct Parms {
    std::array<Parm, max_parms> parm;
    size_t count = 0;  // the highest number in use

    /// The parameter whose place is at `at`; null for other text.
    const Parm* At(const char* at) const {
        if (at[0] != '%' || !is_parm_number(at[1])) return nullptr;
        const Parm& candidate = parm[static_cast<size_t>(at[1] - '1')];
        return candidate.place == at ? &candidate : nullptr;
    }
};

void record_place(Parm& parm, const char* place) {
    // In place of an earlier one, which is then plain text: see the header.
    const char* behind = place + 2;
    parm.place = place;
    parm.place_length = 2;
    parm.type = ParmType::string;
    for (const Suffix& suffix : suffixes) {
        const size_t length = std::strlen(suffix.text);
        if (std::strncmp(behind, suffix.text, length) != 0) continue;
        parm.place_length += length;
        parm.type = suffix.type;
        return;
    }
}

void find_places(Parms& parms, const char* format) {
    for (const char* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
        if (is_parm_number(at[1])) {
            const size_t number = static_cast<size_t>(at[1] - '0');
            record_place(parms.parm[number - 1], at);
            parms.count = std::max(parms.count, number);
        }
        at += at[1] == '%' ? 2 : 1;
    }
}

void take_arguments(Parms& parms, va_list args) {
    // Also of numbers that the format does not name: the arguments behind could not be found.
    for (size_t i = 0; i < parms.count; ++i) {
        Parm& parm = parms.parm[i];
        char* number = parm.number.data();
        const size_t size = parm.number.size();
        switch (parm.type) {
        case ParmType::string:
            parm.string = va_arg(args, const char*);
            if (parm.string == nullptr) parm.string = null_string;
            break;
        case ParmType::character:
            number[0] = static_cast<char>(va_arg(args, int));
            break;
        case ParmType::int_:
            ut_snprintf(number, size, "%d", va_arg(args, int));
            break;
        case ParmType::uint_:
            ut_snprintf(number, size, "%u", va_arg(args, unsigned));
            break;
        case ParmType::long_:
            ut_snprintf(number, size, "%ld", va_arg(args, long));
            break;
        case ParmType::ulong:
            ut_snprintf(number, size, "%lu", va_arg(args, unsigned long));
            break;
        case ParmType::int64_:
            ut_snprintf(number, size, "%lld", va_arg(args, long long));
            break;
        case ParmType::uint64_:
            ut_snprintf(number, size, "%llu", va_arg(args, unsigned long long));
            break;
        case ParmType::hex4:
            ut_snprintf(number, size, "%04x", va_arg(args, unsigned));
            break;
        case ParmType::hex8:
            ut_snprintf(number, size, "%08x", va_arg(args, unsigned));
            break;
        }
    }
}

size_t copy_as_is(void*, const char* parm, char* buf, size_t len) {
    const size_t length = strnlen(parm, len);
    std::memcpy(buf, parm, length);
    return length;
}

/// The free part of the caller's buffer, without the terminator's byte.
struct Room {
    char* at;
    size_t left;

    void Put(char c) {
        if (left == 0) return;
        *at++ = c;
        --left;
    }
    void Used(size_t count) {
        at += count;
        left -= count;
    }
};

void put_parm(Room& room, const Parm& parm, a_lang_parm_writer write, void* context) {
    const size_t count = parm.string != nullptr
                             ? write(context, parm.string, room.at, room.left)
                             : copy_as_is(nullptr, parm.number.data(), room.at, room.left);
    room.Used(count);
}

void put_text(Room& room, const char* format, const Parms& parms, a_lang_parm_writer write,
              void* context) {
    while (*format != '\0' && room.left > 0) {
        const Parm* parm = parms.At(format);
        if (parm != nullptr) {
            put_parm(room, *parm, write, context);
            format += parm->place_length;
            continue;
        }
        room.Put(*format);
        format += format[0] == '%' && format[1] == '%' ? 2 : 1;
    }
    *room.at = '\0';
}

}  // namespace

size_t wlangfmt(char* buf, size_t len, const char* format, va_list args, a_lang_parm_writer write,
                void* context) {
    if (len == 0) return 0;
    Parms parms;
    find_places(parms, format);
    take_arguments(parms, args);
    Room room{buf, len - 1};
    put_text(room, format, parms, write != nullptr ? write : copy_as_is, context);
    return static_cast<size_t>(room.at - buf);
}
