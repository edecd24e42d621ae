#ifndef QUOREL_HOST_FILECHECK_H
#define QUOREL_HOST_FILECHECK_H

/// Whether a file bears out a status of 0: the library does not notice a write that fails, nor a
/// file that changes while it is sent.

#include <cstdint>
#include <optional>
#include <string>

#include "host/callarguments.h"

namespace host {

/// Which file of a procedure tells by its size that a status of 0 holds. Only a regular file does.
struct FileRule {
    enum class Size {
        Unchecked,
        AsGiven,  ///< that of the parameter `contents`
        AsBefore  ///< what it was before the call
    };
    Size size = Size::Unchecked;
    std::uint32_t name = 0;      ///< the parameter that names the file
    std::uint32_t contents = 0;  ///< the parameter with its bytes
};

/// One call's check: make it right before the call, ask it after a status of 0.
class FileCheck {
  public:
    /// Both arguments are not owned and outlive the check.
    FileCheck(const FileRule& rule, const CallArguments& arguments);

    /// What speaks against the status ("the file holds 0 of 5 bytes"); empty where nothing does.
    [[nodiscard]] std::string doubt() const;

  private:
    [[nodiscard]] std::string _written() const;
    [[nodiscard]] std::string _sent() const;

    const FileRule& _rule;
    const CallArguments& _arguments;
    std::string _file;                   // empty: nothing is checked
    std::optional<std::uint64_t> _size;  // before the call, of a regular file
};

}  // namespace host

#endif
