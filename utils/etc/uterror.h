#ifndef QUOREL_UTILS_ETC_UTERROR_H
#define QUOREL_UTILS_ETC_UTERROR_H

#include "utils/etc/uttypes.h"

/// What an error code's number means.
enum UTErrorType : uint32 {
    ET_POSIX = 0,  ///< an errno value
};

/// An error as streams and sockets report it: a number and the kind of number it is. A plain value;
/// the default is "no error".
class UTErrorCode {
  public:
    constexpr UTErrorCode() = default;
    constexpr UTErrorCode(UTErrorType type, uint32 code) : _error_type(type), _error_code(code) {}

    /// The error that errno stands for.
    static constexpr UTErrorCode from_errno(int error) {
        return {ET_POSIX, static_cast<uint32>(error)};
    }

    constexpr UTErrorType type() const { return _error_type; }
    constexpr uint32 code() const { return _error_code; }  // 0: no error
    constexpr a_bool is_error() const { return _error_code != 0; }

    constexpr a_bool operator==(const UTErrorCode&) const = default;

  private:
    UTErrorType _error_type = ET_POSIX;
    uint32 _error_code = 0;
};

#endif
