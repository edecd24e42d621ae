#ifndef QUOREL_EXTDLL_EXTCALL_H
#define QUOREL_EXTDLL_EXTCALL_H

/// One call of a procedure, from the procedure's side: arguments in, results out.
///
/// These objects live on the stack of one call and belong to its thread. Nothing here throws,
/// prints or keeps state between calls.

#include <cstddef>

#include "extdll/extfn.h"
#include "utils/etc/uttypes.h"

/// The procedure's result among the argument numbers.
constexpr uint32 result_argument = 0;

/// The host's callbacks bound to the handle of one call.
class ExternalCall {
  public:
    /// Neither is owned; both stay valid until the procedure returns.
    ExternalCall(an_extfn_api* api, void* arg_handle) : _api(api), _arg_handle(arg_handle) {}

    /// Reads the first piece of argument `number`, or a further one. False when the host refuses;
    /// *value is then all zero.
    a_bool get_value(uint32 number, an_extfn_value* value) const;
    a_bool get_piece(uint32 number, an_extfn_value* value, uint32 offset) const;

    /// Hands over `length` bytes for argument `number`. False when the host refuses them.
    a_bool set_value(uint32 number, a_sql_data_type type, void* data, uint32 length,
                     a_bool append = false) const;

    /// Sets argument `number` to a whole string, whose length a host finds in total_len too.
    a_bool set_string(uint32 number, char* text, uint32 length) const;

    /// Sets argument `number` to NULL of type `type`.
    a_bool set_null(uint32 number, a_sql_data_type type) const;

    /// Sets the result to a status; 0 means success.
    void set_status(int32 status) const;

    /// Hands a cancellation record, allocated with malloc, over to the host.
    void set_cancel(a_cancel_info* record) const { _api->set_cancel(_arg_handle, record); }

  private:
    an_extfn_api* _api;
    void* _arg_handle;
};

/// Walks one argument in the pieces that the host delivers:
///
///     ArgumentPieces pieces(call, 2);
///     if (!pieces.first() || pieces.is_null()) ...
///     do use(pieces.data(), pieces.length()); while (pieces.next());
///     if (!pieces.complete()) ...
///
/// A piece is the host's memory: it is gone with the next first() or next() of any argument.
class ArgumentPieces {
  public:
    ArgumentPieces(const ExternalCall& call, uint32 number) : _call(call), _number(number) {}

    /// Reads the first piece. False when the argument does not exist or cannot be read.
    a_bool first();

    /// Reads the piece after the current one. False at the end of the value, and when the host
    /// refuses or delivers a NULL or empty piece; complete() tells which.
    a_bool next();

    [[nodiscard]] a_bool is_null() const { return _piece.data == nullptr; }
    [[nodiscard]] const void* data() const { return _piece.data; }
    [[nodiscard]] uint32 length() const { return _piece.piece_len; }
    [[nodiscard]] a_sql_data_type type() const { return _type; }

    /// Length of the whole value as the host announced it with the first piece.
    [[nodiscard]] uint32 total_length() const { return _total_length; }
    /// True when the pieces read so far reach the announced length.
    [[nodiscard]] a_bool complete() const { return _offset >= _total_length; }

  private:
    const ExternalCall& _call;
    uint32 _number;
    an_extfn_value _piece = {};
    a_sql_data_type _type = 0;
    uint32 _total_length = 0;
    uint64 _offset = 0;  // bytes of the pieces read so far
};

/// A whole argument as a C string: the host's bytes, joined and terminated. Short ones need no
/// allocation.
class TextArgument {
  public:
    enum class Outcome {
        Read,      ///< text() is the value
        Null,      ///< the value is NULL
        Missing,   ///< get_value refused: the argument does not exist or cannot be read
        Broken,    ///< a later piece was refused, or came NULL, empty or too long
        NoMemory,  ///< the value is too long to be held
    };

    TextArgument() = default;
    ~TextArgument();
    TextArgument(const TextArgument&) = delete;
    TextArgument& operator=(const TextArgument&) = delete;

    /// What is read from here on is wiped before its memory is given back: for credentials.
    void keep_secret() { _secret = true; }

    /// Reads argument `number`, once per object. After anything but Read, text() is null.
    Outcome read(const ExternalCall& call, uint32 number);

    /// Joins the value whose first piece `pieces` holds already and is not NULL.
    Outcome join(ArgumentPieces& pieces);

    /// The terminated text, owned by this object; bytes after an embedded zero are there but a C
    /// string ends at it. Null before a successful read.
    [[nodiscard]] const char* text() const { return _text; }
    /// The argument's declared type, known after a read() that was not Missing.
    [[nodiscard]] a_sql_data_type type() const { return _type; }

  private:
    a_bool reserve(uint64 length);
    void drop();

    char* _text = nullptr;
    std::size_t _size = 0;  // of the text's memory
    a_bool _secret = false;
    a_sql_data_type _type = 0;
    char _inline[256];
};

#endif
