#ifndef QUOREL_HOST_CALLARGUMENTS_H
#define QUOREL_HOST_CALLARGUMENTS_H

/// The arguments of one call: what the caller gave, as the rules of its procedure see and change it
/// before the library does.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// Numbers are parameters' and go from 1 to count().
class CallArguments {
  public:
    /// Empty: NULL. Never a null pointer.
    using Bytes = std::optional<std::string_view>;

    /// None of them given, all of them NULL.
    explicit CallArguments(std::uint32_t count) : _arguments(count) {}

    [[nodiscard]] std::uint32_t count() const {
        return static_cast<std::uint32_t>(_arguments.size());
    }
    [[nodiscard]] bool given(std::uint32_t number) const { return _arguments[number - 1].given; }
    [[nodiscard]] const Bytes& operator[](std::uint32_t number) const {
        return _arguments[number - 1].bytes;
    }
    /// The value of a Content::Switch; nothing when it is NULL.
    [[nodiscard]] std::optional<bool> is_on(std::uint32_t number) const;

    void own(std::uint32_t number, std::string value);
    /// The first `length` bytes of `memory`.
    void own(std::uint32_t number, std::unique_ptr<char[]> memory, std::size_t length);
    /// `value` stays readable until this object is gone.
    void lend(std::uint32_t number, std::string_view value);
    void set_null(std::uint32_t number);

  private:
    struct Argument {
        bool given = false;
        std::string text;  // storage of `bytes`, unless it is `memory` or lent
        std::unique_ptr<char[]> memory;
        Bytes bytes;
    };
    std::vector<Argument> _arguments;
};

}  // namespace host

#endif
