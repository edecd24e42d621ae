#ifndef QUOREL_TESTS_EXTDLL_FAKEHOST_H
#define QUOREL_TESTS_EXTDLL_FAKEHOST_H

#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "extdll/extcall.h"
#include "extdll/extfn.h"

/// A value that a procedure handed over, as one set_value call.
struct SetCall {
    uint32 number;
    a_sql_data_type type;
    std::optional<std::string> bytes;  // nothing: NULL
    bool append = false;

    bool operator==(const SetCall&) const = default;

    friend std::ostream& operator<<(std::ostream& out, const SetCall& call) {
        out << call.number << " type " << call.type << (call.append ? " append " : " ");
        if (!call.bytes) return out << "NULL";
        if (call.bytes->size() > 300) return out << call.bytes->size() << " bytes";
        return out << testing::PrintToString(*call.bytes);
    }
};

inline SetCall status_call(int32 status) {
    return {0, EXTFN_TYPE_INT32,
            std::string(reinterpret_cast<const char*>(&status), sizeof status)};
}

/// A server with one call: arguments are scripted, set_value calls recorded, any callback can be
/// refused. Memory that a piece was delivered in is overwritten before the next one, as a server
/// may.
class FakeHost {
  public:
    FakeHost() = default;
    ~FakeHost() {
        for (void* record : cancel_records) free(record);
    }
    FakeHost(const FakeHost&) = delete;

    FakeHost& give(uint32 number, std::optional<std::string> bytes,
                   a_sql_data_type type = EXTFN_TYPE_STRING) {
        arguments[number] = {std::move(bytes), type};
        return *this;
    }

    FakeHost& give_int(uint32 number, std::optional<int32> value) {
        if (!value) return give(number, std::nullopt, EXTFN_TYPE_INT32);
        const char* const bytes = reinterpret_cast<const char*>(&*value);
        return give(number, std::string(bytes, sizeof *value), EXTFN_TYPE_INT32);
    }

    std::vector<SetCall>& call(an_extfn_proc* procedure) {
        calls.clear();
        an_extfn_api callbacks = api();
        procedure(&callbacks, this);
        return calls;
    }
    /// The status that a call sets; -1 if it sets something else, or more.
    int32 status_of(an_extfn_proc* procedure) {
        call(procedure);
        int32 status = -1;
        if (calls.size() == 1 && calls[0].bytes && calls[0].bytes->size() == sizeof status)
            memcpy(&status, calls[0].bytes->data(), sizeof status);
        return calls == std::vector{status_call(status)} ? status : -1;
    }
    /// For a call that is not of a procedure; the handle is this object.
    static an_extfn_api api() { return {get_value, get_piece, set_value, set_cancel}; }

    struct Argument {
        std::optional<std::string> bytes;
        a_sql_data_type type = EXTFN_TYPE_STRING;
    };
    std::map<uint32, Argument> arguments;
    uint32 piece_size = 32768;
    enum class Fault { Refused, Empty, Null };
    static constexpr Fault faults[] = {Fault::Refused, Fault::Empty, Fault::Null};
    int good_pieces = -1;  // get_piece calls before piece_fault; -1: all
    Fault piece_fault = Fault::Refused;
    std::function<void()> on_get_piece;        // runs inside get_piece
    std::optional<uint32> announced_length;    // in place of the real total_len
    int sets_before_refusal = -1;              // set_value calls that succeed; -1: all
    uint32 highest_out = 1000;                 // set_value refuses higher numbers
    SetCall incoming = {};                     // what set_value was last called with
    std::function<void()> on_set;              // runs inside set_value
    std::function<void(void*)> on_set_cancel;  // runs inside set_cancel
    std::set<uint32> asked;                    // numbers that get_value was called for
    std::vector<SetCall> calls;
    std::vector<void*> cancel_records;

  private:
    std::vector<char> _delivered;

    static FakeHost& of(void* handle) { return *static_cast<FakeHost*>(handle); }

    void deliver(const Argument& argument, an_extfn_value* value, uint32 offset) {
        *value = {nullptr, 0, {announced_length.value_or(0)}, argument.type};
        if (!argument.bytes) return;
        if (!announced_length) value->total_len = static_cast<uint32>(argument.bytes->size());
        const std::string piece = argument.bytes->substr(offset, piece_size);
        std::fill(_delivered.begin(), _delivered.end(), '#');
        // Exactly as long as the piece, so that a read past its end is caught.
        _delivered = std::vector<char>(piece.begin(), piece.end());
        _delivered.reserve(1);
        value->data = _delivered.data();
        value->piece_len = static_cast<uint32>(piece.size());
    }

    static int16_t get_value(void* handle, uint32 number, an_extfn_value* value) {
        of(handle).asked.insert(number);
        const auto found = of(handle).arguments.find(number);
        if (found == of(handle).arguments.end()) return 0;
        of(handle).deliver(found->second, value, 0);
        return 1;
    }

    static int16_t get_piece(void* handle, uint32 number, an_extfn_value* value, uint32 offset) {
        FakeHost& host = of(handle);
        if (host.on_get_piece) host.on_get_piece();
        const Argument& argument = host.arguments.at(number);
        if (offset > argument.bytes->size()) return 0;
        host.deliver(argument, value, offset);
        if (host.good_pieces-- != 0) return 1;
        if (host.piece_fault == Fault::Empty) value->piece_len = 0;
        if (host.piece_fault == Fault::Null) value->data = nullptr;
        return host.piece_fault != Fault::Refused;
    }

    static int16_t set_value(void* handle, uint32 number, an_extfn_value* value, int16_t append) {
        FakeHost& host = of(handle);
        host.incoming = {number, value->type, std::nullopt, append != 0};
        if (value->data != nullptr) {
            host.incoming.bytes.emplace(static_cast<const char*>(value->data), value->piece_len);
        }
        if (host.on_set) host.on_set();
        if (number > host.highest_out) return 0;
        host.calls.push_back(host.incoming);
        if (host.sets_before_refusal == 0) {
            host.sets_before_refusal = -1;
            return 0;
        }
        if (host.sets_before_refusal > 0) --host.sets_before_refusal;
        return 1;
    }

    static void set_cancel(void* handle, void* record) {
        of(handle).cancel_records.push_back(record);
        if (of(handle).on_set_cancel) of(handle).on_set_cancel(record);
    }
};

#endif
