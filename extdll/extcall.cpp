#include "extdll/extcall.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "utils/utmem/utwipe.h"

a_bool ExternalCall::get_value(uint32 number, an_extfn_value* value) const {
    *value = {};
    if (_api->get_value(_arg_handle, number, value) != 0) return true;
    // A host may have begun to fill it in before it refused.
    *value = {};
    return false;
}

a_bool ExternalCall::get_piece(uint32 number, an_extfn_value* value, uint32 offset) const {
    *value = {};
    if (_api->get_piece(_arg_handle, number, value, offset) != 0) return true;
    *value = {};
    return false;
}

a_bool ExternalCall::set_value(uint32 number, a_sql_data_type type, void* data, uint32 length,
                               bool append) const {
    an_extfn_value value = {};
    value.data = data;
    value.piece_len = length;
    value.type = type;
    return _api->set_value(_arg_handle, number, &value, append ? 1 : 0) != 0;
}

a_bool ExternalCall::set_string(uint32 number, char* text, uint32 length) const {
    an_extfn_value value = {};
    value.data = text;
    value.piece_len = length;
    value.total_len = length;
    value.type = EXTFN_TYPE_STRING;
    return _api->set_value(_arg_handle, number, &value, 0) != 0;
}

a_bool ExternalCall::set_null(uint32 number, a_sql_data_type type) const {
    return set_value(number, type, nullptr, 0);
}

void ExternalCall::set_status(int32 status) const {
    set_value(result_argument, EXTFN_TYPE_INT32, &status, sizeof status);
}

a_bool ArgumentPieces::first() {
    if (!_call.get_value(_number, &_piece)) return false;
    _type = _piece.type;
    _total_length = _piece.total_len;
    _offset = _piece.piece_len;
    return true;
}

a_bool ArgumentPieces::next() {
    if (complete()) return false;
    // The offset fits: it is below the announced length.
    if (!_call.get_piece(_number, &_piece, static_cast<uint32>(_offset))) return false;
    // A piece without bytes would be asked for again for ever.
    if (_piece.data == nullptr || _piece.piece_len == 0) return false;
    _offset += _piece.piece_len;
    return true;
}

TextArgument::~TextArgument() {
    drop();
}

void TextArgument::drop() {
    if (_text != nullptr && _secret) ut_wipe(_text, _size);
    if (_text != _inline) free(_text);
    _text = nullptr;
}

a_bool TextArgument::reserve(uint64 length) {
    // A host may announce 4 GiB less a byte, which with its terminator 32 bits cannot hold.
    if (length >= std::numeric_limits<std::size_t>::max()) return false;
    _size = static_cast<std::size_t>(length) + 1;
    _text = _size <= sizeof _inline ? _inline : static_cast<char*>(malloc(_size));
    return _text != nullptr;
}

TextArgument::Outcome TextArgument::read(const ExternalCall& call, uint32 number) {
    ArgumentPieces pieces(call, number);
    if (!pieces.first()) return Outcome::Missing;
    _type = pieces.type();
    return pieces.is_null() ? Outcome::Null : join(pieces);
}

TextArgument::Outcome TextArgument::join(ArgumentPieces& pieces) {
    // A value of one piece may come with no length, or one that is too small.
    const uint64 whole = std::max(pieces.total_length(), pieces.length());
    if (!reserve(whole)) return Outcome::NoMemory;
    uint64 held = 0;
    do {
        // The text has room for what was announced, whatever the pieces say.
        if (pieces.length() > whole - held) break;
        memcpy(_text + held, pieces.data(), pieces.length());
        held += pieces.length();
    } while (pieces.next());
    if (held == whole) {
        _text[whole] = '\0';
        return Outcome::Read;
    }
    drop();
    return Outcome::Broken;
}
