#ifndef QUOREL_EXTDLL_MAILARGS_H
#define QUOREL_EXTDLL_MAILARGS_H

/// The arguments of the mail procedures, read from the call frame and taken apart. Everything here
/// lives on one call's stack.

#include <optional>

#include "extdll/extcall.h"

/// Splits `name` at ";" into a null-terminated array of new strings; do_free() frees it. Empty
/// fields are skipped and blanks are kept; there is no quoting. Null has no fields. *count becomes
/// their number. Null when there is no memory for all of it, with nothing left behind.
/// Kept: *count then counts the strings that were stored before memory ran out.
char** make_argv(const char* name, int* count);

/// Frees an array of make_argv(); null is ignored.
void do_free(char** list);

/// The addresses of one recipient list; see make_argv(). A list that is not whole must not be sent
/// to: some would not hear of it.
class AddressList {
  public:
    explicit AddressList(const char* text) : _list(make_argv(text, &_count)) {}
    ~AddressList() { do_free(_list); }
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;

    bool is_whole() const { return _list != nullptr; }
    const char** addresses() const { return const_cast<const char**>(_list); }
    int count() const { return _count; }

  private:
    int _count = 0;
    char** _list;  // owned
};

/// An int32 argument: the first four bytes of the value, whatever its type, missing ones being 0.
class IntegerArgument {
  public:
    /// False when the host refuses the argument. A NULL value is read as no value.
    bool read(const ExternalCall& call, uint32 number);

    bool has_value() const { return _value.has_value(); }
    int32 value() const { return _value.value_or(0); }
    int32 value_or(int32 otherwise) const { return _value.value_or(otherwise); }

  private:
    std::optional<int32> _value;
};

#endif
